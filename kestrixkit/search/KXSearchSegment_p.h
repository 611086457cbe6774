#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <QByteArray>

#include <kestrixkit/search/KXSearchBytes_p.h>

/// A set of rows, 64 a word.
using KXSearchBits = std::vector<quint64>;

/// Where the parts of a group's bytes lie, from their beginning; docs/formats/search.md describes them.
struct KXSearchLayout
{
    quint64 rows;
    quint64 words;
    quint64 nodes;
    quint64 keyWidth; ///< bytes of a key: 4 or 8
    quint64 wordPlaces;
    quint64 wordText;
    quint64 listPlaces;
    quint64 lists;
    quint64 nodeTable;
    quint64 bitmaps;
    quint64 keys;
    quint64 rowsByKey;
    quint64 rankPlaces;
    quint64 ranks;
    quint64 size; ///< of all
};

/// A prefix whose rows are kept as a set, because its lists are long.
struct KXSearchNode
{
    quint32 firstWord;
    quint32 endWord;
};

/// The rows of a group as they were when the index was made, numbered in the order of their rank. Immutable; any
/// thread. Whatever reads throws KXSearchDamage where the bytes make no sense.
class KXSearchSegment
{
public:
    static constexpr quint32 RowsPerRankBlock = 16;

    KXSearchSegment(std::shared_ptr<const KXSearchBytes> bytes, qsizetype from, qsizetype size);

    [[nodiscard]] quint32 rows() const { return quint32(m_layout.rows); }
    [[nodiscard]] quint32 words() const { return quint32(m_layout.words); }
    [[nodiscard]] qint64 size() const { return qint64(m_layout.size); }
    [[nodiscard]] size_t bitWords() const { return (size_t(m_layout.rows) + 63) / 64; }
    [[nodiscard]] qint64 key(quint32 row) const;
    [[nodiscard]] std::optional<quint32> rowOf(qint64 key) const;
    /// How many rows come before one of that rank and key.
    [[nodiscard]] quint32 rowsBefore(const QByteArray &rank, qint64 key) const;

    /// Adds the rows with a word that begins so.
    void addBeginning(QByteArrayView prefix, KXSearchBits &bits, const KXSearchStop &stop) const;
    /// Adds the rows with a word that holds the text.
    void addHolding(QByteArrayView text, KXSearchBits &bits, const KXSearchStop &stop) const;

    // For tests and figures.
    [[nodiscard]] bool isMapped() const { return m_bytes->isMapped(); }
    [[nodiscard]] QByteArray word(quint32 word) const;
    [[nodiscard]] const KXSearchLayout &layout() const { return m_layout; }

private:
    [[nodiscard]] const char *at(quint64 place, quint64 size) const
    {
        if (place > m_layout.size || size > m_layout.size - place)
            throw KXSearchDamage {};
        return m_bytes->at(m_from + qsizetype(place), qsizetype(size));
    }
    [[nodiscard]] quint32 number(quint64 table, quint64 index) const;
    [[nodiscard]] QByteArrayView wordView(quint32 word) const;
    [[nodiscard]] quint32 firstNotBefore(QByteArrayView prefix, bool after) const;
    [[nodiscard]] KXSearchNode node(quint64 index) const;
    void addList(quint32 word, KXSearchBits &bits) const;
    void addWords(quint32 from, quint32 to, KXSearchBits &bits, const KXSearchStop &stop) const;
    /// The ranks of a block's rows, until the function answers true.
    struct RankBlock
    {
        const uchar *at;
        const uchar *end;
    };
    [[nodiscard]] RankBlock rankBlock(quint32 block) const;
    [[nodiscard]] static QByteArrayView nextRank(RankBlock &block, qsizetype before, quint32 &shared);
    template <typename Function> void eachRank(quint32 block, Function &&function) const;
    [[nodiscard]] QByteArrayView firstRank(quint32 block) const;

    std::shared_ptr<const KXSearchBytes> m_bytes;
    qsizetype m_from;
    KXSearchLayout m_layout;
};
