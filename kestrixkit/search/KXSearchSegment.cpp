#include <kestrixkit/search/KXSearchSegment_p.h>

#include <algorithm>
#include <cstring>

namespace {

/// Seven bits a byte, the lowest first; a set top bit says that more follow.
quint32 segmentNumber(const uchar *&at, const uchar *end)
{
    quint32 value = 0;
    for (int shift = 0; shift < 35; shift += 7) {
        if (at == end)
            throw KXSearchDamage {};
        const uchar byte = *at++;
        value |= quint32(byte & 0x7F) << shift;
        if (!(byte & 0x80))
            return value;
    }
    throw KXSearchDamage {};
}

/// As the order of words has it: a prefix stands before what it begins.
int segmentCompare(QByteArrayView a, QByteArrayView b)
{
    const int order = std::memcmp(a.data(), b.data(), size_t(std::min(a.size(), b.size())));
    return order != 0 ? order : a.size() < b.size() ? -1 : int(a.size() > b.size());
}

/// The first place of the text, which is not empty; nullptr where it is nowhere. Its first two bytes and its last one
/// are looked for at many places in one, in a loop that compilers turn into wide instructions: short texts, which
/// people type, are found several times as fast as by memmem().
const char *segmentPlaceOf(QByteArrayView text, const char *begin, const char *end)
{
    constexpr ptrdiff_t together = 64;
    const ptrdiff_t second = text.size() > 1, last = text.size() - 1;
    const char a = text.front(), b = text[second], c = text.back();
    for (const char *const behind = end - last; begin < behind;) {
        const ptrdiff_t places = std::min(together, behind - begin);
        if (places == together) {
            uchar any = 0;
            for (ptrdiff_t i = 0; i < together; ++i)
                any |= uchar(begin[i] == a) & uchar(begin[i + second] == b) & uchar(begin[i + last] == c);
            if (!any) {
                begin += together;
                continue;
            }
        }
        for (const char *const next = begin + places; begin < next; ++begin) {
            if (*begin == a && begin[last] == c && std::memcmp(begin, text.data(), size_t(text.size())) == 0)
                return begin;
        }
    }
    return nullptr;
}

}

KXSearchSegment::KXSearchSegment(std::shared_ptr<const KXSearchBytes> bytes, qsizetype from, qsizetype size)
    : m_bytes(std::move(bytes))
    , m_from(from)
{
    std::memcpy(&m_layout, m_bytes->at(from, sizeof m_layout), sizeof m_layout);
    constexpr quint64 most = quint64(1) << 31;
    if (m_layout.size != quint64(size) || m_layout.rows > most || m_layout.words > most
        || (m_layout.keyWidth != 4 && m_layout.keyWidth != 8))
        throw KXSearchDamage {};
}

quint32 KXSearchSegment::number(quint64 table, quint64 index) const
{
    quint32 value;
    std::memcpy(&value, at(table + index * 4, 4), 4);
    return value;
}

QByteArrayView KXSearchSegment::wordView(quint32 word) const
{
    const quint32 from = number(m_layout.wordPlaces, word);
    const quint32 end = number(m_layout.wordPlaces, word + 1);
    if (end <= from)
        throw KXSearchDamage {};
    return { at(m_layout.wordText + from, end - from), qsizetype(end - from - 1) }; // without its zero
}

QByteArray KXSearchSegment::word(quint32 word) const { return wordView(word).toByteArray(); }

qint64 KXSearchSegment::key(quint32 row) const
{
    if (m_layout.keyWidth == 4)
        return number(m_layout.keys, row);
    qint64 value;
    std::memcpy(&value, at(m_layout.keys + quint64(row) * 8, 8), 8);
    return value;
}

std::optional<quint32> KXSearchSegment::rowOf(qint64 key) const
{
    quint32 from = 0;
    quint32 to = rows();
    while (from < to) {
        const quint32 middle = from + (to - from) / 2;
        const quint32 row = number(m_layout.rowsByKey, middle);
        if (row >= rows())
            throw KXSearchDamage {};
        const qint64 found = this->key(row);
        if (found == key)
            return row;
        if (found < key)
            from = middle + 1;
        else
            to = middle;
    }
    return std::nullopt;
}

KXSearchSegment::RankBlock KXSearchSegment::rankBlock(quint32 block) const
{
    const quint32 from = number(m_layout.rankPlaces, block);
    const quint32 end = number(m_layout.rankPlaces, block + 1);
    if (end < from)
        throw KXSearchDamage {};
    const auto *bytes = reinterpret_cast<const uchar *>(at(m_layout.ranks + from, end - from));
    return { bytes, bytes + (end - from) };
}

/// What the next rank adds to the first `shared` bytes of the one before, which has `before` bytes.
QByteArrayView KXSearchSegment::nextRank(RankBlock &block, qsizetype before, quint32 &shared)
{
    shared = segmentNumber(block.at, block.end);
    const quint32 size = segmentNumber(block.at, block.end);
    if (shared > quint32(before) || size > size_t(block.end - block.at))
        throw KXSearchDamage {};
    const QByteArrayView added(reinterpret_cast<const char *>(block.at), qsizetype(size));
    block.at += size;
    return added;
}

template <typename Function> void KXSearchSegment::eachRank(quint32 block, Function &&function) const
{
    RankBlock ranks = rankBlock(block);
    QByteArray rank;
    const quint32 first = block * RowsPerRankBlock;
    for (quint32 row = first; row < std::min(rows(), first + RowsPerRankBlock); ++row) {
        quint32 shared;
        const QByteArrayView added = nextRank(ranks, rank.size(), shared);
        rank.resize(shared);
        rank.append(added);
        if (function(row, QByteArrayView(rank)))
            return;
    }
}

/// Shares nothing with another one.
QByteArrayView KXSearchSegment::firstRank(quint32 block) const
{
    RankBlock ranks = rankBlock(block);
    quint32 shared;
    return nextRank(ranks, 0, shared);
}

quint32 KXSearchSegment::rowsBefore(const QByteArray &rank, qint64 key) const
{
    const auto isBefore = [&](quint32 row, QByteArrayView other) {
        const int order = segmentCompare(other, rank);
        return order != 0 ? order < 0 : this->key(row) < key;
    };
    quint32 from = 0;
    quint32 to = (rows() + RowsPerRankBlock - 1) / RowsPerRankBlock;
    while (from < to) { // the first block that does not begin before
        const quint32 middle = from + (to - from) / 2;
        if (isBefore(middle * RowsPerRankBlock, firstRank(middle)))
            from = middle + 1;
        else
            to = middle;
    }
    if (from == 0)
        return 0;
    quint32 before = std::min(rows(), from * RowsPerRankBlock);
    eachRank(from - 1, [&](quint32 row, QByteArrayView other) {
        if (isBefore(row, other))
            return false;
        before = row;
        return true;
    });
    return before;
}

/// The first word that does not stand before the prefix; `after`: before all that it begins.
quint32 KXSearchSegment::firstNotBefore(QByteArrayView prefix, bool after) const
{
    quint32 from = 0;
    quint32 to = words();
    while (from < to) {
        const quint32 middle = from + (to - from) / 2;
        const QByteArrayView word = wordView(middle);
        const bool isBefore = after ? segmentCompare(word.first(std::min(word.size(), prefix.size())), prefix) <= 0
                                    : segmentCompare(word, prefix) < 0;
        if (isBefore)
            from = middle + 1;
        else
            to = middle;
    }
    return from;
}

KXSearchNode KXSearchSegment::node(quint64 index) const
{
    KXSearchNode node;
    std::memcpy(&node, at(m_layout.nodeTable + index * sizeof node, sizeof node), sizeof node);
    return node;
}

void KXSearchSegment::addList(quint32 word, KXSearchBits &bits) const
{
    const quint32 from = number(m_layout.listPlaces, word);
    const quint32 end = number(m_layout.listPlaces, word + 1);
    if (end < from)
        throw KXSearchDamage {};
    const auto *p = reinterpret_cast<const uchar *>(at(m_layout.lists + from, end - from));
    const uchar *const last = p + (end - from);
    const quint32 count = rows();
    quint32 next = 0; // each number is the distance to the row behind the one before
    while (p < last) {
        quint32 distance = *p;
        if (distance < 0x80)
            ++p;
        else
            distance = segmentNumber(p, last);
        if (distance >= count - next)
            throw KXSearchDamage {};
        const quint32 row = next + distance;
        bits[row >> 6] |= quint64(1) << (row & 63);
        next = row + 1;
        if (next == count)
            break;
    }
}

void KXSearchSegment::addWords(quint32 from, quint32 to, KXSearchBits &bits, const KXSearchStop &stop) const
{
    constexpr quint32 wordsPerLook = 256;
    for (quint32 word = from; word < to; ++word) {
        if ((word - from) % wordsPerLook == 0)
            stop.look();
        addList(word, bits);
    }
}

void KXSearchSegment::addBeginning(QByteArrayView prefix, KXSearchBits &bits, const KXSearchStop &stop) const
{
    quint32 word = firstNotBefore(prefix, false);
    const quint32 end = firstNotBefore(prefix, true);
    // Nodes lie side by side or in each other, the wider first.
    quint64 from = 0;
    quint64 to = m_layout.nodes;
    while (from < to) {
        const quint64 middle = from + (to - from) / 2;
        if (node(middle).firstWord < word)
            from = middle + 1;
        else
            to = middle;
    }
    for (quint64 i = from; i < m_layout.nodes && word < end; ++i) {
        const KXSearchNode kept = node(i);
        if (kept.firstWord >= end)
            break;
        if (kept.firstWord < word || kept.endWord > end)
            continue; // in one that was taken, or around the prefix
        addWords(word, kept.firstWord, bits, stop);
        const char *set = at(m_layout.bitmaps + i * bitWords() * 8, bitWords() * 8);
        for (size_t k = 0; k < bits.size(); ++k) {
            quint64 part;
            std::memcpy(&part, set + k * 8, 8);
            bits[k] |= part;
        }
        word = kept.endWord;
    }
    addWords(word, end, bits, stop);
}

void KXSearchSegment::addHolding(QByteArrayView text, KXSearchBits &bits, const KXSearchStop &stop) const
{
    if (words() == 0)
        return;
    const char *const table = at(m_layout.wordPlaces, (m_layout.words + 1) * 4);
    const auto placeOf = [table](quint32 word) {
        quint32 place;
        std::memcpy(&place, table + quint64(word) * 4, 4);
        return place;
    };
    const quint32 size = placeOf(words());
    constexpr quint32 slice = 64 << 10; // between two looks whether anybody still waits
    quint32 word = 0;
    for (quint32 from = 0; from < size;) {
        stop.look();
        // A slice overlaps the next one by what could begin in it; words end with zeros, which no text holds.
        const quint32 length = std::min(size - from, slice + quint32(text.size()) - 1);
        const char *begin = at(m_layout.wordText + from, length);
        const char *const found = segmentPlaceOf(text, begin, begin + length);
        if (!found) {
            from += slice;
            continue;
        }
        const quint32 place = from + quint32(found - begin);
        // The word that it lies in, which is often a near one; those that follow come later.
        quint32 low = word;
        quint32 step = 1;
        for (; step < words() - low && placeOf(low + step) <= place; step *= 2)
            low += step;
        quint32 high = low + std::min(step, words() - low);
        while (high - low > 1) {
            const quint32 middle = low + (high - low) / 2;
            if (placeOf(middle) <= place)
                low = middle;
            else
                high = middle;
        }
        addList(low, bits);
        word = low;
        const quint32 next = placeOf(low + 1);
        if (next <= place)
            throw KXSearchDamage {};
        from = next;
    }
}
