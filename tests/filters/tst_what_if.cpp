// What-if counts of filter sets against a copy of the set with the value really put in.

#include <gtest/gtest.h>

#include <kestrixkit/filters/KXFilterSetWhatIfCounts.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "filters/Shelf.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

const QVariantList keyValues { u"Am"_s, u"C"_s, u"F"_s, QVariant(), u""_s };
const QVariantList tagValues { u"loud"_s, u"long"_s, u"live"_s, u"none"_s };
const QVariantList bpmValues { 120, 121.5, 122, 125, QVariant() };

class WhatIfShelf : public Shelf
{
public:
    explicit WhatIfShelf(KXTestRandom &randomNumbers)
        : random(randomNumbers)
    {
        context->setUndoManager(std::make_shared<KXUndoManager>());
        for (const auto *name : { "loud", "long", "live" })
            make<Mark>()->setName(QString::fromLatin1(name));
        for (int i = 0; i < 60; ++i)
            change(*make<Thing>());
        EXPECT_TRUE(context->save());
    }

    template <class Class> KXRef<Class> any()
    {
        const KXFetchedList list = context->fetch(KXFetchRequest(QString(Class::entityName)));
        return list.isEmpty() ? KXRef<Class>() : list.as<Class>(random.below(int(list.size())));
    }

    void change(Thing &thing)
    {
        thing.setBpm(random.chance(0.1) ? std::optional<double>() : 119 + random.below(14) * 0.5);
        thing.setAdded(KXClock::now().addDays(-random.below(40)));
        const QVariant key = random.oneOf(keyValues);
        thing.setKey(key.isValid() ? std::optional(key.toString()) : std::nullopt);
        if (const auto mark = any<Mark>())
            random.chance(0.6) ? thing.addToTags(mark) : thing.removeFromTags(mark);
    }

    KXRef<KXFacetFilterValue> value(const QVariant &of, KXPredicateOperator comparisonOperator)
    {
        const auto value = make<KXFacetFilterValue>();
        value->setValue(of);
        value->setOperatorType(comparisonOperator);
        value->setEnabled(true);
        return value;
    }

    KXRef<KXFilter> filter()
    {
        KXRef<KXFilter> filter;
        const int kind = random.below(6);
        if (kind == 0) {
            filter = range(QString::number(119 + random.below(4)), QString::number(121 + random.below(6)));
        } else if (kind == 1) {
            const auto date = make<KXDateFilter>();
            date->setLocalValuePredicateKeyPath(u"added"_s);
            date->setRange(KXDateRange(random.below(6)));
            filter = date;
        } else {
            const auto facet = make<KXFacetFilter>();
            const bool isTags = kind == 2 || kind == 3;
            facet->setLocalValuePredicateKeyPath(isTags ? u"tags.name"_s : kind == 4 ? u"key"_s : u"bpm"_s);
            facet->setLocalValuePredicateModifier(KXPredicateModifier(isTags ? random.below(3) : 0));
            for (int i = random.below(4); i > 0; --i) {
                const auto chosen = value(random.oneOf(isTags ? tagValues
                                                  : kind == 4 ? keyValues
                                                              : bpmValues),
                    random.chance(0.6) ? KXPredicateOperator::Equal : KXPredicateOperator::NotEqual);
                chosen->setEnabled(random.chance(0.85));
                facet->addToValues(chosen);
            }
            filter = facet;
        }
        filter->setEnabled(random.chance(0.85));
        filter->setPosition(random.below(4));
        return filter;
    }

    KXRef<KXFilterSet> randomSet()
    {
        QList<KXRef<KXFilter>> filters;
        for (int i = random.below(5); i > 0; --i)
            filters.append(filter());
        return set(filters);
    }

    /// The list's count when the value is put into a copy of the set.
    qint64 countWith(const KXFilterSet &original, const QString &keyPath, KXPredicateModifier modifier,
        const QVariant &of, KXPredicateOperator comparisonOperator)
    {
        const auto scratch = KXManagedObjectContext::contextWithParentContext(context);
        // A copied set would have its own order among equal positions, so only the filter to change is copied.
        QList<KXPredicate> parts;
        KXRef<KXFacetFilter> changed;
        for (const KXRef<KXFilter> &filter : original.sortedFilters()) {
            const auto facet = KXFacetFilter::cast(KXRef<KXManagedObject>(filter));
            if (!changed && facet && facet->localValuePredicateKeyPath() == keyPath) {
                changed = KXFacetFilter::cast(KXRef<KXManagedObject>(facet->duplicateInContext(*scratch)));
                continue;
            }
            if (filter->enabled())
                parts.append(filter->representedLocalPredicateWithKeyPath());
        }
        if (!changed) {
            changed = KXFacetFilter::createInContext(*scratch);
            changed->setLocalValuePredicateKeyPath(keyPath);
            changed->setLocalValuePredicateModifier(modifier);
            changed->setEnabled(true);
        }
        for (const KXRef<KXFacetFilterValue> &value : changed->values()) {
            if (value->value() == of && value->value().isValid() == of.isValid())
                scratch->removeManagedObject(value);
        }
        const auto put = KXFacetFilterValue::createInContext(*scratch);
        put->setValue(of);
        put->setOperatorType(comparisonOperator);
        put->setEnabled(true);
        changed->addToValues(put);
        if (changed->enabled())
            parts.append(changed->representedLocalPredicateWithKeyPath());
        return Thing::countOfUsingPredicate(KXPredicate::andPredicate(parts), *context);
    }

    void expectEqual(const KXFilterSetWhatIfCounts &counts, const KXFilterSet &set)
    {
        ASSERT_EQ(counts.count(), Thing::countOfUsingPredicate(set.representedLocalPredicateWithKeyPath(), *context));
        const auto look = [&](const QString &keyPath, const QVariantList &values, KXPredicateModifier modifier) {
            const QList<KXWhatIfCounts::ValueCounts> answers = counts.valueCounts(keyPath);
            ASSERT_EQ(answers.size(), values.size());
            for (qsizetype i = 0; i < values.size(); ++i) {
                ASSERT_EQ(answers[i].added, countWith(set, keyPath, modifier, values[i], KXPredicateOperator::Equal))
                    << counts.predicateWithValue(keyPath, values[i], KXPredicateOperator::Equal)
                           .predicateFormat()
                           .toStdString();
                ASSERT_EQ(
                    answers[i].excluded, countWith(set, keyPath, modifier, values[i], KXPredicateOperator::NotEqual))
                    << counts.predicateWithValue(keyPath, values[i], KXPredicateOperator::NotEqual)
                           .predicateFormat()
                           .toStdString();
            }
        };
        look(u"key"_s, keyValues, KXPredicateModifier::Direct);
        look(u"tags.name"_s, tagValues, KXPredicateModifier::Any);
        look(u"bpm"_s, bpmValues, KXPredicateModifier::Direct);
    }

    KXTestRandom &random;
};

} // namespace

TEST(FilterSetWhatIfCounts, equalTheCountOfTheSetWithTheValuePutIn)
{
    KXTestRandom random;
    const KXClockPin pin(QDateTime(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC));
    WhatIfShelf shelf(random);
    KXLiveCounts live(shelf.context, u"Thing"_s);
    KXFilterSetWhatIfCounts counts(live);
    counts.setFacet(u"key"_s, keyValues);
    counts.setFacet(u"tags.name"_s, tagValues, KXPredicateModifier::Any);
    counts.setFacet(u"bpm"_s, bpmValues);
    for (int i = 0; i < KXTestRandom::scaled(10'000); ++i) {
        SCOPED_TRACE("set " + std::to_string(i));
        const KXRef<KXFilterSet> set = shelf.randomSet();
        counts.setFilterSet(set);
        ASSERT_TRUE(counts.update());
        shelf.expectEqual(counts, *set);
        // Now the set, the things, or both of them change.
        if (random.chance(0.5))
            shelf.change(*shelf.any<Thing>());
        if (const auto filters = set->filters(); !filters.isEmpty()) {
            const auto filter = random.oneOf(filters);
            const auto facet = KXFacetFilter::cast(KXRef<KXManagedObject>(filter));
            if (random.chance(0.3))
                filter->setEnabled(!filter->enabled());
            else if (facet && facet->localValuePredicateKeyPath() == u"tags.name"_s && random.chance(0.6))
                facet->addToValues(shelf.value(random.oneOf(tagValues), KXPredicateOperator::NotEqual));
            else if (random.chance(0.5))
                shelf.context->removeManagedObject(filter);
        }
        if (random.chance(0.3))
            set->addToFilters(shelf.filter());
        ASSERT_TRUE(counts.update());
        shelf.expectEqual(counts, *set);
        shelf.context->processPendingChanges();
        if (random.chance(0.3)) {
            shelf.context->undoManager()->undo();
            ASSERT_TRUE(counts.update());
            if (!set->isDeleted() && !set->isMissing() && set->managedObjectContext())
                shelf.expectEqual(counts, *set);
        }
        if (testing::Test::HasFatalFailure())
            return;
        counts.setFilterSet({});
        shelf.context->rollback();
    }
}

TEST(FilterSetWhatIfCounts, followSavesOfOthersAndTheEndOfTheSet)
{
    KXTestRandom random;
    const KXClockPin pin(QDateTime(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC));
    WhatIfShelf shelf(random);
    const auto tempo = shelf.range(u"119"_s, u"121"_s);
    const KXRef<KXFilterSet> set = shelf.set({ shelf.facet({ u"Am"_s }, {}), tempo });
    ASSERT_TRUE(shelf.context->save());
    KXLiveCounts live(shelf.context, u"Thing"_s);
    KXFilterSetWhatIfCounts counts(live);
    counts.setFilterSet(set);
    counts.setFacet(u"key"_s, keyValues);
    counts.setFacet(u"tags.name"_s, tagValues, KXPredicateModifier::Any);
    counts.setFacet(u"bpm"_s, bpmValues);
    counts.addDistribution(tempo);
    ASSERT_TRUE(counts.update());
    shelf.expectEqual(counts, *set);
    const auto spread = [&] {
        qint64 sum = 0;
        for (const auto &each : counts.distribution(tempo))
            sum += each.count;
        return sum;
    };
    const auto withTempo = KXPredicate::predicateWithFormat("key == 'Am' AND bpm != nil");
    EXPECT_EQ(spread(), Thing::countOfUsingPredicate(withTempo, *shelf.context));

    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(shelf.coordinator);
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
            shelf.context->mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
        });
    const auto theirs = KXFilterSet::cast(other->objectWithID(set->objectID()));
    const auto added = KXFacetFilter::createInContext(*other);
    added->setLocalValuePredicateKeyPath(u"tags.name"_s);
    added->setLocalValuePredicateModifier(KXPredicateModifier::All);
    added->setEnabled(true);
    const auto value = KXFacetFilterValue::createInContext(*other);
    value->setValue(u"loud"_s);
    value->setOperatorType(KXPredicateOperator::NotEqual);
    value->setEnabled(true);
    added->addToValues(value);
    theirs->addToFilters(added);
    ASSERT_TRUE(other->save());
    ASSERT_TRUE(counts.update());
    EXPECT_EQ(counts.filterOfFacet(u"tags.name"_s)->objectID(), added->objectID());
    shelf.expectEqual(counts, *set);

    // One that is taken back with what made it finds nothing either.
    const auto fresh = shelf.set({ shelf.range(u"100"_s, u"130"_s) });
    shelf.context->processPendingChanges();
    counts.setFilterSet(fresh);
    ASSERT_TRUE(counts.update());
    EXPECT_GT(*counts.count(), 0);
    shelf.context->rollback();
    ASSERT_TRUE(counts.update());
    EXPECT_EQ(counts.count(), 0);
    counts.setFilterSet(set);
    ASSERT_TRUE(counts.update());

    shelf.context->removeManagedObject(set);
    ASSERT_TRUE(counts.update());
    EXPECT_EQ(counts.count(), 0);
    EXPECT_TRUE(counts.distribution(tempo).isEmpty());
    counts.setFilterSet({});
    ASSERT_TRUE(counts.update());
    EXPECT_EQ(counts.count(), Thing::countOfInContext(*shelf.context));
}
