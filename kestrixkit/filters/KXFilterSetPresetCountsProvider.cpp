#include <kestrixkit/filters/KXFilterSetPresetCountsProvider.h>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXMainQueue.h>

using namespace Qt::StringLiterals;

namespace {

KXManagedObjectContext::Ref countsContextOf(const KXRef<KXFilterSetPreset> &preset)
{
    KXManagedObjectContext *context = preset ? preset->managedObjectContext() : nullptr;
    return context ? context->shared_from_this() : nullptr;
}

}

KXFilterSetPresetCountsProvider::KXFilterSetPresetCountsProvider(
    KXRef<KXFilterSetPreset> preset, QString contextIdentifier)
    : KXManagedObjectContextOperation(countsContextOf(preset))
    , m_contextIdentifier(std::move(contextIdentifier))
{
    setFilterSetPreset(std::move(preset));
}

KXFilterSetPresetCountsProvider::~KXFilterSetPresetCountsProvider()
{
    // The last handle on a stored object has to go on its own thread, and so has its context's.
    if (!KXMainQueue::isMainThread()) {
        KXMainQueue::async([preset = std::move(m_preset), context = mainContext()]() mutable {
            preset.reset();
            context.reset();
        });
        setMainContext(nullptr);
    }
}

void KXFilterSetPresetCountsProvider::setFilterSetPreset(KXRef<KXFilterSetPreset> preset)
{
    m_preset = std::move(preset);
    m_presetID = m_preset ? m_preset->objectID() : KXManagedObjectID();
    m_filterSetURI = m_preset ? m_preset->filterSetURI() : QUrl();
}

KXError KXFilterSetPresetCountsProvider::error() const
{
    const std::lock_guard lock(m_errorMutex);
    return m_error;
}

void KXFilterSetPresetCountsProvider::setError(const KXError &error)
{
    const std::lock_guard lock(m_errorMutex);
    m_error = error;
}

void KXFilterSetPresetCountsProvider::start()
{
    m_started.store(true, std::memory_order_release);
    setExecuting(true);
    try {
        loadCounts();
    } catch (const KXException &exception) {
        KXLogError(filters, "Failed to load counts: %@", exception);
    } catch (...) {
        setExecuting(false);
        throw;
    }
    setExecuting(false);
}

void KXFilterSetPresetCountsProvider::loadCounts() { setExecuting(false); }

void KXFilterSetPresetCountsProvider::deliverCountFrom(
    std::function<std::optional<qint64>(const KXFilterSetPreset &preset)> count)
{
    const auto self = std::static_pointer_cast<KXFilterSetPresetCountsProvider>(shared_from_this());
    KXMainQueue::async([self, count = std::move(count)] {
        const KXRef<KXFilterSetPreset> preset = self->m_preset;
        const auto found = preset && !self->isCancelled() ? count(*preset) : std::nullopt;
        if (found && !self->isCancelled())
            preset->setCount(*found, self->m_contextIdentifier);
    });
}

void KXFilterSetPresetCountsProvider::deliverCount(qint64 count, const QDateTime &counted)
{
    const auto self = std::static_pointer_cast<KXFilterSetPresetCountsProvider>(shared_from_this());
    KXMainQueue::async([self, count, counted] {
        if (!self->isCancelled() && self->m_preset)
            self->m_preset->setCount(count, self->m_contextIdentifier, counted);
    });
}
