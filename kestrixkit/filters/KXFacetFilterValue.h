#pragma once

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/filters/KXCounts.h>
#include <kestrixkit/predicate/KXPredicate.h>

class KXFacetFilter;

/// One value of a facet filter. Temporary instances of it are offered as choices and never saved. Belongs to the thread
/// of its context.
class KX_CORE_EXPORT KXFacetFilterValue : public KXManagedObjectOf<KXFacetFilterValue>
{
public:
    static constexpr QLatin1StringView entityName { "KXFacetFilterValue" };

    /// What is shown.
    KX_ATTRIBUTE(std::optional<QString>, name, setName)
    /// What queries compare: a text or a number, which stay what they are.
    KX_ATTRIBUTE(QVariant, value, setValue)
    /// Of the value in the remote catalogue.
    KX_ATTRIBUTE(std::optional<QString>, valueIdentifier, setValueIdentifier)
    /// "Not equal" marks an excluded value.
    KX_ATTRIBUTE(KXPredicateOperator, operatorType, setOperatorType)
    KX_ATTRIBUTE(bool, enabled, setEnabled)
    KX_TO_ONE(KXFacetFilter, filter, setFilter)

    /// Kept in memory only; absent before the first count. Readable and observable under "counts".
    [[nodiscard]] const std::optional<KXCounts> &counts() const { return m_counts; }
    void setCount(qint64 count, const QString &forContextIdentifier);

    /// Throws KXException where the context's model has no such entity.
    [[nodiscard]] static KXRef<KXFacetFilterValue> createTemporaryInstanceInContext(KXManagedObjectContext &context,
        const std::optional<QString> &name, const QVariant &value, const std::optional<QString> &valueId,
        KXPredicateOperator operatorType);
    using KXManagedObjectOf<KXFacetFilterValue>::createTemporaryInstanceInContext;

    /// A copy of the same entity, without filter and counts; empty, with a log line, where the store gives no
    /// identifier. Throws KXException where the context's model has no such entity.
    [[nodiscard]] KXRef<KXFacetFilterValue> duplicateInContext(KXManagedObjectContext &context) const;

    [[nodiscard]] QVariant valueForKey(const QString &key) const override;

private:
    std::optional<KXCounts> m_counts;
};
