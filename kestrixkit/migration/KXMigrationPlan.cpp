#include <kestrixkit/migration/KXMigrationPlan.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/migration/KXMigrationSQL_p.h>
#include <kestrixkit/migration/KXMigrationValues_p.h>
#include <kestrixkit/migration/KXStoreMigration_p.h>
#include <kestrixkit/store/KXStoreReplacement_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>

using namespace Qt::StringLiterals;

QString KXMigrationChange::description() const
{
    const auto named = [](const QString &inEntity, const QString &inProperty) {
        return inProperty.isEmpty() ? inEntity : inEntity + u'.' + inProperty;
    };
    const QString name = named(entity, property);
    const QString former
        = named(formerEntity.isEmpty() ? entity : formerEntity, formerProperty.isEmpty() ? property : formerProperty);
    switch (kind) {
    case EntityAdded:
        return KXStringWithFormat("%@ is new", name);
    case EntityRenamed:
        return KXStringWithFormat("%@ becomes %@ (%@ rows)", former, name, count);
    case EntityRemoved:
        return KXStringWithFormat("%@ goes with its %@ rows", name, count);
    case PropertyAdded:
        return count > 0 ? KXStringWithFormat("%@ is new, %@ rows get its default", name, count)
                         : KXStringWithFormat("%@ is new", name);
    case PropertyRenamed:
        return KXStringWithFormat("%@ becomes %@ (%@ values)", former, name, count);
    case PropertyConverted:
        return lost > 0 ? KXStringWithFormat("%@ changes its type (%@ values, of which %@ are lost)", name, count, lost)
                        : KXStringWithFormat("%@ changes its type (%@ values)", name, count);
    case PropertyFilled:
        return KXStringWithFormat("%@ is required now, %@ rows get its default", name, count);
    case PropertyRemoved:
        return KXStringWithFormat("%@ goes with its %@ values", name, count);
    case LinksLost:
        return KXStringWithFormat("%@ loses %@ links to rows that go", name, count);
    case ValueMissing:
        return KXStringWithFormat("%@ is required, and %@ rows would have no value", name, count);
    }
    return {};
}

/// Asks the store for the counts of a plan.
class KXMigrationPlanner
{
public:
    KXMigrationPlanner(KXSQLiteConnection &connection, const KXMappingModel::Ref &mapping)
        : m_plan(mapping)
        , m_sql(*mapping)
        , m_connection(connection)
    {
    }

    KXError make()
    {
        KXMigrationValues::registerFunction(m_connection.handle());
        const KXReadTransaction one(m_connection);
        const KXMappingModel &mapping = *m_plan.mapping();
        for (const KXEntityDescription *entity : mapping.destinationModel()->entities()) {
            const KXEntityMapping *from = mapping.mappingTo(entity);
            if (!from)
                add({ KXMigrationChange::EntityAdded, entity->name(), {}, {}, {} });
            else
                addEntity(*from);
        }
        for (const KXEntityDescription *entity : mapping.sourceModel()->entities()) {
            if (!mapping.mappingFrom(entity))
                add({ KXMigrationChange::EntityRemoved, entity->name(), {}, {}, {}, number(m_sql.rows(entity)) });
        }
        return m_error;
    }

    [[nodiscard]] KXMigrationPlan plan() const { return m_plan; }

private:
    void add(const KXMigrationChange &change) { m_plan.m_changes.append(change); }

    qint64 number(const KXMigrationSQL::Statement &statement)
    {
        KXStatement query = m_connection.prepare(statement.sql);
        for (qsizetype i = 0; query && i < statement.parameters.size(); ++i)
            query.bindVariant(int(i + 1), statement.parameters[i]);
        if (query && query.step() == SQLITE_ROW)
            return query.integer(0);
        m_error = m_connection.lastError();
        return 0;
    }

    void addEntity(const KXEntityMapping &mapping)
    {
        const QString name = mapping.destination->name();
        const QString former = mapping.source->name();
        if (name != former)
            add({ KXMigrationChange::EntityRenamed, name, {}, former, {}, number(m_sql.rows(mapping.source)) });
        for (const KXPropertyMapping &property : mapping.properties)
            addProperty(mapping, property);
        for (const KXPropertyDescription &property : mapping.source->properties()) {
            if (property.isTransient() || mapping.mappingFrom(&property))
                continue;
            // A relationship whose other end stays loses nothing, but for links to rows that have no such end any more.
            const bool otherEndStays = property.isRelationship() && m_sql.inverseCarries(mapping.source, property);
            const qint64 count = number(property.isRelationship() ? m_sql.linksLeft(mapping.source, property)
                                                                  : m_sql.values(mapping.source, property));
            if (count > 0 || !otherEndStays)
                add({ KXMigrationChange::PropertyRemoved, former, property.name(), {}, {}, count });
        }
    }

    void addProperty(const KXEntityMapping &mapping, const KXPropertyMapping &property)
    {
        using Kind = KXMigrationChange::Kind;
        const KXPropertyDescription &to = *property.destination;
        if (to.isTransient())
            return;
        const auto note = [&](Kind kind, qint64 count, qint64 lost = 0) {
            const bool isRenamed = property.source && property.source->name() != to.name();
            add({ kind, mapping.destination->name(), to.name(),
                mapping.source->name() == mapping.destination->name() ? QString() : mapping.source->name(),
                isRenamed ? property.source->name() : QString(), count, lost });
        };
        if (!property.source) {
            note(Kind::PropertyAdded, property.value.isValid() ? number(m_sql.rows(mapping.source)) : 0);
        } else {
            if (property.source->name() != to.name())
                note(Kind::PropertyRenamed, number(m_sql.values(mapping.source, *property.source)));
            const qint64 lost = property.converts() ? number(m_sql.failures(mapping.source, property)) : 0;
            if (property.converts())
                note(Kind::PropertyConverted, number(m_sql.values(mapping.source, *property.source)), lost);
            if (property.value.isValid()) {
                if (const qint64 filled
                    = number(m_sql.missing(mapping.source, { property.destination, property.source, {} })))
                    note(Kind::PropertyFilled, filled);
            }
            if (property.source->isRelationship()) {
                if (const qint64 links = number(m_sql.lostLinks(mapping.source, property)))
                    note(Kind::LinksLost, links);
            }
        }
        if (KXStoreMigration::mayLackValue(property)) {
            if (const qint64 rows = number(m_sql.missing(mapping.source, property)))
                note(Kind::ValueMissing, rows);
        }
    }

    KXMigrationPlan m_plan;
    KXMigrationSQL m_sql;
    KXSQLiteConnection &m_connection;
    KXError m_error;
};

std::optional<KXMigrationPlan> KXMigrationPlan::planForStoreURL(
    const QUrl &url, const KXManagedObjectModel::Ref &destinationModel, KXError *error)
{
    const auto metadata = KXPersistentStore::metadataForStoreURL(url, error);
    const auto source = metadata ? KXStoreMigration::modelOf(*metadata, error) : nullptr;
    const auto mapping = source ? KXMappingModel::inferredMappingModel(source, destinationModel, error) : nullptr;
    return mapping ? planForStoreURL(url, mapping, error) : std::nullopt;
}

std::optional<KXMigrationPlan> KXMigrationPlan::planForStoreURL(
    const QUrl &url, const KXMappingModel::Ref &mapping, KXError *error)
{
    KXSQLiteConnection connection;
    KXError problem = connection.open(url.toLocalFile(), { .untouched = true });
    if (!problem)
        problem = KXStoreMigration::checkSource(connection, *mapping);
    KXMigrationPlanner planner(connection, mapping);
    if (!problem)
        problem = planner.make();
    if (!problem)
        return planner.plan();
    KXSetError(error, problem);
    return std::nullopt;
}

bool KXMigrationPlan::isNeeded() const
{
    return m_mapping->sourceModel()->versionHashes() != m_mapping->destinationModel()->versionHashes();
}

bool KXMigrationPlan::isPossible() const
{
    return std::none_of(m_changes.begin(), m_changes.end(),
        [](const auto &change) { return change.kind == KXMigrationChange::ValueMissing; });
}

bool KXMigrationPlan::losesData() const
{
    return std::any_of(m_changes.begin(), m_changes.end(), [](const KXMigrationChange &change) {
        switch (change.kind) {
        case KXMigrationChange::EntityRemoved:
        case KXMigrationChange::PropertyRemoved:
        case KXMigrationChange::LinksLost:
            return change.count > 0;
        default:
            return change.lost > 0;
        }
    });
}
