#include "store/RandomModels.h"

#include <QCborValue>
#include <QFile>
#include <QUrl>
#include <QUuid>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXException.h>

using namespace Qt::StringLiterals;
using Type = KXAttributeType;
using Change = KXMigrationChange;

namespace {

/// Calls the function with each row of the query.
template <typename Function> void eachRow(sqlite3 *database, const QByteArray &sql, Function &&function)
{
    sqlite3_stmt *statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(database, sql.constData(), -1, &statement, nullptr), SQLITE_OK)
        << sql.constData() << ": " << sqlite3_errmsg(database);
    while (sqlite3_step(statement) == SQLITE_ROW)
        function(statement);
    sqlite3_finalize(statement);
}

QVariant columnOf(sqlite3_stmt *statement, int column)
{
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
        return sqlite3_column_int64(statement, column);
    case SQLITE_FLOAT:
        return sqlite3_column_double(statement, column);
    case SQLITE_TEXT:
        return QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, column)));
    case SQLITE_BLOB:
        return QByteArray(
            static_cast<const char *>(sqlite3_column_blob(statement, column)), sqlite3_column_bytes(statement, column));
    default:
        return {};
    }
}

} // namespace

RandomModels::Property RandomModels::attribute()
{
    Property property;
    property.name = freshName(u'p');
    property.type = Type(m_random.between(1, 12));
    property.required = m_random.chance(0.2);
    property.hasDefault = property.required || m_random.chance(0.3);
    return property;
}

void RandomModels::addRelationship()
{
    Entity &from = m_entities[m_random.below(int(m_entities.size()))];
    Entity &to = m_entities[m_random.below(int(m_entities.size()))];
    Property there;
    there.name = freshName(u'r');
    there.destination = to.name;
    there.toMany = m_random.chance(0.5);
    Property back;
    back.destination = from.name;
    back.toMany = m_random.chance(0.5);
    const int kind = m_random.below(6);
    if (kind == 0 && &from == &to)
        there.inverse = there.name; // its own inverse
    else if (kind > 1) {
        back.name = freshName(u'r');
        there.inverse = back.name;
        back.inverse = there.name;
        to.properties.append(back);
    }
    from.properties.append(there);
}

KXManagedObjectModel::Ref RandomModels::model()
{
    m_entities.clear();
    for (int i = m_random.between(1, 4); i > 0; --i) {
        Entity entity;
        entity.name = freshName(u'E');
        if (!m_entities.isEmpty() && m_random.chance(0.4))
            entity.parent = m_random.oneOf(m_entities).name;
        for (int p = m_random.between(0, 4); p > 0; --p)
            entity.properties.append(attribute());
        m_entities.append(entity);
    }
    for (int i = m_random.between(0, 4); i > 0; --i)
        addRelationship();
    return build();
}

KXManagedObjectModel::Ref RandomModels::changedModel()
{
    for (Entity &entity : m_entities) { // the changes of the version before are history
        entity.former.clear();
        for (Property &property : entity.properties)
            property.former.clear();
    }
    for (int i = m_random.between(1, 5); i > 0; --i)
        change();
    return build();
}

KXManagedObjectModel::Ref RandomModels::build() const
{
    QList<KXEntityDescription> entities;
    for (const Entity &entity : m_entities) {
        KXEntityDescription description(entity.name, entity.parent);
        description.renamedFrom(entity.former);
        for (const Property &from : entity.properties) {
            auto property = KXPropertyDescription::attribute(from.name, from.type);
            if (!from.destination.isEmpty()) {
                property = from.toMany ? KXPropertyDescription::toMany(from.name, from.destination, from.inverse)
                                       : KXPropertyDescription::toOne(from.name, from.destination, from.inverse);
            } else if (from.hasDefault) {
                KXTestRandom &random = const_cast<KXTestRandom &>(m_random);
                property.withDefault(RandomModels(random).value(from.type));
            }
            if (from.required)
                property.required();
            description.add(property.renamedFrom(from.former));
        }
        entities.append(description);
    }
    return KXManagedObjectModel::make(entities);
}

/// With its other end.
void RandomModels::removeProperty(Entity &entity, qsizetype place)
{
    const Property property = entity.properties.takeAt(place);
    if (property.inverse.isEmpty())
        return;
    for (Entity &other : m_entities)
        other.properties.removeIf([&](const Property &each) { return each.name == property.inverse; });
}

void RandomModels::change()
{
    Entity &entity = m_entities[m_random.below(int(m_entities.size()))];
    const qsizetype place = entity.properties.isEmpty() ? -1 : m_random.below(int(entity.properties.size()));
    Property *const property = place < 0 ? nullptr : &entity.properties[place];
    switch (m_random.below(11)) {
    case 0: {
        Entity added;
        added.name = freshName(u'E');
        added.properties.append(attribute());
        if (m_random.chance(0.3))
            added.parent = entity.name;
        m_entities.append(added);
        break;
    }
    case 1: { // the entity goes, its children take its parent's place
        if (m_entities.size() == 1)
            break;
        const Entity gone = entity;
        for (Entity &other : m_entities) {
            if (other.parent == gone.name)
                other.parent = gone.parent;
            for (qsizetype i = other.properties.size() - 1; i >= 0 && i < other.properties.size(); --i) {
                if (other.properties[i].destination == gone.name)
                    removeProperty(other, i);
            }
        }
        m_entities.removeIf([&](const Entity &each) { return each.name == gone.name; });
        // What led back to it is gone with its properties.
        for (Entity &other : m_entities) {
            other.properties.removeIf([&](const Property &each) {
                return std::any_of(gone.properties.begin(), gone.properties.end(),
                    [&](const Property &own) { return own.inverse == each.name && own.name != each.name; });
            });
        }
        break;
    }
    case 2: {
        const QString former = entity.name;
        const QString name = freshName(u'E');
        for (Entity &other : m_entities) {
            if (other.parent == former)
                other.parent = name;
            for (Property &each : other.properties) {
                if (each.destination == former)
                    each.destination = name;
            }
        }
        entity.name = name;
        if (m_random.chance(0.8) && entity.former.isEmpty())
            entity.former = former;
        break;
    }
    case 3:
        entity.properties.append(attribute());
        break;
    case 4:
        if (property)
            removeProperty(entity, place);
        break;
    case 5:
        if (property) {
            const QString former = property->name;
            const QString name = freshName(u'p');
            for (Entity &other : m_entities) {
                for (Property &each : other.properties) {
                    if (each.inverse == former)
                        each.inverse = name;
                }
            }
            property->name = name;
            if (m_random.chance(0.7) && property->former.isEmpty())
                property->former = former;
        }
        break;
    case 6:
        if (property && property->destination.isEmpty())
            property->type = m_random.chance(0.5) ? Type(m_random.between(1, 12))
                                                  : m_random.oneOf(std::initializer_list<Type> {
                                                      Type::Variant, Type::Decimal, Type::Integer64, Type::String });
        break;
    case 7:
        if (property && property->destination.isEmpty()) {
            property->required = !property->required;
            property->hasDefault = m_random.chance(0.7);
        }
        break;
    case 8:
        addRelationship();
        break;
    case 9:
        if (property && property->destination == entity.name && property->inverse.isEmpty())
            property->inverse = property->name; // its own inverse from now on
        else if (property && !property->destination.isEmpty())
            property->toMany = !property->toMany;
        break;
    case 10: // loses its parent, or gets one
        entity.parent = entity.parent.isEmpty() && &entity != &m_entities.first() ? m_entities.first().name : QString();
        break;
    }
}

QVariant RandomModels::value(Type type)
{
    const int number = m_random.between(-3, 9);
    switch (type) {
    case Type::Boolean:
        return number > 0;
    case Type::Double:
        return number / 4.0;
    case Type::Decimal:
        return QVariant::fromValue(*KXDecimal::fromString(QString::number(number) + ".25"_L1));
    case Type::String:
        return QString(number + 3, u'x') + u"'ü"_s;
    case Type::Date:
        return QDateTime::fromMSecsSinceEpoch(number * 86'400'001LL, Qt::UTC);
    case Type::URI:
        return QUrl(u"file:///music/%1.flac"_s.arg(number));
    case Type::UUID:
        return QUuid::createUuidV5(QUuid(), QByteArray::number(number));
    case Type::Binary:
        return QByteArray::number(number);
    case Type::Variant:
        return number > 0 ? QVariant(number) : QVariant(u"text"_s);
    default:
        return number * 1000;
    }
}

void RandomModels::fill(const QString &path, const KXManagedObjectModel::Ref &model)
{
    KXError error;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(path), model, &error);
    ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    QList<KXRef<KXManagedObject>> objects;
    const auto setValue = [this](KXManagedObject &object, const KXPropertyDescription &property) {
        object.setValueForKey(property.name(), value(property.type()));
    };
    for (const KXEntityDescription *entity : model->entities()) {
        for (int i = m_random.between(0, 12); i > 0; --i) {
            const auto object = context->managedObjectForEntity(entity->name());
            for (const KXPropertyDescription &property : entity->properties()) {
                if (property.isAttribute() && (!property.isOptional() || m_random.chance(0.7)))
                    setValue(*object, property);
            }
            objects.append(object);
        }
    }
    for (const auto &object : objects) {
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            if (property.isAttribute())
                continue;
            QVariantList others;
            for (const auto &other : objects) {
                if (other->entity()->isKindOf(property.destinationEntity()) && m_random.chance(0.2))
                    others.append(KXVariantFromRef(other));
            }
            if (property.isToMany() && m_random.chance(0.7))
                object->setValueForKey(property.name(), others);
            else if (property.isToOne() && !others.isEmpty())
                object->setValueForKey(property.name(), others.first());
        }
    }
    ASSERT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
    for (const auto &object : objects) { // other versions than the first, keys that are gone
        const auto &properties = object->entity()->properties();
        if (m_random.chance(0.1)) {
            context->removeManagedObject(object);
        } else if (!properties.isEmpty() && m_random.chance(0.3)) {
            const auto &property = properties[m_random.below(int(properties.size()))];
            if (property.isAttribute())
                setValue(*object, property);
        }
    }
    ASSERT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
}

PlainStore::PlainStore(const QString &path, const KXManagedObjectModel &model)
{
    sqlite3 *database = nullptr;
    sqlite3_open_v2(QFile::encodeName(path).constData(), &database, SQLITE_OPEN_READWRITE, nullptr);
    const auto quoted = [](const QString &name) { return '"' + name.toUtf8() + '"'; };
    eachRow(database, "SELECT value FROM kx_metadata WHERE key = 'uuid'",
        [&](sqlite3_stmt *row) { uuid = columnOf(row, 0).toString(); });
    eachRow(
        database, "SELECT next FROM kx_sequence", [&](sqlite3_stmt *row) { nextKey = sqlite3_column_int64(row, 0); });
    QMap<QString, const KXEntityDescription *> joins; // name: who comes first
    for (const KXEntityDescription *root : model.entities()) {
        if (root->parent())
            continue;
        eachRow(database, "SELECT * FROM " + quoted(root->name()), [&](sqlite3_stmt *statement) {
            QMap<QString, QVariant> columns;
            for (int i = 0; i < sqlite3_column_count(statement); ++i)
                columns[QString::fromUtf8(sqlite3_column_name(statement, i))] = columnOf(statement, i);
            const KXEntityDescription *entity = root;
            if (root->family().size() > 1)
                entity = model.entities().value(columns[u"kx_entity"_s].toInt() - 1);
            Row &row = rows[columns[u"kx_id"_s].toLongLong()];
            row.entity = entity;
            row.version = columns[u"kx_version"_s].toLongLong();
            for (const KXPropertyDescription &property : entity->properties()) {
                const QVariant value = columns.value(property.name());
                if (property.isToOne() && value.isValid())
                    row.links[property.name()].insert(value.toLongLong());
                else if (property.isAttribute() && value.isValid())
                    row.values[property.name()] = value;
            }
        });
    }
    for (auto &[key, row] : rows) { // to-many relationships with an inverse that has a column
        for (const KXPropertyDescription &property : row.entity->properties()) {
            if (!property.isToOne() || !row.links.contains(property.name()) || !property.inverse()
                || property.inverse()->isToOne())
                continue;
            for (const qint64 other : row.links[property.name()])
                rows[other].links[property.inverseName()].insert(key);
        }
    }
    std::set<QByteArray> tables;
    for (const KXEntityDescription *entity : model.entities()) {
        for (const KXPropertyDescription &property : entity->properties()) {
            const bool firstToDeclare = !entity->parent() || !entity->parent()->property(property.name());
            if (!property.isToMany() || (property.inverse() && property.inverse()->isToOne()) || !firstToDeclare)
                continue;
            const KXEntityDescription *other = property.destinationEntity();
            while (property.inverse() && other->parent() && other->parent()->property(property.inverseName()))
                other = other->parent();
            const QString here = entity->name() + u'.' + property.name();
            const QString there = property.inverse() ? other->name() + u'.' + property.inverseName() : QString();
            const bool isFirst = there.isEmpty() || here <= there;
            const QByteArray table = quoted(u"kx_"_s + (isFirst ? here : there));
            eachRow(
                database, isFirst ? "SELECT a, b FROM " + table : "SELECT b, a FROM " + table, [&](sqlite3_stmt *row) {
                    rows[sqlite3_column_int64(row, 0)].links[property.name()].insert(sqlite3_column_int64(row, 1));
                });
        }
    }
    sqlite3_close(database);
    for (auto &[key, row] : rows) { // keys of what was deleted, where nothing leads back, are no links
        for (auto &links : row.links)
            std::erase_if(links, [this](qint64 other) { return !rows.contains(other) || !rows[other].entity; });
        row.links.removeIf([](const auto &entry) { return entry.value().empty(); });
    }
    std::erase_if(rows, [](const auto &entry) { return !entry.second.entity; });
}

QList<KXMigrationChange> recount(const PlainStore &before, const PlainStore &after, const KXMappingModel &mapping)
{
    QList<Change> changes;
    EXPECT_EQ(before.uuid, after.uuid);
    EXPECT_EQ(before.nextKey, after.nextKey);
    const auto mapped = [&](const PlainStore::Row &row) { return mapping.mappingFrom(row.entity); };
    for (const KXEntityDescription *entity : mapping.destinationModel()->entities()) {
        if (!mapping.mappingTo(entity))
            changes.append({ Change::EntityAdded, entity->name(), {}, {}, {} });
    }
    for (const auto &[key, row] : after.rows)
        EXPECT_TRUE(before.rows.contains(key)) << "a row that was not there";

    for (const KXEntityDescription *source : mapping.sourceModel()->entities()) {
        const KXEntityMapping *const to = mapping.mappingFrom(source);
        qint64 count = 0;
        QMap<QString, qint64> values; // of the source's properties
        QMap<QString, qint64> lost;
        QMap<QString, qint64> filled; // of the destination's
        for (const auto &[key, old] : before.rows) {
            if (old.entity != source)
                continue;
            ++count;
            if (!to) {
                EXPECT_FALSE(after.rows.contains(key));
                continue;
            }
            const auto found = after.rows.find(key);
            if (found == after.rows.end()) {
                ADD_FAILURE() << "row " << key << " is gone";
                continue;
            }
            const PlainStore::Row &now = found->second;
            EXPECT_EQ(now.entity, to->destination);
            EXPECT_EQ(now.version, old.version);
            for (const QString &name : old.values.keys())
                ++values[name];
            for (const auto &[name, others] : old.links.toStdMap()) {
                const KXPropertyDescription *const q = source->property(name);
                const KXPropertyMapping *const p = to->mappingFrom(q);
                values[name] += qint64(others.size());
                for (const qint64 other : others) {
                    bool isThere = p && now.links.value(p->destination->name()).contains(other);
                    const auto otherRow = before.rows.find(other);
                    const auto *const back = q->inverse() && mapped(otherRow->second)
                        ? mapped(otherRow->second)->mappingFrom(otherRow->second.entity->property(q->inverseName()))
                        : nullptr;
                    if (back && after.rows.at(other).links.value(back->destination->name()).contains(key))
                        isThere = true;
                    lost[name] += !isThere;
                    // A link to a row that is still of the right kind stays one.
                    if (p && after.rows.contains(other)
                        && after.rows.at(other).entity->isKindOf(p->destination->destinationEntity())) {
                        EXPECT_TRUE(isThere);
                    }
                }
            }
            for (const KXPropertyMapping &property : to->properties) {
                const KXPropertyDescription &p = *property.destination;
                if (p.isRelationship()) {
                    std::set<qint64> expected; // from both ends
                    if (property.source) {
                        for (const qint64 other : old.links.value(property.source->name())) {
                            if (after.rows.contains(other)
                                && after.rows.at(other).entity->isKindOf(p.destinationEntity()))
                                expected.insert(other);
                        }
                    }
                    for (const auto &[other, otherRow] : before.rows) {
                        if (!p.inverse() || !mapped(otherRow)
                            || !mapped(otherRow)->destination->isKindOf(p.destinationEntity()))
                            continue;
                        const auto *back
                            = mapped(otherRow)->mappingTo(mapped(otherRow)->destination->property(p.inverseName()));
                        if (back && back->source && otherRow.links.value(back->source->name()).contains(key)
                            && now.entity->isKindOf(back->destination->destinationEntity()))
                            expected.insert(other);
                    }
                    EXPECT_EQ(now.links.value(p.name()), expected) << p.name().toStdString() << " of row " << key;
                    continue;
                }
                const QVariant was = property.source ? old.values.value(property.source->name()) : QVariant();
                const QVariant is = now.values.value(p.name());
                if (was.isValid() && property.converts() && p.type() == Type::Variant) {
                    QCborParserError error;
                    const QCborValue cbor = QCborValue::fromCbor(is.toByteArray(), &error);
                    const QVariant held = error.error == QCborError::NoError ? cbor.toVariant() : QVariant();
                    EXPECT_TRUE(held.isValid());
                    if (property.source->type() == Type::String || property.source->type() == Type::Integer64) {
                        EXPECT_EQ(held.toString(), was.toString());
                    }
                } else if (was.isValid())
                    EXPECT_EQ(is.toString(), was.toString()) << p.name().toStdString() << " of row " << key;
                else
                    EXPECT_EQ(is.isValid(), property.value.isValid());
                filled[p.name()] += !was.isValid() && is.isValid();
            }
        }
        const QString name = to ? to->destination->name() : source->name();
        const QString former = name == source->name() ? QString() : source->name();
        if (!to) {
            changes.append({ Change::EntityRemoved, name, {}, {}, {}, count });
            continue;
        }
        if (!former.isEmpty())
            changes.append({ Change::EntityRenamed, name, {}, former, {}, count });
        for (const KXPropertyMapping &property : to->properties) {
            const QString pName = property.destination->name();
            if (!property.source) {
                changes.append({ Change::PropertyAdded, name, pName, former, {}, filled[pName] });
                continue;
            }
            const QString formerName = property.source->name() == pName ? QString() : property.source->name();
            if (!formerName.isEmpty())
                changes.append({ Change::PropertyRenamed, name, pName, former, formerName, values[formerName] });
            if (property.converts())
                changes.append(
                    { Change::PropertyConverted, name, pName, former, formerName, values[property.source->name()] });
            if (filled[pName] > 0)
                changes.append({ Change::PropertyFilled, name, pName, former, formerName, filled[pName] });
            if (lost[property.source->name()] > 0)
                changes.append({ Change::LinksLost, name, pName, former, formerName, lost[property.source->name()] });
        }
        for (const KXPropertyDescription &property : source->properties()) {
            const qint64 gone = property.isRelationship() ? lost[property.name()] : values[property.name()];
            if (!to->mappingFrom(&property) && gone > 0)
                changes.append({ Change::PropertyRemoved, source->name(), property.name(), {}, {}, gone });
        }
    }
    return changes;
}
