// What of somebody else's save cannot be told from the save itself, and is read from the store again.

#include <kestrixkit/context/KXContextMerger_p.h>

#include <algorithm>

#include <kestrixkit/foundation/KXLog.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

/// Puts what of the stored row differs from what the object was read from in the place of the news about columns; the
/// version 0 where there is no row.
void KXContextMerger::readColumnsAgain(Object *object, KXRowChange &news)
{
    std::erase_if(news.properties, [](const KXPropertyChange &one) { return !one.property->isToMany(); });
    news.version = 0;
    const KXEntityDescription &entity = *object->entity();
    const KXRowCodec &codec = m_context.store->codec(entity);
    KXRowValues::Owner row(KXRowValues::create(entity), { &entity });
    {
        KXError error;
        const KXStoreConnections::Reader reader = m_context.store->connections.reader(&error);
        KXStatement query = reader ? reader->prepare(codec.select() + " WHERE t0.kx_id = ?") : KXStatement();
        if (query)
            query.bind(1, Access::key(object));
        const int code = query ? query.step() : SQLITE_ERROR;
        if (code != SQLITE_ROW) {
            // Not merged, it will be a conflict, which settles it.
            if (code != SQLITE_DONE)
                KXLogError(
                    store, "Cannot read a row of \"%@\": %@", entity.name(), reader ? reader->lastError() : error);
            return;
        }
        codec.read(query, *row);
    }
    news.version = row->version;
    const KXRowValues *stored = m_context.ledger.storedValues(object);
    const KXRowValues &known = stored ? *stored : *Access::values(object);
    const auto value = [](const KXRowValues &values, const KXPropertyDescription &property) {
        if (property.isAttribute())
            return values.attribute(property);
        return values.isPresent(property.index()) ? QVariant(values.toOne(property)) : QVariant();
    };
    for (const KXPropertyDescription &property : entity.properties()) {
        if (property.hasColumn() && !KXRowValues::isEqual(*row, known, property))
            news.properties.push_back({ &property, value(known, property), value(*row, property), {}, {} });
    }
}

/// Of some rows the save does not say what has become of them here: a version in between was not merged, or another
/// save of them was merged before. The store says it; answers what the rows then point to.
std::list<KXRowChange> KXContextMerger::readAgain(std::vector<HeldRow> &rows, bool isLate)
{
    std::list<KXRowChange> again;
    for (auto &[object, row] : rows) {
        const bool isGap = row->version > Access::values(object)->version + 1;
        const auto isDoubtful = [&object = object](const KXPropertyChange &one) {
            const KXToManyKeys *keys
                = one.property->isToMany() ? Access::values(object)->existingToMany(*one.property) : nullptr;
            return keys && (keys->loaded || keys->isChanged());
        };
        if (!isGap && !(isLate && std::any_of(row->properties.begin(), row->properties.end(), isDoubtful)))
            continue;
        row = &again.emplace_back(*row);
        if (isGap)
            readColumnsAgain(object.get(), again.back());
        for (KXPropertyChange &one : again.back().properties) {
            if (!isLate || !isDoubtful(one))
                continue;
            const QList<qint64> named = std::exchange(one.added, {}) + std::exchange(one.removed, {});
            for (const qint64 key : named)
                (m_context.reader.isStoredMember(row->key, *one.property, key) ? one.added : one.removed).append(key);
        }
    }
    return again;
}

/// Members of many-to-many relationships whose rows were deleted by somebody who did not know of the link, or that have
/// come back without it. Neither is told: the store says what is left of them.
void KXContextMerger::dropStaleMembers(const std::vector<KXEntityChange> &entities)
{
    if (std::all_of(entities.begin(), entities.end(), [](const auto &entity) { return entity.deleted.isEmpty(); }))
        return;
    struct Members
    {
        Object *object;
        const KXPropertyDescription *property;
        const KXToManyKeys *keys;
    };
    std::vector<Members> known;
    m_context.workingSet.forEach([&](Object *object) {
        if (!Access::values(object))
            return;
        for (const KXPropertyDescription *property : m_context.codec(*object->entity()).toMany()) {
            const KXToManyKeys *keys
                = property->joinTable().isEmpty() ? nullptr : Access::values(object)->existingToMany(*property);
            if (keys && keys->loaded && !keys->members.isEmpty())
                known.push_back({ object, property, keys });
        }
    });
    if (known.empty())
        return; // as when very many go of which the context has not even heard
    QSet<qint64> gone;
    for (const KXEntityChange &entity : entities)
        gone.unite(QSet<qint64>(entity.deleted.begin(), entity.deleted.end()));
    struct Stale
    {
        KXRef<Object> object;
        const KXPropertyDescription *property;
        qint64 key;
    };
    std::vector<Stale> stale;
    for (const auto &[object, property, keys] : known) {
        for (const qint64 key : std::as_const(keys->members)) {
            if (gone.contains(key) && !keys->added.contains(key))
                stale.push_back({ KXRef<Object>(object), property, key });
        }
    }
    std::erase_if(stale, [this](const Stale &one) {
        return m_context.reader.isStoredMember(Access::key(one.object), *one.property, one.key);
    });
    for (const auto &[object, property, key] : stale) {
        if (object->isObserved())
            m_together.willLink(
                object.get(), *property, m_context.reader.object(*property->destinationEntity(), key), false);
        Access::values(object)->existingToMany(*property)->members.remove(key);
        noteRefreshed(object.get(), *property);
    }
}

/// Of a row that a late save deleted: an undo may have brought it back since. The object then takes the row as it is.
bool KXContextMerger::hasComeBack(Object *object, KXRowChange &row)
{
    if (!Access::values(object) || object->isInserted())
        return false;
    readColumnsAgain(object, row);
    if (row.version == 0)
        return false;
    Access::values(object)->version = 0; // whatever the new one is, it is newer
    // Its members came with it, which no change tells: they are read again when they are asked for.
    for (const KXPropertyDescription *property : m_context.codec(*object->entity()).toMany()) {
        KXToManyKeys *keys = Access::values(object)->existingToMany(*property);
        if (!keys || !keys->loaded)
            continue;
        m_together.willSet(object, *property);
        keys->loaded = false;
        keys->members.clear();
        noteRefreshed(object, *property);
    }
    return true;
}
