#include <kestrixkit/counts/KXLiveCounts_p.h>

#include <algorithm>

#include <QMetaMethod>

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
    else if (entry.number >= 0)
        d->table.removeRule(entry.number);
    if (entry.number >= 0)
        d->numbered[size_t(entry.number)] = nullptr;
    d->entries.erase(found);
    d->scheduleUpdate();
}

void KXLiveCounts::setTag(const QString &identifier, qint64 tag)
{
    if (const auto found = d->entries.find(identifier); found != d->entries.end())
        found->second.tag = tag;
}

void KXLiveCounts::connectNotify(const QMetaMethod &signal)
{
    d->areIdentifiersTold |= signal == QMetaMethod::fromSignal(&KXLiveCounts::countsDidChange);
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
    d->tell(entry);
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
    d->tell(entry);
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
    if (const auto found = d->entries.find(identifier); found != d->entries.end())
        d->becomesDue(found->second);
}

std::optional<qint64> KXLiveCounts::count(const QString &identifier) const
{
    const auto found = d->entries.find(identifier);
    return found == d->entries.end() ? std::nullopt : d->countOf(found->second);
}

std::optional<qint64> KXLiveCountsPrivate::countOf(const Entry &entry) const
{
    if (entry.number < 0)
        return std::nullopt;
    if (isAway())
        return entry.shown;
    const qint64 count = table.count(entry.number);
    return count < 0 ? std::nullopt : std::optional(count);
}

KXPredicate KXLiveCounts::predicate(const QString &identifier) const
{
    const auto found = d->entries.find(identifier);
    if (found == d->entries.end())
        return {};
    if (found->second.isDue)
        d->ask(found->second);
    return found->second.own;
}

QHash<QString, QString> KXLiveCounts::unsupported() const
{
    d->settle();
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
        if (std::find(d->timed.begin(), d->timed.end(), entry) == d->timed.end())
            continue;
        if (d->isAway())
            d->becomesDue(*entry);
        else
            d->tell(*entry);
    }
    updateSoon();
}

QDateTime KXLiveCounts::nextBoundary() const
{
    d->settle();
    const qint64 next = d->nextBoundary();
    return next == std::numeric_limits<qint64>::max() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(next, Qt::UTC);
}

bool KXLiveCounts::update(KXError *error)
{
    d->settle();
    d->isScheduled = false;
    return d->count(error);
}

void KXLiveCounts::updateSoon()
{
    d->isScheduled = false;
    if (d->isAway())
        return;
    if (!d->tellDue(false))
        d->scheduleUpdate();
    else if (!d->sendAway())
        update();
}

bool KXLiveCounts::isCounting() const { return d->isAway() || d->isScheduled; }
void KXLiveCounts::setMostRowsAtOnce(qint64 rows) { d->mostRowsAtOnce = rows; }

double KXLiveCounts::bytesPerObject() const { return table().bytesPerRow(); }
quint64 KXLiveCounts::evaluations() const { return table().evaluations(); }

void KXLiveCounts::recount()
{
    d->bringHome();
    d->table.forgetCounts();
    update();
}
