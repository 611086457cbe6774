#pragma once

#include <kestrixkit/filters/KXFilter.h>
#include <kestrixkit/foundation/KXDecimal.h>

/// A range of numbers, open at either end where that bound is absent. Belongs to the thread of its context.
class KX_CORE_EXPORT KXRangeFilter : public KXManagedObjectOf<KXRangeFilter, KXFilter>
{
public:
    static constexpr QLatin1StringView entityName { "KXRangeFilter" };

    KX_ATTRIBUTE(std::optional<KXDecimal>, startValue, setStartValue)
    KX_ATTRIBUTE(KXPredicateOperator, startValueOperatorType, setStartValueOperatorType)
    KX_ATTRIBUTE(std::optional<KXDecimal>, endValue, setEndValue)
    KX_ATTRIBUTE(KXPredicateOperator, endValueOperatorType, setEndValueOperatorType)

    /// A new, enabled filter for what lies from the one bound to the other, both included; an absent bound leaves that
    /// end open. It looks at the key path in the local library and in the remote catalogue alike, and is called after
    /// it. Empty, with a log line, where the store gives no identifier.
    ///
    ///     KXRangeFilter::createWithKeyPath(Track::bpmKey, 120, 128, context);
    [[nodiscard]] static KXRef<KXRangeFilter> createWithKeyPath(const QString &keyPath,
        const std::optional<KXDecimal> &from, const std::optional<KXDecimal> &to, KXManagedObjectContext &inContext,
        KXError *error = nullptr);

    /// "> 120 AND < 130". An end bound alone is not shown: the label is then the name.
    [[nodiscard]] QString defaultLabel() const override;
    [[nodiscard]] QString detailsAsHTMLString() const override;
    /// AND of a comparison for each bound; without bounds AND of nothing, which is true.
    [[nodiscard]] KXPredicate representedPredicateWithKeyPath(
        const QString &keyPath, KXPredicateModifier modifier) const override;

protected:
    void copyTo(KXFilter &copy) const override;
    [[nodiscard]] QStringList keysAffectingLabel() const override;
};
