// How rows that have changed since their group was read are read: from the context's objects, or from the store.

#include <kestrixkit/search/KXSearchIndex_p.h>

#include <algorithm>

#include <kestrixkit/foundation/KXLog.h>

using Object = KXManagedObject;

namespace {

/// So many rows are read at once when they change; more wait for a search or a pause.
constexpr size_t changesAtOnce = 64;
constexpr size_t changesPerRead = 1000;

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
    pauseCall.start(KXSearchPause, [this] { pause(); });
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
        if (count > 0 && (!isClean || count <= changesAtOnce))
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

void KXSearchIndexPrivate::takeAdditions(size_t group, QHash<qint64, Due> &events)
{
    const KXContextRows working(*context);
    events.removeIf([&](const auto &entry) {
        const qint64 key = entry.key();
        const Texts texts = entry.value().texts;
        const KXRef<Object> object(texts ? working.held(key) : nullptr);
        if (!object || object->isDeleted())
            return false;
        std::optional<KXSearchRowText> text = KXSearchReading::additionsTo(*object, plan.groups[group], *texts);
        if (!text)
            return false;
        const KXMutexLocker lock(mutex);
        KXSearchGroupState &state = states[group];
        const auto known = state.changed.constFind(key);
        auto changed = std::make_shared<KXSearchChangedRow>();
        if (known != state.changed.constEnd()) {
            if (*texts || !known.value()->isThere)
                return false;
            *changed = **known;
            changed->text.rank = std::move(text->rank);
        } else {
            changed->row = state.segment->rowOf(key);
            if (!changed->row)
                return false;
            changed->text = std::move(*text);
            changed->isAddition = true;
        }
        changed->event = entry.value().event;
        changed->rowsBefore = state.segment->rowsBefore(changed->text.rank, key);
        state.changed.insert(key, std::move(changed));
        due[group].remove(key);
        return true;
    });
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
        takeAdditions(i, events);
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
    if (!store || dueCount() > KXSearchMostDue)
        return false;
    KXError error;
    for (size_t i = 0; i < plan.groups.size() && !error; ++i) {
        while (!error) {
            stop.look();
            QHash<qint64, Due> events;
            {
                const KXMutexLocker lock(mutex);
                for (auto entry = due[i].cbegin(); entry != due[i].cend() && size_t(events.size()) < changesPerRead;
                     ++entry) {
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
