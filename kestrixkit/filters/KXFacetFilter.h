#pragma once

#include <kestrixkit/filters/KXFacetFilterValue.h>
#include <kestrixkit/filters/KXFilter.h>

/// A choice among values: any of those included, and none of those excluded.
///
/// A value counts as excluded when its operator is "not equal". Where several are excluded, the remote predicate asks
/// for all of these comparisons, the local one for any of them: a track of two genres passes "not House, not Techno".
/// Belongs to the thread of its context.
class KX_CORE_EXPORT KXFacetFilter : public KXManagedObjectOf<KXFacetFilter, KXFilter>
{
public:
    static constexpr QLatin1StringView entityName { "KXFacetFilter" };

    KX_TO_MANY(KXFacetFilterValue, values, Values)
    /// By name as the store sorts texts, those without a name first.
    [[nodiscard]] QList<KXRef<KXFacetFilterValue>> valuesSortedByName() const;

    /// Names of up to four values, "NOT %@" for excluded ones; name and number of more.
    [[nodiscard]] QString defaultLabel() const override;
    [[nodiscard]] QString detailsAsHTMLString() const override;
    /// Compares a value's identifier where both it and its key path are there, else the value; one with neither is left
    /// out. Absent where no enabled value is left.
    [[nodiscard]] KXPredicate representedRemotePredicateWithKeyPath(
        const std::optional<QString> &prefix = {}) const override;
    /// Compares values, whatever is absent. Absent itself where no value is enabled.
    [[nodiscard]] KXPredicate representedLocalPredicateWithKeyPath(
        const std::optional<QString> &prefix = {}) const override;

protected:
    void copyTo(KXFilter &copy) const override;
    [[nodiscard]] QStringList keysAffectingLabel() const override;
};
