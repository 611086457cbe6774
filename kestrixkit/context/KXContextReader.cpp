#include <kestrixkit/context/KXContextReader_p.h>

#include <algorithm>

#include <kestrixkit/foundation/KXLog.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

/// A row that is to be read, and its object where there is one.
struct KXWantedRow
{
    qint64 key;
    Object *object;
    bool found;
};

namespace {

/// Rows between the first and the last key are read in one go when they are not many more than those wanted.
constexpr qint64 readerDenseFactor = 4;

/// Gives the rows of the keys, which are sorted, to `take`.
template <typename Take>
KXError readerRows(
    KXSQLiteConnection &connection, const QByteArray &select, std::vector<KXWantedRow> &wanted, Take &&take)
{
    int code = SQLITE_DONE;
    if (wanted.size() > 1 && wanted.back().key - wanted.front().key < readerDenseFactor * qint64(wanted.size())) {
        KXStatement rows = connection.prepare(select + " WHERE t0.kx_id BETWEEN ? AND ?");
        if (!rows)
            return connection.lastError();
        rows.bind(1, wanted.front().key);
        rows.bind(2, wanted.back().key);
        auto next = wanted.begin();
        while ((code = rows.step()) == SQLITE_ROW) {
            const qint64 key = rows.integer(KXRowCodec::KeyColumn);
            while (next != wanted.end() && next->key < key)
                ++next;
            if (next != wanted.end() && next->key == key)
                take(rows, *next);
        }
        return code == SQLITE_DONE ? KXError() : connection.lastError();
    }
    const KXReadTransaction transaction(connection, wanted.size() > 1);
    KXStatement row = connection.prepare(select + " WHERE t0.kx_id = ?");
    if (!row)
        return connection.lastError();
    for (KXWantedRow &one : wanted) {
        row.bind(1, one.key);
        code = row.step();
        if (code == SQLITE_ROW)
            take(row, one);
        else if (code != SQLITE_DONE)
            return connection.lastError(); // before the transaction's end says something else
        row.reset();
    }
    return {};
}

}

KXContextReader::KXContextReader(KXObjectKeeper &keeper, KXPersistentStorePrivate *store,
    const KXManagedObjectModel *model, KXWorkingSet &workingSet, KXChangeLedger &ledger, KXContextReader *parent)
    : m_keeper(keeper)
    , m_store(store)
    , m_model(model)
    , m_workingSet(workingSet)
    , m_ledger(ledger)
    , m_parent(parent)
{
}

// Objects

KXRef<Object> KXContextReader::makeObject(const KXEntityDescription &entity, qint64 key)
{
    if (Object *held = registered(key)) {
        // Somebody had the identifier before there was a row, or with another entity's name.
        if (held->entity() == &entity && !Access::values(held)) {
            m_ledger.found(held);
            return KXRef<Object>(held);
        }
        dismiss(held);
    }
    return m_workingSet.make(entity, key);
}

void KXContextReader::dismiss(Object *object)
{
    const KXRef<Object> held(object);
    m_workingSet.leave(object);
    m_ledger.vanished(object);
    Access::dropValues(object);
}

KXRef<Object> KXContextReader::object(const KXEntityDescription &entity, qint64 key)
{
    if (Object *object = registered(key)) {
        if (!object->entity()->isKindOf(&entity) && object->isFault())
            fillFault(object); // an identifier may have named the wrong entity: the row tells
        object = registered(key);
        if (object && object->entity()->isKindOf(&entity)) {
            KXWorkingSet::use(object);
            return KXRef<Object>(object);
        }
        if (object && Access::values(object))
            return {};
    }
    if (entity.family().size() == 1)
        return makeObject(entity, key);
    // Which entity of the family it is stands in the row.
    fill(entity, std::span(&key, 1));
    Object *found = registered(key);
    return KXRef<Object>(found && found->entity()->isKindOf(&entity) ? found : nullptr);
}

KXRef<Object> KXContextReader::inParent(const Object *object)
{
    KXRef<Object> source = m_parent->object(*object->entity(), Access::key(object));
    return source && !source->isDeleted() && !source->isMissing() ? source : KXRef<Object>();
}

// Values

void KXContextReader::fillFault(Object *object)
{
    m_keeper.checkThread();
    const KXRef<Object> held(object);
    const qint64 key = Access::key(object);
    fill(*object->entity(), std::span(&key, 1));
}

KXError KXContextReader::fill(const KXEntityDescription &entity, std::span<const qint64> keys)
{
    m_keeper.checkThread();
    std::vector<KXWantedRow> wanted;
    wanted.reserve(keys.size());
    for (const qint64 key : keys) {
        Object *object = registered(key);
        if (!object || !Access::values(object)) // one that is missing may have come back
            wanted.push_back({ key, object, false });
    }
    if (wanted.empty() || !m_store)
        return {};
    return m_parent ? fillFromParent(entity, keys) : fillFromStore(entity, wanted);
}

KXError KXContextReader::fillFromStore(const KXEntityDescription &entity, std::vector<KXWantedRow> &wanted)
{
    const auto notAfter = [](const KXWantedRow &a, const KXWantedRow &b) { return a.key >= b.key; };
    if (std::adjacent_find(wanted.begin(), wanted.end(), notAfter) != wanted.end()) {
        std::sort(
            wanted.begin(), wanted.end(), [](const KXWantedRow &a, const KXWantedRow &b) { return a.key < b.key; });
        const auto isSame = [](const KXWantedRow &a, const KXWantedRow &b) { return a.key == b.key; };
        wanted.erase(std::unique(wanted.begin(), wanted.end(), isSame), wanted.end());
    }

    KXError error;
    const KXStoreConnections::Reader reader = m_store->connections.reader(&error);
    if (!reader) {
        KXLogError(store, "Cannot read rows of \"%@\": %@", entity.name(), error);
        return error;
    }
    const KXRowCodec &codec = m_store->codec(entity);
    const bool discriminator = entity.hasDiscriminator();
    std::vector<KXRef<Object>> filled;
    filled.reserve(wanted.size());
    const auto take = [&](const KXStatement &row, KXWantedRow &one) {
        const KXEntityDescription *actual
            = discriminator ? m_model->entities().value(row.integer(KXRowCodec::EntityColumn) - 1) : &entity;
        if (!actual)
            return;
        one.found = true;
        const bool isIt = one.object && one.object->entity() == actual; // else an identifier named the wrong entity
        Object *object = filled.emplace_back(isIt ? KXRef<Object>(one.object) : makeObject(*actual, one.key)).get();
        m_ledger.found(object);
        KXRowValues *values = KXRowValues::create(*actual);
        Access::setValues(object, values);
        (discriminator ? m_store->codec(*actual) : codec).read(row, *values);
    };

    KXError problem = readerRows(*reader, codec.select(), wanted, take);
    for (const KXRef<Object> &object : filled) {
        m_workingSet.keep(object.get());
        Access::awakeFromFetch(object.get()); // without a reading statement open: it may read
    }
    if (problem) {
        // Not read is not gone: the objects stay faults and are asked for again.
        KXLogError(store, "Cannot read rows of \"%@\": %@", entity.name(), problem);
        return problem;
    }
    for (const KXWantedRow &one : wanted) {
        if (one.found)
            continue;
        if (one.object) {
            m_ledger.missed(one.object);
        } else if (entity.family().size() == 1) {
            const KXRef<Object> gone = makeObject(entity, one.key);
            m_ledger.missed(gone.get());
            m_workingSet.keep(gone.get());
        }
    }
    return {};
}

KXError KXContextReader::fillFromParent(const KXEntityDescription &entity, std::span<const qint64> keys)
{
    KXError problem = m_parent->fill(entity, keys);
    std::vector<KXRef<Object>> filled;
    for (const qint64 key : keys) {
        KXRef<Object> object(registered(key));
        if (object && Access::values(object))
            continue;
        const KXRef<Object> original = m_parent->object(entity, key);
        if (!original && !object)
            continue; // of a family, and its row is gone
        if (original && (!object || original->entity() != object->entity()))
            object = makeObject(*original->entity(), key);
        if (!original || original->isDeleted() || original->isMissing()) {
            m_ledger.missed(object.get());
            continue;
        }
        m_ledger.found(object.get());
        KXRowValues *values = KXRowValues::clone(*Access::values(original), *object->entity());
        // What the parent has not saved yet is stored as far as the child is concerned.
        values->version = std::max<qint64>(1, values->version);
        Access::setValues(object.get(), values);
        filled.push_back(std::move(object));
    }
    for (const KXRef<Object> &object : filled)
        Access::awakeFromFetch(object.get());
    return problem;
}
