// Very many members at once: entries that are written as rows, without objects.

#include <kestrixkit/context/KXOrderedMembership.h>

#include <algorithm>
#include <array>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/context/KXStoredClasses_p.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/store/KXStoreChange.h>

namespace {

/// Entries that came without the context having made objects of them. Taken back as objects, which is an ordinary
/// change that the context's own recording does again.
class MembershipFact : public KXUndoFact
{
public:
    MembershipFact(const KXManagedObjectContext::Ref &context, const KXEntityDescription &entity, QList<qint64> keys)
        : m_context(context)
        , m_target(context.get())
        , m_entity(entity)
        , m_keys(std::move(keys))
    {
    }

    std::unique_ptr<KXUndoFact> revert() override
    {
        const auto context = m_context.lock();
        if (!context)
            return nullptr;
        const KXContextRows rows(*context);
        rows.fill(m_entity, m_keys);
        QList<KXRef<KXManagedObject>> entries;
        for (const qint64 key : std::as_const(m_keys)) {
            if (KXRef<KXManagedObject> entry = rows.object(m_entity, key); entry && !entry->isMissing())
                entries.append(std::move(entry));
        }
        context->deleteObjects(entries);
        return nullptr;
    }
    [[nodiscard]] const void *target() const override { return m_target; }

private:
    const std::weak_ptr<KXManagedObjectContext> m_context;
    const void *const m_target;
    const KXEntityDescription &m_entity; // of the context's model
    const QList<qint64> m_keys;
};

bool membershipIsAlone(const KXEntityDescription &entity) { return !entity.parent() && entity.family().size() == 1; }

}

/// One append in its transaction.
class KXOrderedMembership::Rows
{
public:
    Rows(const KXOrderedMembership &lists, KXManagedObjectContextPrivate &context, const KXEntityDescription &entity)
        : m_lists(lists)
        , m_codec(context.codec(entity))
        , m_entity(entity)
        , m_entry(context.makeTemporary(entity))
    {
    }

    /// Whether rows are what objects would have become.
    [[nodiscard]] bool areEnough() const;
    KXError write(KXSQLiteConnection &connection, std::vector<KXEntityChange> &changes, const Object &list,
        const std::vector<qint64> &members, const std::vector<qint64> &keys);

    bool areOutOfRoom = false; ///< positions do not tell where the end is; nothing was written
    QList<qint64> made; ///< keys of entries

private:
    KXError findEnd(KXSQLiteConnection &connection, const Object &list, std::optional<qint64> &end) const;
    void tell(std::vector<KXEntityChange> &changes, const Object &list, std::vector<KXRowChange> members) const;

    const KXOrderedMembership &m_lists;
    const KXRowCodec &m_codec;
    const KXEntityDescription &m_entity;
    const Object m_entry; // what every entry has, but for its place
};

bool KXOrderedMembership::Rows::areEnough() const
{
    const KXPropertyDescription *const ofList = m_lists.m_list->inverse();
    if (!membershipIsAlone(m_entity) || !membershipIsAlone(*m_lists.m_member->destinationEntity())
        || (ofList && !ofList->isToMany()) || KXStoredClasses::awakesFromInsert(m_entity))
        return false;
    const std::array placed { m_lists.m_list, m_lists.m_member, m_lists.m_position };
    return std::all_of(m_codec.validated().begin(), m_codec.validated().end(), [&](const auto *property) {
        return property->isOptional() || KXObjectAccess::values(m_entry)->isPresent(property->index())
            || std::find(placed.begin(), placed.end(), property) != placed.end();
    });
}

/// The position of the last entry, 0 of an empty list; nothing where the list is gone.
KXError KXOrderedMembership::Rows::findEnd(
    KXSQLiteConnection &connection, const Object &list, std::optional<qint64> &end) const
{
    KXStatement query
        = connection.prepare("SELECT (SELECT max(" + m_lists.m_position->column() + ") FROM " + m_entity.table()
            + " WHERE " + m_lists.m_list->column() + " = ?1) FROM " + list->entity()->table() + " WHERE kx_id = ?1");
    if (!query)
        return connection.lastError();
    query.bind(1, KXObjectAccess::key(list));
    const int code = query.step();
    if (code == SQLITE_ROW)
        end = query.integer(0);
    return code == SQLITE_ROW || code == SQLITE_DONE ? KXError() : connection.lastError();
}

KXError KXOrderedMembership::Rows::write(KXSQLiteConnection &connection, std::vector<KXEntityChange> &changes,
    const Object &list, const std::vector<qint64> &members, const std::vector<qint64> &keys)
{
    std::optional<qint64> end;
    if (KXError error = findEnd(connection, list, end))
        return error;
    areOutOfRoom = end && std::abs(*end) > endLimit;
    if (!end || areOutOfRoom)
        return {};
    // By the member's end, which has few: SQLite might look through the whole list.
    KXStatement isKnown = connection.prepare("SELECT EXISTS(SELECT 1 FROM " + m_entity.table() + " WHERE "
        + m_lists.m_member->column() + " = ?1 AND +" + m_lists.m_list->column() + " = ?2) FROM "
        + m_lists.m_member->destinationEntity()->table() + " WHERE kx_id = ?1");
    KXStatement insert = connection.prepare(m_codec.insert());
    if (!isKnown || !insert)
        return connection.lastError();
    KXRowValues &values = *KXObjectAccess::values(m_entry);
    values.setToOne(*m_lists.m_list, KXObjectAccess::key(list));
    std::vector<KXRowChange> ends;
    KXRowTexts texts;
    for (size_t i = 0; i < members.size(); ++i) {
        isKnown.bind(1, members[i]);
        isKnown.bind(2, KXObjectAccess::key(list));
        const int code = isKnown.step();
        const bool comes = code == SQLITE_ROW && isKnown.integer(0) == 0;
        isKnown.reset();
        if (code != SQLITE_ROW && code != SQLITE_DONE)
            return connection.lastError();
        if (!comes)
            continue;
        values.setToOne(*m_lists.m_member, members[i]);
        (void)values.setAttribute(*m_lists.m_position, *end += endStep);
        m_codec.bindInsert(insert, keys[i], 1, values, texts);
        const int inserted = insert.step();
        insert.reset();
        if (inserted != SQLITE_DONE)
            return connection.lastError();
        made.append(keys[i]);
        ends.push_back({ .key = members[i] });
        ends.back().properties.push_back({ m_lists.m_member->inverse(), {}, {}, { keys[i] }, {} });
    }
    if (!made.isEmpty())
        tell(changes, list, std::move(ends));
    return {};
}

/// As a save of objects would: the entries, and both ends of their links.
void KXOrderedMembership::Rows::tell(
    std::vector<KXEntityChange> &changes, const Object &list, std::vector<KXRowChange> members) const
{
    changes.push_back({ .entity = &m_entity, .inserted = made });
    changes.push_back({ .entity = m_lists.m_member->destinationEntity(), .updated = std::move(members) });
    if (!m_lists.m_list->inverse())
        return;
    KXRowChange row { .key = KXObjectAccess::key(list) };
    row.properties.push_back({ list->entity()->property(m_lists.m_list->inverse()->name()), {}, {}, made, {} });
    changes.push_back({ .entity = list->entity() });
    changes.back().updated.push_back(std::move(row));
}

/// Nothing where objects have to be made.
std::optional<qsizetype> KXOrderedMembership::appendRows(
    const Object &list, const std::vector<qint64> &members, KXError *error)
{
    const KXManagedObjectContext::Ref held = m_context; // whoever is told may end this
    KXManagedObjectContextPrivate &context = KXManagedObjectContextPrivate::of(*held);
    const KXEntityDescription &entity = context.entity(m_membership.entityName);
    if (!context.store || context.parent)
        return std::nullopt;
    Rows rows(*this, context, entity);
    if (!rows.areEnough())
        return std::nullopt;
    if (!held->save(error))
        return 0;
    std::vector<qint64> keys(members.size());
    for (qint64 &key : keys) {
        if ((key = context.store->keys.next(error)) == 0) // not in the transaction, which may be in its way
            return 0;
    }
    const auto write = [&](KXSQLiteConnection &connection, std::vector<KXEntityChange> &changes) {
        return rows.write(connection, changes, list, members, keys);
    };
    if (!context.saveRows(write, error))
        return 0;
    if (rows.areOutOfRoom)
        return std::nullopt;
    if (KXUndoManager *const undo = held->undoManager(); undo && !rows.made.isEmpty())
        undo->addStep(std::make_unique<MembershipFact>(held, entity, rows.made));
    return rows.made.size();
}

qsizetype KXOrderedMembership::appendAndSave(
    const KXManagedObjectID &list, std::span<const qint64> members, KXError *error)
{
    const KXManagedObjectContext::Ref held = m_context;
    if (const Object owner = living(list)) {
        if (const std::optional<qsizetype> came = appendRows(owner, distinct(members), error))
            return *came;
    }
    const qsizetype came = append(list, members);
    return held->save(error) ? came : 0;
}
