// Saving: one transaction that writes what changed, conflicts settled on the way, then the change feed.

#include <kestrixkit/store/KXContextSave_p.h>

#include <algorithm>
#include <cmath>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

using Object = KXManagedObject;

namespace {

KXError saveValidationError(const Object &object, const KXPropertyDescription &property, QLatin1StringView problem)
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::ValidationFailed,
        KXStringWithFormat("\"%@\" of \"%@\" %@", property.name(), object.entity()->name(), problem),
        { { u"object"_s, object.objectID().URIRepresentation() }, { u"key"_s, property.name() } });
}

/// By table, then key: neighbours in the file are written together.
bool liesBefore(const Object *a, const Object *b, qint64 keyOfA, qint64 keyOfB)
{
    const int tableOfA = a->entity()->root()->number();
    const int tableOfB = b->entity()->root()->number();
    return tableOfA != tableOfB ? tableOfA < tableOfB : keyOfA < keyOfB;
}

}

bool KXContextSaver::collect()
{
    for (const KXContextHold &object : m_context.inserted) {
        if (object->isInserted())
            m_inserted.push_back(object.get());
    }
    for (auto &[object, change] : m_context.changes) {
        if (object->isUpdated())
            m_updated.push_back({ object, &change });
    }
    for (const KXContextHold &object : m_context.deleted) {
        if (object->isDeleted() && object->values()->version != 0)
            m_deleted.push_back(object.get());
    }
    const auto earlier = [](const Object *a, const Object *b) { return liesBefore(a, b, a->m_key, b->m_key); };
    std::stable_sort(m_inserted.begin(), m_inserted.end(), earlier);
    std::sort(m_updated.begin(), m_updated.end(),
        [&](const Update &a, const Update &b) { return earlier(a.object, b.object); });
    return !m_inserted.empty() || !m_updated.empty() || !m_context.deleted.empty();
}

KXError KXContextSaver::validateObject(const Object &object)
{
    const KXRowValues &values = *object.values();
    for (const KXPropertyDescription *property : m_context.store->codec(*object.entity()).validated()) {
        if (!values.isPresent(property->index())) {
            if (!property->isOptional())
                return saveValidationError(object, *property, "must have a value"_L1);
        } else if (property->isAttribute() && property->type() == KXAttributeType::Double
            && std::isnan(values.slot<double>(property->offset()))) {
            return saveValidationError(object, *property, "is not a number"_L1);
        }
    }
    return {};
}

KXError KXContextSaver::validate()
{
    for (const Object *object : m_inserted) {
        if (KXError error = validateObject(*object))
            return error;
    }
    for (const Update &update : m_updated) {
        if (KXError error = validateObject(*update.object))
            return error;
    }
    for (Object *object : m_deleted) {
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            if (!property.isRelationship() || property.deleteRule() != KXDeleteRule::Deny)
                continue;
            QList<KXRef<Object>> others = property.isToMany() ? m_context.toMany(object, property)
                                                              : QList { m_context.toOne(object, property) };
            others.removeIf(
                [](const KXRef<Object> &other) { return !other || other->isDeleted() || other->isMissing(); });
            if (!others.isEmpty())
                return saveValidationError(*object, property, "still has members, which forbids its deletion"_L1);
        }
    }
    return {};
}

KXEntityChange &KXContextSaver::changeOf(const KXEntityDescription *entity)
{
    if (m_changes.empty() || m_changes.back().entity != entity) {
        const auto found = std::find_if(m_changes.begin(), m_changes.end(),
            [entity](const KXEntityChange &change) { return change.entity == entity; });
        if (found != m_changes.end())
            return *found;
        m_changes.push_back({ .entity = entity });
    }
    return m_changes.back();
}

KXError KXContextSaver::writeInserted(KXSQLiteConnection &connection)
{
    const KXEntityDescription *entity = nullptr;
    KXStatement statement;
    for (Object *object : m_inserted) {
        const KXRowCodec &codec = m_context.store->codec(*object->entity());
        if (object->entity() != entity) {
            entity = object->entity();
            statement = connection.prepare(codec.insert());
            if (!statement)
                return connection.lastError();
        }
        codec.bindInsert(statement, object->m_key, *object->values(), m_buffer);
        const int code = statement.step();
        statement.reset();
        if (code != SQLITE_DONE)
            return connection.lastError();
        changeOf(entity).inserted.append(object->m_key);
    }
    return {};
}

/// The row has another version than the one that was read: what both sides changed keeps the store's value.
KXError KXContextSaver::settleConflict(
    KXSQLiteConnection &connection, Update &update, std::vector<const KXPropertyDescription *> &columns)
{
    Object &object = *update.object;
    const KXRowCodec &codec = m_context.store->codec(*object.entity());
    KXStatement row = connection.prepare(codec.select() + " WHERE t0.kx_id = ?");
    if (!row)
        return connection.lastError();
    row.bind(1, object.m_key);
    const int code = row.step();
    if (code == SQLITE_DONE) {
        update.vanished = true;
        return {};
    }
    if (code != SQLITE_ROW)
        return connection.lastError();
    update.merged = KXRowValues::Owner(KXRowValues::create(*object.entity()), { object.entity() });
    codec.read(row, *update.merged);
    update.stored = KXRowValues::Owner(KXRowValues::clone(*update.merged, *object.entity()), { object.entity() });
    std::erase_if(columns, [&](const KXPropertyDescription *property) {
        if (KXRowValues::isEqual(*update.merged, *update.change->before, *property))
            return false;
        if (property->isToOne() && property->inverse()) {
            noteVoid(*property, object.m_key, update.change->before->toOne(*property));
            noteVoid(*property, object.m_key, object.values()->toOne(*property));
        }
        return true;
    });
    for (const KXPropertyDescription *property : columns)
        update.merged->copy(*object.values(), *property);
    return {};
}

KXError KXContextSaver::writeUpdated(KXSQLiteConnection &connection, Update &update)
{
    Object &object = *update.object;
    const KXRowCodec &codec = m_context.store->codec(*object.entity());
    std::vector<const KXPropertyDescription *> columns;
    for (const KXPropertyDescription &property : object.entity()->properties()) {
        if (property.hasColumn() && update.change->changed.test(size_t(property.index()))
            && !KXRowValues::isEqual(*object.values(), *update.change->before, property))
            columns.push_back(&property);
    }
    qint64 version = object.values()->version;
    while (!columns.empty()) {
        KXStatement statement = connection.prepare(codec.update(columns));
        if (!statement)
            return connection.lastError();
        if (m_buffer.capacity() < 16 << 10)
            m_buffer.reserve(16 << 10);
        m_buffer.resize(0);
        int parameter = 1;
        for (const KXPropertyDescription *property : columns)
            KXRowCodec::bind(statement, parameter++, *object.values(), *property, m_buffer);
        statement.bind(parameter++, object.m_key);
        statement.bind(parameter++, version);
        if (statement.step() != SQLITE_DONE)
            return connection.lastError();
        if (connection.changes() == 1) {
            update.version = version + 1;
            break;
        }
        // The transaction holds the write lock, so the row cannot change a second time.
        statement.reset();
        if (KXError error = settleConflict(connection, update, columns))
            return error;
        if (update.vanished)
            return {};
        version = update.version = update.merged->version;
    }
    return {};
}

KXError KXContextSaver::writeJoins(KXSQLiteConnection &connection, Object &object)
{
    for (const KXPropertyDescription *property : m_context.store->codec(*object.entity()).joins()) {
        const KXToManyKeys *keys = object.values()->existingToMany(*property);
        if (!keys || !keys->isChanged())
            continue;
        const QByteArray columns = '(' + property->joinSource() + ", " + property->joinTarget() + ')';
        // Either row may be gone by somebody else's doing.
        const std::pair<const QSet<qint64> &, QByteArray> steps[] = {
            { keys->added,
                "INSERT OR IGNORE INTO " + property->joinTable() + columns
                    + " SELECT ?1, ?2 WHERE EXISTS (SELECT 1 FROM " + object.entity()->table()
                    + " WHERE kx_id = ?1) AND EXISTS (SELECT 1 FROM " + property->destinationEntity()->table()
                    + " WHERE kx_id = ?2)" },
            { keys->removed, "DELETE FROM " + property->joinTable() + " WHERE " + columns + " = (?1, ?2)" },
        };
        for (const auto &[others, sql] : steps) {
            if (others.isEmpty())
                continue;
            KXStatement statement = connection.prepare(sql);
            if (!statement)
                return connection.lastError();
            for (const qint64 other : others) {
                statement.bind(1, object.m_key);
                statement.bind(2, other);
                const int code = statement.step();
                statement.reset();
                if (code != SQLITE_DONE)
                    return connection.lastError();
                if (connection.changes() == 0)
                    noteVoid(*property, object.m_key, other);
            }
        }
    }
    return {};
}

KXError KXContextSaver::writeDeleted(KXSQLiteConnection &connection)
{
    const KXEntityDescription *entity = nullptr;
    QByteArrayList statements;
    for (Object *object : m_deleted) {
        if (object->entity() != entity) {
            entity = object->entity();
            statements = { "DELETE FROM " + entity->table() + " WHERE kx_id = ?" };
            const auto clear = [&statements](const KXPropertyDescription *property, const QByteArray &column) {
                const QByteArray sql = "DELETE FROM " + property->joinTable() + " WHERE " + column + " = ?";
                if (!property->joinTable().isEmpty() && !statements.contains(sql))
                    statements.append(sql);
            };
            for (const KXPropertyDescription *property : m_context.store->codec(*entity).toMany())
                clear(property, property->joinSource());
            for (const KXEntityDescription *other : m_context.coordinator->model()->entities()) {
                for (const KXPropertyDescription *property : m_context.store->codec(*other).toMany()) {
                    if (entity->isKindOf(property->destinationEntity()))
                        clear(property, property->joinTarget());
                }
            }
        }
        for (const QByteArray &sql : statements) {
            KXStatement statement = connection.prepare(sql);
            if (!statement)
                return connection.lastError();
            statement.bind(1, object->m_key);
            if (statement.step() != SQLITE_DONE)
                return connection.lastError();
            // The row comes first. Where somebody else deleted it before, this is no news.
            if (&sql == &statements.first() && connection.changes() == 1)
                changeOf(object->entity()).deleted.append(object->m_key);
        }
    }
    return {};
}

void KXContextSaver::noteVoid(const KXPropertyDescription &property, qint64 key, qint64 other)
{
    m_void.insert({ property.index(), key, other });
    if (property.inverse())
        m_void.insert({ property.inverse()->index(), other, key });
}

void KXContextSaver::noteUpdate(const Update &update)
{
    const Object &object = *update.object;
    const KXRowValues &after = update.merged ? *update.merged : *object.values();
    const KXRowValues &before = update.stored ? *update.stored : *update.change->before;
    KXRowChange row { .key = object.m_key, .version = update.version };
    for (const KXPropertyDescription &property : object.entity()->properties()) {
        if (property.isToMany()) {
            const KXToManyKeys *keys = object.values()->existingToMany(property);
            if (!keys || !keys->isChanged())
                continue;
            KXPropertyChange members { &property, {}, {}, keys->added.values(), keys->removed.values() };
            if (!m_void.empty()) {
                const auto isVoid = [&](qint64 other) {
                    return m_void.contains({ property.index(), object.m_key, other });
                };
                members.added.removeIf(isVoid);
                members.removed.removeIf(isVoid);
            }
            if (!members.added.isEmpty() || !members.removed.isEmpty())
                row.properties.push_back(std::move(members));
        } else if (property.hasColumn() && !KXRowValues::isEqual(after, before, property)) {
            const auto value = [&property](const KXRowValues &values) {
                if (property.isAttribute())
                    return values.attribute(property);
                return values.isPresent(property.index()) ? QVariant(values.toOne(property)) : QVariant();
            };
            row.properties.push_back({ &property, value(before), value(after), {}, {} });
        }
    }
    if (!row.properties.empty())
        changeOf(object.entity()).updated.push_back(std::move(row));
}

KXError KXContextSaver::write(KXSQLiteConnection &connection)
{
    KXTransaction transaction(connection);
    if (KXError error = transaction.begin())
        return error;
    if (KXError error = writeInserted(connection))
        return error;
    for (Update &update : m_updated) {
        if (KXError error = writeUpdated(connection, update))
            return error;
    }
    for (Object *object : m_inserted) {
        if (KXError error = writeJoins(connection, *object))
            return error;
    }
    for (Update &update : m_updated) {
        if (KXError error = update.vanished ? KXError() : writeJoins(connection, *update.object))
            return error;
    }
    for (const Update &update : m_updated) {
        if (!update.vanished)
            noteUpdate(update);
    }
    if (KXError error = writeDeleted(connection))
        return error;
    return transaction.commit();
}

void KXContextSaver::finish()
{
    const auto settle = [this](Object *object) {
        for (const KXPropertyDescription *property : m_context.store->codec(*object->entity()).toMany()) {
            KXToManyKeys *keys = object->values()->existingToMany(*property);
            if (!keys)
                continue;
            if (object->values()->version == 0 && !keys->loaded) {
                // What was added to a relationship of a new object is all there is of it.
                keys->members = keys->added;
                keys->loaded = true;
            }
            keys->added.clear();
            keys->removed.clear();
        }
    };
    for (Object *object : m_inserted) {
        object->m_flags &= ~quint32(Object::Inserted);
        settle(object);
        object->values()->version = 1;
        m_context.touch(object);
    }
    for (Update &update : m_updated) {
        Object *object = update.object;
        object->m_flags &= ~quint32(Object::Updated);
        settle(object);
        if (update.vanished) {
            m_context.turnIntoFault(object);
            object->m_flags |= Object::Missing;
            continue;
        }
        if (update.merged) {
            for (const KXPropertyDescription &property : object->entity()->properties()) {
                if (!property.hasColumn() || KXRowValues::isEqual(*object->values(), *update.merged, property))
                    continue;
                object->willChangeValueForKey(property.name());
                object->values()->copy(*update.merged, property);
                object->didChangeValueForKey(property.name());
            }
        }
        if (update.version)
            object->values()->version = update.version;
        m_context.touch(object);
    }
    const auto deleted = std::exchange(m_context.deleted, {});
    m_context.changes.clear();
    m_context.inserted.clear();
    for (const KXContextHold &object : deleted) {
        m_context.objects.remove(object->m_key);
        m_context.turnIntoFault(object.get());
        object->m_flags |= Object::Missing;
        object->detach(m_context.store->identity);
    }
}

bool KXManagedObjectContextPrivate::save(KXError *error)
{
    processPendingChanges();
    KXContextSaver saver(*this);
    if (!saver.collect())
        return true;
    if (!store)
        return KXSetError(error, notOpen());
    if (KXError problem = saver.validate())
        return KXSetError(error, problem);
    if (parent) {
        saver.pass(parent->d());
        saver.finish();
        KXNotificationCenter::defaultCenter().post(
            QString(KXManagedObjectContextDidSaveNotification), q, std::shared_ptr<const KXStoreChange>());
        return true;
    }
    std::shared_ptr<const KXStoreChange> change;
    {
        const KXStoreConnections::Writer writer = store->connections.writer();
        if (KXError problem = saver.write(*writer))
            return KXSetError(error, problem);
        change = coordinator->enqueueChange(q, saver.takeChanges());
    }
    saver.finish();
    coordinator->deliverChanges();
    KXNotificationCenter::defaultCenter().post(QString(KXManagedObjectContextDidSaveNotification), q, change);
    return true;
}
