// When and where live counts are counted: rules that depend on the time, and the table on another thread.

#include <kestrixkit/counts/KXLiveCounts_p.h>

#include <algorithm>

#include <QDeadlineTimer>
#include <QPointer>
#include <QSet>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>

namespace {

constexpr double liveCountsPause = 0.25; // seconds between two moments at least
/// All time zones change their offsets at such marks, and days begin there.
constexpr qint64 liveCountsQuarterHour = 15 * 60 * 1000;

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
}

void KXLiveCountsPrivate::tell(Entry &entry)
{
    ask(entry);
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
    const auto known = entries.try_emplace(identifier).first;
    Entry &entry = known->second;
    entry.identifier = &known->first;
    entry.rule = std::move(rule);
    entry.isConstant = isConstant;
    becomesDue(entry);
}

/// Of one that is counted; conditions are told at once.
void KXLiveCountsPrivate::becomesDue(Entry &entry)
{
    if (entry.identifier && !std::exchange(entry.isDue, true))
        due.push_back(*entry.identifier);
    scheduleUpdate();
}

bool KXLiveCountsPrivate::tellDue(bool atOnce)
{
    areManyDue |= due.size() > rulesAtOnce;
    const QDeadlineTimer until
        = atOnce || !areManyDue ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(slice);
    while (!due.empty() && !until.hasExpired()) {
        const QString identifier = std::move(due.front());
        due.pop_front();
        const auto found = entries.find(identifier);
        if (found == entries.end() || !std::exchange(found->second.isDue, false))
            continue;
        tell(found->second);
        const auto number = size_t(found->second.number);
        numbered.resize(std::max(numbered.size(), number + 1));
        numbered[number] = &found->second;
    }
    areManyDue &= !due.empty();
    return due.empty();
}

void KXLiveCountsPrivate::settle()
{
    bringHome();
    tellDue(true);
}

void KXLiveCountsPrivate::scheduleUpdate()
{
    if (std::exchange(isScheduled, true))
        return;
    const auto update = [this, turn = ++lastTurn] {
        if (isScheduled && turn == lastTurn)
            q->updateSoon();
    };
    if (KXMainQueue::isMainThread())
        KXMainQueue::async(q, update);
    else
        QMetaObject::invokeMethod(q, update, Qt::QueuedConnection); // where the thread has turns
}

// The table on another thread

/// Where there is much to do. What-if counts look at rows themselves, and would have to wait.
bool KXLiveCountsPrivate::sendAway()
{
    if (!KXMainQueue::isMainThread() || table.isWatched() || !table.hasMoreToDo(mostRowsAtOnce))
        return false;
    QSet<QString> ordered;
    for (auto &[identifier, entry] : entries) {
        entry.shown = countOf(entry);
        for (const MovingDate &date : entry.moving)
            ordered.insert(date.keyPath);
    }
    worker.begin(ordered.values());
    return true;
}

/// The table is back: it is told what it missed. False with an error where the store did not answer it.
bool KXLiveCountsPrivate::makeUp(KXError *error)
{
    bool answered = worker.hasAnswered();
    if (!answered) {
        table.forgetRows();
        KXSetError(error, worker.error());
    }
    for (const KXObjectsDidChange &did : std::exchange(missed, {}))
        table.follow(did);
    answered = answered && table.update(error); // what the store counts
    for (const int number : std::exchange(removed, {}))
        table.removeRule(number);
    if (!due.empty())
        scheduleUpdate();
    return answered;
}

void KXLiveCountsPrivate::takeBack()
{
    KXError problem;
    const bool answered = makeUp(&problem);
    updateDidEnd(answered, problem);
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
    if (!sendAway())
        count(nullptr); // rules that are due have a turn of their own
}

bool KXLiveCountsPrivate::count(KXError *error)
{
    KXError problem;
    const bool answered = table.update(&problem);
    if (!answered)
        KXSetError(error, problem);
    updateDidEnd(answered, problem);
    return answered;
}

void KXLiveCountsPrivate::updateDidEnd(bool answered, const KXError &problem)
{
    if (!answered)
        KXLogError(filters, "Cannot count \"%@\": %@", entityName, problem);
    scheduleTimer();
    const QPointer<KXLiveCounts> guard(q);
    publish();
    if (guard && due.empty())
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
    QList<KXTaggedCount> tagged;
    const std::vector<int> numbers = table.takeChanged();
    tagged.reserve(qsizetype(numbers.size()));
    for (const int number : numbers) {
        const Entry *const entry = size_t(number) < numbered.size() ? numbered[size_t(number)] : nullptr;
        if (entry && entry->tag)
            tagged.append({ *entry->tag, countOf(*entry) });
        if (entry && areIdentifiersTold)
            changed.append(*entry->identifier);
    }
    const QPointer<KXLiveCounts> guard(q);
    if (!tagged.isEmpty())
        Q_EMIT q->taggedCountsDidChange(tagged);
    if (guard && !changed.isEmpty())
        Q_EMIT q->countsDidChange(changed);
}
