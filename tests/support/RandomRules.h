#pragma once

#include <QStringList>

#include <kestrixkit/predicate/KXPredicate.h>

#include "KXTestRandom.h"

/// The walk by which tests make random predicates: comparisons that hit and miss about equally, joined, negated and
/// nested. What is compared, and with what, a subclass says; some constants are of a kind that does not fit.
class RandomRules
{
public:
    explicit RandomRules(KXTestRandom &random)
        : m_random(random)
    {
    }
    virtual ~RandomRules() = default;
    Q_DISABLE_COPY_MOVE(RandomRules)

    [[nodiscard]] KXPredicate predicate(int depth)
    {
        if (depth <= 0 || m_random.chance(0.4))
            return comparison();
        switch (m_random.below(12)) {
        case 0:
            return m_random.chance(0.5) ? KXPredicate::truePredicate() : KXPredicate::falsePredicate();
        case 1:
        case 2:
        case 3:
            return KXPredicate::notPredicate(predicate(depth - 1));
        default:
            break;
        }
        QList<KXPredicate> parts;
        for (int i = m_random.below(4); i >= 0; --i)
            parts.append(predicate(depth - 1));
        if (m_random.chance(0.03))
            parts.clear();
        return m_random.chance(0.5) ? KXPredicate::andPredicate(parts) : KXPredicate::orPredicate(parts);
    }

protected:
    enum : int { Texts, Numbers }; ///< the first kinds of every subclass
    struct Odds
    {
        double ofText, ofNumber; ///< otherwise any kind
        double pathOnRight, swapped, swappedPattern;
    };

    [[nodiscard]] virtual int kinds() const = 0;
    [[nodiscard]] virtual QVariant constantOf(int kind) = 0;
    [[nodiscard]] virtual QString pathOf(int kind) = 0;
    [[nodiscard]] virtual KXExpression leftOf(int kind) { return KXExpression::expressionForKeyPath(pathOf(kind)); }
    [[nodiscard]] virtual bool isText(int kind) const { return kind == Texts; }
    [[nodiscard]] virtual Odds odds() const = 0;
    /// Of LIKE and MATCHES, beside those that every subclass has.
    [[nodiscard]] virtual QStringList ownPatterns() const { return {}; }

    KXTestRandom &m_random;

private:
    [[nodiscard]] KXExpression constant(int kind)
    {
        if (m_random.chance(0.1))
            kind = m_random.below(kinds()); // does not fit
        if (m_random.chance(0.07))
            return {};
        if (!m_random.chance(0.25))
            return KXExpression::expressionForConstantValue(constantOf(kind));
        QVariantList list;
        for (int i = m_random.chance(0.02) ? 300 : m_random.below(4); i > 0; --i)
            list.append(m_random.chance(0.1) ? QVariant() : constantOf(kind));
        return KXExpression::expressionForConstantValue(list);
    }

    [[nodiscard]] KXPredicate comparison()
    {
        using namespace Qt::StringLiterals;
        using Operator = KXPredicateOperator;
        static constexpr Operator relations[]
            = { Operator::LessThan, Operator::LessThanOrEqual, Operator::GreaterThan, Operator::GreaterThanOrEqual,
                  Operator::Equal, Operator::Equal, Operator::NotEqual, Operator::In, Operator::In, Operator::Between };
        static constexpr Operator textual[] = { Operator::Matches, Operator::Matches, Operator::Like,
            Operator::BeginsWith, Operator::EndsWith, Operator::Contains, Operator::In, Operator::BeginsWord };
        static const QStringList patterns { u"*"_s, u"a*"_s, u"*b"_s, u"?"_s, u"*?b*"_s, u"\\*"_s, u"b\\*"_s, u"ab"_s,
            u"[ab]+"_s, u"a|á"_s, u"("_s, u"."_s, u"s*"_s };
        const Odds by = odds();
        const int kind = m_random.chance(by.ofText) ? int(Texts)
            : m_random.chance(by.ofNumber)          ? int(Numbers)
                                                    : m_random.below(kinds());
        const bool isTextual = m_random.chance(isText(kind) ? 0.5 : 0.05);
        Operator comparisonOperator = isTextual ? m_random.oneOf(textual) : m_random.oneOf(relations);
        if (m_random.chance(0.02))
            comparisonOperator = Operator(42);
        KXExpression left = leftOf(kind);
        KXExpression right = isTextual && m_random.chance(0.5)
            ? KXExpression::expressionForConstantValue(m_random.oneOf(patterns + ownPatterns()))
            : constant(kind);
        if (m_random.chance(by.pathOnRight))
            right = KXExpression::expressionForKeyPath(pathOf(m_random.chance(0.8) ? kind : int(Numbers)));
        if (comparisonOperator == Operator::Between && m_random.chance(0.9))
            right = KXExpression::expressionForConstantValue(QVariantList { constantOf(kind), constantOf(kind) });
        if (m_random.chance(isTextual ? by.swappedPattern : by.swapped))
            std::swap(left, right);
        const auto modifier = KXPredicateModifier(m_random.chance(0.5) ? 0 : m_random.below(4));
        return KXPredicate::comparison(
            left, comparisonOperator, right, modifier, m_random.chance(0.25) ? m_random.below(4) : 0);
    }
};
