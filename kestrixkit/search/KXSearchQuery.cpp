// One search in one group.

#include <kestrixkit/search/KXSearchState_p.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

namespace {

bool queryHolds(const QByteArray &words, const QByteArray &needle)
{
    return ::memmem(words.constData(), size_t(words.size()), needle.constData(), size_t(needle.size())) != nullptr;
}

bool queryHas(const KXSearchBits &bits, quint32 row) { return bits[row >> 6] >> (row & 63) & 1; }

/// One group while it is searched.
class Query
{
public:
    Query(const KXSearchGroupState &group, KXSearchMemory &memory, const KXSearchStop &stop)
        : m_segment(group.segment)
        , m_memory(memory)
        , m_stop(stop)
    {
        for (const auto &row : group.changed) {
            if (row->row)
                m_former.push_back(*row->row);
            if (row->isThere)
                m_rows.push_back(row.get());
        }
        m_fits.assign(m_rows.size(), true);
    }

    void narrow(const QByteArray &word);
    [[nodiscard]] KXSearchFound found(size_t limit);

private:
    [[nodiscard]] bool isEmpty(const KXSearchBits &bits) const;
    /// Of the changed rows, whether a word begins with, or holds, what is looked for; `found`: the segment's rows that
    /// have one.
    [[nodiscard]] std::vector<bool> look(const QByteArray &word, bool inside, const KXSearchBits &found) const;

    const std::shared_ptr<const KXSearchSegment> m_segment;
    KXSearchMemory &m_memory;
    const KXSearchStop &m_stop;
    std::vector<quint32> m_former; // rows of the segment that are no more what they were
    std::vector<const KXSearchChangedRow *> m_rows;
    std::vector<bool> m_fits;
    KXSearchBits m_bits;
    std::shared_ptr<const KXSearchBits> m_first; // the only word's
};

std::vector<bool> Query::look(const QByteArray &word, bool inside, const KXSearchBits &found) const
{
    const QByteArray needle = inside ? word : '\0' + word;
    constexpr size_t rowsPerLook = 1024;
    std::vector<bool> fits(m_rows.size());
    for (size_t i = 0; i < m_rows.size(); ++i) {
        if (i % rowsPerLook == 0)
            m_stop.look();
        const KXSearchChangedRow &row = *m_rows[i];
        fits[i] = queryHolds(row.text.words, needle) || (row.isAddition && queryHas(found, *row.row));
    }
    return fits;
}

/// Whether nothing is left without the rows that have changed.
bool Query::isEmpty(const KXSearchBits &bits) const
{
    size_t count = 0;
    for (const quint64 word : bits) {
        count += size_t(std::popcount(word));
        if (count > m_former.size())
            return false;
    }
    for (const quint32 row : m_former)
        count -= queryHas(bits, row);
    return count == 0;
}

void Query::narrow(const QByteArray &word)
{
    std::shared_ptr<const KXSearchBits> bits = m_memory.rows(m_segment, word, false, m_stop);
    std::vector<bool> fits = look(word, false, *bits);
    if (std::find(fits.begin(), fits.end(), true) == fits.end() && KXTextWords::mayBeInside(word) && isEmpty(*bits)) {
        bits = m_memory.rows(m_segment, word, true, m_stop);
        fits = look(word, true, *bits);
    }
    for (size_t i = 0; i < fits.size(); ++i)
        m_fits[i] = m_fits[i] && fits[i];
    if (m_bits.empty() && !m_first) {
        m_first = bits;
        return;
    }
    if (m_first) {
        m_bits = *m_first;
        m_first.reset();
    }
    for (size_t i = 0; i < m_bits.size(); ++i)
        m_bits[i] &= (*bits)[i];
}

KXSearchFound Query::found(size_t limit)
{
    if (m_first)
        m_bits = *m_first;
    for (const quint32 row : m_former)
        m_bits[row >> 6] &= ~(quint64(1) << (row & 63));
    std::vector<const KXSearchChangedRow *> changed;
    for (size_t i = 0; i < m_rows.size(); ++i) {
        if (m_fits[i])
            changed.push_back(m_rows[i]);
    }
    KXSearchFound result;
    for (const quint64 word : m_bits)
        result.count += std::popcount(word);
    result.count += qint64(changed.size());
    const auto precedes = [](const KXSearchChangedRow *a, const KXSearchChangedRow *b) {
        if (a->rowsBefore != b->rowsBefore)
            return a->rowsBefore < b->rowsBefore;
        const QByteArray &rankA = a->text.rank, &rankB = b->text.rank;
        const int order
            = std::memcmp(rankA.constData(), rankB.constData(), size_t(std::min(rankA.size(), rankB.size())));
        if (order != 0)
            return order < 0;
        return rankA.size() != rankB.size() ? rankA.size() < rankB.size() : a->text.key < b->text.key;
    };
    const size_t wanted = std::min(limit, changed.size());
    std::partial_sort(changed.begin(), changed.begin() + ptrdiff_t(wanted), changed.end(), precedes);
    size_t next = 0;
    const std::span<const quint64> bits = m_bits;
    for (size_t i = 0; i < bits.size(); ++i) {
        if (!bits[i])
            continue; // of a rare word, nearly all
        if (result.first.size() >= limit)
            break;
        for (quint64 word = bits[i]; word && result.first.size() < limit; word &= word - 1) {
            const auto row = quint32(i * 64 + size_t(std::countr_zero(word)));
            while (next < wanted && changed[next]->rowsBefore <= row && result.first.size() < limit)
                result.first.push_back(changed[next++]->text.key);
            if (result.first.size() < limit)
                result.first.push_back(m_segment->key(row));
        }
    }
    while (next < wanted && result.first.size() < limit)
        result.first.push_back(changed[next++]->text.key);
    return result;
}

}

std::shared_ptr<const KXSearchBits> KXSearchMemory::rows(const std::shared_ptr<const KXSearchSegment> &segment,
    const QByteArray &word, bool inside, const KXSearchStop &stop)
{
    if (m_segment != segment) {
        m_entries.clear();
        m_segment = segment;
    }
    const auto known = std::find_if(m_entries.begin(), m_entries.end(),
        [&](const Entry &entry) { return entry.inside == inside && entry.word == word; });
    if (known != m_entries.end())
        return known->bits;
    auto bits = std::make_shared<KXSearchBits>(segment->bitWords());
    if (inside)
        segment->addHolding(word, *bits, stop);
    else
        segment->addBeginning(word, *bits, stop);
    m_entries.push_front({ word, inside, bits });
    if (m_entries.size() > Most)
        m_entries.pop_back();
    return bits;
}

KXSearchFound KXSearchFind(const KXSearchGroupState &group, const std::vector<QByteArray> &words, size_t limit,
    KXSearchMemory &memory, const KXSearchStop &stop)
{
    if (words.empty())
        return {};
    Query query(group, memory, stop);
    for (const QByteArray &word : words) {
        stop.look();
        query.narrow(word);
    }
    return query.found(limit);
}
