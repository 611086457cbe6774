#include <kestrixkit/context/KXManagedObjectContext.h>

#include <QCoreApplication>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/context/KXStoredClasses_p.h>
#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXMainThreadDictionary.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using namespace Qt::StringLiterals;

// Contexts

KXManagedObjectContext::KXManagedObjectContext(KXPersistentStoreCoordinator::Ref coordinator, Ref parent)
    : m_p(std::make_unique<KXManagedObjectContextPrivate>(this, std::move(coordinator), std::move(parent)))
{
}

KXManagedObjectContext::~KXManagedObjectContext() = default;

KXManagedObjectContext::Ref KXManagedObjectContext::contextWithPersistentStoreCoordinator(
    const KXPersistentStoreCoordinator::Ref &coordinator)
{
    if (!coordinator)
        return nullptr;
    KXStoredClasses::check(coordinator->model()); // who has no context uses no objects
    const Ref context(new KXManagedObjectContext(coordinator));
    // Without an application nobody undoes anything, and no turn of a main loop ends a step.
    if (context->m_p->isOfMainThread && QCoreApplication::instance())
        context->setUndoManager(std::make_shared<KXUndoManager>());
    return context;
}

KXManagedObjectContext::Ref KXManagedObjectContext::contextWithStoreURL(const QUrl &url,
    const QList<const KXBundle *> &mergedModelFromBundles, const QString &configuration, KXError *error)
{
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        url, mergedModelFromBundles, configuration, error);
    const Ref context = contextWithPersistentStoreCoordinator(coordinator);
    if (!context)
        KXLogError(store, "Unabled to get a NSPersistentStoreCoordinator");
    return context;
}

KXManagedObjectContext::Ref KXManagedObjectContext::mainContext()
{
    return KXMainThreadDictionary::get<Ref>(KLNSManagedObjectContextMainThreadKey);
}

void KXManagedObjectContext::setMainContext(const Ref &context)
{
    if (context && !context->m_p->isOfMainThread)
        throw KXException(
            QString(KXInvalidArgumentException), u"A context of another thread cannot be the main context"_s);
    if (context)
        KXMainThreadDictionary::setValue(KLNSManagedObjectContextMainThreadKey, context);
    else
        KXMainThreadDictionary::remove(KLNSManagedObjectContextMainThreadKey);
}

KXManagedObjectContext::Ref KXManagedObjectContext::setupMainContext()
{
    if (const Ref before = mainContext()) {
        KXLogDebug(store, "Closing context: %@", before->m_p->description());
        if (before->commitEditing() && before->hasChanges()) {
            KXLogDebug(store, "Doing a final save for context: %@", before->m_p->description());
            before->save();
        }
        KXMainThreadDictionary::remove(KLNSManagedObjectContextMainThreadKey);
    }
    const QString name = KXBundle::mainBundle().name();
    const Ref context = contextWithPersistentStoreCoordinator(
        KXPersistentStoreCoordinator::persistentStoreCoordinatorWithName(KXStringWithFormat("%@.db", name)));
    setMainContext(context);
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

// What it announces

KXNotificationToken KXManagedObjectContext::onChange(
    const KXManagedObjectContext *context, std::function<void(const KXObjectsDidChange &)> function)
{
    return KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextObjectsDidChangeNotification), context,
        [function = std::move(function)](const KXNotification &notification) {
            if (const auto *did = notification.payloadAs<KXObjectsDidChange>())
                function(*did);
        });
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
    const KXChangeLedger &ledger = m_p->ledger;
    return !ledger.deletions().empty()
        || std::any_of(ledger.insertions().begin(), ledger.insertions().end(),
            [](const auto &object) { return object->isInserted(); })
        || std::any_of(ledger.changes().begin(), ledger.changes().end(),
            [](const auto &change) { return change.first->isUpdated(); });
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::insertedObjects() const
{
    QList<KXRef<KXManagedObject>> list;
    const auto &insertions = m_p->ledger.insertions();
    std::copy_if(insertions.begin(), insertions.end(), std::back_inserter(list),
        [](const auto &object) { return object->isInserted(); });
    return list;
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::updatedObjects() const
{
    QList<KXRef<KXManagedObject>> list;
    for (const auto &[object, change] : m_p->ledger.changes()) {
        if (object->isUpdated())
            list.append(change.object);
    }
    return list;
}

QList<KXRef<KXManagedObject>> KXManagedObjectContext::deletedObjects() const
{
    const auto &deletions = m_p->ledger.deletions();
    return QList<KXRef<KXManagedObject>>(deletions.begin(), deletions.end());
}

void KXManagedObjectContext::rollback() { m_p->rollback(); }
void KXManagedObjectContext::processPendingChanges() { m_p->announcer.processPendingChanges(); }

// Creating and deleting

KXRef<KXManagedObject> KXManagedObjectContext::managedObjectForEntity(const QString &entityName, KXError *error)
{
    m_p->checkThread();
    const KXEntityDescription &entity = m_p->entity(entityName);
    KXError problem;
    qint64 key = m_p->store ? m_p->store->keys.next(&problem) : 0;
    // In a file whose sequence somebody has set back a key may be in use.
    for (KXManagedObject *used; key != 0 && (used = m_p->reader.registered(key)) && KXObjectAccess::values(used);)
        key = m_p->store->keys.next(&problem);
    if (key == 0) {
        if (!m_p->store)
            problem = KXPersistentStorePrivate::notOpen();
        KXLogError(store, "Cannot insert into \"%@\": %@", entityName, problem);
        KXSetError(error, problem);
        return {};
    }
    KXRef<KXManagedObject> object = m_p->reader.makeObject(entity, key);
    m_p->editor.insertNew(object);
    KXObjectAccess::awakeFromInsert(object.get());
    return object;
}

KXRef<KXManagedObject> KXManagedObjectContext::temporaryInstanceOfEntity(const QString &entityName)
{
    m_p->checkThread();
    return m_p->makeTemporary(m_p->entity(entityName));
}

void KXManagedObjectContext::removeManagedObject(KXManagedObject *object)
{
    m_p->editor.remove({ KXRef<KXManagedObject>(object) });
}

void KXManagedObjectContext::deleteObjects(const QList<KXRef<KXManagedObject>> &objects)
{
    m_p->editor.remove(std::vector(objects.begin(), objects.end()));
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
        KXContextFetcher::reportOf(entityName, error);
    return list;
}

KXFetchedList KXManagedObjectContext::fetchForEntity(const QString &entityName, const KXPredicate &usingPredicate)
{
    KXError error;
    const KXFetchedList list = fetch(KXFetchRequest(entityName, usingPredicate), &error);
    if (list.isNull())
        KXContextFetcher::reportOf(entityName, usingPredicate, error);
    return list;
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstForEntity(
    const QString &entityName, const KXPredicate &usingPredicate)
{
    KXError error;
    const KXFetchedList list = fetch(KXFetchRequest(entityName, usingPredicate).setFetchLimit(1), &error);
    if (list.isNull())
        KXContextFetcher::reportOf(entityName, usingPredicate, error);
    return list.first();
}

qint64 KXManagedObjectContext::countForEntity(const QString &entityName, const KXPredicate &usingPredicate)
{
    KXError error;
    const qint64 number = count(KXFetchRequest(entityName, usingPredicate), &error);
    if (number < 0)
        KXContextFetcher::reportOf(usingPredicate.predicateFormat(), error);
    return std::max<qint64>(0, number);
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
    if (KXManagedObject *object = m_p->reader.registered(id.key()); object && KXObjectAccess::values(object))
        return KXRef<KXManagedObject>(object);
    if (KXRef<KXManagedObject> object = m_p->reader.object(*entity, id.key()))
        return object;
    // The row is another entity's, is gone or cannot be read.
    KXManagedObject *object = m_p->reader.registered(id.key());
    return object ? KXRef<KXManagedObject>(object) : m_p->reader.makeObject(*entity, id.key());
}

KXRef<KXManagedObject> KXManagedObjectContext::registeredObjectWithID(const KXManagedObjectID &id) const
{
    m_p->checkThread();
    const bool ours = m_p->store && id.store() && id.store()->uuid == m_p->store->identity->uuid;
    return KXRef<KXManagedObject>(ours ? m_p->reader.registered(id.key()) : nullptr);
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
        if (objects.last() && !KXObjectAccess::values(objects.last()))
            faults[objects.last()->entity()].push_back(id.key());
    }
    for (auto it = faults.cbegin(); it != faults.cend(); ++it)
        m_p->reader.fill(*it.key(), it.value());
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
        KXObjectAccess::dropValues(object);
        m_p->ledger.found(object); // somebody may have brought it back
    }
}

// Here, because objects know of contexts only what keeps them.
void KXManagedObject::requireClass(
    const KXManagedObjectContext &context, const QString &entityName, std::atomic<quint32> &checked)
{
    const auto &model = context.persistentStoreCoordinator()->model();
    const KXEntityDescription *const entity = model ? model->entity(entityName) : nullptr;
    if (!entity || entity->layoutSerial() == checked.load(std::memory_order_relaxed))
        return; // an unknown entity is another mistake
    KXStoredClasses::require(*entity);
    checked.store(entity->layoutSerial(), std::memory_order_relaxed);
}
