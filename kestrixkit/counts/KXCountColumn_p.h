#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include <QHash>
#include <QVariant>

#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/foundation/KXTextMap.h>
#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

/// A set of bits, 64 a word.
using KXCountBits = std::vector<quint64>;

inline void KXCountSetBit(KXCountBits &bits, size_t bit) { bits[bit >> 6] |= quint64(1) << (bit & 63); }
[[nodiscard]] inline bool KXCountBit(const KXCountBits &bits, size_t bit) { return bits[bit >> 6] >> (bit & 63) & 1; }
[[nodiscard]] inline size_t KXCountWords(size_t bits) { return (bits + 63) / 64; }
/// The bytes of something as a key of a map.
[[nodiscard]] inline std::string KXCountBytes(const void *data, size_t size)
{
    return { static_cast<const char *>(data), size };
}

/// Distinct values by numbers; 0 is the absent value. Values that a predicate could tell apart have numbers of their
/// own.
class KXCountValues
{
public:
    quint32 numberOf(const QVariant &value);
    [[nodiscard]] const QVariant &value(quint32 number) const { return m_values[number]; }
    [[nodiscard]] size_t size() const { return m_values.size(); }

private:
    std::vector<QVariant> m_values { QVariant() };
    KXTextMap<quint32> m_numbers;
};

/// What one column must hold for a row to fit: comparisons of the column, joined by AND, OR and NOT.
struct KXCountCondition
{
    enum Kind : quint8 { Comparison, And, Or, Not };
    Kind kind = And;
    int comparison = 0; ///< of the column
    std::vector<KXCountCondition> parts;

    friend bool operator==(const KXCountCondition &, const KXCountCondition &) = default;
};

/// One property of all counted rows, in four or eight bytes a row, and what its values mean for the rules.
///
/// The values fall into few classes: numbers and dates into the segments between the constants that rules compare them
/// with, texts and relationships into those that no rule tells apart. Each class has a row of bits, one for each slot
/// (a rule, or a part of one): whether a row with such a value may fit the slot as far as this column goes. A row fits
/// the slots whose bits are set in the rows of bits of all its columns.
///
/// What a comparison means is not known here: it is asked of the predicate itself, once for each value or segment.
class KXCountColumn
{
public:
    enum class Kind : quint8 {
        Number, ///< integers, booleans, doubles, dates: kept as integers in the order of the values
        Value, ///< texts and the like, numbered
        Relation, ///< the keys at the other end, distinct sets of them numbered
    };

    explicit KXCountColumn(const KXPropertyDescription &property);
    /// Whether a column can hold the property; if not, rules that use it are counted by the store.
    [[nodiscard]] static bool canHold(const KXPropertyDescription &property);

    [[nodiscard]] Kind kind() const { return m_kind; }
    [[nodiscard]] const KXPropertyDescription &property() const { return m_property; }

    // Rows.

    void resize(size_t rows);
    /// Takes the place of another row, for closing gaps.
    void copyRow(size_t from, size_t to);
    /// Takes over a column of the same property: our `rows[i]` becomes what its row i is. -1 is none of ours.
    void takeRows(std::span<const qint64> rows, const KXCountColumn &other);
    [[nodiscard]] size_t bytesPerRow() const { return m_isWide ? 8 : 4; }
    /// An attribute's value in its public type. Answers whether that was news.
    bool setValue(size_t row, const QVariant &value);
    bool setNumber(size_t row, qint64 number);
    /// As the store has it: a double in the order of its bits, everything else as it is.
    [[nodiscard]] static qint64 numberFromDouble(double value);
    [[nodiscard]] static double doubleFromNumber(qint64 number);
    /// Of a relationship, sorted.
    bool setKeys(size_t row, const std::vector<qint64> &keys);
    [[nodiscard]] const std::vector<qint64> &keysAt(size_t row) const { return m_sets[codeAt(row)]; }
    /// The number of a Number column's row; `absent` where there is none.
    static constexpr qint64 absent = std::numeric_limits<qint64>::min();
    [[nodiscard]] qint64 numberAt(size_t row) const
    {
        if (m_isWide)
            return m_wide[row];
        return m_narrow[row] == narrowAbsent ? absent : m_narrow[row];
    }
    /// Of a Value column: the number to set a row to, for a value that was read from the store.
    quint32 codeOfValue(const QVariant &value);
    bool setCode(size_t row, quint32 code) { return std::exchange(m_narrow[row], qint32(code)) != qint32(code); }
    [[nodiscard]] quint32 codeAt(size_t row) const { return quint32(m_narrow[row]); }
    /// Of all rows; not of a Number column.
    [[nodiscard]] const quint32 *codes() const { return reinterpret_cast<const quint32 *>(m_narrow.data()); }
    /// How many codes there are: rows have smaller ones.
    [[nodiscard]] size_t codeCount() const { return m_kind == Kind::Value ? m_paths[0].values.size() : m_sets.size(); }
    /// Of a Number column: the number that equals the constant, if a row could have one; `absent` for an absent one.
    [[nodiscard]] std::optional<qint64> numberEqualTo(const QVariant &constant) const;

    // Paths that begin with a relationship: what they reach is looked up by whoever owns the column.

    /// Objects of the keys, as the relationship's value would hold them.
    using Resolver = std::function<QVariant(const std::vector<qint64> &keys)>;
    void setResolver(Resolver resolver) { m_resolver = std::move(resolver); }
    /// While that is put off, sets come without what their paths reach; readSets() makes up for it.
    void putOffReading() { m_putsOff = true; }
    void readSets();
    /// What has happened meanwhile to what they reach, nobody knows. No row may have one.
    void forgetSets();
    /// The keys behind the first one; empty for the relationship itself.
    [[nodiscard]] int path(const QStringList &rest, bool isList);
    [[nodiscard]] size_t pathCount() const { return m_paths.size(); }
    [[nodiscard]] const QStringList &restOfPath(size_t path) const { return m_paths[path].rest; }
    /// The values that the path reaches, or that a Value column has, by numbers.
    [[nodiscard]] const KXCountValues &values(int path) const { return m_paths[size_t(path)].values; }
    /// Numbers of the values that the path reaches from a set.
    [[nodiscard]] const std::vector<quint32> &reachedFrom(int path, quint32 set) const
    {
        return m_paths[size_t(path)].numbers[set];
    }
    /// The number of a constant among the values of the path.
    quint32 numberOfConstant(int path, const QVariant &constant);
    /// Looks again at what the path reaches from the sets that hold one of the keys. Answers the sets for which that
    /// changed.
    std::vector<quint32> reread(size_t path, const QSet<qint64> &keys);
    /// The keys of the sets whose reading was put off.
    [[nodiscard]] std::vector<qint64> newKeys() const;

    // Rules.

    /// A comparison of the key path "v", which stands for the column's value or what the path reaches; known ones are
    /// found.
    int comparison(const KXPredicate &test, int path);
    /// The rows of bits are to be made anew before they are used.
    void setCondition(int slot, KXCountCondition condition)
    {
        m_conditions[slot] = std::move(condition);
        m_words = 0;
    }
    void removeCondition(int slot)
    {
        m_conditions.erase(slot);
        m_words = 0;
    }
    [[nodiscard]] const std::map<int, KXCountCondition> &conditions() const { return m_conditions; }
    /// Makes the rows of bits, so many words each, after conditions changed. Comparisons that no condition uses are
    /// dropped.
    void rebuild(size_t words);
    /// The classes of sets that reread() named have changed.
    void reclassify(const std::vector<quint32> &sets);
    /// The bits of a row's class.
    [[nodiscard]] const quint64 *bitsAt(size_t row) const { return m_table.data() + classAt(row) * m_words; }
    /// Slots that have a condition here.
    [[nodiscard]] const KXCountBits &users() const { return m_users; }
    /// Whether the condition holds for a number; for the columns of numbers alone.
    [[nodiscard]] bool holdsForNumber(const KXCountCondition &condition, qint64 number) const;
    /// Numbers between which comparisons of the condition may change, sorted.
    [[nodiscard]] std::vector<qint64> cutsOf(const KXCountCondition &condition) const;

private:
    static constexpr qint32 narrowAbsent = std::numeric_limits<qint32>::min();

    struct Test
    {
        KXPredicate predicate;
        int path = 0;
        bool isUsed = true;
        bool isEquality = false; ///< holds (or not, where negated) for the constants alone
        bool isNegated = false;
        std::vector<quint32> constants; ///< numbers, sorted
        KXCountBits holds; ///< by the numbers of values; of a Number column by the test's own segments
        size_t asked = 0; ///< of how many values that is known
        std::vector<qint64> cuts; ///< first numbers of the test's own segments, without the lowest
    };
    struct Path
    {
        QStringList rest;
        KXExpression expression;
        bool isList;
        KXCountValues values;
        std::vector<std::vector<quint32>> numbers; ///< of the values reached from each set
    };

    [[nodiscard]] size_t classAt(size_t row) const
    {
        return m_kind == Kind::Number ? segmentOf(numberAt(row)) : m_classes[codeAt(row)];
    }
    [[nodiscard]] size_t segmentOf(qint64 number) const;
    [[nodiscard]] size_t domainSize() const;
    [[nodiscard]] QVariant valueOfNumber(qint64 number) const;
    [[nodiscard]] bool ask(const Test &test, const QVariant &value, bool isList) const;
    void prepareEquality(Test &test);
    void prepareCuts(Test &test);
    [[nodiscard]] qint64 firstNumber(const KXPredicateValue &constant, bool beyond) const;
    void extendTests(int path);
    [[nodiscard]] KXCountBits bitsOf(const Test &test) const;
    [[nodiscard]] KXCountBits bitsOf(const KXCountCondition &condition) const;
    [[nodiscard]] bool holds(const Test &test, quint32 code) const;
    [[nodiscard]] bool holds(const KXCountCondition &condition, quint32 code) const;
    [[nodiscard]] quint32 classOfCode(quint32 code);
    [[nodiscard]] quint32 classOfBits(const quint64 *bits);
    void read(Path &path, quint32 set);
    void codeWasAdded();
    [[nodiscard]] quint32 codeOfKeys(const std::vector<qint64> &keys);

    const KXPropertyDescription &m_property;
    const Kind m_kind;
    const bool m_isWide;
    std::vector<qint32> m_narrow; // numbers of 32 bits, or codes
    std::vector<qint64> m_wide;

    std::vector<std::vector<qint64>> m_sets { {} }; // of a relationship, by code
    std::unordered_map<std::string, quint32> m_setCodes;
    Resolver m_resolver;
    bool m_putsOff = false;
    std::vector<Path> m_paths; // a Value column has one, the value itself

    std::vector<Test> m_tests;
    QHash<std::pair<int, KXPredicate>, int> m_testNumbers;
    std::map<int, KXCountCondition> m_conditions; // by slot
    KXCountBits m_users;
    std::vector<qint64> m_cuts; // of all tests
    std::vector<quint32> m_classes; // by code
    std::unordered_map<std::string, quint32> m_classNumbers;
    qint64 m_otherClass = -1; // of values that no rule names, where all tests are equalities
    KXCountBits m_table;
    size_t m_words = 0;
};
