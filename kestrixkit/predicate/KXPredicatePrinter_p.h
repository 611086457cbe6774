#pragma once

#include <optional>

#include <QString>
#include <QVariant>

class KXExpression;
class KXPredicate;
enum class KXPredicateOperator : int;

/// How a constant without a literal of its own is written: DATE("2024-…") in text, {"date": "2024-…"} in JSON.
struct KXConstantCall
{
    QLatin1StringView name;
    QVariant argument; ///< a text or an integer
};

/// Writes predicates in the text that KXPredicateParser reads back as an equal tree.
class KXPredicatePrinter
{
public:
    explicit KXPredicatePrinter(QString &text)
        : m_text(text)
    {
    }

    void print(const KXPredicate &predicate);
    void print(const KXExpression &expression);

    /// Nothing for absent values, booleans, integers, finite numbers, texts and lists.
    [[nodiscard]] static std::optional<KXConstantCall> callForConstant(const QVariant &value);
    /// Empty for a code without a name.
    [[nodiscard]] static QLatin1StringView operatorName(KXPredicateOperator comparisonOperator);

private:
    void printPart(const KXPredicate &part);
    void printComparison(const KXPredicate &predicate);
    void printConstant(const QVariant &value);
    void printQuoted(const QString &text, QChar quote = u'"');
    void printName(const QString &name);

    QString &m_text;
};
