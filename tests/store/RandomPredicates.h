#pragma once

#include "support/RandomRules.h"

/// Random predicates over the test library's tracks: their constants come from the same small pools as the objects'
/// values.
class RandomPredicates : public RandomRules
{
public:
    enum Kind { Text, Number, Date, Binary, Uri, Uuid, Object, Kinds };

    using RandomRules::RandomRules;

    /// A value from the pool of the kind.
    [[nodiscard]] QVariant value(Kind kind);

    QVariantList objects; ///< what constants of the kind Object are drawn from

protected:
    [[nodiscard]] int kinds() const override { return Kinds; }
    [[nodiscard]] QVariant constantOf(int kind) override { return value(Kind(kind)); }
    [[nodiscard]] QString pathOf(int kind) override;
    [[nodiscard]] KXExpression leftOf(int kind) override;
    [[nodiscard]] bool isText(int kind) const override { return kind == Text || kind == Uri; }
    [[nodiscard]] Odds odds() const override { return { 0.35, 0.5, 0.15, 0.1, 0.1 }; }
};
