#pragma once

#include <memory>
#include <vector>

#include <QList>
#include <QVariant>

#include <kestrixkit/entity/KXManagedObjectID.h>

/// One property of one row before and after a save.
struct KXPropertyChange
{
    const KXPropertyDescription *property = nullptr;
    /// Of an attribute in its public type, of a to-one relationship the key of the other row (qint64); invalid where
    /// absent.
    QVariant oldValue;
    QVariant newValue;
    /// Of a to-many relationship: keys of the rows that came and went.
    QList<qint64> added;
    QList<qint64> removed;
};

/// A row that a save changed. A row whose other ends alone changed is listed too, with its to-many changes.
struct KXRowChange
{
    qint64 key = 0;
    qint64 version = 0; ///< of the row after the save; 0 where no column changed
    std::vector<KXPropertyChange> properties;
};

/// All rows of one entity (not of its sub-entities) that a save touched.
struct KXEntityChange
{
    const KXEntityDescription *entity = nullptr;
    QList<qint64> inserted;
    QList<qint64> deleted;
    std::vector<KXRowChange> updated;
};

/// One committed save, as its coordinator publishes it.
///
/// Holds keys and values, never objects; immutable, free to read on any thread and to keep.
class KX_CORE_EXPORT KXStoreChange : public std::enable_shared_from_this<KXStoreChange>
{
public:
    KXStoreChange(std::shared_ptr<const KXStoreIdentity> store, quint64 serialNumber, const void *originatingContext,
        std::vector<KXEntityChange> entities, qint64 numberBefore = 0, qint64 numberAfter = 0)
        : m_store(std::move(store))
        , m_serialNumber(serialNumber)
        , m_originatingContext(originatingContext)
        , m_entities(std::move(entities))
        , m_numberBefore(numberBefore)
        , m_numberAfter(numberAfter)
    {
    }

    [[nodiscard]] const std::shared_ptr<const KXStoreIdentity> &store() const { return m_store; }
    /// Counts the saves of a coordinator from 1, in the order in which they were committed.
    [[nodiscard]] quint64 serialNumber() const { return m_serialNumber; }
    /// The store's change number, which every save of any process raises, before and after this one: where the number
    /// before is not that of the change that came last, somebody else has saved between.
    [[nodiscard]] qint64 numberBefore() const { return m_numberBefore; }
    [[nodiscard]] qint64 numberAfter() const { return m_numberAfter; }
    /// Identity of the context that saved, for comparison only: it may be gone.
    [[nodiscard]] const void *originatingContext() const { return m_originatingContext; }
    [[nodiscard]] const std::vector<KXEntityChange> &entities() const { return m_entities; }
    /// nullptr where the save touched no row of exactly that entity.
    [[nodiscard]] const KXEntityChange *changeOf(const KXEntityDescription *entity) const
    {
        for (const KXEntityChange &change : m_entities) {
            if (change.entity == entity)
                return &change;
        }
        return nullptr;
    }

private:
    std::shared_ptr<const KXStoreIdentity> m_store;
    quint64 m_serialNumber;
    const void *m_originatingContext;
    std::vector<KXEntityChange> m_entities;
    qint64 m_numberBefore;
    qint64 m_numberAfter;
};
