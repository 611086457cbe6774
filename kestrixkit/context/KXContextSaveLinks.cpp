// What a save has linked to may have changed by somebody else's doing: the store has the last word.

#include <kestrixkit/context/KXContextSave_p.h>

#include <algorithm>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

using Access = KXObjectAccess;
using Object = KXManagedObject;

KXContextSaver::Update *KXContextSaver::updateOf(const KXEntityDescription &entity, qint64 key)
{
    const auto found = std::lower_bound(m_updated.begin(), m_updated.end(), key, [&entity](const Update &a, qint64 k) {
        const int table = a.object->entity()->root()->number();
        return table != entity.root()->number() ? table < entity.root()->number() : Access::key(a.object) < k;
    });
    return found != m_updated.end() && Access::key(found->object) == key ? &*found : nullptr;
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
    if (value) { // where it was before the context moved it: it has not left
        noteVoid(property, key, value);
        m_links.push_back({ &entity, &property, key, value });
    }

    if (update) {
        if (!update->merged)
            update->merged
                = KXRowValues::Owner(KXRowValues::clone(*Access::values(update->object), entity), { &entity });
        update->merged->setToOne(property, value);
        update->merged->version = update->version = version;
        return {};
    }
    KXRowChange row { .key = key, .version = version };
    row.properties.push_back({ &property, was, value ? QVariant(value) : QVariant(), {}, {} });
    if (Object *object = m_context.reader.registered(key); object && object->isInserted()) {
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
