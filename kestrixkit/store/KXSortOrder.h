#pragma once

#include <vector>

#include <kestrixkit/store/KXExpression.h>
#include <kestrixkit/store/KXFetchRequest.h>

class KXManagedObject;

/// Sort descriptors made ready to compare objects in memory, in the order that fetches give them. On the thread of the
/// objects' context.
class KX_CORE_EXPORT KXSortOrder
{
public:
    explicit KXSortOrder(const QList<KXSortDescriptor> &descriptors);

    [[nodiscard]] bool isEmpty() const { return m_keys.empty(); }
    /// Total: objects with equal values come in the order of their keys.
    [[nodiscard]] bool precedes(const KXManagedObject *a, const KXManagedObject *b) const;

private:
    struct Key
    {
        KXExpression path;
        bool ascending;
        int options;
    };
    std::vector<Key> m_keys;
};
