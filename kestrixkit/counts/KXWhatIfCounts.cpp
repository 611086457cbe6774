#include <kestrixkit/counts/KXWhatIfCounts.h>

#include <algorithm>

#include <kestrixkit/counts/KXWhatIfCounts_p.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXMainQueue.h>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t whatIfMostParts = 0xFFF0; // their numbers have sixteen bits

bool whatIfAreEqual(const QVariant &a, const QVariant &b)
{
    return KXPredicateValue::isEqual(KXPredicateValue(a), KXPredicateValue(b));
}

bool whatIfAreSame(const KXWhatIfCounts::Facet &a, const KXWhatIfCounts::Facet &b)
{
    return a.keyPath == b.keyPath && a.modifier == b.modifier && a.takesPart == b.takesPart && !a.condition
        && !b.condition
        && std::equal(a.choices.begin(), a.choices.end(), b.choices.begin(), b.choices.end(),
            [](const auto &one, const auto &other) {
                return one.comparisonOperator == other.comparisonOperator
                    && KXConstantsAreEqual(one.value, other.value);
            });
}

}

// Facets

KXPredicate KXWhatIfCounts::Facet::predicate() const
{
    if (!takesPart)
        return {};
    if (condition)
        return condition();
    QList<KXPredicate> included, excluded, parts;
    for (const Choice &choice : choices) {
        (choice.comparisonOperator == KXPredicateOperator::NotEqual ? excluded : included)
            .append(KXPredicate::comparison(keyPath, choice.comparisonOperator, choice.value, modifier));
    }
    if (!included.isEmpty())
        parts.append(KXPredicate::orPredicate(included));
    if (!excluded.isEmpty())
        parts.append(KXPredicate::orPredicate(excluded));
    return parts.isEmpty() ? KXPredicate() : KXPredicate::andPredicate(parts);
}

KXPredicate KXWhatIfCounts::Facet::predicateWithValue(
    const QVariant &value, KXPredicateOperator comparisonOperator) const
{
    Facet facet = *this;
    if (condition) {
        facet.condition = {};
        return KXPredicate::andPredicate({ predicate(), facet.predicateWithValue(value, comparisonOperator) });
    }
    facet.choices.removeIf([&value](const Choice &choice) { return whatIfAreEqual(choice.value, value); });
    facet.choices.append({ value, comparisonOperator });
    return facet.predicate();
}

using WhatIfPart = KXWhatIfCountsPrivate::Part;

// What is asked

void KXWhatIfCountsPrivate::setRule(WhatIfPart &part, KXLiveCounts::Rule rule)
{
    if (part.rule >= 0)
        counts->setCondition(part.rule, std::move(rule));
    else
        part.rule = addCondition(std::move(rule));
}

/// Finds out how the facet can be counted.
void KXWhatIfCountsPrivate::prepare(WhatIfPart &part)
{
    const KXWhatIfCounts::Facet &facet = part.facet;
    const bool needsRule = facet.condition || !KXFacetCounts::canHold(facet.choices);
    if (!part.counts) {
        if (const auto place = table().place(facet.keyPath)) {
            part.counts = std::make_unique<KXFacetCounts>(*place, facet.modifier);
            part.isRead = false;
        }
        needsAll = true;
    }
    if (needsRule || !part.counts) {
        needsAll = needsAll || part.rule < 0;
        setRule(part, [facet] { return facet.predicate(); });
    } else if (part.rule >= 0) {
        removeCondition(part.rule);
        part.rule = -1;
        needsAll = true;
    }
    part.isChanged = true;
}

void KXWhatIfCountsPrivate::scheduleUpdate()
{
    if (std::exchange(isScheduled, true))
        return;
    const auto update = [this] { q->update(); };
    if (KXMainQueue::isMainThread())
        KXMainQueue::async(q, update);
    else
        QMetaObject::invokeMethod(q, update, Qt::QueuedConnection); // where the thread has turns
}

bool KXWhatIfCountsPrivate::isByStore()
{
    return std::any_of(parts.begin(), parts.end(),
        [this](const WhatIfPart &part) { return part.rule >= 0 && !table().reason(part.rule).isEmpty(); });
}

// Predicates

/// The search with another predicate for one of its parts.
KXPredicate KXWhatIfCountsPrivate::predicateWith(const WhatIfPart *changed, const KXPredicate &predicate) const
{
    if (!counts)
        return {};
    const KXClockMoment moment(counts->asOf());
    QList<KXPredicate> all = base();
    all.append(condition ? condition() : KXPredicate());
    for (const WhatIfPart &part : parts)
        all.append(&part == changed ? predicate : part.facet.predicate());
    return KXPredicate::andPredicate(all);
}

/// Absent where the store refuses the predicate, or does not answer.
std::optional<qint64> KXWhatIfCountsPrivate::countOf(const KXPredicate &predicate) const
{
    const QString text = predicate.predicateFormat();
    auto found = known.constFind(text);
    if (found == known.constEnd()) {
        KXError error; // rather than an exception
        found = known.insert(
            text, counts->managedObjectContext()->count(KXFetchRequest(counts->entityName(), predicate), &error));
    }
    return *found < 0 ? std::nullopt : std::optional(*found);
}

std::optional<KXWhatIfCounts::ValueCounts> KXWhatIfCountsPrivate::valueCounts(WhatIfPart &part, const QVariant &value)
{
    if (!countsByStore && part.rule < 0 && part.counts)
        return part.counts->valueCounts(value, total);
    const auto counted = [&](KXPredicateOperator comparisonOperator) {
        return countOf(predicateWith(&part, part.facet.predicateWithValue(value, comparisonOperator)));
    };
    const auto added = counted(KXPredicateOperator::Equal), excluded = counted(KXPredicateOperator::NotEqual);
    if (!added || !excluded)
        return std::nullopt;
    return KXWhatIfCounts::ValueCounts { *added, *excluded };
}

// The public face

KXWhatIfCounts::KXWhatIfCounts(KXLiveCounts &counts, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<KXWhatIfCountsPrivate>(this, counts))
{
    connect(&counts, &KXLiveCounts::didUpdate, this, [this] { d->settle(); });
    d->scheduleUpdate();
}

KXWhatIfCounts::~KXWhatIfCounts()
{
    if (!d->counts)
        return;
    d->table().removeWatcher(d.get());
    for (const WhatIfPart &part : d->parts) {
        if (part.rule >= 0)
            d->removeCondition(part.rule);
    }
}

KXLiveCounts &KXWhatIfCounts::liveCounts() const { return *d->counts; }

void KXWhatIfCounts::setCondition(KXLiveCounts::Rule condition)
{
    if (!d->counts)
        return;
    d->condition = std::move(condition);
    d->needsAll = d->needsAll || d->rest().rule < 0;
    d->setRule(d->rest(), [base = d->base(), own = d->condition] {
        return KXPredicate::andPredicate(base + QList<KXPredicate> { own ? own() : KXPredicate() });
    });
    d->scheduleUpdate();
}

void KXWhatIfCounts::setCondition(const KXPredicate &condition)
{
    setCondition([condition] { return condition; });
}

void KXWhatIfCounts::setFacet(const QString &identifier, const Facet &facet)
{
    if (!d->counts)
        return;
    WhatIfPart *part = d->find(identifier);
    if (part && whatIfAreSame(part->facet, facet)) {
        part->facet.values = facet.values;
        return;
    }
    if (!part) {
        if (d->parts.size() >= whatIfMostParts)
            throw KXException(u"KXTooManyFacets"_s, u"What-if counts have room for 65,000 facets"_s);
        part = &*d->parts.insert(d->parts.end() - 1, WhatIfPart {});
        part->identifier = identifier;
        d->needsAll = true;
    } else if (part->facet.keyPath != facet.keyPath || part->facet.modifier != facet.modifier) {
        part->counts.reset();
        d->needsAll = true;
    }
    part->facet = facet;
    d->prepare(*part);
    d->scheduleUpdate();
}

void KXWhatIfCounts::removeFacet(const QString &identifier)
{
    WhatIfPart *part = d->find(identifier);
    if (!part || !d->counts)
        return;
    if (part->rule >= 0)
        d->removeCondition(part->rule);
    d->parts.erase(d->parts.begin() + (part - d->parts.data()));
    d->needsAll = true;
    d->scheduleUpdate();
}

QStringList KXWhatIfCounts::identifiers() const
{
    QStringList identifiers;
    for (size_t i = 0; i + 1 < d->parts.size(); ++i)
        identifiers.append(d->parts[i].identifier);
    return identifiers;
}

KXWhatIfCounts::Facet KXWhatIfCounts::facet(const QString &identifier) const
{
    const WhatIfPart *part = d->find(identifier);
    return part ? part->facet : Facet();
}

std::optional<qint64> KXWhatIfCounts::count() const
{
    if (!d->isReady || !d->counts)
        return std::nullopt;
    return d->countsByStore ? d->countOf(predicate()) : d->total;
}

QList<KXWhatIfCounts::ValueCounts> KXWhatIfCounts::valueCounts(const QString &identifier) const
{
    QList<ValueCounts> counts;
    WhatIfPart *part = d->find(identifier);
    if (!part || !d->isReady || !d->counts)
        return counts;
    counts.reserve(part->facet.values.size());
    for (const QVariant &value : std::as_const(part->facet.values)) {
        const auto counted = d->valueCounts(*part, value);
        if (!counted)
            return {};
        counts.append(*counted);
    }
    return counts;
}

std::optional<KXWhatIfCounts::ValueCounts> KXWhatIfCounts::valueCounts(
    const QString &identifier, const QVariant &value) const
{
    WhatIfPart *part = d->find(identifier);
    if (!part || !d->isReady || !d->counts)
        return std::nullopt;
    return d->valueCounts(*part, value);
}

QList<KXWhatIfCounts::NumberCount> KXWhatIfCounts::distribution(const QString &identifier) const
{
    const WhatIfPart *part = d->find(identifier);
    return part && part->counts && d->isReady && !d->countsByStore && d->counts ? part->counts->distribution()
                                                                                : QList<NumberCount>();
}

KXPredicate KXWhatIfCounts::predicateWithValue(
    const QString &identifier, const QVariant &value, KXPredicateOperator comparisonOperator) const
{
    const WhatIfPart *part = d->find(identifier);
    return part ? d->predicateWith(part, part->facet.predicateWithValue(value, comparisonOperator)) : predicate();
}

KXPredicate KXWhatIfCounts::predicate() const { return d->predicateWith(nullptr, {}); }

bool KXWhatIfCounts::update(KXError *error) { return d->counts && d->counts->update(error); }

void KXWhatIfCounts::recount()
{
    d->needsAll = true;
    d->settle();
}
