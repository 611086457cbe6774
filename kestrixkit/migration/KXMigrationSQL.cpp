#include <kestrixkit/migration/KXMigrationSQL_p.h>

#include <QSet>

#include <kestrixkit/migration/KXMigrationValues_p.h>
#include <kestrixkit/store/KXStoreTables_p.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray migrationNumber(int number) { return QByteArray::number(number); }

QByteArray migrationWhere(const QByteArrayList &conditions)
{
    QByteArrayList given = conditions;
    given.removeAll({});
    return given.isEmpty() ? QByteArray() : " WHERE " + given.join(" AND ");
}

}

/// A condition on the alias' rows: empty where all rows of the root's table are of the chosen entities.
QByteArray KXMigrationSQL::rowsOf(const KXEntityDescription *root, const Chooses &chooses, const QByteArray &alias)
{
    QByteArrayList numbers;
    for (const KXEntityDescription *entity : root->family()) {
        if (chooses(entity))
            numbers.append(migrationNumber(entity->number()));
    }
    if (numbers.size() == root->family().size())
        return {};
    return numbers.isEmpty() ? QByteArray("0") : alias + ".kx_entity IN (" + numbers.join(',') + ')';
}

/// A condition on a key that leads to rows of the family: empty where all of these are chosen.
QByteArray KXMigrationSQL::isRowOf(
    const QByteArray &key, const KXEntityDescription *family, const Chooses &chooses) const
{
    const auto &entities = family->family();
    if (std::all_of(entities.begin(), entities.end(), chooses))
        return {};
    const QByteArray rows = rowsOf(
        family->root(), [&](auto *entity) { return entity->isKindOf(family) && chooses(entity); }, "x");
    return rows == "0"
        ? rows
        : "EXISTS(SELECT 1 FROM " + table(family) + " x" + migrationWhere({ "x.kx_id = " + key, rows }) + ')';
}

/// The links that rows of exactly this entity have: a query of their keys (k) and those at the other ends (o). Where
/// nothing leads back a deletion leaves keys that lead nowhere: they are no links.
QByteArray KXMigrationSQL::links(const KXEntityDescription *source, const KXPropertyDescription &relationship) const
{
    const auto isSource = [source](auto *entity) { return entity == source; };
    const auto mine = [&](const QByteArray &key) {
        const QByteArray rows = rowsOf(source->root(), isSource, "m");
        return rows.isEmpty()
            ? rows
            : "EXISTS(SELECT 1 FROM " + table(source) + " m" + migrationWhere({ "m.kx_id = " + key, rows }) + ')';
    };
    const auto leadsToRow = [&](const QByteArray &key) {
        return relationship.inverse()
            ? QByteArray()
            : "EXISTS(SELECT 1 FROM " + table(relationship.destinationEntity()) + " y WHERE y.kx_id = " + key + ')';
    };
    if (relationship.isToOne()) {
        const QByteArray column = "s." + relationship.column();
        return "SELECT s.kx_id AS k, " + column + " AS o FROM " + table(source) + " s"
            + migrationWhere({ column + " IS NOT NULL", rowsOf(source->root(), isSource, "s"), leadsToRow(column) });
    }
    if (!relationship.joinTable().isEmpty()) {
        const QByteArray key = "j." + relationship.joinSource();
        const QByteArray other = "j." + relationship.joinTarget();
        return "SELECT " + key + " AS k, " + other + " AS o FROM " + m_from + relationship.joinTable() + " j"
            + migrationWhere({ mine(key), leadsToRow(other) });
    }
    const KXEntityDescription *other = relationship.destinationEntity();
    const QByteArray column = "t." + relationship.inverse()->column();
    return "SELECT " + column + " AS k, t.kx_id AS o FROM " + table(other) + " t"
        + migrationWhere({ column + " IS NOT NULL",
            rowsOf(
                other->root(), [other](auto *entity) { return entity->isKindOf(other); }, "t"),
            mine(column) });
}

/// A condition on the key of a link's other end: empty where all come along.
QByteArray KXMigrationSQL::isCarried(const QByteArray &key, const KXPropertyMapping &relationship) const
{
    return isRowOf(key, relationship.source->destinationEntity(),
        [&](auto *entity) { return m_mapping.carriesLinks(relationship.destination, entity); });
}

/// The destination's value for a row of the source's table, which is called s.
QByteArray KXMigrationSQL::expression(const KXPropertyMapping &property, QVariantList &parameters) const
{
    QByteArray value = "NULL";
    if (property.source) {
        value = "s." + property.source->column();
        if (property.source->isRelationship()) {
            const QByteArray carried = isCarried(value, property);
            return carried.isEmpty() ? value : "CASE WHEN " + carried + " THEN " + value + " END";
        }
        const KXAttributeType from = property.source->type();
        const KXAttributeType to = property.destination->type();
        if (!KXMigrationValues::isPlain(from, to))
            value = "kx_convert(" + value + ',' + migrationNumber(int(from)) + ',' + migrationNumber(int(to)) + ')';
    }
    if (!property.value.isValid())
        return value;
    const QVariant form = KXMigrationValues::storageForm(property.value, property.destination->type());
    qsizetype place = parameters.indexOf(form); // columns of siblings with one value are one expression
    while (place >= 0 && parameters[place].typeId() != form.typeId())
        place = parameters.indexOf(form, place + 1);
    if (place < 0) {
        place = parameters.size();
        parameters.append(form);
    }
    const QByteArray parameter = '?' + QByteArray::number(place + 1);
    return property.source ? "coalesce(" + value + ',' + parameter + ')' : parameter;
}

/// Fills one table of the destination, in one pass over each table that rows come from.
void KXMigrationSQL::copyRows(const KXEntityDescription *root, QList<Statement> &statements) const
{
    QList<const KXEntityDescription *> sourceRoots;
    for (const KXEntityDescription *entity : root->family()) {
        const KXEntityMapping *mapping = m_mapping.mappingTo(entity);
        if (mapping && !sourceRoots.contains(mapping->source->root()))
            sourceRoots.append(mapping->source->root());
    }
    const auto columns = KXStoreTables::columnsOfTable(*root);
    for (const KXEntityDescription *sourceRoot : sourceRoots) {
        QList<const KXEntityMapping *> mappings;
        for (const KXEntityDescription *entity : root->family()) {
            const KXEntityMapping *mapping = m_mapping.mappingTo(entity);
            if (mapping && mapping->source->root() == sourceRoot)
                mappings.append(mapping);
        }
        const auto bySource = [&](auto &&valueOf) {
            QByteArrayList values;
            for (const KXEntityMapping *mapping : mappings)
                values.append(valueOf(*mapping));
            if (std::all_of(values.begin(), values.end(), [&](const auto &value) { return value == values.first(); }))
                return values.first();
            QByteArray text = "CASE s.kx_entity";
            for (qsizetype i = 0; i < mappings.size(); ++i)
                text += " WHEN " + migrationNumber(mappings[i]->source->number()) + " THEN " + values[i];
            return text + " END";
        };
        Statement statement;
        QByteArray names = "kx_id";
        QByteArray values = "s.kx_id";
        if (root->hasDiscriminator()) {
            names += ", kx_entity";
            values += ", " + bySource([](const KXEntityMapping &mapping) {
                return migrationNumber(mapping.destination->number());
            });
        }
        names += ", kx_version";
        values += ", s.kx_version";
        for (const KXPropertyDescription *column : columns) {
            names += ", " + column->column();
            values += ", " + bySource([&](const KXEntityMapping &mapping) {
                for (const KXPropertyMapping &property : mapping.properties) {
                    if (property.destination->hasColumn() && property.destination->column() == column->column())
                        return expression(property, statement.parameters);
                }
                return QByteArray("NULL"); // a column of a sibling
            });
        }
        const QByteArray rows = rowsOf(
            sourceRoot,
            [&](auto *entity) {
                return std::any_of(
                    mappings.begin(), mappings.end(), [=](auto *mapping) { return mapping->source == entity; });
            },
            "s");
        statement.sql = "INSERT INTO " + m_to + root->table() + '(' + names + ") SELECT " + values + " FROM "
            + table(sourceRoot) + " s" + migrationWhere({ rows }) + " ORDER BY s.kx_id";
        statements.append(statement);
    }
}

void KXMigrationSQL::copyLinks(
    const KXEntityMapping &mapping, const KXPropertyMapping &property, QList<Statement> &statements) const
{
    const KXPropertyDescription &to = *property.destination;
    const KXPropertyDescription &from = *property.source;
    // Both ends of a relationship fill one table: where both come from one relationship the second is left out.
    const auto fillsIt = [&](const KXEntityDescription *other) {
        const KXPropertyMapping *back = inverseMapping(mapping.source, from, other);
        return !m_mapping.mappingFrom(other) || (back && back->destination->joinTable() == to.joinTable());
    };
    const auto &others = from.destinationEntity()->family();
    if (to.joinSource() == "b" && std::all_of(others.begin(), others.end(), fillsIt))
        return;
    const auto append = [&](const QByteArray &source, const QByteArray &target) {
        statements.append({ "INSERT OR IGNORE INTO " + m_to + to.joinTable() + '(' + source + ", " + target
                + ") SELECT k, o FROM (" + links(mapping.source, from) + ") l"
                + migrationWhere({ isCarried("l.o", property) }) + " ORDER BY 1, 2",
            {} });
    };
    append(to.joinSource(), to.joinTarget());
    if (to.inverseName() == to.name() && mapping.destination->isKindOf(to.destinationEntity())
        && from.inverseName() != from.name())
        append(to.joinTarget(), to.joinSource()); // has become its own inverse
}

QList<KXMigrationSQL::Statement> KXMigrationSQL::copies() const
{
    QList<Statement> statements;
    for (const KXEntityDescription *entity : m_mapping.destinationModel()->entities()) {
        if (!entity->parent())
            copyRows(entity, statements);
    }
    for (const KXEntityMapping &mapping : m_mapping.entityMappings()) {
        for (const KXPropertyMapping &property : mapping.properties) {
            if (property.source && !property.destination->joinTable().isEmpty())
                copyLinks(mapping, property, statements);
        }
    }
    statements.append({ "UPDATE " + m_to + "kx_sequence SET next = (SELECT next FROM " + m_from + "kx_sequence)", {} });
    // What a host or a later version may have added beside our own entries.
    statements.append({ "INSERT INTO " + m_to + "kx_metadata SELECT key, value FROM " + m_from
            + "kx_metadata WHERE key NOT IN ('uuid', 'format', 'model', 'hashes')",
        {} });
    return statements;
}

KXMigrationSQL::Statement KXMigrationSQL::count(
    const KXEntityDescription *source, const QByteArray &condition, const QVariantList &parameters) const
{
    const QByteArray rows = rowsOf(
        source->root(), [=](auto *entity) { return entity == source; }, "s");
    return { "SELECT count(*) FROM " + table(source) + " s" + migrationWhere({ rows, condition }), parameters };
}

KXMigrationSQL::Statement KXMigrationSQL::rows(const KXEntityDescription *source) const { return count(source, {}); }

KXMigrationSQL::Statement KXMigrationSQL::values(
    const KXEntityDescription *source, const KXPropertyDescription &property) const
{
    if (property.isRelationship())
        return { "SELECT count(*) FROM (" + links(source, property) + ')', {} };
    return count(source, "s." + property.column() + " IS NOT NULL");
}

KXMigrationSQL::Statement KXMigrationSQL::failures(
    const KXEntityDescription *source, const KXPropertyMapping &property) const
{
    QVariantList none;
    return count(source,
        "s." + property.source->column() + " IS NOT NULL AND ("
            + expression({ property.destination, property.source, {} }, none) + ") IS NULL");
}

KXMigrationSQL::Statement KXMigrationSQL::missing(
    const KXEntityDescription *source, const KXPropertyMapping &property) const
{
    QVariantList parameters;
    const QByteArray value = expression(property, parameters);
    return count(source, '(' + value + ") IS NULL", parameters);
}

KXMigrationSQL::Statement KXMigrationSQL::lostLinks(
    const KXEntityDescription *source, const KXPropertyMapping &property) const
{
    const QByteArray carried = isCarried("l.o", property);
    return { "SELECT count(*) FROM (" + links(source, *property.source) + ") l WHERE "
            + (carried.isEmpty() ? QByteArray("0") : "NOT " + carried),
        {} };
}

KXMigrationSQL::Statement KXMigrationSQL::linksLeft(
    const KXEntityDescription *source, const KXPropertyDescription &relationship) const
{
    const QByteArray isCarriedBack = isRowOf("l.o", relationship.destinationEntity(),
        [&](auto *other) { return inverseMapping(source, relationship, other); });
    return { "SELECT count(*) FROM (" + links(source, relationship) + ") l WHERE "
            + (isCarriedBack.isEmpty() ? QByteArray("0") : "NOT " + isCarriedBack),
        {} };
}

/// What carries the source's links to rows of the other entity over from there; nullptr for nothing.
const KXPropertyMapping *KXMigrationSQL::inverseMapping(const KXEntityDescription *source,
    const KXPropertyDescription &relationship, const KXEntityDescription *other) const
{
    const KXEntityMapping *mapping = relationship.inverse() ? m_mapping.mappingFrom(other) : nullptr;
    const KXPropertyMapping *back
        = mapping ? mapping->mappingFrom(other->property(relationship.inverseName())) : nullptr;
    return back && m_mapping.carriesLinks(back->destination, source) ? back : nullptr;
}

bool KXMigrationSQL::inverseCarries(const KXEntityDescription *source, const KXPropertyDescription &relationship) const
{
    const auto &others = relationship.destinationEntity()->family();
    return std::any_of(
        others.begin(), others.end(), [&](auto *other) { return inverseMapping(source, relationship, other); });
}
