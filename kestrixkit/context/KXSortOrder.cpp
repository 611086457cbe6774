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

const QVariant &KXSortOrder::value(const KXSortedRow &row, size_t key) const
{
    if (row.m_values.size() == key)
        row.m_values.push_back(m_keys[key].valueOf(row.m_object));
    return row.m_values[key];
}

std::vector<KXSortedRow> KXSortOrder::sorted(std::span<const KXRef<KXManagedObject>> objects) const
{
    std::vector<KXSortedRow> rows;
    rows.reserve(objects.size());
    for (const KXRef<KXManagedObject> &object : objects)
        rows.emplace_back(object.get());
    if (!isEmpty())
        std::sort(rows.begin(), rows.end(), [this](const auto &a, const auto &b) { return precedes(a, b); });
    return rows;
}

bool KXSortOrder::precedes(const KXSortedRow &a, const KXSortedRow &b) const
{
    for (size_t key = 0; key < m_keys.size(); ++key) {
        if (const int order = m_keys[key].compare(value(a, key), value(b, key)); order != 0)
            return order < 0;
    }
    return KXObjectAccess::key(a.object()) < KXObjectAccess::key(b.object());
}
