// How a live list tells its observer what has become of it: a few steps, or one reordering.

#include <kestrixkit/context/KXLiveList.h>

#include <algorithm>
#include <functional>

#include <kestrixkit/context/KXKeyFilter_p.h>

void KXLiveList::apply(const KXListStep &step, const std::function<void()> &change)
{
    m_following = true;
    if (m_observer)
        m_observer->listWillChange(step);
    change();
    if (m_observer)
        m_observer->listDidChange(step);
    m_following = false;
}

/// A few steps, the last of which makes the list what is given. `moved` is in the new order.
void KXLiveList::changeStepwise(const std::vector<qint64> &keys, const std::vector<qint64> &gone,
    const std::vector<qint64> &come, const std::vector<qint64> &moved)
{
    const auto at = [this](qint64 key) { return std::find(m_keys.begin(), m_keys.end(), key); };
    std::vector<qsizetype> places = indexesOf(gone);
    std::sort(places.begin(), places.end());
    while (!places.empty()) {
        // From the last to the first, neighbours together.
        qsizetype first = places.back(), count = 0;
        for (; !places.empty() && places.back() == first - (count > 0); ++count) {
            first = places.back();
            places.pop_back();
        }
        apply({ KXListStep::Removal, first, count },
            [&] { m_keys.erase(m_keys.begin() + first, m_keys.begin() + first + count); });
    }
    const KXKeyFilter comes(come);
    for (const qint64 key : moved) {
        auto before = std::find(keys.begin(), keys.end(), key);
        while (before != keys.begin() && comes.contains(*(before - 1)))
            --before;
        const auto from = at(key);
        const auto to = before == keys.begin() ? m_keys.begin() : at(*(before - 1)) + 1;
        if (to == from || to == from + 1)
            continue;
        apply({ KXListStep::Move, from - m_keys.begin(), 1, to - m_keys.begin() }, [&] {
            if (to > from)
                std::rotate(from, from + 1, to);
            else
                std::rotate(to, from, from + 1);
        });
    }
    if (come.empty())
        return;
    for (size_t i = 0; i < keys.size();) {
        size_t end = i;
        while (end < keys.size() && comes.contains(keys[end]))
            ++end;
        if (end > i) {
            apply({ KXListStep::Insertion, qsizetype(i), qsizetype(end - i) }, [&] {
                m_keys.insert(
                    m_keys.begin() + ptrdiff_t(i), keys.begin() + ptrdiff_t(i), keys.begin() + ptrdiff_t(end));
            });
        }
        i = end + 1;
    }
}

/// However many rows changed: what comes is put to the end, everything is put in order, with what goes last, and that
/// is cut off.
void KXLiveList::changeTo(std::vector<qint64> keys, const std::vector<qint64> &gone, const std::vector<qint64> &come)
{
    if (!come.empty()) {
        apply({ KXListStep::Insertion, size(), qsizetype(come.size()) }, [&] {
            if (m_keys.empty()) // the whole list comes, and already in order
                m_keys = keys;
            else
                m_keys.insert(m_keys.end(), come.begin(), come.end());
        });
    }
    const qsizetype left = qsizetype(keys.size());
    keys.insert(keys.end(), gone.begin(), gone.end());
    if (keys != m_keys)
        apply({ KXListStep::Reordering, 0, size() }, [&] { m_keys = std::move(keys); });
    if (!gone.empty())
        apply({ KXListStep::Removal, left, qsizetype(gone.size()) }, [&] { m_keys.resize(size_t(left)); });
    m_keys.shrink_to_fit();
}

void KXLiveList::announceUpdates(const std::vector<qint64> &keys)
{
    if (!m_observer)
        return;
    std::vector<qsizetype> places = indexesOf(keys);
    std::erase(places, -1);
    std::sort(places.begin(), places.end());
    for (size_t i = 0; i < places.size();) {
        size_t end = i + 1;
        while (end < places.size() && places[end] == places[end - 1] + 1)
            ++end;
        m_observer->listDidChange({ KXListStep::Update, places[i], qsizetype(end - i) });
        i = end;
    }
}
