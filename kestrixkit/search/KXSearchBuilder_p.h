#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <QByteArray>

#include <kestrixkit/predicate/KXTextWords_p.h>
#include <kestrixkit/search/KXSearchSegment_p.h>

/// Makes the bytes of a segment out of rows and their texts. One thread; used once.
class KXSearchBuilder
{
public:
    /// Rows come in the order of their keys.
    void addRow(qint64 key, QByteArrayView rank);
    [[nodiscard]] std::optional<quint32> rowOf(qint64 key) const;
    [[nodiscard]] quint32 rowCount() const { return quint32(m_keys.size()); }

    static constexpr quint32 NoText = 0; ///< one without words
    /// A text that one row or many may have.
    [[nodiscard]] quint32 addText(QByteArrayView utf8);
    void link(quint32 row, quint32 text);

    /// Places are numbers of 32 bits: some hundred million words of rows.
    [[nodiscard]] bool isTooLarge() const;
    /// Throws KXSearchStop::Stopped.
    [[nodiscard]] QByteArray finish(const KXSearchStop &stop);

private:
    void sortRows();
    void sortWords();
    void collectTexts();
    template <typename Function> void eachPosting(const KXSearchStop &stop, Function &&function);
    void writeWords();
    void writeLists(const KXSearchStop &stop);
    quint64 findNodes(quint32 from, quint32 to, qsizetype depth);
    void writeNodes(const KXSearchStop &stop);
    void writeKeys();
    void writeRanks();
    [[nodiscard]] QByteArrayView rankOf(quint32 row) const;
    quint64 place(); // of the next part in m_out
    template <typename T> void append(const std::vector<T> &values);

    KXTextWords::Splitter m_splitter;
    // By row, in the order of keys.
    std::vector<qint64> m_keys;
    std::vector<quint64> m_rankPlaces { 0 };
    std::string m_ranks;
    // Words, in the order in which they came.
    std::string m_wordText;
    std::vector<std::pair<quint32, quint32>> m_wordPlaces; // place and size
    std::unordered_map<quint64, std::vector<quint32>> m_others; // of words with equal hashes but the first
    std::unordered_map<quint64, quint32> m_wordNumbers; // by hash
    // Texts: the words of each.
    std::vector<quint32> m_textWords;
    std::vector<quint64> m_textPlaces { 0, 0 };
    std::vector<std::pair<quint32, quint32>> m_links; // row, text
    // What finish() makes.
    std::vector<quint32> m_order; // rows by rank
    std::vector<quint32> m_sorted; // words by text
    std::vector<quint32> m_number; // of a word among the sorted
    std::vector<quint64> m_textsOfRow;
    std::vector<quint32> m_texts;
    std::vector<quint32> m_listPlaces;
    std::vector<quint32> m_counts; // rows of a sorted word
    std::vector<quint64> m_countsBefore;
    std::vector<KXSearchNode> m_nodes;
    KXSearchLayout m_layout {};
    QByteArray m_out;

    [[nodiscard]] quint32 wordNumber(QByteArrayView word);
    [[nodiscard]] QByteArrayView wordAt(quint32 number) const
    {
        return { m_wordText.data() + m_wordPlaces[number].first, qsizetype(m_wordPlaces[number].second) };
    }
};
