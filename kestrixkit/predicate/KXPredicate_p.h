#pragma once

#include <memory>
#include <mutex>

#include <QSharedData>

#include <kestrixkit/predicate/KXPredicate.h>

struct KXPreparedSide;

/// One node of a predicate's tree.
class KXPredicateData : public QSharedData
{
public:
    KXPredicateData();
    ~KXPredicateData();

    KXPredicateType type = KXPredicateType::True;
    KXPredicateOperator comparisonOperator = KXPredicateOperator::Equal;
    KXPredicateModifier modifier = KXPredicateModifier::Direct;
    int options = 0;
    int depth = 1;
    int countOfComparisons = 0;
    KXExpression left;
    KXExpression right;
    QList<KXPredicate> parts;

    // Made by the first evaluation in memory, on whichever thread; SQL needs none of it.
    mutable std::once_flag preparedOnce;
    mutable std::unique_ptr<const KXPreparedSide> preparedRight;
};
