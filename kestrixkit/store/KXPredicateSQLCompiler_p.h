#pragma once

#include <optional>
#include <vector>

#include <kestrixkit/store/KXPredicateSQLPath_p.h>
#include <kestrixkit/store/KXPredicateSQL_p.h>

/// Writes one predicate as SQL; used once.
///
/// Every piece of the text is true where the predicate is, and false or NULL where it is not: AND and OR treat NULL
/// as they treat false, and NOT is written "(…) IS NOT TRUE". So nothing else needs to guard against NULL, and plain
/// comparisons keep the indexes. Paths through relationships become "key IN (SELECT …)" that SQLite answers once,
/// not once a row; only comparisons of two key paths need "EXISTS (SELECT …)".
class KXPredicateSQLCompiler
{
public:
    KXPredicateSQLCompiler(const KXEntityDescription &entity, quint64 store);

    /// Throws KXPredicateSQLRefusal.
    void compile(const KXPredicate &predicate);
    [[nodiscard]] KXPredicateSQL take() { return std::move(m_result); }

private:
    /// What a value must fulfil.
    struct Condition
    {
        KXPredicateOperator comparisonOperator = KXPredicateOperator::Equal;
        int options = 0;
        std::vector<KXPredicateValue> values = {}; ///< the other side, of which some must match
        bool isList = false; ///< whether they came from a list
        const KXPredicateSQLPath *path = nullptr; ///< or, instead of values, a path of t0's without to-many steps
        bool reversed = false; ///< of the text operators: the values stand on the left
        bool inverted = false;
    };
    /// A value as an expression.
    struct Operand
    {
        QByteArray text;
        KXPredicateValue::Kind kind;
        const KXEntityDescription *entity = nullptr; ///< of objects
        bool isColumn = false; ///< whether writing it twice costs next to nothing
    };
    struct Side;

    /// Keeps count of what is open. SQLite's parser keeps 100 open places, of which each piece of text inside another
    /// takes some; the limit leaves room for a single value at the bottom and for the caller's text around the whole.
    class Nesting
    {
    public:
        static constexpr int Limit = 65;
        static constexpr int OfParenthesis = 1;
        static constexpr int OfJunction = 3;
        static constexpr int OfQuery = 10;

        Nesting(KXPredicateSQLCompiler &compiler, int places);
        ~Nesting() { m_compiler.m_nesting -= m_places; }

    private:
        KXPredicateSQLCompiler &m_compiler;
        const int m_places;
    };
    /// Longer junctions become trees, because SQLite limits the depth of chains to 1000.
    static constexpr qsizetype JunctionParts = 32;

    void compileParts(const QList<KXPredicate> &parts, bool isAnd);
    template <typename Write> void join(qsizetype from, qsizetype to, bool isAnd, const Write &write);
    [[nodiscard]] static bool isRelation(KXPredicateOperator comparisonOperator)
    {
        return comparisonOperator >= KXPredicateOperator::LessThan
            && comparisonOperator <= KXPredicateOperator::NotEqual;
    }
    void compileComparison(const KXPredicate &predicate);
    void compareValuesWithPath(
        const Side &left, KXPredicateModifier modifier, const KXPredicateSQLPath &path, Condition condition);
    void comparePaths(const KXPredicateSQLPath &left, KXPredicateModifier modifier, const KXPredicateSQLPath &right,
        Condition condition);
    [[nodiscard]] Side side(const KXExpression &expression, int folding) const;

    void apply(const KXPredicateSQLPath &path, KXPredicateModifier modifier, Condition condition);
    void applyToSome(
        const KXPredicateSQLPath &path, qsizetype from, const KXPredicateSQLRow &row, const Condition &condition);
    void applyToMembers(const KXPredicateSQLPath &path, qsizetype from, qsizetype toMany, const KXPredicateSQLRow &row,
        const Condition &condition);
    void applyToValue(const Operand &operand, const Condition &condition);
    void applyValues(const Operand &operand, const Condition &condition);
    void applyOperand(const Operand &operand, const Condition &condition, const Operand &other);
    void relation(const Operand &operand, KXPredicateOperator comparisonOperator, const KXPredicateValue &value,
        const Condition &condition);
    [[nodiscard]] static bool hasText(const Operand &operand, KXPredicateOperator comparisonOperator, bool isRight);
    void textRelation(const Operand &operand, KXPredicateOperator comparisonOperator, const KXPredicateValue &value,
        const Condition &condition);
    void isOneOf(const Operand &operand, const Condition &condition, bool absentToo);

    /// The value as the column keeps it. None when the relation is `always` true for values that are not absent, or
    /// never; changes the operator where the column cannot hold the value itself, as 2.5 in "integer < 2.5".
    [[nodiscard]] std::optional<KXSQLValue> storageForm(const Operand &operand, const KXPredicateValue &value,
        KXPredicateOperator &comparisonOperator, bool &always) const;
    [[nodiscard]] static bool fitsAbsent(const Condition &condition);
    [[nodiscard]] Operand operandOf(const KXPredicateSQLPath &path, const QByteArray &text, bool isColumn) const;
    void add(const Operand &operand, int folding = 0);
    void add(const KXSQLValue &value);
    [[nodiscard]] QByteArray newAlias() { return 't' + QByteArray::number(++m_aliases); }
    [[nodiscard]] KXPredicateSQLPath path(const QStringList &keys);

    const KXPredicateSQLRow m_row;
    const quint64 m_store;
    KXPredicateSQL m_result;
    QByteArray &m_text;
    int m_aliases = 0;
    int m_nesting = 0;
};

/// Writes the pieces from `from` to `to`, joined in a tree that is nowhere wider than JunctionParts.
template <typename Write>
void KXPredicateSQLCompiler::join(qsizetype from, qsizetype to, bool isAnd, const Write &write)
{
    if (from == to) {
        m_text += isAnd ? '1' : '0';
        return;
    }
    if (from + 1 == to)
        return write(from);
    qsizetype step = 1;
    while ((to - from + step - 1) / step > JunctionParts)
        step *= JunctionParts;
    const Nesting nesting(*this, Nesting::OfJunction);
    m_text += '(';
    for (qsizetype i = from; i < to; i += step) {
        if (i > from)
            m_text += isAnd ? " AND " : " OR ";
        join(i, std::min(i + step, to), isAnd, write);
    }
    m_text += ')';
}
