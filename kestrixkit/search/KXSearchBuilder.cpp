#include <kestrixkit/search/KXSearchBuilder_p.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>

#include <QtEndian>

namespace {

void builderPut(std::vector<uchar> &out, quint32 value)
{
    while (value >= 0x80) {
        out.push_back(uchar(value | 0x80));
        value >>= 7;
    }
    out.push_back(uchar(value));
}

quint32 builderSize(quint32 value)
{
    quint32 size = 1;
    for (; value >= 0x80; value >>= 7)
        ++size;
    return size;
}

constexpr quint32 builderRowsPerLook = 4096;

}

void KXSearchBuilder::addRow(qint64 key, QByteArrayView rank)
{
    m_keys.push_back(key);
    m_ranks.append(rank.data(), size_t(rank.size()));
    m_rankPlaces.push_back(m_ranks.size());
}

std::optional<quint32> KXSearchBuilder::rowOf(qint64 key) const
{
    const auto found = std::lower_bound(m_keys.begin(), m_keys.end(), key);
    if (found == m_keys.end() || *found != key)
        return std::nullopt;
    return quint32(found - m_keys.begin());
}

quint32 KXSearchBuilder::wordNumber(QByteArrayView word)
{
    const quint64 hash = std::hash<std::string_view>()(std::string_view(word.data(), size_t(word.size())));
    const auto number = quint32(m_wordPlaces.size());
    const auto [entry, isNew] = m_wordNumbers.try_emplace(hash, number);
    if (!isNew) {
        if (wordAt(entry->second) == word)
            return entry->second;
        std::vector<quint32> &others = m_others[hash];
        for (const quint32 other : others) {
            if (wordAt(other) == word)
                return other;
        }
        others.push_back(number);
    }
    m_wordPlaces.emplace_back(quint32(m_wordText.size()), quint32(word.size()));
    m_wordText.append(word.data(), size_t(word.size()));
    return number;
}

quint32 KXSearchBuilder::addText(QByteArrayView utf8)
{
    const std::vector<QByteArrayView> &words = m_splitter.ofText(utf8);
    if (words.empty())
        return NoText;
    const size_t from = m_textWords.size();
    for (const QByteArrayView word : words)
        m_textWords.push_back(wordNumber(word));
    std::sort(m_textWords.begin() + ptrdiff_t(from), m_textWords.end());
    m_textWords.erase(std::unique(m_textWords.begin() + ptrdiff_t(from), m_textWords.end()), m_textWords.end());
    m_textPlaces.push_back(m_textWords.size());
    return quint32(m_textPlaces.size() - 2);
}

void KXSearchBuilder::link(quint32 row, quint32 text)
{
    if (text != NoText)
        m_links.emplace_back(row, text);
}

QByteArrayView KXSearchBuilder::rankOf(quint32 row) const
{
    return { m_ranks.data() + m_rankPlaces[row], qsizetype(m_rankPlaces[row + 1] - m_rankPlaces[row]) };
}

void KXSearchBuilder::sortRows()
{
    // Most ranks differ in few bytes behind what all share.
    struct Entry
    {
        quint64 begin;
        quint32 row;
    };
    qsizetype shared = m_keys.empty() ? 0 : rankOf(0).size();
    for (quint32 row = 1; row < rowCount(); ++row) {
        const QByteArrayView a = rankOf(0), b = rankOf(row);
        shared = std::min({ shared, a.size(), b.size() });
        shared = std::mismatch(a.begin(), a.begin() + shared, b.begin()).first - a.begin();
    }
    std::vector<Entry> entries(m_keys.size());
    for (quint32 row = 0; row < rowCount(); ++row) {
        const QByteArrayView rank = rankOf(row);
        char begin[8] = {};
        std::memcpy(begin, rank.data() + shared, size_t(std::min<qsizetype>(8, rank.size() - shared)));
        entries[row] = { qFromBigEndian<quint64>(begin), row };
    }
    std::sort(entries.begin(), entries.end(), [this](const Entry &a, const Entry &b) {
        if (a.begin != b.begin)
            return a.begin < b.begin;
        const QByteArrayView rankA = rankOf(a.row), rankB = rankOf(b.row);
        const int order = std::memcmp(rankA.data(), rankB.data(), size_t(std::min(rankA.size(), rankB.size())));
        if (order != 0)
            return order < 0;
        return rankA.size() != rankB.size() ? rankA.size() < rankB.size() : a.row < b.row;
    });
    m_order.resize(entries.size());
    std::transform(entries.begin(), entries.end(), m_order.begin(), [](const Entry &entry) { return entry.row; });
}

void KXSearchBuilder::sortWords()
{
    m_sorted.resize(m_wordPlaces.size());
    std::iota(m_sorted.begin(), m_sorted.end(), 0);
    std::sort(m_sorted.begin(), m_sorted.end(), [this](quint32 a, quint32 b) {
        const QByteArrayView x = wordAt(a), y = wordAt(b);
        const int order = std::memcmp(x.data(), y.data(), size_t(std::min(x.size(), y.size())));
        return order != 0 ? order < 0 : x.size() < y.size();
    });
    m_number.resize(m_sorted.size());
    for (size_t i = 0; i < m_sorted.size(); ++i)
        m_number[m_sorted[i]] = quint32(i);
}

/// The texts of each row, side by side.
void KXSearchBuilder::collectTexts()
{
    m_textsOfRow.assign(m_keys.size() + 1, 0);
    for (const auto &[row, text] : m_links)
        ++m_textsOfRow[row + 1];
    std::partial_sum(m_textsOfRow.begin(), m_textsOfRow.end(), m_textsOfRow.begin());
    m_texts.resize(m_links.size());
    std::vector<quint64> next(m_textsOfRow.begin(), m_textsOfRow.end() - 1);
    for (const auto &[row, text] : m_links)
        m_texts[next[row]++] = text;
    m_links = {};
}

/// Each word of each row once, rows in the order of their rank: with the sorted word's number, and how many rows lie
/// between this one and the word's last.
template <typename Function> void KXSearchBuilder::eachPosting(const KXSearchStop &stop, Function &&function)
{
    std::vector<quint32> next(m_sorted.size(), 0);
    for (quint32 rank = 0; rank < rowCount(); ++rank) {
        if (rank % builderRowsPerLook == 0)
            stop.look();
        const quint32 row = m_order[rank];
        for (quint64 i = m_textsOfRow[row]; i < m_textsOfRow[row + 1]; ++i) {
            for (quint64 k = m_textPlaces[m_texts[i]]; k < m_textPlaces[m_texts[i] + 1]; ++k) {
                const quint32 word = m_number[m_textWords[k]];
                if (next[word] > rank)
                    continue; // had it already
                function(word, rank - next[word]);
                next[word] = rank + 1;
            }
        }
    }
}

quint64 KXSearchBuilder::place()
{
    m_out.append((8 - m_out.size() % 8) % 8, '\0');
    return quint64(m_out.size());
}

template <typename T> void KXSearchBuilder::append(const std::vector<T> &values)
{
    m_out.append(reinterpret_cast<const char *>(values.data()), qsizetype(values.size() * sizeof(T)));
}

void KXSearchBuilder::writeWords()
{
    std::vector<quint32> places;
    places.reserve(m_sorted.size() + 1);
    quint32 size = 0;
    for (const quint32 word : m_sorted) {
        places.push_back(size);
        size += m_wordPlaces[word].second + 1;
    }
    places.push_back(size);
    m_layout.wordPlaces = place();
    append(places);
    m_layout.wordText = place();
    for (const quint32 word : m_sorted) {
        m_out.append(wordAt(word));
        m_out.append('\0');
    }
}

void KXSearchBuilder::writeLists(const KXSearchStop &stop)
{
    std::vector<quint32> sizes(m_sorted.size() + 1, 0);
    m_counts.assign(m_sorted.size(), 0);
    eachPosting(stop, [&](quint32 word, quint32 distance) {
        sizes[word + 1] += builderSize(distance);
        ++m_counts[word];
    });
    std::partial_sum(sizes.begin(), sizes.end(), sizes.begin());
    m_listPlaces = sizes;
    m_layout.listPlaces = place();
    append(m_listPlaces);
    m_layout.lists = place();
    m_out.resize(m_out.size() + qsizetype(m_listPlaces.back()));
    auto *lists = reinterpret_cast<uchar *>(m_out.data() + m_layout.lists);
    std::vector<quint32> ends(m_listPlaces.begin(), m_listPlaces.end() - 1);
    eachPosting(stop, [&](quint32 word, quint32 distance) {
        quint32 &end = ends[word];
        for (; distance >= 0x80; distance >>= 7)
            lists[end++] = uchar(distance | 0x80);
        lists[end++] = uchar(distance);
    });
    m_countsBefore.assign(m_counts.size() + 1, 0);
    std::partial_sum(m_counts.begin(), m_counts.end(), m_countsBefore.begin() + 1);
}

/// What it costs to put together the rows of the words, which share so many first bytes. Where that is too much, the
/// rows are kept as a set.
quint64 KXSearchBuilder::findNodes(quint32 from, quint32 to, qsizetype depth)
{
    const quint64 limit = std::max<quint64>(16'384, m_keys.size() / 12);
    const quint64 ofSet = m_keys.size() / 256 + 1;
    const quint64 all = m_countsBefore[to] - m_countsBefore[from];
    if (all <= limit)
        return all;
    quint64 cost = 0;
    if (to - from == 1) {
        cost = all;
    } else {
        for (quint32 word = from; word < to;) {
            const QByteArrayView text = wordAt(m_sorted[word]);
            quint32 end = word + 1;
            if (text.size() > depth) {
                const auto next = std::partition_point(m_sorted.begin() + end, m_sorted.begin() + to,
                    [&](quint32 other) { return uchar(wordAt(other)[depth]) <= uchar(text[depth]); });
                end = quint32(next - m_sorted.begin());
            }
            cost += findNodes(word, end, depth + 1);
            word = end;
        }
    }
    if (cost <= limit || depth == 0) // nobody asks for all words
        return cost;
    m_nodes.push_back({ from, to });
    return ofSet;
}

void KXSearchBuilder::writeNodes(const KXSearchStop &stop)
{
    findNodes(0, quint32(m_sorted.size()), 0);
    std::sort(m_nodes.begin(), m_nodes.end(), [](const KXSearchNode &a, const KXSearchNode &b) {
        return a.firstWord != b.firstWord ? a.firstWord < b.firstWord : a.endWord > b.endWord;
    });
    const auto isSame = [](const KXSearchNode &a, const KXSearchNode &b) {
        return a.firstWord == b.firstWord && a.endWord == b.endWord;
    };
    m_nodes.erase(std::unique(m_nodes.begin(), m_nodes.end(), isSame), m_nodes.end());
    m_layout.nodes = m_nodes.size();
    m_layout.nodeTable = place();
    append(m_nodes);
    m_layout.bitmaps = place();
    const size_t words = (m_keys.size() + 63) / 64;
    const auto *lists = reinterpret_cast<const uchar *>(m_out.constData() + m_layout.lists);
    std::vector<KXSearchBits> sets(m_nodes.size());
    for (size_t node = 0; node < m_nodes.size(); ++node) {
        stop.look();
        KXSearchBits &bits = sets[node];
        bits.resize(words);
        for (quint32 word = m_nodes[node].firstWord; word < m_nodes[node].endWord; ++word) {
            quint32 next = 0;
            for (const uchar *p = lists + m_listPlaces[word]; p < lists + m_listPlaces[word + 1];) {
                quint32 distance = 0;
                for (int shift = 0;; shift += 7) {
                    distance |= quint32(*p & 0x7F) << shift;
                    if (!(*p++ & 0x80))
                        break;
                }
                const quint32 row = next + distance;
                bits[row >> 6] |= quint64(1) << (row & 63);
                next = row + 1;
            }
        }
    }
    for (const KXSearchBits &bits : sets)
        append(bits);
}

void KXSearchBuilder::writeKeys()
{
    const bool isNarrow = m_keys.empty() || (m_keys.front() >= 0 && m_keys.back() <= 0xFFFFFFFF);
    m_layout.keyWidth = isNarrow ? 4 : 8;
    m_layout.keys = place();
    for (const quint32 row : m_order)
        m_out.append(reinterpret_cast<const char *>(&m_keys[row]), qsizetype(m_layout.keyWidth)); // little-endian
    std::vector<quint32> byKey(m_order.size());
    for (size_t rank = 0; rank < m_order.size(); ++rank)
        byKey[m_order[rank]] = quint32(rank);
    m_layout.rowsByKey = place();
    append(byKey);
}

void KXSearchBuilder::writeRanks()
{
    std::vector<uchar> ranks;
    std::vector<quint32> places;
    for (quint32 rank = 0; rank < rowCount(); ++rank) {
        const QByteArrayView bytes = rankOf(m_order[rank]);
        qsizetype shared = 0;
        if (rank % KXSearchSegment::RowsPerRankBlock == 0) {
            places.push_back(quint32(ranks.size()));
        } else {
            const QByteArrayView before = rankOf(m_order[rank - 1]);
            const qsizetype most = std::min(bytes.size(), before.size());
            shared = std::mismatch(bytes.begin(), bytes.begin() + most, before.begin()).first - bytes.begin();
        }
        builderPut(ranks, quint32(shared));
        builderPut(ranks, quint32(bytes.size() - shared));
        ranks.insert(ranks.end(), bytes.begin() + shared, bytes.end());
    }
    places.push_back(quint32(ranks.size()));
    m_layout.rankPlaces = place();
    append(places);
    m_layout.ranks = place();
    append(ranks);
}

bool KXSearchBuilder::isTooLarge() const
{
    constexpr quint64 most = quint64(1) << 31;
    quint64 lists = 0; // at most five bytes a word of a row
    for (const auto &[row, text] : m_links)
        lists += 5 * (m_textPlaces[text + 1] - m_textPlaces[text]);
    return m_keys.size() > most || m_wordText.size() + m_wordPlaces.size() > most || m_ranks.size() > most
        || lists > 2 * most;
}

QByteArray KXSearchBuilder::finish(const KXSearchStop &stop)
{
    m_layout.rows = m_keys.size();
    m_layout.words = m_wordPlaces.size();
    m_out = QByteArray(sizeof(KXSearchLayout), '\0');
    stop.look();
    sortRows();
    stop.look();
    sortWords();
    collectTexts();
    writeWords();
    writeLists(stop);
    writeNodes(stop);
    writeKeys();
    writeRanks();
    m_layout.size = place();
    std::memcpy(m_out.data(), &m_layout, sizeof m_layout);
    return std::move(m_out);
}
