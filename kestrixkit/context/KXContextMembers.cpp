// The other ends of relationships: who is there, of what is stored and of what is unsaved.

#include <kestrixkit/context/KXContextReader_p.h>

#include <algorithm>
#include <unordered_map>

#include <kestrixkit/foundation/KXLog.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

bool KXContextReader::isMember(Object *object, const KXPropertyDescription &property, qint64 key)
{
    const KXRowValues &values = *Access::values(object);
    const KXToManyKeys *keys = values.existingToMany(property);
    if (keys && (keys->loaded || keys->added.contains(key) || keys->removed.contains(key)))
        return keys->loaded ? keys->members.contains(key) : keys->added.contains(key);
    if (values.version == 0)
        return false; // never stored: it has only what was added
    const KXPropertyDescription *inverse = property.inverse();
    if (Object *other = inverse ? registered(key) : nullptr; other && Access::loadedValues(other)) {
        // The other end may know without a look into the store. A deleted one keeps its values, but is a member only
        // where the store says so.
        if (other->isDeleted() && Access::values(other)->version == 0)
            return false;
        if (inverse->isToOne()) {
            const KXRowValues *stored = other->isDeleted() ? m_ledger.storedValues(other) : nullptr;
            return (stored ? stored : Access::values(other))->toOne(*inverse) == Access::key(object);
        }
        const KXToManyKeys *back = other->isDeleted() ? nullptr : Access::values(other)->existingToMany(*inverse);
        if (back ? back->loaded : Access::values(other)->version == 0)
            return back && back->members.contains(Access::key(object));
    }
    if (m_parent) {
        const KXRef<Object> source = inParent(object);
        return source && m_parent->isMember(source.get(), property, key);
    }
    // A look at the one pair, not at all members: a genre may have half a million tracks.
    return isStoredMember(Access::key(object), property, key);
}

bool KXContextReader::isStoredMember(qint64 key, const KXPropertyDescription &property, qint64 other)
{
    const QByteArray sql = property.joinTable().isEmpty() ? "SELECT 1 FROM " + property.destinationEntity()->table()
            + " WHERE " + property.inverse()->column() + " = ? AND kx_id = ?"
                                                          : "SELECT 1 FROM " + property.joinTable() + " WHERE "
            + property.joinSource() + " = ? AND " + property.joinTarget() + " = ?";
    KXError error;
    const KXStoreConnections::Reader reader = m_store->connections.reader(&error);
    KXStatement query = reader ? reader->prepare(sql) : KXStatement();
    if (!query) {
        KXLogError(store, "Cannot read \"%@\": %@", property.name(), reader ? reader->lastError() : error);
        return false;
    }
    query.bind(1, key);
    query.bind(2, other);
    return query.step() == SQLITE_ROW;
}

/// False where the store does not answer.
bool KXContextReader::readMembers(qint64 key, const KXPropertyDescription &property, QSet<qint64> &members)
{
    const QByteArray sql = property.joinTable().isEmpty() ? "SELECT kx_id FROM " + property.destinationEntity()->table()
            + " WHERE " + property.inverse()->column() + " = ?"
                                                          : "SELECT " + property.joinTarget() + " FROM "
            + property.joinTable() + " WHERE " + property.joinSource() + " = ?";
    KXError error;
    const KXStoreConnections::Reader reader = m_store->connections.reader(&error);
    KXStatement query = reader ? reader->prepare(sql) : KXStatement();
    int code = SQLITE_ERROR;
    if (query) {
        query.bind(1, key);
        while ((code = query.step()) == SQLITE_ROW)
            members.insert(query.integer(0));
    }
    if (code != SQLITE_DONE)
        KXLogError(store, "Cannot read \"%@\": %@", property.name(), reader ? reader->lastError() : error);
    return code == SQLITE_DONE;
}

KXToManyKeys &KXContextReader::loadedToMany(Object *object, const KXPropertyDescription &property)
{
    KXToManyKeys &keys = Access::values(object)->toMany(property);
    if (keys.loaded)
        return keys;
    if (m_parent) {
        if (const KXRef<Object> source = Access::values(object)->version != 0 ? inParent(object) : KXRef<Object>())
            keys.members = m_parent->loadedToMany(source.get(), property).members;
    } else if (Access::values(object)->version != 0 && m_store) {
        if (!readMembers(Access::key(object), property, keys.members)) {
            keys.members.clear();
            return keys; // stays unloaded: the next call tries again
        }
    }
    keys.members.unite(keys.added).subtract(keys.removed);
    keys.loaded = true;
    return keys;
}

void KXContextReader::loadToMany(std::span<const KXRef<Object>> objects, const KXPropertyDescription &property)
{
    std::unordered_map<qint64, KXToManyKeys *> wanted;
    QByteArray list;
    for (const KXRef<Object> &object : objects) {
        if (m_parent || !m_store || !Access::values(object.get()) || Access::values(object.get())->version == 0)
            continue;
        KXToManyKeys &keys = Access::values(object.get())->toMany(property);
        if (!keys.loaded && wanted.emplace(Access::key(object.get()), &keys).second)
            list += (list.isEmpty() ? "[" : ",") + QByteArray::number(Access::key(object.get()));
    }
    if (wanted.size() < 2)
        return;
    const bool isColumn = property.joinTable().isEmpty();
    const QByteArray owner = isColumn ? property.inverse()->column() : property.joinSource();
    KXError error;
    const KXStoreConnections::Reader reader = m_store->connections.reader(&error);
    KXStatement query = reader
        ? reader->prepare("SELECT " + owner + ", " + (isColumn ? QByteArray("kx_id") : property.joinTarget()) + " FROM "
            + (isColumn ? property.destinationEntity()->table() : property.joinTable()) + " WHERE " + owner
            + " IN (SELECT value FROM json_each(?))")
        : KXStatement();
    std::vector<std::pair<KXToManyKeys *, qint64>> members; // taken when all are there
    int code = SQLITE_ERROR;
    if (query) {
        list += ']';
        query.bindText(1, std::string_view(list.constData(), size_t(list.size())));
        while ((code = query.step()) == SQLITE_ROW)
            members.emplace_back(wanted.at(query.integer(0)), query.integer(1));
    }
    if (code != SQLITE_DONE) {
        KXLogError(store, "Cannot read \"%@\": %@", property.name(), reader ? reader->lastError() : error);
        return;
    }
    for (const auto &[keys, member] : members)
        keys->members.insert(member);
    for (const auto &[key, keys] : wanted) {
        keys->members.unite(keys->added).subtract(keys->removed);
        keys->loaded = true;
    }
}

KXRef<Object> KXContextReader::toOne(const Object *object, const KXPropertyDescription &property)
{
    m_keeper.checkThread();
    const qint64 key = Access::values(object)->toOne(property);
    return key ? this->object(*property.destinationEntity(), key) : KXRef<Object>();
}

std::vector<qint64> KXContextReader::keysOf(Object *object, const KXPropertyDescription &property)
{
    if (!Access::loadedValues(object))
        return {};
    if (property.isToOne()) {
        const qint64 key = Access::values(object)->toOne(property);
        return key ? std::vector<qint64> { key } : std::vector<qint64>();
    }
    const QSet<qint64> &members = loadedToMany(object, property).members;
    std::vector<qint64> keys(members.begin(), members.end());
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::vector<qint64> KXContextReader::storedKeysOf(Object *object, const KXPropertyDescription &property)
{
    const KXRowValues *stored = m_ledger.storedValues(object);
    if (!stored || !Access::values(object))
        return keysOf(object, property);
    if (property.isToOne()) {
        const qint64 key = stored->toOne(property);
        return key ? std::vector<qint64> { key } : std::vector<qint64>();
    }
    const KXToManyKeys &keys = loadedToMany(object, property);
    const QSet<qint64> members = QSet<qint64>(keys.members).subtract(keys.added).unite(keys.removed);
    std::vector<qint64> list(members.begin(), members.end());
    std::sort(list.begin(), list.end());
    return list;
}

QList<KXRef<Object>> KXContextReader::toMany(Object *object, const KXPropertyDescription &property)
{
    m_keeper.checkThread();
    const std::vector<qint64> keys = keysOf(object, property);
    fill(*property.destinationEntity(), keys);
    QList<KXRef<Object>> list;
    list.reserve(qsizetype(keys.size()));
    for (const qint64 key : keys) {
        KXRef<Object> member = this->object(*property.destinationEntity(), key);
        // Nothing tells a relationship without inverse that a member was deleted, and none that a row went of which
        // whoever deleted it did not know that it was a member.
        if (member && !member->isMissing() && (property.inverse() || !member->isDeleted()))
            list.append(std::move(member));
    }
    return list;
}
