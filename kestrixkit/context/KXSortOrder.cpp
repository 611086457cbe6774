#include <kestrixkit/context/KXSortOrder_p.h>

#include <kestrixkit/context/KXObjectAccess_p.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

KXSortOrder::KXSortOrder(const QList<KXSortDescriptor> &descriptors)
{
    for (const KXSortDescriptor &descriptor : descriptors) {
        const bool isOfMember = !descriptor.memberKey.isEmpty(); // the path then begins at the member
        m_keys.push_back({ descriptor,
            KXExpression::expressionForKeyPath(isOfMember ? descriptor.key.section(u'.', 1) : descriptor.key) });
    }
}

QVariant KXSortOrder::Key::valueOf(const KXManagedObject *object) const
{
    if (descriptor.memberKey.isEmpty())
        return path.expressionValueWithObject(object);
    QVariant lowest;
    for (const KXRef<KXManagedObject> &member : object->objectsForKey(descriptor.key.section(u'.', 0, 0))) {
        const auto to = member->valueForKey(descriptor.memberKey).value<KXRef<KXManagedObject>>();
        if (!to || to->objectID() != descriptor.member)
            continue;
        const QVariant value = path.expressionValueWithObject(member.get());
        if (value.isValid() && (!lowest.isValid() || KXCompareForSorting(value, lowest, descriptor.options) < 0))
            lowest = value;
    }
    return lowest;
}

int KXSortOrder::Key::compare(const QVariant &a, const QVariant &b) const
{
    if (descriptor.absentLast && descriptor.ascending) {
        if (a.isNull() != b.isNull())
            return a.isNull() ? 1 : -1;
    }
    const int order = KXCompareForSorting(a, b, descriptor.options);
    return descriptor.ascending ? order : -order;
}

bool KXSortOrder::precedes(const KXManagedObject *a, const KXManagedObject *b) const
{
    for (const Key &key : m_keys) {
        if (const int order = key.compare(key.valueOf(a), key.valueOf(b)); order != 0)
            return order < 0;
    }
    return KXObjectAccess::key(a) < KXObjectAccess::key(b);
}
