#include <kestrixkit/counts/KXLiveCounts.h>

#include <algorithm>
#include <unordered_map>

#include <QPointer>
#include <QSet>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/counts/KXCountWorker_p.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

using namespace Qt::StringLiterals;

namespace {

constexpr double liveCountsPause = 0.25; // seconds between two moments at least
/// All time zones change their offsets at such marks, and days begin there.
constexpr qint64 liveCountsQuarterHour = 15 * 60 * 1000;

}

class KXLiveCountsPrivate
{
public:
    /// A date in a predicate that moves along with the clock.
    struct MovingDate
    {
        QString keyPath;
        qint64 milliseconds;
    };
    struct Entry
    {
        KXLiveCounts::Rule rule;
        KXPredicate own;
        int number = -1; ///< in the table
        std::vector<MovingDate> moving;
        bool dependsOnTime = false;
        bool isCondition = false;
        bool isConstant = false; ///< the rule says the same at any moment
        bool isDue = false; ///< the table is away and is told afterwards
        std::optional<qint64> shown; ///< while the table is away
    };

    KXLiveCountsPrivate(KXLiveCounts *counts, KXManagedObjectContext::Ref managedObjectContext, const QString &name,
        QList<KXPredicate> predicates)
        : q(counts)
        , context(std::move(managedObjectContext))
        , entityName(name)
        , base(std::move(predicates))
        , table(*context, KXContextRows(*context).entity(name))
        , timer(counts)
        , worker(table, [this] { takeBack(); })
    {
    }

    [[nodiscard]] KXPredicate whole(const KXPredicate &own) const
    {
        if (base.isEmpty())
            return own ? own : KXPredicate::truePredicate();
        return KXPredicate::andPredicate(base + QList<KXPredicate> { own });
    }
    /// What the rule says at asOf.
    void ask(Entry &entry);
    void tellTable(Entry &entry);
    void setDependsOnTime(Entry &entry, bool depends);
    void setRule(const QString &identifier, KXLiveCounts::Rule rule, bool isConstant);
    void scheduleUpdate();
    void scheduleTimer();
    void publish();
    [[nodiscard]] qint64 nextBoundary();

    // The table on another thread.
    [[nodiscard]] bool isAway() const { return worker.isAway(); }
    bool sendAway();
    bool makeUp(KXError *error);
    void takeBack();
    /// Waits for the table, for what cannot do without.
    void bringHome();
    void follow(const KXObjectsDidChange &did);
    void updateDidEnd(bool answered, const KXError &problem);

    KXLiveCounts *const q;
    const KXManagedObjectContext::Ref context;
    const QString entityName;
    const QList<KXPredicate> base;
    KXCountTable table;
    std::unordered_map<QString, Entry> entries; // each stays where it is
    QHash<int, QString> identifiers; // by number in the table
    std::unordered_map<int, Entry> conditions; // by number in the table
    std::vector<Entry *> timed; // those of both that depend on the time: few, and looked at after every change
    qint64 asOf = KXClock::now().toMSecsSinceEpoch();
    KXDelayedCall timer;
    KXNotificationToken token;
    bool isScheduled = false;
    qint64 mostRowsAtOnce = 10'000;
    std::vector<KXObjectsDidChange> missed; // while the table was away
    std::vector<int> removed; // rules, meanwhile
    KXCountWorker worker;
};

namespace {

bool liveHasDates(const KXPredicate &predicate)
{
    const auto isDate = [](const QVariant &value) { return value.typeId() == QMetaType::QDateTime; };
    for (const KXExpression *side : { &predicate.leftExpression(), &predicate.rightExpression() }) {
        const QVariant &constant = side->constantValue();
        const QVariantList list
            = constant.typeId() == QMetaType::QVariantList ? constant.toList() : QVariantList { constant };
        if (std::any_of(list.begin(), list.end(), isDate))
            return true;
    }
    return std::any_of(predicate.subpredicates().begin(), predicate.subpredicates().end(), liveHasDates);
}

/// Dates that differ between a predicate and the one of a moment later by just that much.
void liveCollectMoving(const KXPredicate &now, const KXPredicate &later, qint64 difference,
    std::vector<KXLiveCountsPrivate::MovingDate> &moving)
{
    if (now.type() != KXPredicateType::Comparison) {
        for (qsizetype i = 0; i < std::min(now.subpredicates().size(), later.subpredicates().size()); ++i)
            liveCollectMoving(now.subpredicates()[i], later.subpredicates()[i], difference, moving);
        return;
    }
    if (later.type() != KXPredicateType::Comparison)
        return;
    const QVariant a = now.rightExpression().constantValue(), b = later.rightExpression().constantValue();
    if (a.typeId() == QMetaType::QDateTime && b.typeId() == QMetaType::QDateTime
        && a.toDateTime().msecsTo(b.toDateTime()) == difference)
        moving.push_back({ now.leftExpression().keyPath(), a.toDateTime().toMSecsSinceEpoch() });
}

}

void KXLiveCountsPrivate::ask(Entry &entry)
{
    const auto at = [&](qint64 milliseconds) {
        const KXClockMoment moment(QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC));
        return entry.rule();
    };
    entry.own = at(asOf);
    constexpr qint64 aMoment = 1;
    entry.moving.clear();
    setDependsOnTime(entry, !entry.isConstant && liveHasDates(entry.own)); // most do not, and are asked once
    if (entry.dependsOnTime)
        liveCollectMoving(entry.own, at(asOf + aMoment), aMoment, entry.moving);
    entry.isDue = isAway();
    if (!entry.isDue)
        tellTable(entry);
}

void KXLiveCountsPrivate::tellTable(Entry &entry)
{
    const KXPredicate asked = !entry.isCondition ? whole(entry.own)
        : entry.own                              ? entry.own
                                                 : KXPredicate::truePredicate();
    if (entry.number >= 0)
        table.replaceRule(entry.number, asked);
    else
        entry.number = entry.isCondition ? table.addCondition(asked) : table.addRule(asked);
}

void KXLiveCountsPrivate::setDependsOnTime(Entry &entry, bool depends)
{
    if (std::exchange(entry.dependsOnTime, depends) == depends)
        return;
    if (depends)
        timed.push_back(&entry);
    else
        std::erase(timed, &entry);
}

void KXLiveCountsPrivate::setRule(const QString &identifier, KXLiveCounts::Rule rule, bool isConstant)
{
    Entry &entry = entries[identifier];
    entry.rule = std::move(rule);
    entry.isConstant = isConstant;
    ask(entry);
    if (entry.number >= 0)
        identifiers.insert(entry.number, identifier);
    scheduleUpdate();
}

void KXLiveCountsPrivate::scheduleUpdate()
{
    if (std::exchange(isScheduled, true))
        return;
    KXMainQueue::async([guard = QPointer<KXLiveCounts>(q)] {
        if (guard)
            guard->updateSoon();
    });
}

// The table on another thread

/// Where there is much to do. What-if counts look at rows themselves, and would have to wait.
bool KXLiveCountsPrivate::sendAway()
{
    if (!KXMainQueue::isMainThread() || table.isWatched() || !table.hasMoreToDo(mostRowsAtOnce))
        return false;
    QSet<QString> ordered;
    for (auto &[identifier, entry] : entries) {
        entry.shown = q->count(identifier);
        for (const MovingDate &date : entry.moving)
            ordered.insert(date.keyPath);
    }
    worker.begin(ordered.values());
    return true;
}

/// The table is back: it is told what it missed. False with an error where the store did not answer it.
bool KXLiveCountsPrivate::makeUp(KXError *error)
{
    if (!worker.hasAnswered()) {
        table.forgetRows();
        KXSetError(error, worker.error());
    }
    for (const KXObjectsDidChange &did : std::exchange(missed, {}))
        table.follow(did);
    for (const int number : std::exchange(removed, {}))
        table.removeRule(number);
    for (auto &[identifier, entry] : entries) {
        if (!std::exchange(entry.isDue, false))
            continue;
        tellTable(entry);
        identifiers.insert(entry.number, identifier);
        scheduleUpdate();
    }
    return worker.hasAnswered();
}

void KXLiveCountsPrivate::takeBack()
{
    KXError problem;
    updateDidEnd(makeUp(&problem) && table.countByStore(&problem), problem);
}

void KXLiveCountsPrivate::bringHome()
{
    if (!isAway())
        return;
    worker.finish();
    if (KXError problem; !makeUp(&problem))
        KXLogError(filters, "Cannot count \"%@\": %@", entityName, problem);
    scheduleUpdate(); // which publishes
}

void KXLiveCountsPrivate::follow(const KXObjectsDidChange &did)
{
    if (isAway() || sendAway()) {
        missed.push_back(did);
        return;
    }
    table.follow(did);
    q->update();
}

void KXLiveCountsPrivate::updateDidEnd(bool answered, const KXError &problem)
{
    if (!answered)
        KXLogError(filters, "Cannot count \"%@\": %@", entityName, problem);
    scheduleTimer();
    const QPointer<KXLiveCounts> guard(q);
    publish();
    if (guard)
        Q_EMIT q->didUpdate();
}

qint64 KXLiveCountsPrivate::nextBoundary()
{
    qint64 next = std::numeric_limits<qint64>::max();
    for (const Entry *entry : timed) {
        next = std::min(next, (asOf / liveCountsQuarterHour + 1) * liveCountsQuarterHour);
        for (const MovingDate &date : entry->moving) {
            const qint64 number = table.nextNumber(date.keyPath, date.milliseconds * 1000);
            // An object with that very date may fit now and not a moment later.
            if (number != KXCountColumn::absent)
                next = std::min(next, std::max(asOf + 1, asOf + (number + 999) / 1000 - date.milliseconds));
        }
    }
    return next;
}

void KXLiveCountsPrivate::scheduleTimer()
{
    const qint64 next = nextBoundary();
    if (next == std::numeric_limits<qint64>::max()) {
        timer.cancel();
        return;
    }
    const double seconds = double(next - KXClock::now().toMSecsSinceEpoch()) / 1000;
    timer.start(std::max(liveCountsPause, seconds), [this] { q->advance(); });
}

void KXLiveCountsPrivate::publish()
{
    QStringList changed;
    for (const int number : table.takeChanged()) {
        if (const auto found = identifiers.constFind(number); found != identifiers.constEnd())
            changed.append(*found);
    }
    if (!changed.isEmpty())
        Q_EMIT q->countsDidChange(changed);
}

KXLiveCounts::KXLiveCounts(const KXManagedObjectContext::Ref &context, const QString &entityName,
    const QList<KXPredicate> &basePredicates, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<KXLiveCountsPrivate>(this, context, entityName, basePredicates))
{
    // What happened before is told before: it is read with the rest.
    context->processPendingChanges();
    d->token
        = KXManagedObjectContext::onChange(context.get(), [this](const KXObjectsDidChange &did) { d->follow(did); });
}

KXLiveCounts::~KXLiveCounts() = default;

const KXManagedObjectContext::Ref &KXLiveCounts::managedObjectContext() const { return d->context; }
const QString &KXLiveCounts::entityName() const { return d->entityName; }

void KXLiveCounts::setRule(const QString &identifier, Rule rule) { d->setRule(identifier, std::move(rule), false); }

void KXLiveCounts::setRule(const QString &identifier, const KXPredicate &predicate)
{
    d->setRule(
        identifier, [predicate] { return predicate; }, true);
}

void KXLiveCounts::removeRule(const QString &identifier)
{
    const auto found = d->entries.find(identifier);
    if (found == d->entries.end())
        return;
    KXLiveCountsPrivate::Entry &entry = found->second;
    d->setDependsOnTime(entry, false);
    if (d->isAway() && entry.number >= 0)
        d->removed.push_back(entry.number);
    else if (!d->isAway())
        d->table.removeRule(entry.number);
    d->identifiers.remove(entry.number);
    d->entries.erase(found);
    d->scheduleUpdate();
}

QStringList KXLiveCounts::identifiers() const
{
    QStringList identifiers;
    for (const auto &[identifier, entry] : d->entries)
        identifiers.append(identifier);
    return identifiers;
}

KXCountTable &KXLiveCounts::table() const
{
    d->bringHome();
    return d->table;
}
const QList<KXPredicate> &KXLiveCounts::basePredicates() const { return d->base; }

int KXLiveCounts::addCondition(Rule rule)
{
    d->bringHome();
    KXLiveCountsPrivate::Entry entry;
    entry.isCondition = true;
    entry.rule = std::move(rule);
    d->ask(entry);
    const bool dependsOnTime = entry.dependsOnTime;
    d->setDependsOnTime(entry, false); // it moves
    const int number = entry.number;
    KXLiveCountsPrivate::Entry &kept = d->conditions[number] = std::move(entry);
    d->setDependsOnTime(kept, dependsOnTime);
    d->scheduleUpdate();
    return number;
}

void KXLiveCounts::setCondition(int number, Rule rule)
{
    d->bringHome();
    KXLiveCountsPrivate::Entry &entry = d->conditions[number];
    entry.rule = std::move(rule);
    d->ask(entry);
    d->scheduleUpdate();
}

void KXLiveCounts::removeCondition(int number)
{
    d->bringHome();
    d->table.removeRule(number);
    if (const auto found = d->conditions.find(number); found != d->conditions.end()) {
        d->setDependsOnTime(found->second, false);
        d->conditions.erase(found);
    }
}

void KXLiveCounts::ruleDidChange(const QString &identifier)
{
    const auto found = d->entries.find(identifier);
    if (found == d->entries.end())
        return;
    d->ask(found->second);
    d->scheduleUpdate();
}

std::optional<qint64> KXLiveCounts::count(const QString &identifier) const
{
    const auto found = d->entries.find(identifier);
    if (found == d->entries.end())
        return std::nullopt;
    if (d->isAway())
        return found->second.shown;
    const qint64 count = d->table.count(found->second.number);
    return count < 0 ? std::nullopt : std::optional(count);
}

KXPredicate KXLiveCounts::predicate(const QString &identifier) const
{
    const auto found = d->entries.find(identifier);
    return found == d->entries.end() ? KXPredicate() : found->second.own;
}

QHash<QString, QString> KXLiveCounts::unsupported() const
{
    d->bringHome();
    QHash<QString, QString> reasons;
    for (const auto &[identifier, entry] : d->entries) {
        if (const QString &reason = d->table.reason(entry.number); !reason.isEmpty())
            reasons.insert(identifier, reason);
    }
    return reasons;
}

QDateTime KXLiveCounts::asOf() const { return QDateTime::fromMSecsSinceEpoch(d->asOf, Qt::UTC); }

void KXLiveCounts::advance()
{
    d->asOf = KXClock::now().toMSecsSinceEpoch();
    for (KXLiveCountsPrivate::Entry *entry : std::vector(d->timed)) {
        // Asking may take any of them out of the list.
        if (std::find(d->timed.begin(), d->timed.end(), entry) != d->timed.end())
            d->ask(*entry);
    }
    updateSoon();
}

QDateTime KXLiveCounts::nextBoundary() const
{
    d->bringHome();
    const qint64 next = d->nextBoundary();
    return next == std::numeric_limits<qint64>::max() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(next, Qt::UTC);
}

bool KXLiveCounts::update(KXError *error)
{
    d->bringHome();
    d->isScheduled = false;
    KXError problem;
    const bool answered = d->table.update(&problem);
    if (!answered)
        KXSetError(error, problem);
    d->updateDidEnd(answered, problem);
    return answered;
}

void KXLiveCounts::updateSoon()
{
    d->isScheduled = false;
    if (!d->isAway() && !d->sendAway())
        update();
}

bool KXLiveCounts::isCounting() const { return d->isAway(); }
void KXLiveCounts::setMostRowsAtOnce(qint64 rows) { d->mostRowsAtOnce = rows; }

double KXLiveCounts::bytesPerObject() const { return table().bytesPerRow(); }
quint64 KXLiveCounts::evaluations() const { return table().evaluations(); }

void KXLiveCounts::recount()
{
    d->bringHome();
    d->table.forgetCounts();
    update();
}
