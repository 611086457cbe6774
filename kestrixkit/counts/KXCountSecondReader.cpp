#include <kestrixkit/counts/KXCountSecondReader_p.h>

#include <kestrixkit/counts/KXCountFiller_p.h>

namespace {

/// The last part to be read, for which one of the two waits, is to be a small one of all.
constexpr qint64 countParts = 64;

}

KXCountParts::KXCountParts(KXRowReader::KeyRange range)
    : m_range(range)
    , m_length((range.last - range.first) / countParts + 1)
    , m_behind((range.last - range.first) / m_length + 1)
{
}

std::optional<KXRowReader::KeyRange> KXCountParts::takeFirst()
{
    const KXMutexLocker lock(m_mutex);
    return m_next < m_behind ? std::optional(part(m_next++)) : std::nullopt;
}

std::optional<KXRowReader::KeyRange> KXCountParts::takeLast()
{
    const KXMutexLocker lock(m_mutex);
    return m_next < m_behind ? std::optional(part(--m_behind)) : std::nullopt;
}

void KXCountParts::close()
{
    const KXMutexLocker lock(m_mutex);
    m_next = m_behind;
}

KXRowReader::KeyRange KXCountParts::part(qint64 number) const
{
    const qint64 first = m_range.first + number * m_length;
    return { first, m_range.last - first < m_length ? m_range.last : first + m_length - 1 };
}

KXCountSecondReader::KXCountSecondReader(KXRowReader &reader, const KXEntityDescription &entity,
    const KXRowReader::Properties &properties, KXCountParts &parts)
{
    for (const KXPropertyDescription *property : properties)
        m_columns.push_back(std::make_unique<KXCountColumn>(*property));
    m_thread = std::thread([&, this] { read(reader, entity, properties, parts); });
}

KXCountSecondReader::~KXCountSecondReader()
{
    if (m_thread.joinable())
        m_thread.join();
}

void KXCountSecondReader::read(KXRowReader &reader, const KXEntityDescription &entity,
    const KXRowReader::Properties &properties, KXCountParts &parts)
{
    std::vector<KXCountColumn *> columns;
    for (const auto &column : m_columns) {
        column->putOffReading();
        columns.push_back(column.get());
    }
    KXCountFiller filler(columns);
    const auto take = [&](qint64 key, const auto &values) {
        if (m_keys.size() == m_room)
            makeRoom();
        m_keys.push_back(key);
        filler.fill(m_keys.size() - 1, values);
    };
    while (const auto part = m_error ? std::nullopt : parts.takeLast()) {
        m_parts.push_back(m_keys.size());
        m_error = reader.rowsWithin(entity, properties, *part, take);
    }
}

void KXCountSecondReader::makeRoom()
{
    m_room += m_room / 2 + 4096;
    for (const auto &column : m_columns)
        column->resize(m_room);
}

KXError KXCountSecondReader::finish(
    const std::vector<KXCountColumn *> &into, const std::function<qint64(qint64 key)> &rowFor)
{
    m_thread.join();
    if (m_error)
        return m_error;
    std::vector<qint64> rows(m_keys.size());
    size_t end = m_keys.size();
    for (auto part = m_parts.rbegin(); part != m_parts.rend(); ++part) { // the last that was read comes first
        for (size_t i = *part; i < end; ++i)
            rows[i] = rowFor(m_keys[i]);
        end = *part;
    }
    for (size_t i = 0; i < into.size(); ++i)
        into[i]->takeRows(rows, *m_columns[i]);
    return {};
}
