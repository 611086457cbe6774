#pragma once

#include <span>
#include <unordered_map>
#include <vector>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/store/KXRowCodec_p.h>
#include <kestrixkit/store/KXStoreChange.h>

/// Sets attributes of very many rows without making objects of them: reading, comparing and writing are one
/// transaction, so that there is nobody to settle conflicts with.
class KXBatchRows
{
public:
    using Attributes = std::vector<const KXPropertyDescription *>;

    /// Each attribute has a column; nothing descends from the entity.
    KXBatchRows(KXManagedObjectContextPrivate &context, const KXEntityDescription &entity, Attributes attributes);

    /// A row is to get the values of the number `target`, if it has those of the number `expected` (-1: whatever it
    /// has).
    struct Step
    {
        qint64 key;
        qint32 target, expected;
    };
    /// What the row had; the values of a step's target are known by then.
    struct Done
    {
        size_t step;
        QVariantList before;
    };
    struct Result
    {
        std::vector<Done> done;
        qint64 kept = 0; ///< that had something else than what was expected
    };

    /// Makes the values, a list with one for each attribute, those of the number. False where an attribute cannot hold
    /// its value as a column would.
    [[nodiscard]] bool setTarget(qint32 number, const QVariantList &values);
    /// As they come back from the store.
    [[nodiscard]] const QVariantList &valuesOf(qint32 target) const { return m_targets.at(target).values; }
    [[nodiscard]] bool hasTarget(qint32 number) const { return m_targets.contains(number); }
    void forgetTargets() { m_targets.clear(); }

    /// Rows that are gone, and those that have their values already, are passed over. False with an error, and nothing
    /// is changed.
    [[nodiscard]] bool carryOut(std::span<const Step> steps, Result &result, KXError *error);

private:
    struct Row
    {
        qint64 key, version;
        QVariantList values, before; ///< now, and as they are stored
        qint32 target = -1;
    };
    struct Target
    {
        KXRowValues::Owner row;
        QVariantList values;
    };

    [[nodiscard]] QVariantList valuesOf(const KXRowValues &row) const;
    KXError read(KXSQLiteConnection &connection, const QByteArray &keys, std::vector<Row> &rows) const;
    KXError write(KXSQLiteConnection &connection, std::vector<Row> &rows, std::vector<KXEntityChange> &changes) const;
    KXError writeAlike(KXSQLiteConnection &connection, std::span<Row> rows) const;
    [[nodiscard]] KXRowChange newsOf(const Row &row) const;

    KXManagedObjectContextPrivate &m_context;
    const KXManagedObjectModel::Ref m_model; // which the targets need, and may end before them
    const KXEntityDescription &m_entity;
    const Attributes m_attributes;
    const KXRowCodec m_codec;
    std::unordered_map<qint32, Target> m_targets;
};
