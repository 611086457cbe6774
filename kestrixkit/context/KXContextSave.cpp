// Saving: one transaction that writes what changed, conflicts settled on the way, then the change feed.

#include <kestrixkit/context/KXContextSave_p.h>

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
    m_deletions = m_context.deleted.size();
    return !m_inserted.empty() || !m_updated.empty() || m_deletions > 0;
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

qint64 KXContextSaver::firstVersion(qint64 key) const
{
    const auto former = m_context.formerVersions.find(key);
    return former == m_context.formerVersions.end() ? 1 : former->second + 1;
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
        codec.bindInsert(statement, object->m_key, firstVersion(object->m_key), *object->values(), m_buffer);
        const int code = statement.step();
        statement.reset();
        if (code != SQLITE_DONE)
            return connection.lastError();
        changeOf(entity).inserted.append(object->m_key);
        for (const KXPropertyDescription *property : codec.toOne()) {
            const qint64 other = object->values()->toOne(*property);
            const Object *there = other ? m_context.registered(other) : nullptr;
            // One that is inserted with it is there, and so is its end of the link, unless only that can lead back.
            if (other && (!there || !there->isInserted() || property->inverse()->isToOne()))
                m_links.push_back({ entity, property, object->m_key, other });
        }
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
    for (const KXPropertyDescription *property : columns) {
        if (!property->isToOne() || !property->inverse())
            continue;
        const qint64 other = object.values()->toOne(*property);
        if (other || property->inverse()->isToOne())
            m_links.push_back({ object.entity(), property, object.m_key, other });
        if (property->isAcyclic())
            m_moves.push_back({ object.entity(), property, object.m_key, update.change->before->toOne(*property) });
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

KXContextSaver::Deletion KXContextSaver::deletionOf(const KXEntityDescription &entity) const
{
    Deletion deletion { "DELETE FROM " + entity.table() + " WHERE kx_id = ? RETURNING kx_version", {}, {} };
    const auto clear = [&deletion](const KXPropertyDescription &property, const QByteArray &column) {
        const QByteArray sql = "DELETE FROM " + property.joinTable() + " WHERE " + column + " = ?";
        if (!property.joinTable().isEmpty() && !deletion.joins.contains(sql))
            deletion.joins.append(sql);
    };
    for (const KXPropertyDescription *property : m_context.store->codec(entity).toMany())
        clear(*property, property->joinSource());
    for (const KXEntityDescription *other : m_context.coordinator->model()->entities()) {
        const KXRowCodec &codec = m_context.store->codec(*other);
        for (const KXPropertyDescription *property : codec.toMany()) {
            if (entity.isKindOf(property->destinationEntity()))
                clear(*property, property->joinTarget());
        }
        for (const KXPropertyDescription *property : codec.toOne()) {
            Referrer referrer = referrerBy(*property, *other);
            const bool isKnown = std::any_of(deletion.referrers.begin(), deletion.referrers.end(),
                [&referrer](const Referrer &each) { return each.sql == referrer.sql; });
            if (entity.isKindOf(property->destinationEntity()) && !isKnown)
                deletion.referrers.push_back(std::move(referrer));
        }
    }
    return deletion;
}

KXContextSaver::Referrer KXContextSaver::referrerBy(
    const KXPropertyDescription &property, const KXEntityDescription &of)
{
    return { "SELECT kx_id, " + QByteArray(of.hasDiscriminator() ? "kx_entity" : "0") + " FROM " + of.table()
            + " WHERE " + property.column() + " = ?",
        of.root(), property.name() };
}

KXError KXContextSaver::findReferrers(
    KXSQLiteConnection &connection, const Referrer &referrer, qint64 key, std::vector<Row> &found) const
{
    KXStatement rows = connection.prepare(referrer.sql);
    if (!rows)
        return connection.lastError();
    rows.bind(1, key);
    int code;
    while ((code = rows.step()) == SQLITE_ROW) {
        const KXEntityDescription *entity = referrer.root->hasDiscriminator()
            ? m_context.coordinator->model()->entities().value(rows.integer(1) - 1)
            : referrer.root;
        if (entity && entity->property(referrer.property))
            found.push_back({ entity, rows.integer(0) });
    }
    return code == SQLITE_DONE ? KXError() : connection.lastError();
}

/// The rules of a deletion hold for rows of which the context knew nothing, too: another one has saved them since it
/// looked.
KXError KXContextSaver::followReferrers(KXSQLiteConnection &connection, const Deletion &deletion, qint64 key)
{
    for (const Referrer &referrer : deletion.referrers) {
        std::vector<Row> found;
        if (KXError error = findReferrers(connection, referrer, key, found))
            return error;
        for (const Row &row : found) {
            const KXPropertyDescription &property = *row.entity->property(referrer.property);
            if (property.inverse()->deleteRule() == KXDeleteRule::Cascade) {
                m_doomed.push_back(row);
            } else if (property.inverse()->deleteRule() == KXDeleteRule::Deny) {
                return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::ValidationFailed,
                    KXStringWithFormat("\"%@\" still has members, which forbids its deletion", property.inverseName()),
                    { { u"key"_s, property.inverseName() } });
            } else if (KXError error = overrule(connection, *row.entity, property, row.key, 0)) {
                return error;
            }
        }
    }
    return {};
}

KXError KXContextSaver::writeDeleted(KXSQLiteConnection &connection)
{
    const auto run = [&connection](const QByteArray &sql, qint64 key) {
        KXStatement statement = connection.prepare(sql);
        if (!statement)
            return connection.lastError();
        statement.bind(1, key);
        return statement.step() == SQLITE_DONE ? KXError() : connection.lastError();
    };
    const KXEntityDescription *entity = nullptr;
    Deletion deletion;
    const auto use = [&](const KXEntityDescription *next) {
        if (std::exchange(entity, next) != next)
            deletion = deletionOf(*next);
    };
    for (const Object *object : m_deleted)
        m_doomed.push_back({ object->entity(), object->m_key });
    // All rows go before their rules are followed: those among themselves concern nobody.
    for (size_t deleted = 0, followed = 0; followed < m_doomed.size();) {
        for (; deleted < m_doomed.size(); ++deleted) {
            const Row row = m_doomed[deleted];
            use(row.entity);
            KXStatement statement = connection.prepare(deletion.row);
            if (!statement)
                return connection.lastError();
            statement.bind(1, row.key);
            int code = statement.step();
            // Where somebody else deleted it before, this is no news.
            if (code == SQLITE_ROW) {
                changeOf(entity).deleted.append(row.key);
                if (m_context.recorder.manager())
                    m_gone[row.key] = statement.integer(0);
                code = statement.step();
            }
            if (code != SQLITE_DONE)
                return connection.lastError();
            if (Update *update = updateOf(*entity, row.key))
                update->vanished = true;
        }
        for (; followed < deleted; ++followed) {
            const Row row = m_doomed[followed];
            use(row.entity);
            if (KXError error = followReferrers(connection, deletion, row.key))
                return error;
        }
    }
    for (const Row &row : m_doomed) {
        use(row.entity);
        for (const QByteArray &sql : deletion.joins) {
            if (KXError error = run(sql, row.key))
                return error;
        }
    }
    return {};
}

KXContextSaver::Update *KXContextSaver::updateOf(const KXEntityDescription &entity, qint64 key)
{
    const auto found = std::lower_bound(m_updated.begin(), m_updated.end(), key, [&entity](const Update &a, qint64 k) {
        const int table = a.object->entity()->root()->number();
        return table != entity.root()->number() ? table < entity.root()->number() : a.object->m_key < k;
    });
    return found != m_updated.end() && found->object->m_key == key ? &*found : nullptr;
}

/// Sets a to-one relationship otherwise than the context wanted it, or one of a row that it had not changed.
KXError KXContextSaver::overrule(KXSQLiteConnection &connection, const KXEntityDescription &entity,
    const KXPropertyDescription &property, qint64 key, qint64 value)
{
    if (value == 0 && !property.isOptional())
        return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::ValidationFailed,
            KXStringWithFormat(
                "\"%@\" of \"%@\" leads to what another context has deleted or taken", property.name(), entity.name()),
            { { u"key"_s, property.name() } });
    KXStatement before
        = connection.prepare("SELECT " + property.column() + " FROM " + entity.table() + " WHERE kx_id = ?");
    if (!before)
        return connection.lastError();
    before.bind(1, key);
    if (before.step() != SQLITE_ROW)
        return {}; // gone meanwhile, and its links with it
    const QVariant was = before.isNull(0) ? QVariant() : QVariant(before.integer(0));
    before.reset();
    Update *update = updateOf(entity, key);
    if (update && update->version == 0 && !update->merged) {
        // Of its row nothing else is written, and nothing is known that somebody else has.
        std::vector<const KXPropertyDescription *> none;
        if (KXError error = settleConflict(connection, *update, none))
            return error;
    }
    KXStatement change = connection.prepare("UPDATE " + entity.table() + " SET " + property.column()
        + " = ?, kx_version = kx_version + 1 WHERE kx_id = ? RETURNING kx_version");
    if (!change)
        return connection.lastError();
    if (value)
        change.bind(1, value);
    else
        change.bindNull(1);
    change.bind(2, key);
    if (change.step() != SQLITE_ROW)
        return connection.lastError();
    const qint64 version = change.integer(0);
    if (change.step() != SQLITE_DONE)
        return connection.lastError();
    change.reset();
    noteVoid(property, key, was.toLongLong());
    if (value)
        m_links.push_back({ &entity, &property, key, value });

    if (update) {
        if (!update->merged)
            update->merged = KXRowValues::Owner(KXRowValues::clone(*update->object->values(), entity), { &entity });
        update->merged->setToOne(property, value);
        update->merged->version = update->version = version;
        return {};
    }
    KXRowChange row { .key = key, .version = version };
    row.properties.push_back({ &property, was, value ? QVariant(value) : QVariant(), {}, {} });
    if (Object *object = m_context.registered(key); object && object->isInserted()) {
        m_overruled.push_back({ object, row });
        return {};
    }
    m_foreign.push_back(row);
    changeOf(&entity).updated.push_back(std::move(row));
    return {};
}

/// Each context's moves may be sound and make a circle together: then this one's give way.
KXError KXContextSaver::breakCircles(KXSQLiteConnection &connection)
{
    const auto isInCircle = [&connection](const Link &move, KXError &error) {
        KXStatement step = connection.prepare(
            "SELECT " + move.property->column() + " FROM " + move.entity->table() + " WHERE kx_id = ?");
        QSet<qint64> seen;
        for (qint64 key = move.key; step && !seen.contains(key);) {
            seen.insert(key);
            step.bind(1, key);
            if (step.step() != SQLITE_ROW)
                return false;
            key = step.integer(0); // 0 at the top
            step.reset();
            if (key == move.key)
                return true;
        }
        if (!step)
            error = connection.lastError();
        return false;
    };
    for (size_t i = 0; i < m_moves.size();) {
        KXError error;
        const Link move = m_moves[i];
        const bool isCircle = isInCircle(move, error);
        if (error)
            return error;
        if (!isCircle) {
            ++i;
            continue;
        }
        KXLogWarning(store, "A move of \"%@\" is not saved: another context has moved what it was moved to",
            move.entity->name());
        if (KXError problem = overrule(connection, *move.entity, *move.property, move.key, move.other))
            return problem;
        m_moves.erase(m_moves.begin() + ptrdiff_t(i));
        i = 0; // what it was moved from may have been moved below it
    }
    return {};
}

/// What was linked to may be gone, or another's partner, by somebody else's doing.
KXError KXContextSaver::settleLinks(KXSQLiteConnection &connection)
{
    const auto isBefore = [](const Link &a, const Link &b) {
        return a.property != b.property ? std::less<>()(a.property, b.property) : a.other < b.other;
    };
    std::sort(m_links.begin(), m_links.end(), isBefore);
    KXStatement query;
    const Link *last = nullptr;
    bool isThere = false;
    const std::vector<Link> links = std::exchange(m_links, {});
    for (const Link &link : links) {
        const KXPropertyDescription &inverse = *link.property->inverse();
        const bool isNext = last && last->property == link.property && last->other == link.other;
        if (!last || last->property != link.property) {
            query = connection.prepare("SELECT " + (inverse.isToOne() ? inverse.column() : QByteArray("0")) + " FROM "
                + link.property->destinationEntity()->table() + " WHERE kx_id = ?");
            if (!query)
                return connection.lastError();
        }
        last = &link;
        isThere = isThere && link.other != 0;
        if (link.other != 0 && (!isNext || inverse.isToOne())) {
            query.bind(1, link.other);
            const int code = query.step();
            isThere = code == SQLITE_ROW && (!inverse.isToOne() || query.integer(0) == link.key);
            query.reset();
            if (code != SQLITE_ROW && code != SQLITE_DONE)
                return connection.lastError();
        }
        if (link.other != 0 && !isThere) {
            // Unless it was overruled already.
            KXStatement now = connection.prepare(
                "SELECT 1 FROM " + link.entity->table() + " WHERE kx_id = ? AND " + link.property->column() + " = ?");
            if (!now)
                return connection.lastError();
            now.bind(1, link.key);
            now.bind(2, link.other);
            const bool isStill = now.step() == SQLITE_ROW;
            now.reset();
            if (KXError error = isStill ? overrule(connection, *link.entity, *link.property, link.key, 0) : KXError())
                return error;
        }
        if (!inverse.isToOne())
            continue;
        // Nobody but the partner leads here.
        std::vector<Row> strays;
        if (KXError error
            = findReferrers(connection, referrerBy(inverse, *link.property->destinationEntity()), link.key, strays))
            return error;
        for (const Row &stray : strays) {
            if (isThere && stray.key == link.other)
                continue;
            const KXPropertyDescription &back = *stray.entity->property(inverse.name());
            if (KXError error = overrule(connection, *stray.entity, back, stray.key, 0))
                return error;
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

/// Members of a to-many relationship whose inverse is to-one come and go by a column of their own. One that left in
/// memory alone, such as one that an older state of it never belonged to, is no news to others.
bool KXContextSaver::isWrittenByMember(const KXPropertyDescription &property, qint64 key, qint64 member, bool add) const
{
    const KXPropertyDescription *inverse = property.inverse();
    if (!inverse || !inverse->isToOne())
        return true;
    const Object *object = m_context.registered(member);
    if (!object || object->isDeleted() || object->isInserted())
        return object && object->isInserted() == add;
    const auto change = m_context.changes.find(const_cast<Object *>(object));
    return change != m_context.changes.end() && change->second.changed.test(size_t(inverse->index()))
        && (add ? object->values() : change->second.before.get())->toOne(*inverse) == key;
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
            const auto leaveWritten = [&](QList<qint64> &others, bool add) {
                others.removeIf([&](qint64 other) {
                    return m_void.contains({ property.index(), object.m_key, other })
                        || !isWrittenByMember(property, object.m_key, other, add);
                });
            };
            leaveWritten(members.added, true);
            leaveWritten(members.removed, false);
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

void KXContextSaver::finish(KXObjectsDidChange &did, KXChangesTogether &together)
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
    for (const Update &update : m_updated) {
        if (update.vanished)
            m_context.dropLinks(update.object, did, together);
    }
    // Until the end nobody is called, and what was collected goes, no more: the sets hold new changes from then on.
    std::vector<KXContextHold> held;
    held.reserve(m_updated.size());
    for (Object *object : m_inserted) {
        object->m_flags &= ~quint32(Object::Inserted);
        settle(object);
        object->values()->version = firstVersion(object->m_key);
        m_context.formerVersions.erase(object->m_key);
        m_context.touch(object);
        m_context.changes.erase(object);
    }
    for (Update &update : m_updated) {
        Object *object = update.object;
        held.push_back(update.change->object);
        object->m_flags &= ~quint32(Object::Updated);
        settle(object);
        m_context.changes.erase(object);
    }
    auto inserted = std::exchange(m_context.inserted, {});
    std::copy_if(inserted.begin(), inserted.end(), std::back_inserter(m_context.inserted),
        [](const KXContextHold &object) { return object->isInserted(); });
    for (const auto &[key, version] : m_gone)
        m_context.formerVersions[key] = version;
    auto deleted = std::exchange(m_context.deleted, {});
    m_context.deleted.assign(deleted.begin() + ptrdiff_t(m_deletions), deleted.end());
    deleted.resize(m_deletions);
    for (const KXContextHold &object : deleted) {
        m_context.changes.erase(object.get());
        m_context.leaveMembers(object.get(), did, together); // what others have linked to it since it was deleted here
        m_context.dismiss(object.get());
    }
    // What others have saved, or taken, meanwhile.
    const auto take = [&](Object *object, const KXRowValues &from) {
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            if (!property.hasColumn() || KXRowValues::isEqual(*object->values(), from, property))
                continue;
            if (property.isToOne()) {
                m_context.takeToOne(object, property, from.toOne(property), did, together);
                continue;
            }
            together.willSet(object, property);
            object->values()->copy(from, property);
            KXManagedObjectContextPrivate::noteRefreshed(did, object, property);
        }
    };
    for (Update &update : m_updated) {
        Object *object = update.object;
        if (update.vanished) {
            m_context.turnIntoFault(object);
            object->m_flags |= Object::Missing;
            continue;
        }
        if (update.merged)
            take(object, *update.merged);
        if (update.version)
            object->values()->version = update.version;
        m_context.touch(object);
    }
    for (const auto &[object, row] : m_overruled) {
        for (const KXPropertyChange &change : row.properties)
            m_context.takeToOne(object, *change.property, change.newValue.toLongLong(), did, together);
        object->values()->version = row.version;
    }
    std::vector<KXManagedObjectContextPrivate::HeldRow> rows;
    for (const KXRowChange &row : m_foreign) {
        Object *object = m_context.registered(row.key);
        if (object && object->m_values)
            rows.push_back({ KXRef<Object>(object), &row });
    }
    const std::list<KXRowChange> again = m_context.readAgain(rows, false); // of those that it knew an older state of
    m_context.takeOver(rows, did, together);
    for (const Row &row : m_doomed) { // those that were deleted here have left already
        if (const KXRef<Object> object { m_context.registered(row.key) })
            m_context.vanish(object, did, together);
    }
}

bool KXManagedObjectContextPrivate::save(KXError *error)
{
    settleAnnouncements();
    KXContextSaver saver(*this);
    if (!saver.collect())
        return true;
    if (!store)
        return KXSetError(error, notOpen());
    if (KXError problem = saver.validate())
        return KXSetError(error, problem);
    const KXManagedObjectContext::Ref held = q->weak_from_this().lock(); // whoever is told may let go of it
    KXObjectsDidChange did;
    KXChangesTogether together;
    std::shared_ptr<const KXStoreChange> change;
    if (parent) {
        saver.pass(parent->d(), did, together);
    } else {
        {
            const KXStoreConnections::Writer writer = store->connections.writer();
            if (KXError problem = saver.write(*writer))
                return KXSetError(error, problem);
            change = coordinator->enqueueChange(
                q, saver.takeChanges(), saver.changeNumbers().before, saver.changeNumbers().after);
        }
        newestSerial = change->serialNumber();
        saver.finish(did, together);
    }
    contextSavesToTell.push_back({ q, held, change });
    together.tell();
    announce(std::move(did));
    if (change)
        coordinator->deliverChanges();
    // A save of an observer's tells of those that came before it first, so that whoever merges by these notifications
    // has them in the order of the commits.
    while (!contextSavesToTell.empty()) {
        const SaveToTell save = std::move(contextSavesToTell.front());
        contextSavesToTell.pop_front();
        KXNotificationCenter::defaultCenter().post(
            QString(KXManagedObjectContextDidSaveNotification), save.context, save.change);
    }
    return true;
}
