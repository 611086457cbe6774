// How an index follows what its context announces and what is saved, and what it keeps of that for the next start.

#include <kestrixkit/search/KXSearchIndex_p.h>

#include <algorithm>

#include <QDateTime>

#include <kestrixkit/foundation/KXLog.h>

using Object = KXManagedObject;

namespace {

/// So many rows are read at once when they change; more wait for a search or a pause.
constexpr size_t followingAtOnce = 64;
constexpr size_t followingRowsPerRead = 1000;
/// Beyond that everything is read anew.
constexpr size_t followingMostDue = 20'000;
/// Changed rows that a search looks at one by one.
constexpr size_t followingMostChanged = 4096;
constexpr double followingPause = 2; // seconds without changes
/// At most a tenth of the time goes into reading everything anew.
constexpr double followingBuildShare = 10;
/// Saves that nobody merges are forgotten; the index is then read anew at the next start.
constexpr size_t followingMostSaves = 10'000;

/// Keys of the objects of the entity's family of which the property changed, and of those that came and went. What
/// others have inserted matters only where nothing leads back: else what leads to it has changed as well.
QSet<qint64> followingChanged(
    const KXObjectsDidChange &did, const KXEntityDescription &entity, const QString &property, bool isOneWay)
{
    QSet<qint64> keys;
    const auto take = [&](const QList<KXRef<Object>> &objects) {
        for (const KXRef<Object> &object : objects) {
            if (object->entity()->root() == entity.root())
                keys.insert(object->objectID().key());
        }
    };
    take(did.deleted);
    take(did.inserted); // brought back by an undo, it may have members that others have linked to it meanwhile
    for (const auto *list : { &did.updated, &did.refreshed }) {
        for (const KXRef<Object> &object : *list) {
            if (object->entity()->root() == entity.root() && did.changedKeys.value(object.get()).contains(property))
                keys.insert(object->objectID().key());
        }
    }
    static const std::vector<KXEntityChange> none;
    for (const KXEntityChange &change : did.merged ? did.merged->entities() : none) {
        if (change.entity->root() != entity.root())
            continue;
        keys.unite(QSet<qint64>(change.deleted.begin(), change.deleted.end()));
        if (isOneWay)
            keys.unite(QSet<qint64>(change.inserted.begin(), change.inserted.end()));
        for (const KXRowChange &row : change.updated) {
            if (std::any_of(row.properties.begin(), row.properties.end(),
                    [&](const KXPropertyChange &news) { return news.property->name() == property; }))
                keys.insert(row.key);
        }
    }
    return keys;
}

/// The keys of the group's own entity that its paths begin with.
QSet<QString> followingFirstKeys(const KXSearchPlan::Group &group)
{
    QSet<QString> keys;
    const auto add = [&keys](const KXSearchPath &path) {
        keys.insert(path.isDirect() ? path.attribute->name() : path.steps.front()->name());
    };
    for (const KXSearchPath &path : group.texts)
        add(path);
    for (const KXSearchPlan::Rank &rank : group.ranks)
        add(rank.path);
    return keys;
}

}

QSet<qint64> KXSearchIndexPrivate::leadingTo(
    const KXSearchPlan::Group &group, const KXSearchPath &path, size_t steps, const QSet<qint64> &keys) const
{
    QVariantList objects;
    QStringList names;
    for (size_t i = 0; i < steps; ++i)
        names.append(path.steps[i]->name());
    const KXEntityDescription *entity = path.steps[steps - 1]->destinationEntity();
    for (const qint64 key : keys)
        objects.append(QVariant::fromValue(
            KXManagedObjectID(context->persistentStoreCoordinator()->store()->identity(), entity, key)));
    const KXFetchedList found = context->fetch(KXFetchRequest(group.entity->name(),
        KXPredicate::comparison(names.join(u'.'), KXPredicateOperator::In, objects, KXPredicateModifier::Any)));
    return QSet<qint64>(found.keys().begin(), found.keys().end());
}

/// Rows of the group whose words or rank may have changed.
QSet<qint64> KXSearchIndexPrivate::affected(const KXObjectsDidChange &did, const KXSearchPlan::Group &group) const
{
    QSet<qint64> keys;
    const QSet<QString> first = followingFirstKeys(group);
    for (const auto *list : { &did.inserted, &did.deleted }) {
        for (const KXRef<Object> &object : *list) {
            if (object->entity()->isKindOf(group.entity))
                keys.insert(object->objectID().key());
        }
    }
    for (const auto *list : { &did.updated, &did.refreshed }) {
        for (const KXRef<Object> &object : *list) {
            if (object->entity()->isKindOf(group.entity) && did.changedKeys.value(object.get()).intersects(first))
                keys.insert(object->objectID().key());
        }
    }
    static const std::vector<KXEntityChange> none;
    for (const KXEntityChange &change : did.merged ? did.merged->entities() : none) {
        if (!change.entity->isKindOf(group.entity))
            continue;
        keys.unite(QSet<qint64>(change.inserted.begin(), change.inserted.end()));
        keys.unite(QSet<qint64>(change.deleted.begin(), change.deleted.end()));
        for (const KXRowChange &row : change.updated) {
            if (std::any_of(row.properties.begin(), row.properties.end(),
                    [&](const KXPropertyChange &news) { return first.contains(news.property->name()); }))
                keys.insert(row.key);
        }
    }
    const auto takeRelated = [&](const KXSearchPath &path) {
        for (size_t i = 0; i < path.steps.size(); ++i) {
            const KXPropertyDescription &next = i + 1 < path.steps.size() ? *path.steps[i + 1] : *path.attribute;
            const QSet<qint64> changed = followingChanged(
                did, *path.steps[i]->destinationEntity(), next.name(), path.steps[i]->inverse() == nullptr);
            if (!changed.isEmpty())
                keys.unite(leadingTo(group, path, i + 1, changed));
        }
    };
    for (const KXSearchPath &path : group.texts)
        takeRelated(path);
    for (const KXSearchPlan::Rank &rank : group.ranks)
        takeRelated(rank.path);
    return keys;
}

void KXSearchIndexPrivate::noteDue(size_t group, const QSet<qint64> &keys)
{
    const bool isUnsaved = context->hasChanges();
    const KXMutexLocker lock(mutex);
    ++event;
    for (const qint64 key : keys)
        due[group].insert(key, { event, isUnsaved });
}

void KXSearchIndexPrivate::follow(const KXObjectsDidChange &did)
{
    bool isConcerned = false;
    for (size_t i = 0; i < plan.groups.size(); ++i) {
        const QSet<qint64> keys = affected(did, plan.groups[i]);
        if (keys.isEmpty())
            continue;
        noteDue(i, keys);
        isConcerned = true;
    }
    if (did.merged) {
        const KXMutexLocker lock(mutex);
        for (Save &save : saves)
            save.isIn = save.isIn || save.serial == did.merged->serialNumber();
    }
    if (!context->hasChanges()) {
        const KXMutexLocker lock(mutex);
        cleanEvent = event;
    }
    advance();
    if (isConcerned) {
        settle(false);
        Q_EMIT q->didChange();
    }
}

/// A save may change rows that its context has never seen; what it has was announced before.
void KXSearchIndexPrivate::followOwnSave(const KXStoreChange &change)
{
    bool isConcerned = false;
    for (size_t i = 0; i < plan.groups.size(); ++i) {
        QSet<qint64> keys;
        const auto take = [&keys](qint64 key) { keys.insert(key); };
        for (const KXEntityChange &entity : change.entities()) {
            if (!entity.entity->isKindOf(plan.groups[i].entity))
                continue;
            std::for_each(entity.inserted.begin(), entity.inserted.end(), take);
            std::for_each(entity.deleted.begin(), entity.deleted.end(), take);
            for (const KXRowChange &row : entity.updated)
                take(row.key);
        }
        const KXMutexLocker lock(mutex);
        ++event;
        for (const qint64 key : std::as_const(keys)) {
            if (states[i].changed.contains(key) || due[i].contains(key))
                continue;
            due[i].insert(key, { event, context->hasChanges() });
            isConcerned = true;
        }
    }
    {
        const KXMutexLocker lock(mutex);
        for (Save &save : saves)
            save.isIn = save.isIn || save.serial == change.serialNumber();
        if (!context->hasChanges())
            cleanEvent = event;
    }
    advance();
    if (isConcerned) {
        settle(false);
        Q_EMIT q->didChange();
    }
    pauseCall.start(followingPause, [this] { pause(); });
}

/// What the context has not saved is not in what was read.
void KXSearchIndexPrivate::noteUnsaved()
{
    KXObjectsDidChange did;
    did.inserted = context->insertedObjects();
    did.updated = context->updatedObjects();
    did.deleted = context->deletedObjects();
    for (const KXRef<Object> &object : did.updated)
        did.changedKeys.insert(object.get(), object->changedKeys());
    for (size_t i = 0; i < plan.groups.size(); ++i)
        noteDue(i, affected(did, plan.groups[i]));
}

size_t KXSearchIndexPrivate::dueCount()
{
    const KXMutexLocker lock(mutex);
    size_t count = 0;
    for (const auto &keys : due)
        count += size_t(keys.size());
    return count;
}

size_t KXSearchIndexPrivate::changedCount()
{
    const KXMutexLocker lock(mutex);
    size_t count = 0;
    for (const KXSearchGroupState &state : states)
        count += size_t(state.changed.size());
    return count;
}

void KXSearchIndexPrivate::settle(bool all)
{
    pauseCall.start(followingPause, [this] { pause(); });
    if (!isOpen)
        return;
    const size_t count = dueCount();
    const bool isClean = !context->hasChanges();
    if (isClean && count > 0) { // the store has it by now
        const KXMutexLocker lock(mutex);
        for (QHash<qint64, Due> &rows : due) {
            for (Due &row : rows)
                row.isUnsaved = false;
        }
    }
    try {
        if (count > 0 && (!isClean || count <= followingAtOnce))
            readObjects();
        else if (count > 0 && all)
            readDue({});
    } catch (const KXSearchDamage &) {
        damaged();
        buildInBackground();
    }
}

/// Brings what the paths of the objects reach into memory, each step at once.
void KXSearchIndexPrivate::fetchPaths(const QList<KXRef<KXManagedObject>> &objects, const KXSearchPlan::Group &group)
{
    const KXContextRows working(*context);
    for (const KXSearchPath &path : group.texts) {
        QList<KXRef<Object>> level = objects;
        for (const KXPropertyDescription *step : path.steps) {
            if (step->isToMany())
                working.loadKeys({ level.constData(), size_t(level.size()) }, *step);
            std::vector<qint64> keys;
            for (const KXRef<Object> &object : std::as_const(level)) {
                const std::vector<qint64> next = working.keysOf(object.get(), *step);
                keys.insert(keys.end(), next.begin(), next.end());
            }
            std::sort(keys.begin(), keys.end());
            keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
            working.fill(*step->destinationEntity(), keys);
            level.clear();
            for (const qint64 key : keys) {
                if (Object *object = working.held(key); object && !object->isDeleted())
                    level.append(KXRef<Object>(object));
            }
        }
    }
}

void KXSearchIndexPrivate::readObjects()
{
    const std::shared_ptr<const KXStoreIdentity> &identity = context->persistentStoreCoordinator()->store()->identity();
    for (size_t i = 0; i < plan.groups.size(); ++i) {
        QHash<qint64, Due> events;
        {
            const KXMutexLocker lock(mutex);
            events = due[i];
        }
        if (events.isEmpty())
            continue;
        QList<KXManagedObjectID> ids;
        std::vector<qint64> keys;
        for (auto entry = events.cbegin(); entry != events.cend(); ++entry) {
            ids.append(KXManagedObjectID(identity, plan.groups[i].entity, entry.key()));
            keys.push_back(entry.key());
        }
        std::vector<KXSearchRowText> rows;
        const QList<KXRef<Object>> objects = context->existingObjectsWithIDs(ids);
        if (objects.size() > 1)
            fetchPaths(objects, plan.groups[i]);
        for (const KXRef<Object> &object : objects) {
            if (object->entity()->isKindOf(plan.groups[i].entity))
                rows.push_back(KXSearchReading::ofObject(*object, plan.groups[i]));
        }
        std::sort(rows.begin(), rows.end(), [](const auto &a, const auto &b) { return a.key < b.key; });
        setChanged(i, keys, std::move(rows), events);
    }
}

bool KXSearchIndexPrivate::readDue(const KXSearchStop &stop)
{
    if (!store || dueCount() > followingMostDue)
        return false;
    KXError error;
    for (size_t i = 0; i < plan.groups.size() && !error; ++i) {
        while (!error) {
            stop.look();
            QHash<qint64, Due> events;
            {
                const KXMutexLocker lock(mutex);
                for (auto entry = due[i].cbegin();
                     entry != due[i].cend() && size_t(events.size()) < followingRowsPerRead; ++entry) {
                    if (!entry->isUnsaved)
                        events.insert(entry.key(), entry.value());
                }
            }
            if (events.isEmpty())
                break;
            const std::vector<qint64> keys(events.keyBegin(), events.keyEnd());
            std::vector<KXSearchRowText> rows;
            KXRowReader reader(store, &error); // each time anew: it shows what was saved when it begins
            if (reader)
                error = KXSearchReading(reader, plan.groups[i]).readRows(keys, rows);
            if (!error)
                setChanged(i, keys, std::move(rows), events);
        }
    }
    if (error)
        KXLogError(search, "Cannot read what has changed: %@", error);
    return !error;
}

/// Rows in the order of their keys; those of the keys that are not among them are gone.
void KXSearchIndexPrivate::setChanged(
    size_t group, const std::vector<qint64> &keys, std::vector<KXSearchRowText> rows, const QHash<qint64, Due> &events)
{
    const KXMutexLocker lock(mutex);
    KXSearchGroupState &state = states[group];
    for (const qint64 key : keys) {
        const auto stillDue = due[group].constFind(key);
        if (stillDue == due[group].constEnd() || stillDue->event != events.value(key).event)
            continue; // changed once more, or somebody else was faster
        auto changed = std::make_shared<KXSearchChangedRow>();
        changed->event = events.value(key).event;
        const auto row = std::lower_bound(
            rows.begin(), rows.end(), key, [](const KXSearchRowText &text, qint64 other) { return text.key < other; });
        changed->isThere = row != rows.end() && row->key == key;
        if (changed->isThere)
            changed->text = std::move(*row);
        changed->text.key = key;
        changed->row = state.segment->rowOf(key);
        if (changed->isThere)
            changed->rowsBefore = state.segment->rowsBefore(changed->text.rank, key);
        // One that never was in the segment and is gone here may still be stored: it is kept with the others.
        state.changed.insert(key, std::move(changed));
        due[group].remove(key);
    }
}

// Saves

/// On the thread that saves.
void KXSearchIndexPrivate::noteSave(const KXStoreChange &change)
{
    const KXMutexLocker lock(mutex);
    saves.push_back({ change.serialNumber(), change.numberBefore(), change.numberAfter(), false });
    if (saves.size() > followingMostSaves)
        saves.pop_front();
}

void KXSearchIndexPrivate::advance()
{
    bool isGap = false;
    {
        const KXMutexLocker lock(mutex);
        while (isOpen && !saves.empty() && !isGap) {
            const Save &save = saves.front();
            // What was read after it has it.
            const bool isRead = save.after <= knownNumber;
            isGap = !isRead && save.before != knownNumber;
            if (!isRead && !isGap && !save.isIn)
                break;
            knownNumber = std::max(knownNumber, save.after);
            saves.pop_front();
        }
    }
    if (isGap)
        q->fold(); // another process has saved between
}

void KXSearchIndexPrivate::pause()
{
    if (!isOpen || isBuilding)
        return;
    if (context->hasChanges() || dueCount() <= followingMostDue)
        settle(true);
    pauseCall.cancel();
    const double seconds = double(QDateTime::currentMSecsSinceEpoch() - lastBuildEnd) / 1000;
    const bool isMuch = changedCount() > followingMostChanged || dueCount() > 0;
    if (isMuch && !context->hasChanges() && seconds >= followingBuildShare * lastBuildSeconds)
        buildInBackground();
    else if (isMuch)
        pauseCall.start(followingPause + followingBuildShare * lastBuildSeconds, [this] { pause(); });
    else
        keepInBackground();
}

/// Nothing where that would be wrong, or is there already.
std::optional<KXSearchFile::Changes> KXSearchIndexPrivate::changesToKeep()
{
    advance();
    if (!isOpen || !file || indexNumber == 0 || fileNumber != indexNumber)
        return std::nullopt;
    KXSearchFile::Changes changes { indexNumber, knownNumber, {} };
    const KXMutexLocker lock(mutex);
    if (!saves.empty())
        return std::nullopt; // not all of them are in
    for (size_t i = 0; i < states.size(); ++i) {
        std::vector<qint64> keys(states[i].changed.keyBegin(), states[i].changed.keyEnd());
        keys.insert(keys.end(), due[i].keyBegin(), due[i].keyEnd());
        std::sort(keys.begin(), keys.end());
        keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
        changes.keys.push_back(std::move(keys));
    }
    return changes;
}

void KXSearchIndexPrivate::keepInBackground()
{
    const std::optional<KXSearchFile::Changes> changes = changesToKeep();
    if (!changes || changes->changeNumber == keptNumber || changes->changeNumber == indexNumber)
        return;
    keptNumber = changes->changeNumber;
    builder.addBlock([this, changes] {
        if (const KXError error = file->writeChanges(*changes))
            KXLogInfo(search, "The search index is not kept: %@", error);
    });
}
