// How a search index is opened from its file or made anew, and what follows when it is damaged.

#include <kestrixkit/search/KXSearchIndex_p.h>

#include <QDateTime>
#include <QElapsedTimer>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXPersistentStore.h>

bool KXSearchIndexPrivate::openFile()
{
    std::optional<KXSearchFile::Index> found = file && store ? file->read() : std::nullopt;
    if (!found || found->segments.size() != plan.groups.size())
        return false;
    qint64 number = 0;
    if (KXRowReader reader(store); reader)
        number = reader.changeNumber();
    if (number == 0)
        return false;
    std::optional<KXSearchFile::Changes> changes;
    if (found->changeNumber != number) {
        changes = file->readChanges();
        if (!changes || changes->indexNumber != found->changeNumber || changes->changeNumber != number
            || changes->keys.size() != plan.groups.size())
            return false;
    }
    try {
        become(found->changeNumber, std::move(found->segments), 0);
    } catch (const KXSearchDamage &) {
        return false;
    }
    fileNumber = indexNumber;
    if (changes) {
        knownNumber = keptNumber = number;
        for (size_t i = 0; i < plan.groups.size(); ++i) {
            Affected rows;
            for (const qint64 key : changes->keys[i])
                rows.insert(key, std::nullopt);
            noteDue(i, rows);
        }
    }
    return true;
}

/// The groups are from now on what was read; what was noted before the event is in it. Throws KXSearchDamage and has
/// then changed nothing.
void KXSearchIndexPrivate::become(
    qint64 changeNumber, std::vector<std::shared_ptr<const KXSearchSegment>> segments, quint64 upTo)
{
    {
        const KXMutexLocker lock(mutex);
        std::vector<KXSearchGroupState> fresh(segments.size());
        for (size_t i = 0; i < segments.size(); ++i) {
            fresh[i].segment = std::move(segments[i]);
            for (auto entry = states[i].changed.cbegin(); entry != states[i].changed.cend(); ++entry) {
                if (entry.value()->event <= upTo)
                    continue;
                if (entry.value()->isAddition) { // to a row that may be another now
                    if (!due[i].contains(entry.key()))
                        due[i].insert(entry.key(), { entry.value()->event, context->hasChanges(), {} });
                    continue;
                }
                auto changed = std::make_shared<KXSearchChangedRow>(*entry.value());
                changed->row = fresh[i].segment->rowOf(entry.key());
                if (changed->isThere)
                    changed->rowsBefore = fresh[i].segment->rowsBefore(changed->text.rank, entry.key());
                fresh[i].changed.insert(entry.key(), std::move(changed));
            }
        }
        states = std::move(fresh);
        for (QHash<qint64, Due> &keys : due) {
            keys.removeIf([upTo](const auto &entry) { return entry.value().event <= upTo; });
            for (Due &row : keys)
                row.texts.reset();
        }
        isOpen = true;
        ++installs;
        indexNumber = changeNumber;
        knownNumber = std::max(knownNumber, changeNumber);
    }
    advance();
}

KXError KXSearchIndexPrivate::build(Built &built, const KXSearchStop &stop)
{
    KXError error;
    KXRowReader reader(store, &error); // one state of the store for all groups, and its number
    if (!reader)
        return error;
    built.changeNumber = reader.changeNumber();
    for (const KXSearchPlan::Group &group : plan.groups) {
        KXSearchBuilder segment;
        KXSearchReading reading(reader, group);
        if ((error = reading.readAll(segment, stop)))
            return error;
        if (segment.isTooLarge())
            return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Other,
                KXStringWithFormat("\"%@\" has more texts than a search index can hold", group.name));
        QByteArray bytes = segment.finish(stop);
        built.bytes.push_back(bytes);
        built.segments.push_back(
            std::make_shared<const KXSearchSegment>(std::make_shared<const KXSearchBytes>(bytes), 0, bytes.size()));
    }
    return {};
}

quint64 KXSearchIndexPrivate::eventInStore()
{
    const bool isClean = !context->hasChanges();
    const KXMutexLocker lock(mutex);
    return isClean ? event : cleanEvent;
}

/// On the index's own thread.
void KXSearchIndexPrivate::install(Built built)
{
    const bool wasOpen = isOpen;
    become(built.changeNumber, std::move(built.segments), built.event);
    if (!wasOpen)
        noteUnsaved();
    settle(false);
    if (file && built.changeNumber != 0) {
        builder.addBlock([this, number = built.changeNumber, bytes = std::move(built.bytes)] {
            file->removeAbandoned();
            const KXError error = file->write(number, bytes);
            if (error)
                KXLogInfo(search, "The search index is not kept: %@", error);
            else
                fileNumber = number;
        });
    }
    if (!wasOpen)
        Q_EMIT q->didOpen();
    else
        Q_EMIT q->didFold();
}

void KXSearchIndexPrivate::buildInBackground()
{
    if (isBuilding) {
        buildAgain = true;
        return;
    }
    isBuilding = true;
    auto built = std::make_shared<Built>();
    built->event = eventInStore();
    built->installs = installs;
    builder.addBlock([this, built, stop = KXSearchStop(buildNumber, buildNumber.load())]() mutable {
        KXError error;
        QElapsedTimer timer;
        timer.start();
        try {
            error = build(*built, stop);
        } catch (const KXSearchStop::Stopped &) {
            return; // nobody is there any more
        }
        if (error)
            KXLogError(search, "Cannot read what is to be searched: %@", error);
        const double seconds = double(timer.elapsed()) / 1000;
        QMetaObject::invokeMethod(q, [this, built = std::move(built), seconds, failed = bool(error)] {
            isBuilding = false;
            lastBuildSeconds = seconds;
            lastBuildEnd = QDateTime::currentMSecsSinceEpoch();
            if (!failed && built->installs == installs)
                install(std::move(*built));
            if (std::exchange(buildAgain, false) && !failed)
                buildInBackground();
            if (!wanted.isWaiting)
                return;
            if (isOpen) {
                startSearch();
            } else if (failed) {
                const Search search = std::exchange(wanted, {});
                if (search.receiver)
                    search.receiver({ search.term, {}, false });
            }
        });
    });
}

/// What lay in the file was not what was written.
void KXSearchIndexPrivate::damaged()
{
    KXLogWarning(search, "The search index of %@ is damaged and made anew",
        context->persistentStoreCoordinator()->store()->URL().toString());
    isOpen = false;
    fileNumber = -1;
    knownNumber = 0;
}
