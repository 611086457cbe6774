#include "places/PlaceHistory.h"

#include <kestrixkit/foundation/KXArchive.h>

namespace {

constexpr QStringView historyFormat = u"com.kestrix.browser.history";
constexpr int historyFormatNumber = 1;

QCborArray historyArchive(const QList<PlaceHistory::Entry> &entries)
{
    QCborArray all;
    for (const PlaceHistory::Entry &entry : entries)
        all.append(QCborArray {
            PlaceArchive::of(entry.place), entry.view ? PlaceArchive::of(*entry.view) : QCborValue(QCborValue::Null) });
    return all;
}

} // namespace

const PlaceHistory::Entry *PlaceHistory::peek(qsizetype steps) const
{
    const qsizetype at = m_current + steps;
    return at >= 0 && at < m_entries.size() ? &m_entries.at(at) : nullptr;
}

const PlaceHistory::Entry *PlaceHistory::current() const { return peek(0); }

void PlaceHistory::visit(const Place &place)
{
    if (current() && current()->place == place)
        return;
    m_entries.resize(m_current + 1);
    m_entries.append({ place, {} });
    if (m_entries.size() > MostEntries)
        m_entries.removeFirst();
    m_current = m_entries.size() - 1;
}

void PlaceHistory::go(qsizetype steps)
{
    if (peek(steps))
        m_current += steps;
}

void PlaceHistory::forget(qsizetype steps)
{
    if (steps == 0 || !peek(steps))
        return;
    m_entries.removeAt(m_current + steps);
    if (steps < 0)
        --m_current;
}

void PlaceHistory::leave(const PlaceView &view)
{
    if (!current())
        return;
    Entry &entry = m_entries[m_current];
    entry.view = view;
    m_left.removeIf([&](const Entry &left) { return left.place == entry.place; });
    m_left.append(entry);
    if (m_left.size() > MostRemembered)
        m_left.removeFirst();
}

std::optional<PlaceView> PlaceHistory::viewOf(const Place &place) const
{
    for (const Entry &left : m_left) {
        if (left.place == place)
            return left.view;
    }
    return std::nullopt;
}

QByteArray PlaceHistory::archived() const
{
    return KXArchive::archive(historyFormat, historyFormatNumber,
        QCborArray { qint64(m_current), historyArchive(m_entries), historyArchive(m_left) });
}

PlaceHistory PlaceHistory::ofArchive(const QByteArray &bytes)
{
    const auto values = KXArchive::unarchive(bytes, historyFormat, historyFormatNumber);
    PlaceHistory history;
    const QCborArray parts = values ? values->toArray() : QCborArray();
    const qint64 kept = parts.at(0).toInteger(-1);
    qsizetype current = -1;
    const auto read = [](const QCborArray &from, QList<Entry> &to, qsizetype most, auto &&wasRead) {
        for (qsizetype i = 0; i < from.size() && to.size() < most; ++i) {
            Entry entry;
            const QCborArray pair = from.at(i).toArray();
            PlaceView view;
            const bool hasView = PlaceArchive::read(pair.at(1), view);
            if (!PlaceArchive::read(pair.at(0), entry.place) || (!hasView && !pair.at(1).isNull()))
                continue;
            if (hasView)
                entry.view = view;
            to.append(entry);
            wasRead(i);
        }
    };
    // Where the current one makes no sense, the one before it is.
    read(parts.at(1).toArray(), history.m_entries, MostEntries, [&](qsizetype i) { current += i <= kept; });
    read(parts.at(2).toArray(), history.m_left, MostRemembered, [](qsizetype) {});
    history.m_current = history.m_entries.isEmpty() ? -1 : std::max<qsizetype>(current, 0);
    return history;
}
