// How an index follows what its context announces and what is saved, and what it keeps of that for the next start.

#include <kestrixkit/search/KXSearchIndex_p.h>

#include <algorithm>

#include <QDateTime>

#include <kestrixkit/foundation/KXLog.h>

using Object = KXManagedObject;

namespace {

/// Changed rows that a search looks at one by one.
constexpr size_t followingMostChanged = 4096;
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

/// The keys of the group's own entity that its paths begin with, and which direct texts each is.
QHash<QString, std::optional<quint64>> followingFirstKeys(const KXSearchPlan::Group &group)
{
    QHash<QString, std::optional<quint64>> keys;
    for (const KXSearchPlan::Rank &rank : group.ranks) {
        if (rank.path.isDirect())
            keys.insert(rank.path.attribute->name(), 0);
    }
    for (size_t i = 0; i < group.texts.size(); ++i) {
        if (!group.texts[i].isDirect())
            continue;
        std::optional<quint64> &texts = keys[group.texts[i].attribute->name()];
        texts = i < 63 ? std::optional(texts.value_or(0) | quint64(1) << i) : std::nullopt;
    }
    const auto addLinked = [&keys](const KXSearchPath &path) {
        if (!path.isDirect())
            keys.insert(path.steps.front()->name(), std::nullopt);
    };
    for (const KXSearchPath &path : group.texts)
        addLinked(path);
    for (const KXSearchPlan::Rank &rank : group.ranks)
        addLinked(rank.path);
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
KXSearchIndexPrivate::Affected KXSearchIndexPrivate::affected(
    const KXObjectsDidChange &did, const KXSearchPlan::Group &group) const
{
    Affected rows;
    const QHash<QString, Texts> first = followingFirstKeys(group);
    for (const KXRef<Object> &object : did.updated) {
        const auto changed = did.changedKeys.constFind(object.get());
        if (changed == did.changedKeys.constEnd() || !object->entity()->isKindOf(group.entity))
            continue;
        bool isConcerned = false;
        Texts texts = 0;
        for (const QString &key : *changed) {
            if (const auto concerned = first.constFind(key); concerned != first.constEnd()) {
                isConcerned = true;
                texts = texts && *concerned ? Texts(*texts | **concerned) : std::nullopt;
            }
        }
        if (isConcerned)
            rows.insert(object->objectID().key(), texts);
    }
    QSet<qint64> keys; // of the others
    for (const auto *list : { &did.inserted, &did.deleted }) {
        for (const KXRef<Object> &object : *list) {
            if (object->entity()->isKindOf(group.entity))
                keys.insert(object->objectID().key());
        }
    }
    const auto isAmong = [&first](const QString &key) { return first.contains(key); };
    for (const KXRef<Object> &object : did.refreshed) {
        const QSet<QString> changed = did.changedKeys.value(object.get());
        if (object->entity()->isKindOf(group.entity) && std::any_of(changed.begin(), changed.end(), isAmong))
            keys.insert(object->objectID().key());
    }
    static const std::vector<KXEntityChange> none;
    for (const KXEntityChange &change : did.merged ? did.merged->entities() : none) {
        if (!change.entity->isKindOf(group.entity))
            continue;
        keys.unite(QSet<qint64>(change.inserted.begin(), change.inserted.end()));
        keys.unite(QSet<qint64>(change.deleted.begin(), change.deleted.end()));
        for (const KXRowChange &row : change.updated) {
            if (std::any_of(row.properties.begin(), row.properties.end(),
                    [&](const KXPropertyChange &news) { return isAmong(news.property->name()); }))
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
    for (const qint64 key : std::as_const(keys))
        rows.insert(key, std::nullopt);
    return rows;
}

void KXSearchIndexPrivate::noteDue(size_t group, const Affected &rows)
{
    const bool isUnsaved = context->hasChanges();
    const KXMutexLocker lock(mutex);
    ++event;
    for (auto row = rows.cbegin(); row != rows.cend(); ++row) {
        Due &noted = due[group][row.key()];
        const bool wasRight = noted.event == 0 && saves.empty();
        noted = { event, isUnsaved, wasRight ? *row : std::nullopt };
    }
}

void KXSearchIndexPrivate::follow(const KXObjectsDidChange &did)
{
    bool isConcerned = false;
    for (size_t i = 0; i < plan.groups.size(); ++i) {
        const Affected rows = affected(did, plan.groups[i]);
        if (rows.isEmpty())
            continue;
        noteDue(i, rows);
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
            due[i].insert(key, { event, context->hasChanges(), {} });
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
    pauseCall.start(KXSearchPause, [this] { pause(); });
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
    for (size_t i = 0; i < plan.groups.size(); ++i) {
        Affected rows = affected(did, plan.groups[i]);
        std::fill(rows.begin(), rows.end(), std::nullopt); // what the index holds of them may be older than the edit
        noteDue(i, rows);
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
    if (context->hasChanges() || dueCount() <= KXSearchMostDue)
        settle(true);
    pauseCall.cancel();
    const double seconds = double(QDateTime::currentMSecsSinceEpoch() - lastBuildEnd) / 1000;
    const bool isMuch = changedCount() > followingMostChanged || dueCount() > 0;
    if (isMuch && !context->hasChanges() && seconds >= followingBuildShare * lastBuildSeconds)
        buildInBackground();
    else if (isMuch)
        pauseCall.start(KXSearchPause + followingBuildShare * lastBuildSeconds, [this] { pause(); });
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
        const KXError error = file->writeChanges(*changes);
        if (!error)
            return;
        keptNumber = -1; // to be tried again
        KXLogInfo(search, "The search index is not kept: %@", error);
    });
}
