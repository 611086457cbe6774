#pragma once

#include <optional>

#include <QUrl>

#include <kestrixkit/migration/KXMappingModel.h>

/// One thing that a migration does to a store, with how much it concerns.
struct KX_CORE_EXPORT KXMigrationChange
{
    enum Kind : quint8 {
        EntityAdded, ///< without rows
        EntityRenamed, ///< count: its rows
        EntityRemoved, ///< count: rows that are lost
        PropertyAdded, ///< count: rows that get its default; 0 where it has none
        PropertyRenamed, ///< count: its values or links
        PropertyConverted, ///< count: its values; lost: those that have no form in the new type
        PropertyFilled, ///< count: rows without value that get the default of a property that is required now
        PropertyRemoved, ///< count: values or links that are lost
        LinksLost, ///< count: links of a relationship whose other ends are not taken along
        ValueMissing, ///< count: rows without a value that is required now, which makes the migration impossible
    };
    Kind kind = EntityAdded;
    QString entity; ///< as it is called afterwards; of what is removed or has no place any more, before
    QString property; ///< likewise; empty for entities
    QString formerEntity; ///< where it had another name
    QString formerProperty;
    qint64 count = 0;
    qint64 lost = 0;

    /// The change in a line of English.
    [[nodiscard]] QString description() const;
    bool operator==(const KXMigrationChange &) const = default;
};

/// What migrating a store to a model would add, convert and lose, found out before anything is touched.
///
/// It counts in the store as it is when the plan is made; migrating the unchanged store does exactly this.
class KX_CORE_EXPORT KXMigrationPlan
{
public:
    /// With the mapping inferred from the model that the store was written with. Nothing and an error where the store
    /// cannot be read or there is no such mapping.
    [[nodiscard]] static std::optional<KXMigrationPlan> planForStoreURL(
        const QUrl &url, const KXManagedObjectModel::Ref &destinationModel, KXError *error = nullptr);
    [[nodiscard]] static std::optional<KXMigrationPlan> planForStoreURL(
        const QUrl &url, const KXMappingModel::Ref &mapping, KXError *error = nullptr);

    [[nodiscard]] const KXMappingModel::Ref &mapping() const { return m_mapping; }
    [[nodiscard]] const QList<KXMigrationChange> &changes() const { return m_changes; }
    /// False where the store fits the model already.
    [[nodiscard]] bool isNeeded() const;
    [[nodiscard]] bool isPossible() const;
    /// Whether there are rows, values or links that will not be there afterwards.
    [[nodiscard]] bool losesData() const;

private:
    friend class KXMigrationPlanner;
    explicit KXMigrationPlan(KXMappingModel::Ref mapping)
        : m_mapping(std::move(mapping))
    {
    }
    KXMappingModel::Ref m_mapping;
    QList<KXMigrationChange> m_changes;
};
