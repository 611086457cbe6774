#pragma once

#include <QString>

class KXExpression;
class KXPredicate;
class QVariant;

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

private:
    void printPart(const KXPredicate &part);
    void printComparison(const KXPredicate &predicate);
    void printConstant(const QVariant &value);
    void printQuoted(const QString &text, QChar quote = u'"');
    void printName(const QString &name);

    QString &m_text;
};
