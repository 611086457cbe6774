#pragma once

#include <kestrixkit/filters/KXFilter.h>

/// The filters that together describe one search; or a folder of such sets. Belongs to the thread of its context.
class KX_CORE_EXPORT KXFilterSet : public KXTreeObjectOf<KXFilterSet>
{
public:
    static constexpr QLatin1StringView entityName { "KXFilterSet" };

    KX_ATTRIBUTE(QString, title, setTitle)
    /// A folder has sets below it and no filters of its own.
    KX_ATTRIBUTE(bool, isFolder, setIsFolder)
    KX_TO_MANY(KXFilter, filters, Filters)

    /// The set that an object is or belongs to: a set, a filter or a facet's value. Empty for what belongs to none.
    [[nodiscard]] static KXRef<KXFilterSet> filterSetOfObject(const KXRef<KXManagedObject> &object);

    /// By position.
    [[nodiscard]] QList<KXRef<KXFilter>> sortedFilters() const;

    /// AND of the conditions of the enabled filters, by position; filters that have none are left out.
    [[nodiscard]] KXPredicate representedLocalPredicateWithKeyPath(const std::optional<QString> &prefix = {}) const;
    [[nodiscard]] KXPredicate representedRemotePredicateWithKeyPath(const std::optional<QString> &prefix = {}) const;

    /// A set of the same entity with copies of the filters and nothing else: no title, not in a folder, and the filters
    /// without their order above each other. Empty where the store gives no identifier.
    [[nodiscard]] KXRef<KXFilterSet> duplicateInContext(KXManagedObjectContext &context) const;

    /// Whether both hold the same filters in the same order, attribute by attribute and value by value, whatever the
    /// numbers of their positions: whether a set that was copied has been changed since. The sets may be of different
    /// contexts.
    [[nodiscard]] bool hasSameFiltersAs(const KXFilterSet &other) const;

    [[nodiscard]] bool isEditable() const override { return isFolder(); }
    [[nodiscard]] bool canBeParentForItem(const KXSourceListItem *) const override { return isFolder(); }
    [[nodiscard]] QIcon image() const override;
};
