#include <kestrixkit/context/KXManagedObjectContext.h>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXMainThreadDictionary.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXUserDefaults.h>

using namespace Qt::StringLiterals;

namespace {

/// Clean objects of released entities that nobody holds are kept until so many others were touched.
constexpr size_t recentObjects = 20'000;

/// Rows between the first and the last key are read in one go when they are not many more than those wanted.
constexpr qint64 denseFactor = 4;

/// A row that is to be read, and its object where there is one.
struct Wanted
{
    qint64 key;
    KXManagedObject *object;
    bool found;
};

/// Gives the rows of the keys, which are sorted, to `take`. Answers SQLITE_DONE or the code of what went wrong.
template <typename Take>
int readRows(KXSQLiteConnection &connection, const QByteArray &select, std::vector<Wanted> &wanted, Take &&take)
{
    int code = SQLITE_DONE;
    if (wanted.size() > 1 && wanted.back().key - wanted.front().key < denseFactor * qint64(wanted.size())) {
        KXStatement rows = connection.prepare(select + " WHERE t0.kx_id BETWEEN ? AND ?");
        if (!rows)
            return SQLITE_ERROR;
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
        return code;
    }
    const KXReadTransaction transaction(connection, wanted.size() > 1);
    KXStatement row = connection.prepare(select + " WHERE t0.kx_id = ?");
    if (!row)
        return SQLITE_ERROR;
    for (Wanted &one : wanted) {
        row.bind(1, one.key);
        code = row.step();
        if (code == SQLITE_ROW)
            take(row, one);
        else if (code != SQLITE_DONE)
            return code;
        row.reset();
    }
    return SQLITE_DONE;
}

}

// Contexts

KXManagedObjectContext::KXManagedObjectContext(KXPersistentStoreCoordinator::Ref coordinator, Ref parent)
    : m_p(std::make_unique<KXManagedObjectContextPrivate>(this, std::move(coordinator), std::move(parent)))
{
}

KXManagedObjectContext::~KXManagedObjectContext() = default;

KXManagedObjectContext::Ref KXManagedObjectContext::contextWithPersistentStoreCoordinator(
    const KXPersistentStoreCoordinator::Ref &coordinator)
{
    return coordinator ? Ref(new KXManagedObjectContext(coordinator)) : nullptr;
}

KXManagedObjectContext::Ref KXManagedObjectContext::contextWithStoreURL(const QUrl &url,
    const QList<const KXBundle *> &mergedModelFromBundles, const QString &configuration, KXError *error)
{
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        url, mergedModelFromBundles, configuration, error);
    const Ref context = contextWithPersistentStoreCoordinator(coordinator);
    if (context)
        context->setUndoManager(std::make_shared<KXUndoManager>());
    else
        KXLogError(store, "Unabled to get a NSPersistentStoreCoordinator");
    return context;
}

KXManagedObjectContext::Ref KXManagedObjectContext::mainContext()
{
    return KXMainThreadDictionary::get<Ref>(KLNSManagedObjectContextMainThreadKey);
}

KXManagedObjectContext::Ref KXManagedObjectContext::setupMainContext()
{
    if (const Ref before = mainContext()) {
        KXLogDebug(store, "Closing context: %@", before->d().description());
        if (before->commitEditing() && before->hasChanges()) {
            KXLogDebug(store, "Doing a final save for context: %@", before->d().description());
            before->save();
        }
        KXMainThreadDictionary::remove(KLNSManagedObjectContextMainThreadKey);
    }
    const QString name = KXBundle::mainBundle().name();
    const Ref context = contextWithPersistentStoreCoordinator(
        KXPersistentStoreCoordinator::persistentStoreCoordinatorWithName(KXStringWithFormat("%@.db", name)));
    context->setUndoManager(std::make_shared<KXUndoManager>());
    KXMainThreadDictionary::setValue(KLNSManagedObjectContextMainThreadKey, context);
    KXLogDebug(store, "Created context for: %@", name);
    return context;
}

const KXPersistentStoreCoordinator::Ref &KXManagedObjectContext::persistentStoreCoordinator() const
{
    return m_p->coordinator;
}
bool KXManagedObjectContext::commitEditing() const { return KXApplication::commitEditing(this); }

KXUndoManager *KXManagedObjectContext::undoManager() const { return m_p->recorder.manager().get(); }

void KXManagedObjectContext::setUndoManager(std::shared_ptr<KXUndoManager> manager)
{
    if (m_p->parent && manager)
        KXLogError(store, "A child context records nothing for undo; its parent does, once the child is saved");
    else
        m_p->recorder.setManager(std::move(manager));
}

void KXManagedObjectContext::mergeChangesFromStoreChange(const std::shared_ptr<const KXStoreChange> &change)
{
    if (change)
        m_p->mergeChanges(*change);
}

// Saving

bool KXManagedObjectContext::save()
{
    KXError error;
    if (save(&error))
        return true;
    KXLogError(store, "Failed to save: %@", error);
    KXApplication::presentError(error);
    return false;
}

bool KXManagedObjectContext::save(KXError *error) { return m_p->save(error); }

bool KXManagedObjectContext::hasChanges() const
{
    return !insertedObjects().isEmpty() || !m_p->deleted.empty() || !updatedObjects().isEmpty();
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::insertedObjects() const
{
    QList<KXRef<KXManagedObject>> list;
    std::copy_if(m_p->inserted.begin(), m_p->inserted.end(), std::back_inserter(list),
        [](const auto &object) { return object->isInserted(); });
    return list;
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::updatedObjects() const
{
    QList<KXRef<KXManagedObject>> list;
    for (const auto &[object, change] : m_p->changes) {
        if (object->isUpdated())
            list.append(change.object);
    }
    return list;
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::deletedObjects() const
{
    return QList<KXRef<KXManagedObject>>(m_p->deleted.begin(), m_p->deleted.end());
}

void KXManagedObjectContext::rollback() { m_p->rollback(); }
void KXManagedObjectContext::processPendingChanges() { m_p->processPendingChanges(); }

// Creating and deleting

KXRef<KXManagedObject> KXManagedObjectContext::managedObjectForEntity(const QString &entityName, KXError *error)
{
    m_p->checkThread();
    const KXEntityDescription &entity = m_p->entity(entityName);
    KXError problem;
    qint64 key = m_p->store ? m_p->store->keys.next(&problem) : 0;
    // In a file whose sequence somebody has set back a key may be in use.
    for (KXManagedObject *used; key != 0 && (used = m_p->registered(key)) && used->m_values;)
        key = m_p->store->keys.next(&problem);
    if (key == 0) {
        if (!m_p->store)
            problem = m_p->notOpen();
        KXLogError(store, "Cannot insert into \"%@\": %@", entityName, problem);
        KXSetError(error, problem);
        return {};
    }
    KXRef<KXManagedObject> object = m_p->makeObject(entity, key);
    m_p->insertNew(object);
    object->awakeFromInsert();
    return object;
}

KXRef<KXManagedObject> KXManagedObjectContext::temporaryInstanceOfEntity(const QString &entityName)
{
    m_p->checkThread();
    return m_p->makeTemporary(m_p->entity(entityName));
}

void KXManagedObjectContext::removeManagedObject(KXManagedObject *object) { m_p->remove(object); }

void KXManagedObjectContext::deleteObjects(const QList<KXRef<KXManagedObject>> &objects)
{
    for (const KXRef<KXManagedObject> &object : objects)
        m_p->remove(object.get());
}

// Fetching

KXFetchedList KXManagedObjectContext::fetch(const KXFetchRequest &request, KXError *error)
{
    return m_p->fetch(request, error);
}
qint64 KXManagedObjectContext::count(const KXFetchRequest &request, KXError *error)
{
    return m_p->count(request, error);
}

KXFetchedList KXManagedObjectContext::fetchAllForEntity(const QString &entityName)
{
    KXError error;
    const KXFetchedList list = fetch(KXFetchRequest(entityName), &error);
    if (list.isNull())
        KXLogError(store, "%@: %@", entityName, error);
    return list;
}

KXFetchedList KXManagedObjectContext::fetchForEntity(const QString &entityName, const KXPredicate &usingPredicate)
{
    KXError error;
    const KXFetchedList list = fetch(KXFetchRequest(entityName, usingPredicate), &error);
    if (list.isNull())
        KXLogError(store, "%@: %@ %@", entityName, usingPredicate.predicateFormat(), error);
    return list;
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstForEntity(
    const QString &entityName, const KXPredicate &usingPredicate)
{
    KXError error;
    const KXFetchedList list = fetch(KXFetchRequest(entityName, usingPredicate).setFetchLimit(1), &error);
    if (list.isNull())
        KXLogError(store, "%@: %@ %@", entityName, usingPredicate.predicateFormat(), error);
    return list.first();
}

qint64 KXManagedObjectContext::countForEntity(const QString &entityName, const KXPredicate &usingPredicate)
{
    KXError error;
    const qint64 number = count(KXFetchRequest(entityName, usingPredicate), &error);
    if (number < 0)
        KXLogError(store, "%@: %@", usingPredicate.predicateFormat(), error);
    return std::max<qint64>(0, number);
}

// Templates

namespace {

KXFetchRequest requestFromTemplate(
    const KXManagedObjectContextPrivate &context, const QString &name, const QVariantMap &variables)
{
    const KXFetchTemplate &fetch = context.coordinator->model()->fetchTemplate(name);
    return KXFetchRequest(fetch.entityName, fetch.predicate.predicateWithSubstitutionVariables(variables));
}

KXRef<KXManagedObject> firstOrLog(const KXFetchedList &list, const QString &templateName, const KXError &error)
{
    if (list.isNull())
        KXLogError(store, "%@: %@", templateName, error);
    return list.first();
}

}

qint64 KXManagedObjectContext::countFor(const QVariant &identifier, const QString &usingTemplate)
{
    const QString user = KXUserDefaults::standard().stringForKey(u"kestrixUsername"_s).value_or(u"*"_s);
    KXError error;
    const qint64 number = count(
        requestFromTemplate(*m_p, usingTemplate, { { u"IDENTIFIER"_s, identifier }, { u"USER"_s, user } }), &error);
    if (number < 0)
        KXLogError(store, "%@: %@", usingTemplate, error);
    return number;
}

qint64 KXManagedObjectContext::countUsingTemplate(const QString &templateName)
{
    KXError error;
    const qint64 number = count(requestFromTemplate(*m_p, templateName, {}), &error);
    if (number < 0)
        KXLogError(store, "%@: %@", templateName, error);
    return std::max<qint64>(0, number);
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstUsingTemplate(const QString &templateName)
{
    KXError error;
    const KXFetchedList list = fetch(requestFromTemplate(*m_p, templateName, {}).setFetchLimit(1), &error);
    return firstOrLog(list, templateName, error);
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstFor(const QVariant &identifier, const QString &usingTemplate)
{
    KXError error;
    const KXFetchedList list
        = fetch(requestFromTemplate(*m_p, usingTemplate, { { u"IDENTIFIER"_s, identifier } }).setFetchLimit(1), &error);
    return firstOrLog(list, usingTemplate, error);
}

KXFetchedList KXManagedObjectContext::fetchUsingTemplate(
    const QString &templateName, const QVariantMap &variables, KXError *error)
{
    return fetch(requestFromTemplate(*m_p, templateName, variables), error);
}

KXFetchedList KXManagedObjectContext::fetchUsingTemplate(
    const QString &templateName, const QVariantMap &variables, const QString &sortBy, bool ascending, KXError *error)
{
    KXFetchRequest request = requestFromTemplate(*m_p, templateName, variables);
    if (!sortBy.isEmpty())
        request.setSortDescriptors({ { sortBy, ascending } });
    return fetch(request, error);
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstUsingTemplate(
    const QString &templateName, const QVariantMap &variables, KXError *error)
{
    return fetch(requestFromTemplate(*m_p, templateName, variables).setFetchLimit(1), error).first();
}

// Resolving references

KXRef<KXManagedObject> KXManagedObjectContext::objectWithID(const KXManagedObjectID &id)
{
    m_p->checkThread();
    if (!id || !m_p->store || !id.store() || id.store()->uuid != m_p->store->identity->uuid)
        return {};
    // The identifier may come from another opening of the store, with a model of its own.
    const KXEntityDescription *entity = m_p->coordinator->model()->entity(id.entity()->name());
    if (!entity)
        return {};
    if (KXManagedObject *object = m_p->registered(id.key()); object && object->m_values)
        return KXRef<KXManagedObject>(object);
    if (KXRef<KXManagedObject> object = m_p->object(*entity, id.key()))
        return object;
    // The row is another entity's, is gone or cannot be read.
    KXManagedObject *object = m_p->registered(id.key());
    return object ? KXRef<KXManagedObject>(object) : m_p->makeObject(*entity, id.key());
}

KXRef<KXManagedObject> KXManagedObjectContext::registeredObjectWithID(const KXManagedObjectID &id) const
{
    m_p->checkThread();
    const bool ours = m_p->store && id.store() && id.store()->uuid == m_p->store->identity->uuid;
    return KXRef<KXManagedObject>(ours ? m_p->registered(id.key()) : nullptr);
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::objectInstancesFromURIRepresentations(const QList<QUrl> &uris)
{
    QList<KXRef<KXManagedObject>> list;
    for (const QUrl &uri : uris) {
        if (auto object = objectWithID(m_p->coordinator->managedObjectIDForURIRepresentation(uri)))
            list.append(std::move(object));
    }
    return list;
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::existingObjectsWithIDs(const QList<KXManagedObjectID> &ids)
{
    // All rows that are not in memory are read together.
    QList<KXRef<KXManagedObject>> objects;
    QHash<const KXEntityDescription *, std::vector<qint64>> faults;
    for (const KXManagedObjectID &id : ids) {
        objects.append(objectWithID(id));
        if (objects.last() && !objects.last()->m_values)
            faults[objects.last()->entity()].push_back(id.key());
    }
    for (auto it = faults.cbegin(); it != faults.cend(); ++it)
        m_p->fill(*it.key(), it.value());
    QList<KXRef<KXManagedObject>> list;
    for (KXRef<KXManagedObject> &object : objects) {
        if (object && !object->isMissing() && !object->isDeleted())
            list.append(std::move(object));
    }
    return list;
}

bool KXManagedObjectContext::obtainPermanentIDsForObjects(const QList<KXRef<KXManagedObject>> &objects, KXError *error)
{
    const bool all = std::all_of(objects.begin(), objects.end(),
        [this](const auto &object) { return object && object->managedObjectContext() == this; });
    return all
        || KXSetError(
            error, KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Other, u"An object is not in this context"_s));
}

void KXManagedObjectContext::refreshObject(KXManagedObject *object)
{
    m_p->checkThread();
    if (object && object->managedObjectContext() == this && !object->hasChanges()) {
        m_p->turnIntoFault(object);
        object->m_flags &= ~quint32(KXManagedObject::Missing); // somebody may have brought it back
    }
}

// The objects in memory

KXManagedObjectContextPrivate::KXManagedObjectContextPrivate(KXManagedObjectContext *context,
    KXPersistentStoreCoordinator::Ref storeCoordinator, KXManagedObjectContext::Ref parentContext)
    : q(context)
    , coordinator(std::move(storeCoordinator))
    , store(coordinator->store() ? &coordinator->store()->d() : nullptr)
    , parent(std::move(parentContext))
{
    if (coordinator->model())
        m_factories.resize(size_t(coordinator->model()->entities().size()));
    KXRegisterObservableHandle(KXRef<KXManagedObject>());
}

KXManagedObjectContextPrivate::~KXManagedObjectContextPrivate()
{
    // An operation's context ends with the operation, wherever the last handle on that goes. What the main thread has
    // queued for a context of its own is safe only there.
    if (isOfMainThread)
        checkThread();
    // Whoever still holds an object keeps what it has read; the rest goes with the references below.
    std::vector<KXRef<KXManagedObject>> residents;
    objects.forEach([this, &residents](KXManagedObject *object) {
        if (object->m_flags & KXManagedObject::HeldAsResident) {
            residents.emplace_back(object);
            object->deref();
        }
        object->detach(store->identity);
    });
    for (KXManagedObject *object : m_owned) {
        object->m_flags &= ~quint32(KXManagedObject::Owned);
        if (object->m_references == 0)
            object->destroyUnreferenced();
    }
}

void KXManagedObjectContextPrivate::checkThread() const
{
    KX_CHECK(std::this_thread::get_id() == thread, "A context is used on thread %llu but belongs to thread %llu",
        quint64(std::hash<std::thread::id>()(std::this_thread::get_id())),
        quint64(std::hash<std::thread::id>()(thread)));
}

KXError KXManagedObjectContextPrivate::notOpen()
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen, u"The store is not open"_s);
}

QString KXManagedObjectContextPrivate::description() const
{
    return KXStringWithFormat("%@", store ? store->url.toString() : u"no store"_s);
}

const KXEntityDescription &KXManagedObjectContextPrivate::entity(const QString &name) const
{
    const KXEntityDescription *entity = coordinator->model() ? coordinator->model()->entity(name) : nullptr;
    if (!entity)
        throw KXException(u"KXUnknownEntityException"_s, KXStringWithFormat("The model has no entity \"%@\"", name));
    return *entity;
}

KXManagedObject *KXManagedObjectContextPrivate::instantiate(const KXEntityDescription &entity)
{
    KXManagedObject::Factory &factory = m_factories[size_t(entity.number() - 1)];
    // The nearest ancestor's class serves an entity without one of its own.
    for (const KXEntityDescription *ancestor = &entity; ancestor && !factory; ancestor = ancestor->parent())
        factory = KXManagedObject::registeredClass(ancestor->className());
    if (!factory)
        factory = []() -> KXManagedObject * { return new KXManagedObject; };
    KXManagedObject *object = factory();
    object->m_entity = &entity;
    return object;
}

KXRef<KXManagedObject> KXManagedObjectContextPrivate::makeObject(const KXEntityDescription &entity, qint64 key)
{
    if (KXManagedObject *held = registered(key)) {
        // Somebody had the identifier before there was a row, or with another entity's name.
        if (held->m_entity == &entity && !held->m_values) {
            held->m_flags &= ~quint32(KXManagedObject::Missing);
            return KXRef<KXManagedObject>(held);
        }
        dismiss(held);
    }
    KXRef<KXManagedObject> object(instantiate(entity));
    object->m_key = key;
    object->m_context = q;
    enter(object.get());
    if (parent) {
        object->m_flags |= KXManagedObject::Owned;
        m_owned.push_back(object.get());
    }
    return object;
}

void KXManagedObjectContextPrivate::enter(KXManagedObject *object)
{
    objects.insert(object->m_key, object);
    if (!parent && object->m_entity->residence() == KXResidence::Resident) {
        object->m_flags |= KXManagedObject::HeldAsResident;
        object->ref();
    }
}

void KXManagedObjectContextPrivate::leave(KXManagedObject *object)
{
    const KXRef<KXManagedObject> held(object);
    const bool isResident = object->m_flags & KXManagedObject::HeldAsResident;
    objects.remove(object->m_key, object);
    object->detach(store->identity);
    m_observed.erase(object);
    if (isResident)
        object->deref();
}

void KXManagedObjectContextPrivate::dismiss(KXManagedObject *object)
{
    const KXRef<KXManagedObject> held(object);
    turnIntoFault(object);
    object->m_flags |= KXManagedObject::Missing;
    leave(object);
}

void KXManagedObjectContextPrivate::setDefaults(KXManagedObject *object)
{
    object->m_values = reinterpret_cast<char *>(KXRowValues::create(*object->m_entity));
    for (const KXPropertyDescription &property : object->m_entity->properties()) {
        if (property.isAttribute() && property.defaultValue().isValid())
            object->values()->setAttribute(property, property.defaultValue());
    }
}

void KXManagedObjectContextPrivate::insertNew(const KXRef<KXManagedObject> &object)
{
    setDefaults(object.get());
    object->m_flags |= KXManagedObject::Inserted | KXManagedObject::InsertPending;
    inserted.push_back(object);
    m_announcements.push_back(object);
    recorder.didInsert(object.get());
    scheduleProcessing();
}

KXRef<KXManagedObject> KXManagedObjectContextPrivate::makeTemporary(const KXEntityDescription &entity)
{
    KXRef<KXManagedObject> object(instantiate(entity));
    setDefaults(object.get());
    object->detach(std::make_shared<KXStoreIdentity>(KXStoreIdentity { {}, coordinator->model() }));
    return object;
}

KXRef<KXManagedObject> KXManagedObjectContextPrivate::object(const KXEntityDescription &entity, qint64 key)
{
    if (KXManagedObject *object = registered(key)) {
        if (!object->m_entity->isKindOf(&entity) && object->isFault())
            fillFault(object); // an identifier may have named the wrong entity: the row tells
        object = registered(key);
        if (object && object->m_entity->isKindOf(&entity)) {
            object->m_flags |= KXManagedObject::Touched;
            return KXRef<KXManagedObject>(object);
        }
        if (object && object->m_values)
            return {};
    }
    if (entity.family().size() == 1)
        return makeObject(entity, key);
    // Which entity of the family it is stands in the row.
    fill(entity, std::span(&key, 1));
    KXManagedObject *found = registered(key);
    return KXRef<KXManagedObject>(found && found->m_entity->isKindOf(&entity) ? found : nullptr);
}

void KXManagedObjectContextPrivate::touch(KXManagedObject *object)
{
    if (object->m_entity->residence() == KXResidence::Resident || parent)
        return;
    object->m_flags |= KXManagedObject::Touched;
    if (m_recent.size() < recentObjects) {
        m_recent.emplace_back(object);
        return;
    }
    // The next of the ring gives way, unless it was asked for since the last round: then the one after it. It was last
    // used long ago, so it is fetched into the cache a few steps before its turn.
    const auto advance = [this] {
        m_recentNext = m_recentNext + 1 == recentObjects ? 0 : m_recentNext + 1;
        __builtin_prefetch(m_recent[(m_recentNext + 12) % recentObjects].get(), 1);
    };
    while (m_recent[m_recentNext]->m_flags & KXManagedObject::Touched) {
        m_recent[m_recentNext]->m_flags &= ~quint32(KXManagedObject::Touched);
        advance();
    }
    m_recent[m_recentNext] = KXRef<KXManagedObject>(object);
    advance();
}

void KXManagedObjectContextPrivate::setObserved(KXManagedObject *object, bool observed)
{
    if (parent)
        return; // its objects stay anyway
    if (observed)
        m_observed.try_emplace(object, KXRef<KXManagedObject>(object));
    else
        m_observed.erase(object);
}

void KXManagedObjectContextPrivate::turnIntoFault(KXManagedObject *object)
{
    if (!object->m_values)
        return;
    KXRowValues::destroy(object->values(), *object->m_entity);
    object->m_values = nullptr;
}

void KXManagedObjectContextPrivate::fillFault(KXManagedObject *object)
{
    checkThread();
    const KXRef<KXManagedObject> held(object);
    fill(*object->m_entity, std::span(&object->m_key, 1));
}

void KXManagedObjectContextPrivate::fill(const KXEntityDescription &entity, std::span<const qint64> keys)
{
    checkThread();
    std::vector<Wanted> wanted;
    wanted.reserve(keys.size());
    for (const qint64 key : keys) {
        KXManagedObject *object = registered(key);
        if (!object || !object->m_values) // one that is missing may have come back
            wanted.push_back({ key, object, false });
    }
    if (wanted.empty() || !store)
        return;
    if (parent) {
        fillFromParent(entity, keys);
        return;
    }
    const auto notAfter = [](const Wanted &a, const Wanted &b) { return a.key >= b.key; };
    if (std::adjacent_find(wanted.begin(), wanted.end(), notAfter) != wanted.end()) {
        std::sort(wanted.begin(), wanted.end(), [](const Wanted &a, const Wanted &b) { return a.key < b.key; });
        wanted.erase(
            std::unique(wanted.begin(), wanted.end(), [](const Wanted &a, const Wanted &b) { return a.key == b.key; }),
            wanted.end());
    }

    KXError error;
    const KXStoreConnections::Reader reader = store->connections.reader(&error);
    if (!reader) {
        KXLogError(store, "Cannot read rows of \"%@\": %@", entity.name(), error);
        return;
    }
    const KXRowCodec &codec = store->codec(entity);
    const bool discriminator = entity.hasDiscriminator();
    std::vector<KXRef<KXManagedObject>> filled;
    filled.reserve(wanted.size());
    const auto take = [&](const KXStatement &row, Wanted &one) {
        const KXEntityDescription *actual = discriminator
            ? coordinator->model()->entities().value(row.integer(KXRowCodec::EntityColumn) - 1)
            : &entity;
        if (!actual)
            return;
        one.found = true;
        const bool isIt = one.object && one.object->m_entity == actual; // else an identifier named the wrong entity
        KXManagedObject *object
            = filled.emplace_back(isIt ? KXRef<KXManagedObject>(one.object) : makeObject(*actual, one.key)).get();
        object->m_flags &= ~quint32(KXManagedObject::Missing);
        KXRowValues *values = KXRowValues::create(*actual);
        object->m_values = reinterpret_cast<char *>(values);
        (discriminator ? store->codec(*actual) : codec).read(row, *values);
    };

    const int code = readRows(*reader, codec.select(), wanted, take);
    for (const KXRef<KXManagedObject> &object : filled) {
        touch(object.get());
        object->awakeFromFetch(); // without a reading statement open: it may read
    }
    if (code != SQLITE_DONE) {
        // Not read is not gone: the objects stay faults and are asked for again.
        KXLogError(store, "Cannot read rows of \"%@\": %s", entity.name(), sqlite3_errstr(code));
        return;
    }
    for (const Wanted &one : wanted) {
        if (one.found)
            continue;
        if (one.object) {
            one.object->m_flags |= KXManagedObject::Missing;
        } else if (entity.family().size() == 1) {
            const KXRef<KXManagedObject> gone = makeObject(entity, one.key);
            gone->m_flags |= KXManagedObject::Missing;
            touch(gone.get());
        }
    }
}
