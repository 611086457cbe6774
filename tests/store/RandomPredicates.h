#pragma once

#include <QStringList>

#include <kestrixkit/predicate/KXPredicate.h>

#include "support/KXTestRandom.h"

/// Makes predicates over the test library's tracks in which comparisons hit and miss about equally: their constants
/// come from the same small pools as the objects' values, and some are of a kind that does not fit.
class RandomPredicates
{
public:
    enum Kind { Text, Number, Date, Binary, Uri, Uuid, Object, Kinds };

    explicit RandomPredicates(KXTestRandom &random)
        : m_random(random)
    {
    }

    [[nodiscard]] KXPredicate predicate(int depth);
    /// A value from the pool of the kind.
    [[nodiscard]] QVariant value(Kind kind);

    QVariantList objects; ///< what constants of the kind Object are drawn from

private:
    [[nodiscard]] KXPredicate comparison();
    [[nodiscard]] KXExpression constant(Kind kind);
    [[nodiscard]] QString path(Kind kind);

    KXTestRandom &m_random;
};
