#pragma once

#include <optional>

#include <kestrixkit/context/KXTreeObjectOf.h>
#include <kestrixkit/predicate/KXPredicate.h>

class KXFilterSet;

/// One stored criterion of a search: the base of range, date and facet filters.
///
/// A filter turns itself into a predicate for the local library and one for the remote catalogue. Both are the same
/// tree on key paths and modifiers of their own. Attributes that the store has no value for read as absent, 0 or false.
/// Belongs to the thread of its context.
class KX_CORE_EXPORT KXFilter : public KXTreeObjectOf<KXFilter>
{
public:
    static constexpr QLatin1StringView entityName { "KXFilter" };

    KX_ATTRIBUTE(std::optional<QString>, name, setName)
    /// Whether it takes part in queries.
    KX_ATTRIBUTE(bool, enabled, setEnabled)
    // What is compared in objects of the local library, and how many of them have to match.
    KX_ATTRIBUTE(std::optional<QString>, localValuePredicateKeyPath, setLocalValuePredicateKeyPath)
    KX_ATTRIBUTE(KXPredicateModifier, localValuePredicateModifier, setLocalValuePredicateModifier)
    // The same in the remote catalogue, for values and for values that have an identifier there.
    KX_ATTRIBUTE(std::optional<QString>, remoteValuePredicateKeyPath, setRemoteValuePredicateKeyPath)
    KX_ATTRIBUTE(KXPredicateModifier, remoteValuePredicateModifier, setRemoteValuePredicateModifier)
    KX_ATTRIBUTE(
        std::optional<QString>, remoteValueIdentifierPredicateKeyPath, setRemoteValueIdentifierPredicateKeyPath)
    KX_ATTRIBUTE(KXPredicateModifier, remoteValueIdentifierPredicateModifier, setRemoteValueIdentifierPredicateModifier)
    /// The owner; a filter below another one may have none.
    KX_TO_ONE(KXFilterSet, filterSet, setFilterSet)

    static constexpr KXKey labelKey { u"label" };
    /// What the user called it, else the default label, which is never stored. Observable with all that it follows.
    [[nodiscard]] QString label() const { return storedLabel().value_or(defaultLabel()); }
    [[nodiscard]] std::optional<QString> storedLabel() const;
    void setLabel(const std::optional<QString> &label);
    /// Empty unless overridden.
    [[nodiscard]] virtual QString defaultLabel() const { return {}; }
    /// A fragment for details of a preset. Names are not escaped.
    [[nodiscard]] virtual QString detailsAsHTMLString() const { return {}; }

    /// The condition on the key path; absent where the filter has none.
    [[nodiscard]] virtual KXPredicate representedPredicateWithKeyPath(
        const QString &keyPath, KXPredicateModifier modifier) const;
    /// The condition on the filter's own key path. With a prefix that is the prefix, the key path and a final dot, with
    /// nothing put between: callers choose their prefix accordingly.
    [[nodiscard]] virtual KXPredicate representedRemotePredicateWithKeyPath(
        const std::optional<QString> &prefix = {}) const;
    [[nodiscard]] virtual KXPredicate representedLocalPredicateWithKeyPath(
        const std::optional<QString> &prefix = {}) const;

    /// A copy in that context, of the receiver's entity. Copies attributes, and values of facet filters; never the set,
    /// parent or children. Empty where the store gives no identifier.
    [[nodiscard]] KXRef<KXFilter> duplicateInContext(KXManagedObjectContext &context) const;
    /// The same as another entity, which has to be one of filters. What it has no attribute for is logged and left out.
    [[nodiscard]] KXRef<KXFilter> duplicateInContext(
        KXManagedObjectContext &context, const QString &usingEntityName) const;

    /// The nearest parent, grandparent and so on that is of the class; empty where there is none.
    template <class Ancestor> [[nodiscard]] KXRef<Ancestor> ancestorOfClass() const
    {
        for (KXSourceListItem *item : ancestorItems()) {
            if (auto *ancestor = dynamic_cast<Ancestor *>(item))
                return KXRef<Ancestor>(ancestor);
        }
        return {};
    }
    /// The leaves below, depth first; itself where it has no children.
    [[nodiscard]] QList<KXRef<KXFilter>> furthestDescendants() const;

    [[nodiscard]] QString title() const override { return label(); }
    [[nodiscard]] bool canBeParentForItem(const KXSourceListItem *) const override { return true; }
    [[nodiscard]] QIcon image() const override;
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;
    [[nodiscard]] QStringList keyPathsForValuesAffectingKey(const QString &key) const override;

protected:
    /// Copies what the class adds to its base. Keys are copied as they are stored.
    virtual void copyTo(KXFilter &copy) const;
    void copyAttributes(const QStringList &keys, KXFilter &copy) const;
    /// Keys that the default label is made of.
    [[nodiscard]] virtual QStringList keysAffectingLabel() const { return {}; }
    /// As described at representedRemotePredicateWithKeyPath.
    [[nodiscard]] static QString prefixed(const std::optional<QString> &prefix, const std::optional<QString> &keyPath);
};
