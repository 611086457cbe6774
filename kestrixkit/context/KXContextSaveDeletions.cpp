// A save deletes rows, and follows the rules of the deletion to rows of which its context knew nothing.

#include <kestrixkit/context/KXContextSave_p.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

using Access = KXObjectAccess;
using Object = KXManagedObject;

KXContextSaver::Deletion KXContextSaver::deletionOf(const KXEntityDescription &entity) const
{
    Deletion deletion { "DELETE FROM " + entity.table() + " WHERE kx_id = ? RETURNING kx_version", {}, {} };
    const auto clear = [&deletion](const KXPropertyDescription &property, const QByteArray &column) {
        const QByteArray sql = "DELETE FROM " + property.joinTable() + " WHERE " + column + " = ?";
        if (!property.joinTable().isEmpty() && !deletion.joins.contains(sql))
            deletion.joins.append(sql);
    };
    for (const KXPropertyDescription *property : m_context.codec(entity).toMany())
        clear(*property, property->joinSource());
    for (const KXEntityDescription *other : m_context.coordinator->model()->entities()) {
        const KXRowCodec &codec = m_context.codec(*other);
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
        m_doomed.push_back({ object->entity(), Access::key(object) });
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
                if (m_context.recorder.hasReceiver())
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
