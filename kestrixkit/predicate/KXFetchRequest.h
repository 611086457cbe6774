#pragma once

#include <QList>
#include <QString>

#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/predicate/KXPredicate.h>

/// One key to sort by. A key path through to-one relationships is allowed; absent values sort first ascending.
///
/// A key path that begins with a to-many relationship is allowed where one more condition picks the member whose value
/// it is: {.key = "entries.position", .memberKey = "list", .member = list} puts objects in the order in which a list
/// has them, by the entries that lead from that list to them.
struct KXSortDescriptor
{
    QString key = {};
    bool ascending = true;
    int options = 0; ///< bits of KXPredicateOption, for texts; an order of folded texts is served by no index
    bool absentLast = false; ///< in either direction
    QString memberKey = {}; ///< a to-one relationship of the to-many one's members
    KXManagedObjectID member = {}; ///< where that leads; of several members the lowest value counts

    /// What the order depends on.
    [[nodiscard]] QStringList keyPaths() const
    {
        return memberKey.isEmpty() ? QStringList { key }
                                   : QStringList { key, key.section(u'.', 0, 0) + u'.' + memberKey };
    }
    friend bool operator==(const KXSortDescriptor &, const KXSortDescriptor &) = default;
};

/// What to fetch: an entity (with its sub-entities), a predicate, an order and a range of the result.
///
/// Results with equal sort values come in the order of their keys. Without sort descriptors the order is not
/// specified.
class KX_CORE_EXPORT KXFetchRequest
{
public:
    explicit KXFetchRequest(QString entityName, KXPredicate predicate = {})
        : m_entityName(std::move(entityName))
        , m_predicate(std::move(predicate))
    {
    }

    KXFetchRequest &setPredicate(const KXPredicate &predicate)
    {
        m_predicate = predicate;
        return *this;
    }
    KXFetchRequest &setSortDescriptors(const QList<KXSortDescriptor> &descriptors)
    {
        m_sortDescriptors = descriptors;
        return *this;
    }
    /// At most so many results; 0 for all.
    KXFetchRequest &setFetchLimit(qint64 limit)
    {
        m_fetchLimit = limit;
        return *this;
    }
    KXFetchRequest &setFetchOffset(qint64 offset)
    {
        m_fetchOffset = offset;
        return *this;
    }
    /// How many objects are filled at a time when one that is not in memory is touched; from 1.
    KXFetchRequest &setFetchBatchSize(int size)
    {
        m_fetchBatchSize = std::max(1, size);
        return *this;
    }

    [[nodiscard]] const QString &entityName() const { return m_entityName; }
    [[nodiscard]] const KXPredicate &predicate() const { return m_predicate; }
    [[nodiscard]] const QList<KXSortDescriptor> &sortDescriptors() const { return m_sortDescriptors; }
    [[nodiscard]] qint64 fetchLimit() const { return m_fetchLimit; }
    [[nodiscard]] qint64 fetchOffset() const { return m_fetchOffset; }
    [[nodiscard]] int fetchBatchSize() const { return m_fetchBatchSize; }

private:
    QString m_entityName;
    KXPredicate m_predicate;
    QList<KXSortDescriptor> m_sortDescriptors;
    qint64 m_fetchLimit = 0;
    qint64 m_fetchOffset = 0;
    int m_fetchBatchSize = 256;
};
