#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include <QVariant>

#include <kestrixkit/foundation/KXRef.h>
#include <kestrixkit/predicate/KXExpression.h>
#include <kestrixkit/predicate/KXFetchRequest.h>

class KXManagedObject;

/// An object that is compared many times: its values are read once, and those behind a difference never. Borrows it.
class KXSortedRow
{
public:
    explicit KXSortedRow(const KXManagedObject *object)
        : m_object(object)
    {
    }
    [[nodiscard]] const KXManagedObject *object() const { return m_object; }

private:
    friend class KXSortOrder;
    const KXManagedObject *m_object;
    mutable std::vector<QVariant> m_values;
};

/// Sort descriptors made ready to compare objects in memory, in the order that SQL gives their rows.
class KXSortOrder
{
public:
    explicit KXSortOrder(const QList<KXSortDescriptor> &descriptors);

    [[nodiscard]] bool isEmpty() const { return m_keys.empty(); }
    /// In this order, ready to be compared with others; as they come where there is none.
    [[nodiscard]] std::vector<KXSortedRow> sorted(std::span<const KXRef<KXManagedObject>> objects) const;
    /// Total: objects with equal values come in the order of their keys.
    [[nodiscard]] bool precedes(const KXSortedRow &a, const KXSortedRow &b) const;

private:
    struct Key
    {
        KXSortDescriptor descriptor;
        KXExpression path;
        [[nodiscard]] QVariant valueOf(const KXManagedObject *object) const;
        [[nodiscard]] int compare(const QVariant &a, const QVariant &b) const;
    };
    [[nodiscard]] const QVariant &value(const KXSortedRow &row, size_t key) const;

    std::vector<Key> m_keys;
};

/// How many of the keys, of which those that precede stand first, precede; those in front of `from` do. Where many rows
/// are placed among many the next place is near: it is looked for first beside the last one, where rows go that belong
/// together, and then at the distance at which they lie on average.
template <typename Precedes>
[[nodiscard]] size_t KXPlaceAmong(
    const std::vector<qint64> &keys, size_t from, size_t distance, const Precedes &precedes)
{
    size_t end = keys.size();
    if (from < end && !precedes(keys[from]))
        return from;
    for (distance = std::max<size_t>(1, distance); end - from > distance; distance *= 2) {
        if (!precedes(keys[from + distance])) {
            end = from + distance;
            break;
        }
        from += distance + 1;
    }
    return size_t(
        std::partition_point(keys.begin() + ptrdiff_t(from), keys.begin() + ptrdiff_t(end), precedes) - keys.begin());
}
