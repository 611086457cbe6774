#include <kestrixkit/filters/KXFacetFilterValue.h>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/foundation/KXLog.h>

using namespace Qt::StringLiterals;

void KXFacetFilterValue::setCount(qint64 count, const QString &forContextIdentifier)
{
    willChangeValueForKey(u"counts");
    if (!m_counts)
        m_counts.emplace();
    m_counts->insert(forContextIdentifier, count);
    didChangeValueForKey(u"counts");
}

KXRef<KXFacetFilterValue> KXFacetFilterValue::createTemporaryInstanceInContext(KXManagedObjectContext &context,
    const std::optional<QString> &name, const QVariant &value, const std::optional<QString> &valueId,
    KXPredicateOperator operatorType)
{
    const auto instance = createTemporaryInstanceInContext(context);
    if (!instance)
        return {};
    instance->setName(name);
    instance->setValue(value);
    instance->setValueIdentifier(valueId);
    instance->setOperatorType(operatorType);
    return instance;
}

KXRef<KXFacetFilterValue> KXFacetFilterValue::duplicateInContext(KXManagedObjectContext &context) const
{
    // Its own entity: a host may have values of a kind of its own.
    const KXRef<KXFacetFilterValue> copy = cast(context.managedObjectForEntity(entity()->name()));
    if (!copy) {
        KXLogError(filters, "A value of a facet filter cannot be copied as \"%@\"", entity()->name());
        return {};
    }
    for (const QString &key : { u"name"_s, u"value"_s, u"valueIdentifier"_s, u"operatorType"_s, u"enabled"_s })
        copy->setValueForKey(key, KXManagedObject::valueForKey(key));
    return copy;
}

QVariant KXFacetFilterValue::valueForKey(const QString &key) const
{
    return key == "counts"_L1 ? KXVariantFromCounts(m_counts) : KXManagedObjectOf::valueForKey(key);
}
