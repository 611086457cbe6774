#include <kestrixkit/foundation/KXMainThreadDictionary.h>

#include <map>
#include <mutex>

#include <QLatin1StringView>

namespace {

struct MainThreadEntries
{
    std::mutex mutex;
    std::map<QLatin1StringView, std::any> values;
};

MainThreadEntries &mainThreadEntries()
{
    static MainThreadEntries entries;
    return entries;
}

}

std::any KXMainThreadDictionary::value(QLatin1StringView key)
{
    MainThreadEntries &entries = mainThreadEntries();
    const std::lock_guard lock(entries.mutex);
    const auto found = entries.values.find(key);
    return found == entries.values.end() ? std::any() : found->second;
}

void KXMainThreadDictionary::setValue(QLatin1StringView key, std::any value)
{
    MainThreadEntries &entries = mainThreadEntries();
    {
        const std::lock_guard lock(entries.mutex);
        entries.values[key].swap(value);
    }
    // The value before dies here, outside the lock: its destructor may look things up.
}

void KXMainThreadDictionary::remove(QLatin1StringView key)
{
    MainThreadEntries &entries = mainThreadEntries();
    std::any before; // dies after the lock is gone
    const std::lock_guard lock(entries.mutex);
    const auto found = entries.values.find(key);
    if (found == entries.values.end())
        return;
    before = std::move(found->second);
    entries.values.erase(found);
}
