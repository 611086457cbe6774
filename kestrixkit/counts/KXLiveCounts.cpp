#include <kestrixkit/counts/KXLiveCounts.h>

#include <algorithm>
#include <unordered_map>

#include <QPointer>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/counts/KXCountTable_p.h>
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
    };

    KXLiveCountsPrivate(KXLiveCounts *counts, KXManagedObjectContext::Ref managedObjectContext, const QString &name,
        QList<KXPredicate> predicates)
        : q(counts)
        , context(std::move(managedObjectContext))
        , entityName(name)
        , base(std::move(predicates))
        , table(*context, KXContextRows(*context).entity(name))
        , timer(counts)
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
    void setDependsOnTime(Entry &entry, bool depends);
    void scheduleUpdate();
    void scheduleTimer();
    void publish();
    [[nodiscard]] qint64 nextBoundary();

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
    setDependsOnTime(entry, liveHasDates(entry.own)); // most do not, and are asked once
    if (entry.dependsOnTime)
        liveCollectMoving(entry.own, at(asOf + aMoment), aMoment, entry.moving);
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

void KXLiveCountsPrivate::scheduleUpdate()
{
    if (std::exchange(isScheduled, true))
        return;
    KXMainQueue::async([guard = QPointer<KXLiveCounts>(q)] {
        if (guard)
            guard->update();
    });
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
    d->token = KXManagedObjectContext::onChange(context.get(), [this](const KXObjectsDidChange &did) {
        d->table.follow(did);
        update();
    });
}

KXLiveCounts::~KXLiveCounts() = default;

const KXManagedObjectContext::Ref &KXLiveCounts::managedObjectContext() const { return d->context; }
const QString &KXLiveCounts::entityName() const { return d->entityName; }

void KXLiveCounts::setRule(const QString &identifier, Rule rule)
{
    KXLiveCountsPrivate::Entry &entry = d->entries[identifier];
    entry.rule = std::move(rule);
    d->ask(entry);
    d->identifiers.insert(entry.number, identifier);
    d->scheduleUpdate();
}

void KXLiveCounts::setRule(const QString &identifier, const KXPredicate &predicate)
{
    setRule(identifier, [predicate] { return predicate; });
    d->setDependsOnTime(d->entries[identifier], false);
}

void KXLiveCounts::removeRule(const QString &identifier)
{
    const auto found = d->entries.find(identifier);
    if (found == d->entries.end())
        return;
    KXLiveCountsPrivate::Entry &entry = found->second;
    d->setDependsOnTime(entry, false);
    d->table.removeRule(entry.number);
    d->identifiers.remove(entry.number);
    d->entries.erase(found);
    d->scheduleUpdate();
}

QStringList KXLiveCounts::identifiers() const { return d->identifiers.values(); }

KXCountTable &KXLiveCounts::table() const { return d->table; }
const QList<KXPredicate> &KXLiveCounts::basePredicates() const { return d->base; }

int KXLiveCounts::addCondition(Rule rule)
{
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
    KXLiveCountsPrivate::Entry &entry = d->conditions[number];
    entry.rule = std::move(rule);
    d->ask(entry);
    d->scheduleUpdate();
}

void KXLiveCounts::removeCondition(int number)
{
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
    update();
}

QDateTime KXLiveCounts::nextBoundary() const
{
    const qint64 next = d->nextBoundary();
    return next == std::numeric_limits<qint64>::max() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(next, Qt::UTC);
}

bool KXLiveCounts::update(KXError *error)
{
    d->isScheduled = false;
    KXError problem;
    const bool answered = d->table.update(&problem);
    if (!answered) {
        KXLogError(filters, "Cannot count \"%@\": %@", d->entityName, problem);
        KXSetError(error, problem);
    }
    d->scheduleTimer();
    const QPointer<KXLiveCounts> guard(this);
    d->publish();
    if (guard)
        Q_EMIT didUpdate();
    return answered;
}

double KXLiveCounts::bytesPerObject() const { return d->table.bytesPerRow(); }
quint64 KXLiveCounts::evaluations() const { return d->table.evaluations(); }

void KXLiveCounts::recount()
{
    d->table.forgetCounts();
    update();
}
