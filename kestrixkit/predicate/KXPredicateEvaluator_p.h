#pragma once

#include <vector>

#include <QRegularExpression>
#include <QVariant>

#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

class KXAbstractOperation;
class KXError;
class KXObservable;

/// The values of one side of a comparison, and what makes comparing with them quick.
struct KXPreparedSide
{
    bool isList = false; ///< whether the values came from a list or a to-many relationship
    std::vector<KXPredicateValue> values;
    std::vector<std::pair<size_t, qsizetype>> table; ///< hashes and places of the values, sorted; of long lists only
    std::vector<QRegularExpression> expressions; ///< for MATCHES, one a value
    std::vector<std::vector<QByteArray>> words; ///< for BEGINSWORD, of each text

    [[nodiscard]] bool contains(const KXPredicateValue &value) const;
};

/// Answers predicates and expressions for objects in memory, by the rules stated at KXPredicate. For one object.
class KXPredicateEvaluator
{
public:
    /// Thrown when it takes too many steps, or when the operation that asks is cancelled meanwhile.
    struct GivenUp
    {
        bool isCancelled;
        [[nodiscard]] KXError error() const;
    };

    /// The variables are borrowed.
    explicit KXPredicateEvaluator(const QVariantMap &variables);

    [[nodiscard]] bool evaluate(const KXPredicate &predicate, const KXObservable *object) const;
    /// The value of an expression, a list where it reaches through to-many relationships.
    [[nodiscard]] QVariant value(const KXExpression &expression, const KXObservable *object) const;
    /// The values that an expression stands for, with texts folded by the options.
    [[nodiscard]] KXPreparedSide side(
        const KXExpression &expression, const KXObservable *object, int folding, bool eachOnce = true) const;
    /// Throws KXException for a variable that is not there.
    [[nodiscard]] static QVariant variable(const QString &name, const QVariantMap &variables);

    /// Whether a value fits one value of the other side; for all operators but IN, CONTAINS, BETWEEN and MATCHES.
    /// Texts have been folded before.
    [[nodiscard]] static bool isTrue(
        const KXPredicateValue &left, KXPredicateOperator comparisonOperator, const KXPredicateValue &right);
    /// Which options fold the texts that the operator looks at: a regular expression minds case by itself, for
    /// folding would change what it means.
    [[nodiscard]] static int foldingOptions(KXPredicateOperator comparisonOperator, int options);
    /// For whole texts. An expression with mistakes matches nothing.
    [[nodiscard]] static QRegularExpression regularExpression(const QString &pattern, int options);

private:
    [[nodiscard]] bool compare(const KXPredicate &predicate, const KXObservable *object) const;
    [[nodiscard]] KXPreparedSide prepareRight(const KXPredicate &predicate, const KXObservable *object) const;
    void take(qint64 steps) const;
    template <typename Visitor>
    bool visit(const KXExpression &expression, const KXObservable *object, Visitor &&visitor, bool eachOnce,
        bool fromList = false) const;

    const QVariantMap &m_variables;
    const KXAbstractOperation *m_operation; // to be looked at; may be null
    mutable qint64 m_steps = 0;
};
