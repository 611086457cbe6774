// What predicates and expressions are for an object, and with the values of their variables.

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>
#include <kestrixkit/predicate/KXPredicate_p.h>

// With what the evaluator has prepared of it.
KXPredicateData::KXPredicateData() = default;
KXPredicateData::~KXPredicateData() = default;

bool KXPredicate::evaluateWithObject(const KXObservable *object, const QVariantMap &variables, KXError *error) const
{
    try {
        return KXPredicateEvaluator(variables).evaluate(*this, object);
    } catch (const KXPredicateEvaluator::GivenUp &givenUp) {
        if (!error)
            KXLogWarning(store, "Not evaluated, %@: %@", givenUp.error(), predicateFormat());
        return KXSetError(error, givenUp.error());
    }
}

QVariant KXExpression::expressionValueWithObject(const KXObservable *object, const QVariantMap &variables) const
{
    try {
        return KXPredicateEvaluator(variables).value(*this, object);
    } catch (const KXPredicateEvaluator::GivenUp &givenUp) {
        KXLogWarning(store, "No value of an expression: %@", givenUp.error());
        return {};
    }
}

KXExpression KXExpression::expressionWithSubstitutionVariables(const QVariantMap &variables) const
{
    switch (type()) {
    case KXExpressionType::Variable:
        return expressionForConstantValue(KXPredicateEvaluator::variable(variable(), variables));
    case KXExpressionType::Function: {
        // The variable's own value: as a constant an object may be no more than its identifier.
        const bool isVariable = operand().type() == KXExpressionType::Variable;
        const KXExpression of = isVariable ? operand() : operand().expressionWithSubstitutionVariables(variables);
        const KXExpression call = expressionForFunction(of, function(), arguments());
        if (isVariable || of.isConstant() || of.type() == KXExpressionType::Variable)
            return expressionForConstantValue(KXPredicateEvaluator(variables).value(call, nullptr));
        return call;
    }
    case KXExpressionType::Aggregate: {
        QList<KXExpression> elements;
        for (const KXExpression &element : arguments())
            elements.append(element.expressionWithSubstitutionVariables(variables));
        return expressionForAggregate(elements);
    }
    default:
        return *this;
    }
}
