#pragma once

#include <vector>

#include <kestrixkit/predicate/KXExpression.h>
#include <kestrixkit/predicate/KXFetchRequest.h>

class KXManagedObject;

/// Sort descriptors made ready to compare objects in memory, in the order that SQL gives their rows.
class KXSortOrder
{
public:
    explicit KXSortOrder(const QList<KXSortDescriptor> &descriptors);

    [[nodiscard]] bool isEmpty() const { return m_keys.empty(); }
    /// Total: objects with equal values come in the order of their keys.
    [[nodiscard]] bool precedes(const KXManagedObject *a, const KXManagedObject *b) const;

private:
    struct Key
    {
        KXSortDescriptor descriptor;
        KXExpression path;
        [[nodiscard]] QVariant valueOf(const KXManagedObject *object) const;
        [[nodiscard]] int compare(const QVariant &a, const QVariant &b) const;
    };
    std::vector<Key> m_keys;
};
