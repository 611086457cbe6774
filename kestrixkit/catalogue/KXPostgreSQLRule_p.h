#pragma once

#include <vector>

#include <kestrixkit/catalogue/KXCatalogueDialect.h>
#include <kestrixkit/catalogue/KXCatalogueSchema.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

/// Writes rules as conditions on the row "t" of one statement, to whose parameters it adds.
///
/// Every piece of text is true where the rule is, and false or NULL where it is not: AND and OR treat NULL as they
/// treat false, and NOT is written "(…) IS NOT TRUE".
class KXPostgreSQLRule
{
public:
    /// Thrown for what cannot be said exactly.
    struct Refusal
    {
        QString reason;
    };
    [[noreturn]] static void refuse(const QString &reason) { throw Refusal { reason }; }

    KXPostgreSQLRule(const KXCatalogueSchema &schema, KXCatalogueStatement &statement)
        : m_schema(schema)
        , m_statement(statement)
    {
    }

    [[nodiscard]] QByteArray condition(const KXPredicate &rule);

    /// The column's value as an expression; of texts the copy that the options ask for.
    [[nodiscard]] static QByteArray expression(const KXCatalogueColumn &column, int folding = 0);
    /// Refuses where the schema has none.
    [[nodiscard]] const KXCatalogueColumn &column(const QString &keyPath) const;
    /// "$3": where the statement takes the value.
    [[nodiscard]] QByteArray place(KXCatalogueParameter parameter);
    /// A value that came out of a column, to be compared with it again.
    [[nodiscard]] KXCatalogueParameter parameterOf(const QVariant &value, KXCatalogueType type) const;

private:
    /// A value that conditions are put on.
    struct Operand
    {
        const KXCatalogueColumn *column = nullptr;
        KXCatalogueType type = KXCatalogueType::Integer;
        QByteArray text = {}; ///< in place of the column: an element of a list, or its number of elements
        [[nodiscard]] bool isNumber() const { return type <= KXCatalogueType::Decimal; }
    };
    /// What a value must fulfil: a comparison with some of the values, or with the other operand.
    struct Condition
    {
        KXPredicateOperator comparisonOperator = KXPredicateOperator::Equal;
        int options = 0;
        int folding = 0; ///< of the texts on both sides
        std::vector<KXPredicateValue> values = {};
        bool isList = false; ///< whether the values came from a list
        bool reversed = false; ///< of operators on texts: the values stand on the left
        std::optional<Operand> other = {};

        [[nodiscard]] bool hasTexts() const;
    };
    /// One side of a comparison: a column, or values.
    struct Side
    {
        const KXCatalogueColumn *column = nullptr;
        bool isCount = false;
        std::vector<KXPredicateValue> values = {};
        bool isList = false;
    };

    // Rules
    [[nodiscard]] QByteArray junction(const QList<KXPredicate> &parts, bool isAnd);
    [[nodiscard]] QByteArray comparison(const KXPredicate &rule);
    [[nodiscard]] Side side(const KXExpression &expression, int folding) const;
    [[nodiscard]] QByteArray compareColumns(
        const Side &left, KXPredicateModifier modifier, const Side &right, Condition condition);
    [[nodiscard]] QByteArray compareValuesWithColumn(
        const Side &left, KXPredicateModifier modifier, const Side &right, Condition condition);
    [[nodiscard]] QByteArray apply(const Side &side, KXPredicateModifier modifier, const Condition &condition);
    [[nodiscard]] QByteArray applyToList(
        const KXCatalogueColumn &column, KXPredicateModifier modifier, const Condition &condition);
    [[nodiscard]] static Operand operandOf(const Side &side);

    // Values
    [[nodiscard]] static bool isEquality(KXPredicateOperator comparisonOperator)
    {
        return comparisonOperator == KXPredicateOperator::Equal || comparisonOperator == KXPredicateOperator::NotEqual;
    }
    /// Halves of characters can be said to no engine, and what begins with one matches in memory.
    static void refuseHalves(const QString &text);
    [[nodiscard]] QByteArray applyToValue(const Operand &operand, const Condition &condition);
    [[nodiscard]] QByteArray applyToOperand(const Operand &operand, const Condition &condition);
    [[nodiscard]] static QByteArray numbersCompared(
        const Operand &operand, const QByteArray &sign, const Operand &other);
    [[nodiscard]] QByteArray relation(const Operand &operand, KXPredicateOperator comparisonOperator,
        const KXPredicateValue &value, const Condition &condition);
    [[nodiscard]] QByteArray textRelation(const Operand &operand, KXPredicateOperator comparisonOperator,
        const KXPredicateValue &value, const Condition &condition);
    [[nodiscard]] QByteArray beginsWord(const Operand &operand, const KXPredicateValue &value);
    [[nodiscard]] QByteArray isOneOf(const Operand &operand, const Condition &condition, bool absentToo);
    [[nodiscard]] static QByteArray textOf(const Operand &operand, int folding);
    /// The value as the column keeps it. None where the relation is `always` true for values that are not absent, or
    /// never; changes the operator where the column cannot hold the value itself, as 2.5 in "integer < 2.5".
    [[nodiscard]] static std::optional<KXCatalogueParameter> stored(
        KXCatalogueType type, const KXPredicateValue &value, KXPredicateOperator &comparisonOperator, bool &always);
    [[nodiscard]] static std::optional<KXCatalogueParameter> storedNumber(
        KXCatalogueType type, const KXPredicateValue &value, KXPredicateOperator &comparisonOperator, bool &always);

    const KXCatalogueSchema &m_schema;
    KXCatalogueStatement &m_statement;
};
