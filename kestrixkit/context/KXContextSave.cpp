// Saving: one transaction that writes what changed, conflicts settled on the way, then the change feed.

#include <kestrixkit/context/KXContextSave_p.h>

#include <algorithm>
#include <cmath>

#include <kestrixkit/context/KXContextMerger_p.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

KXError saveValidationError(const Object &object, const KXPropertyDescription &property, QLatin1StringView problem)
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::ValidationFailed,
        KXStringWithFormat("\"%@\" of \"%@\" %@", property.name(), object.entity()->name(), problem),
        { { u"object"_s, object.objectID().URIRepresentation() }, { u"key"_s, property.name() } });
}

struct SaveToTell
{
    KXManagedObjectContext *context;
    KXManagedObjectContext::Ref held;
    std::shared_ptr<const KXStoreChange> change; // none for a child context
};
/// Of the thread: finished, but nobody was told yet.
thread_local std::list<SaveToTell> contextSavesToTell;

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
    for (const KXContextHold &object : m_context.ledger.insertions()) {
        if (object->isInserted())
            m_inserted.push_back(object.get());
    }
    for (const auto &[object, change] : m_context.ledger.changes()) {
        if (object->isUpdated())
            m_updated.push_back({ object, &change });
    }
    for (const KXContextHold &object : m_context.ledger.deletions()) {
        if (object->isDeleted() && Access::values(object)->version != 0)
            m_deleted.push_back(object.get());
    }
    const auto earlier
        = [](const Object *a, const Object *b) { return liesBefore(a, b, Access::key(a), Access::key(b)); };
    std::stable_sort(m_inserted.begin(), m_inserted.end(), earlier);
    std::sort(m_updated.begin(), m_updated.end(),
        [&](const Update &a, const Update &b) { return earlier(a.object, b.object); });
    m_deletions = m_context.ledger.deletions().size();
    return !m_inserted.empty() || !m_updated.empty() || m_deletions > 0;
}

KXError KXContextSaver::validateObject(const Object &object)
{
    const KXRowValues &values = *Access::values(&object);
    for (const KXPropertyDescription *property : m_context.codec(*object.entity()).validated()) {
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
            QList<KXRef<Object>> others = property.isToMany() ? m_context.reader.toMany(object, property)
                                                              : QList { m_context.reader.toOne(object, property) };
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
        const KXRowCodec &codec = m_context.codec(*object->entity());
        if (object->entity() != entity) {
            entity = object->entity();
            statement = connection.prepare(codec.insert());
            if (!statement)
                return connection.lastError();
        }
        codec.bindInsert(statement, Access::key(object), m_context.ledger.firstVersion(Access::key(object)),
            *Access::values(object), m_texts);
        const int code = statement.step();
        statement.reset();
        if (code != SQLITE_DONE)
            return connection.lastError();
        changeOf(entity).inserted.append(Access::key(object));
        for (const KXPropertyDescription *property : codec.toOne()) {
            const qint64 other = Access::values(object)->toOne(*property);
            const Object *there = other ? m_context.reader.registered(other) : nullptr;
            // One that is inserted with it is there, and so is its end of the link, unless only that can lead back.
            if (other && (!there || !there->isInserted() || property->inverse()->isToOne()))
                m_links.push_back({ entity, property, Access::key(object), other });
        }
    }
    return {};
}

/// The row has another version than the one that was read: what both sides changed keeps the store's value.
KXError KXContextSaver::settleConflict(
    KXSQLiteConnection &connection, Update &update, std::vector<const KXPropertyDescription *> &columns)
{
    Object &object = *update.object;
    const KXRowCodec &codec = m_context.codec(*object.entity());
    KXStatement row = connection.prepare(codec.select() + " WHERE t0.kx_id = ?");
    if (!row)
        return connection.lastError();
    row.bind(1, Access::key(&object));
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
            noteVoid(*property, Access::key(&object), update.change->before->toOne(*property));
            noteVoid(*property, Access::key(&object), Access::values(&object)->toOne(*property));
        }
        return true;
    });
    for (const KXPropertyDescription *property : columns)
        update.merged->copy(*Access::values(&object), *property);
    return {};
}

KXError KXContextSaver::writeUpdated(KXSQLiteConnection &connection, Update &update)
{
    Object &object = *update.object;
    const KXRowCodec &codec = m_context.codec(*object.entity());
    std::vector<const KXPropertyDescription *> columns;
    for (const KXPropertyDescription &property : object.entity()->properties()) {
        if (property.hasColumn() && update.change->changed.test(size_t(property.index()))
            && !KXRowValues::isEqual(*Access::values(&object), *update.change->before, property))
            columns.push_back(&property);
    }
    qint64 version = Access::values(&object)->version;
    while (!columns.empty()) {
        if (columns != m_writtenColumns) { // most updates of a save write the same ones
            m_update = codec.update(columns);
            m_writtenColumns = columns;
        }
        KXStatement statement = connection.prepare(m_update);
        if (!statement)
            return connection.lastError();
        m_texts.clear();
        int parameter = 1;
        for (const KXPropertyDescription *property : columns)
            KXRowCodec::bind(statement, parameter++, *Access::values(&object), *property, m_texts);
        statement.bind(parameter++, Access::key(&object));
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
    for (const KXPropertyDescription *property : columns) {
        if (!property->isToOne() || !property->inverse())
            continue;
        const qint64 other = Access::values(&object)->toOne(*property);
        if (other || property->inverse()->isToOne())
            m_links.push_back({ object.entity(), property, Access::key(&object), other });
        if (property->isAcyclic())
            m_moves.push_back(
                { object.entity(), property, Access::key(&object), update.change->before->toOne(*property) });
    }
    return {};
}

KXError KXContextSaver::writeJoins(KXSQLiteConnection &connection, Object &object)
{
    for (const KXPropertyDescription *property : m_context.codec(*object.entity()).joins()) {
        const KXToManyKeys *keys = Access::values(&object)->existingToMany(*property);
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
                statement.bind(1, Access::key(&object));
                statement.bind(2, other);
                const int code = statement.step();
                statement.reset();
                if (code != SQLITE_DONE)
                    return connection.lastError();
                if (connection.changes() == 0)
                    noteVoid(*property, Access::key(&object), other);
            }
        }
    }
    return {};
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
    if (KXError error = writeDeleted(connection))
        return error;
    if (KXError error = breakCircles(connection))
        return error;
    if (KXError error = settleLinks(connection))
        return error;
    for (const Update &update : m_updated) {
        if (!update.vanished)
            noteUpdate(update);
    }
    if (KXError error = KXStoreSchema::raiseChangeNumber(connection, m_changeNumbers))
        return error;
    return transaction.commit();
}

bool KXManagedObjectContextPrivate::save(KXError *error)
{
    const KXManagedObjectContext::Ref held = q->weak_from_this().lock(); // whoever is told may let go of it
    announcer.settle();
    KXContextSaver saver(*this);
    if (!saver.collect())
        return true;
    if (!store)
        return KXSetError(error, KXPersistentStorePrivate::notOpen());
    if (KXError problem = saver.validate())
        return KXSetError(error, problem);
    KXContextMerger others(*this); // what their saves had to do with this one
    std::shared_ptr<const KXStoreChange> change;
    if (parent) {
        saver.pass(of(*parent), others);
    } else {
        {
            const KXStoreConnections::Writer writer = store->connections.writer();
            if (KXError problem = saver.write(*writer))
                return KXSetError(error, problem);
            change = coordinator->enqueueChange(
                q, saver.takeChanges(), saver.changeNumbers().before, saver.changeNumbers().after);
        }
        newestSerial = change->serialNumber();
        saver.finish(others);
    }
    contextSavesToTell.push_back({ q, held, change });
    others.tell();
    tellOfSaves(change != nullptr);
    return true;
}

bool KXManagedObjectContextPrivate::saveRows(const WriteRows &write, KXError *error)
{
    if (!store)
        return KXSetError(error, KXPersistentStorePrivate::notOpen());
    const KXManagedObjectContext::Ref held = q->weak_from_this().lock();
    announcer.settle();
    std::vector<KXEntityChange> changes;
    KXStoreSchema::ChangeNumbers numbers;
    std::shared_ptr<const KXStoreChange> change;
    {
        const KXStoreConnections::Writer writer = store->connections.writer();
        KXTransaction transaction(*writer);
        KXError problem = transaction.begin();
        if (!problem)
            problem = write(*writer, changes);
        if (!problem && changes.empty())
            return true;
        if (!problem)
            problem = KXStoreSchema::raiseChangeNumber(*writer, numbers);
        if (!problem)
            problem = transaction.commit();
        if (problem)
            return KXSetError(error, problem);
        change = coordinator->enqueueChange(q, std::move(changes), numbers.before, numbers.after);
    }
    newestSerial = change->serialNumber();
    KXContextMerger merger(*this); // of what the context holds objects all the same
    merger.merge(*change, false);
    contextSavesToTell.push_back({ q, held, change });
    merger.tell();
    tellOfSaves(true);
    return true;
}

void KXManagedObjectContextPrivate::tellOfSaves(bool delivers)
{
    if (delivers)
        coordinator->deliverChanges();
    // A save of an observer's tells of those that came before it first, so that whoever merges by these notifications
    // has them in the order of the commits.
    while (!contextSavesToTell.empty()) {
        const SaveToTell save = std::move(contextSavesToTell.front());
        contextSavesToTell.pop_front();
        KXNotificationCenter::defaultCenter().post(
            QString(KXManagedObjectContextDidSaveNotification), save.context, save.change);
    }
}
