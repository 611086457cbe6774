#include <kestrixkit/context/KXSortOrder_p.h>

#include <kestrixkit/context/KXObjectAccess_p.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

KXSortOrder::KXSortOrder(const QList<KXSortDescriptor> &descriptors)
{
    for (const KXSortDescriptor &descriptor : descriptors)
        m_keys.push_back(
            { KXExpression::expressionForKeyPath(descriptor.key), descriptor.ascending, descriptor.options });
}

bool KXSortOrder::precedes(const KXManagedObject *a, const KXManagedObject *b) const
{
    for (const Key &key : m_keys) {
        const int order = KXCompareForSorting(
            key.path.expressionValueWithObject(a), key.path.expressionValueWithObject(b), key.options);
        if (order != 0)
            return key.ascending ? order < 0 : order > 0;
    }
    return KXObjectAccess::key(a) < KXObjectAccess::key(b);
}
