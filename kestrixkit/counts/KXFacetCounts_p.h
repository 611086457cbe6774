#pragma once

#include <unordered_map>

#include <kestrixkit/counts/KXCountTable_p.h>
#include <kestrixkit/counts/KXWhatIfCounts.h>

/// One facet of what-if counts: how often each value occurs in the rows that fit everything else, and what that makes
/// of the counts.
///
/// Rows have codes: those of the column of texts or relationships, or numbers given to the distinct numbers of a column
/// of numbers. A code stands for the values of a row, called elements, each once. Rows are counted by code alone, since
/// everything else follows from that: which codes the choices let in, and from how many rows a value would be gained or
/// lost.
class KXFacetCounts
{
public:
    KXFacetCounts(const KXCountTable::Place &place, KXPredicateModifier modifier);

    /// Whether choices can be told by equality of values; if not, a rule of the table has to say what they let in.
    [[nodiscard]] static bool canHold(const QList<KXWhatIfCounts::Choice> &choices);
    void setChoices(const QList<KXWhatIfCounts::Choice> &choices, bool takesPart);

    // Rows.

    /// Looks at all of them, of which nothing is known.
    void readRows(size_t count);
    /// Looks at one that is new or has changed.
    void readRow(size_t row);
    [[nodiscard]] const quint32 *codes() const { return m_isNumber ? m_ownCodes.data() : m_column->codes(); }
    /// What the paths reach from these sets is something else, and no row with them is counted.
    void setsDidChange(const KXCountColumn &column, const std::vector<quint32> &sets);

    // Which codes the choices keep out.

    [[nodiscard]] bool letsAllIn() const { return m_letsAllIn; }
    [[nodiscard]] bool fails(quint32 code) const { return m_flags[code] & Fails; }
    /// By code, 0 or 1.
    [[nodiscard]] std::vector<quint8> failing() const;

    // Counting: rows that fit everything but perhaps this facet.

    /// Begins from nothing; rows are then added up by code in rows(), and finish() makes the rest.
    void begin();
    [[nodiscard]] std::vector<quint32> &rows() { return m_rows; }
    void finish();
    void count(quint32 code, qint64 difference)
    {
        m_rows[code] += quint32(difference);
        apply(code, difference);
    }

    /// What the value would make of `total`, the count of the search as it is.
    [[nodiscard]] KXWhatIfCounts::ValueCounts valueCounts(const QVariant &value, qint64 total);
    [[nodiscard]] QList<KXWhatIfCounts::NumberCount> distribution() const;

private:
    enum Flag : quint8 {
        Fails = 1,
        Gains = 2, ///< a value that is added brings these rows in, or keeps them
        Loses = 4, ///< a value that is excluded may cost these rows
    };
    /// A value that is among the choices: putting it in replaces these.
    struct Chosen
    {
        qint64 included = 0; ///< how often
        qint64 excluded = 0;
        KXWhatIfCounts::ValueCounts counts;
    };
    /// Elements that no row can have begin here.
    static constexpr quint32 nowhere = 0x8000'0000;

    [[nodiscard]] std::span<const quint32> elements(quint32 code) const
    {
        return m_isSet ? std::span<const quint32>(m_sets[code]) : std::span<const quint32>(&m_elements[code], 1);
    }
    [[nodiscard]] bool isEqual(quint32 code, quint32 element) const;
    [[nodiscard]] bool isUnequal(quint32 code, quint32 element) const;
    [[nodiscard]] qint64 countOfIncluded(quint32 code) const;
    [[nodiscard]] qint64 countOfExcluded(quint32 code) const;
    [[nodiscard]] quint8 flagsOf(quint32 code) const;
    [[nodiscard]] quint32 elementOf(const QVariant &constant);
    [[nodiscard]] quint32 elementOfNumber(quint32 number);
    [[nodiscard]] quint32 codeOfNumber(qint64 number);
    void readSet(quint32 code);
    void extend();
    void growElements(quint32 element);
    void apply(quint32 code, qint64 difference);
    [[nodiscard]] static quint32 intern(const KXPredicateValue &value,
        std::unordered_multimap<size_t, std::pair<KXPredicateValue, quint32>> &known, quint32 next);

    KXCountColumn *const m_column;
    const int m_path;
    const bool m_isList;
    const bool m_isAll; // every value has to match, not any
    const bool m_isNumber;
    const bool m_isSet; // codes are sets of elements
    const bool m_isPlain; // equal values have the same number in the column

    // Of a column of numbers.
    std::vector<quint32> m_ownCodes; // by row
    std::vector<qint64> m_numbers; // by code
    std::unordered_map<qint64, quint32> m_codesOfNumbers;

    // By code.
    std::vector<quint32> m_elements;
    std::vector<std::vector<quint32>> m_sets;
    std::vector<quint8> m_flags;
    std::vector<quint32> m_rows;

    // Elements: equal values have the same.
    std::vector<quint32> m_elementsOfNumbers; // by the column's number of the value; where equal ones differ
    std::unordered_multimap<size_t, std::pair<KXPredicateValue, quint32>> m_known, m_unknown;
    std::vector<qint64> m_gains; // by element
    std::vector<qint64> m_losses;
    qint64 m_gainsOfEmpty = 0, m_lossesOfEmpty = 0, m_sumOfLosses = 0;

    // The choices.
    bool m_takesPart = true;
    bool m_letsAllIn = true;
    qint64 m_included = 0, m_excluded = 0;
    std::unordered_map<quint32, Chosen> m_chosen; // by element
};
