#include <kestrixkit/search/KXSearchIndex.h>

#include <algorithm>

#include <QRegularExpression>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/search/KXSearchIndex_p.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXStoreFiles_p.h>

using namespace Qt::StringLiterals;

KXSearchIndexPrivate::KXSearchIndexPrivate(KXSearchIndex *index, KXManagedObjectContext::Ref managedObjectContext,
    QList<KXSearchGroup> searchGroups, const QString &name)
    : q(index)
    , context(std::move(managedObjectContext))
    , groups(std::move(searchGroups))
    , plan(context->persistentStoreCoordinator()->model()
              ? KXSearchPlan(*context->persistentStoreCoordinator()->model(), groups)
              : KXSearchPlan()) // of a store that could not be opened: nothing is ever found
    , store(KXContextRows(*context).store())
    , states(plan.groups.size())
    , due(plan.groups.size())
    , memories(plan.groups.size())
{
    static const QRegularExpression allowed(u"^[A-Za-z0-9_]{0,64}$"_s);
    if (!allowed.match(name).hasMatch())
        throw KXException(
            QString(KXInvalidArgumentException), KXStringWithFormat("\"%@\" cannot be part of a file's name", name));
    if (const KXPersistentStore *open = store ? context->persistentStoreCoordinator()->store() : nullptr;
        open && !name.isEmpty())
        file = std::make_unique<const KXSearchFile>(
            KXStoreFiles::realPath(open->URL().toLocalFile()), name, open->identifier(), plan.fingerprint);
    builder.setMaxConcurrentOperationCount(1);
    builder.setName(u"kx-search-build"_s);
    searcher.setMaxConcurrentOperationCount(1);
    searcher.setName(u"kx-search"_s);
}

// Searching

KXSearchResults KXSearchIndexPrivate::find(const QString &term, qsizetype limit, const KXSearchStop &stop)
{
    const std::vector<QByteArray> words = KXTextWords::ofTerm(term);
    const std::shared_ptr<const KXStoreIdentity> &identity = context->persistentStoreCoordinator()->store()->identity();
    KXSearchResults results { term, {}, true };
    std::vector<KXSearchGroupState> current;
    {
        const KXMutexLocker lock(mutex);
        current = states;
        results.isCurrent = std::all_of(due.begin(), due.end(), [](const auto &keys) { return keys.isEmpty(); });
    }
    const KXMutexLocker lock(searching);
    for (size_t i = 0; i < current.size(); ++i) {
        stop.look();
        const KXSearchFound found
            = KXSearchFind(current[i], words, size_t(std::max<qsizetype>(0, limit)), memories[i], stop);
        KXSearchResults::Group group { plan.groups[i].name, found.count, {} };
        group.first.reserve(qsizetype(found.first.size()));
        for (const qint64 key : found.first)
            group.first.append(KXManagedObjectID(identity, plan.groups[i].entity, key));
        results.groups.append(std::move(group));
    }
    return results;
}

void KXSearchIndexPrivate::startSearch()
{
    wanted.isWaiting = false;
    settle(false);
    searcher.addBlock([this, search = wanted] {
        const KXSearchStop stop(searchNumber, search.number);
        auto results = std::make_shared<KXSearchResults>();
        bool isDamaged = false;
        try {
            stop.look();
            readDue(stop);
            *results = find(search.term, search.limit, stop);
        } catch (const KXSearchStop::Stopped &) {
            return;
        } catch (const KXSearchDamage &) {
            isDamaged = true;
        }
        QMetaObject::invokeMethod(q, [this, results = std::move(results), isDamaged, number = search.number] {
            if (isDamaged && isOpen)
                damaged();
            if (number != searchNumber)
                return;
            if (isDamaged) {
                wanted.isWaiting = true;
                buildInBackground();
                return;
            }
            const auto receiver = std::exchange(wanted.receiver, {});
            if (receiver)
                receiver(*results);
        });
    });
}

// Conditions

KXPredicate KXSearchGroup::predicate(const QString &term) const
{
    QList<KXPredicate> words;
    for (const QByteArray &word : KXTextWords::ofTerm(term)) {
        QList<KXPredicate> places;
        for (const QString &text : texts)
            places.append(KXPredicate::comparison(
                text, KXPredicateOperator::BeginsWord, QString::fromUtf8(word), KXPredicateModifier::Any));
        words.append(KXPredicate::orPredicate(places));
    }
    return words.isEmpty() ? KXPredicate() : KXPredicate::andPredicate(words);
}

// The index

KXSearchIndex::KXSearchIndex(const KXManagedObjectContext::Ref &context, const QList<KXSearchGroup> &groups,
    const QString &name, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<KXSearchIndexPrivate>(this, context, groups, name))
{
    // What happened before is told before: it is read with the rest.
    context->processPendingChanges();
    KXNotificationCenter &center = KXNotificationCenter::defaultCenter();
    d->didChangeToken = center.addObserver(QString(KXManagedObjectContextObjectsDidChangeNotification), context.get(),
        [this](const KXNotification &notification) {
            if (const auto *did = notification.payloadAs<KXObjectsDidChange>())
                d->follow(*did);
        });
    d->didSaveToken = center.addObserver(
        QString(KXManagedObjectContextDidSaveNotification), context.get(), [this](const KXNotification &notification) {
            if (const auto *change = notification.payloadAs<std::shared_ptr<const KXStoreChange>>(); change && *change)
                d->followOwnSave(**change);
        });
    d->changeToken = context->persistentStoreCoordinator()->addChangeObserver(
        [this](const std::shared_ptr<const KXStoreChange> &change) { d->noteSave(*change); });
}

KXSearchIndex::~KXSearchIndex()
{
    ++d->searchNumber;
    ++d->buildNumber;
    d->changeToken.reset();
    d->builder.waitUntilAllOperationsAreFinished();
    d->searcher.waitUntilAllOperationsAreFinished();
    keep();
}

const KXManagedObjectContext::Ref &KXSearchIndex::managedObjectContext() const { return d->context; }
const QList<KXSearchGroup> &KXSearchIndex::groups() const { return d->groups; }
bool KXSearchIndex::isOpen() const { return d->isOpen; }

bool KXSearchIndex::open(KXError *error)
{
    if (d->isOpen)
        return true;
    if (d->openFile()) {
        d->noteUnsaved();
        d->settle(false);
        Q_EMIT didOpen();
        return true;
    }
    KXSearchIndexPrivate::Built built;
    built.event = d->eventInStore();
    if (const KXError problem = d->build(built, {}))
        return KXSetError(error, problem);
    d->install(std::move(built));
    return true;
}

void KXSearchIndex::openInBackground()
{
    if (d->isOpen || d->isBuilding)
        return;
    if (!d->openFile()) {
        d->buildInBackground();
        return;
    }
    d->noteUnsaved();
    d->settle(false);
    Q_EMIT didOpen();
}

KXSearchResults KXSearchIndex::results(const QString &term, qsizetype limit, KXError *error)
{
    for (int attempt = 0; open(error); ++attempt) {
        try {
            d->settle(true);
            if (!d->isOpen)
                throw KXSearchDamage {};
            return d->find(term, limit, {});
        } catch (const KXSearchDamage &) {
            if (d->isOpen)
                d->damaged();
            if (attempt > 0)
                break;
            KXSearchIndexPrivate::Built built;
            built.event = d->eventInStore();
            if (const KXError problem = d->build(built, {})) {
                KXSetError(error, problem);
                break;
            }
            d->install(std::move(built));
        }
    }
    return { term, {}, false };
}

void KXSearchIndex::search(const QString &term, qsizetype limit, std::function<void(const KXSearchResults &)> receiver)
{
    d->wanted = { term, limit, std::move(receiver), ++d->searchNumber, true };
    openInBackground();
    if (d->isOpen)
        d->startSearch();
}

void KXSearchIndex::stop()
{
    ++d->searchNumber;
    d->wanted = {};
}

bool KXSearchIndex::update()
{
    if (!d->isOpen || !d->store)
        return false;
    d->advance();
    const qint64 number = KXRowReader::changeNumberAfterSaves(*d->store); // whoever saves has told of it by then
    d->context->persistentStoreCoordinator()->deliverChanges();
    bool isNews;
    {
        const KXMutexLocker lock(d->mutex);
        isNews = number != (d->saves.empty() ? d->knownNumber : d->saves.back().after);
    }
    if (isNews)
        fold();
    return isNews;
}

void KXSearchIndex::fold() { d->buildInBackground(); }

bool KXSearchIndex::keep(KXError *error)
{
    d->builder.waitUntilAllOperationsAreFinished();
    const std::optional<KXSearchFile::Changes> changes = d->changesToKeep();
    if (!changes)
        return KXSetError(error,
            KXError(
                KXKestrixKitErrorDomain, KXStoreErrorCode::Other, u"Not all that was saved is in the search index"_s));
    if (changes->changeNumber == d->keptNumber || changes->changeNumber == d->indexNumber)
        return true;
    if (const KXError problem = d->file->writeChanges(*changes))
        return KXSetError(error, problem);
    d->keptNumber = changes->changeNumber;
    return true;
}

KXSearchIndex::Figures KXSearchIndex::figures() const
{
    Figures figures;
    const KXMutexLocker lock(d->mutex);
    for (const KXSearchGroupState &state : d->states) {
        figures.changedRows += state.changed.size();
        if (!state.segment)
            continue;
        figures.bytes += state.segment->size();
        figures.rows += state.segment->rows();
        figures.isMapped = figures.isMapped || state.segment->isMapped();
    }
    return figures;
}
