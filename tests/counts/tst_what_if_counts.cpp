// What-if counts against counting the search with the value put in, while everything changes.

#include <QSignalSpy>
#include <gtest/gtest.h>

#include <kestrixkit/counts/KXWhatIfCounts.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

#include "Changing.h"
#include "support/KXTestLog.h"

namespace {

using Facet = KXWhatIfCounts::Facet;
using Choice = KXWhatIfCounts::Choice;

/// The search written down once more, as it is counted by the context.
class Searching
{
public:
    explicit Searching(Changing &changing)
        : world(changing)
        , random(changing.random)
    {
    }

    QVariantList pool(const QString &keyPath)
    {
        const auto date = [](int days) { return KXClock::now().addDays(days); };
        static const QVariantList texts { u"a"_s, u"A"_s, u"ab"_s, u"á"_s, u""_s, u"5"_s, QVariant() };
        static const QVariantList numbers { 0, 1, 1.0, 2, 2.5, -1, QVariant(), 3,
            QVariant::fromValue(*KXDecimal::fromString(u"1.0"_s)), true };
        if (keyPath == "added"_L1)
            return { date(0), date(-3), QDateTime::fromMSecsSinceEpoch(0, Qt::UTC), QVariant() };
        if (keyPath == "genres.name"_L1)
            return { u"House"_s, u"Techno"_s, u"Jungle"_s, u"a"_s, u""_s, QVariant() };
        if (keyPath == "album.artist.name"_L1 || keyPath == "album.title"_L1)
            return { u"p0"_s, u"p1"_s, u"a0"_s, u"a1"_s, u"a"_s, QVariant() };
        if (keyPath == "album"_L1 || keyPath == "genres"_L1) {
            QVariantList objects { QVariant(), u"x"_s };
            for (const auto &object :
                world.library.context->fetch(KXFetchRequest(keyPath == "album"_L1 ? u"Album"_s : u"Genre"_s)))
                objects.append(KXVariantFromRef(object));
            return objects;
        }
        return keyPath == "title"_L1 || keyPath == "comment"_L1 || keyPath == "album.tracks.title"_L1 ? texts : numbers;
    }

    Facet facet()
    {
        static const QStringList paths { u"title"_s, u"comment"_s, u"bpm"_s, u"year"_s, u"plays"_s, u"loved"_s,
            u"price"_s, u"added"_s, u"genres.name"_s, u"genres.name"_s, u"album.title"_s, u"album.artist.name"_s,
            u"album.tracks.title"_s, u"album.tracks.bpm"_s, u"album.tracks.price"_s, u"genres.@count"_s, u"album"_s,
            u"genres"_s };
        Facet facet;
        facet.keyPath = random.oneOf(paths);
        facet.modifier = KXPredicateModifier(random.below(3));
        choose(facet);
        return facet;
    }

    void choose(Facet &facet)
    {
        const QVariantList values = pool(facet.keyPath);
        facet.values = values;
        facet.choices.clear();
        for (int i = random.below(4); i > 0; --i)
            facet.choices.append({ random.oneOf(values),
                random.chance(0.05)      ? KXPredicateOperator::LessThan
                    : random.chance(0.5) ? KXPredicateOperator::Equal
                                         : KXPredicateOperator::NotEqual });
        facet.takesPart = random.chance(0.9);
    }

    KXLiveCounts::Rule condition()
    {
        if (random.chance(0.3))
            return [days = random.between(1, 9)] {
                return KXPredicate::predicateWithFormat("added >= %@", KXClock::now().addDays(-days));
            };
        // Now and then something that only the store can count.
        const KXPredicate fixed = random.chance(0.03) ? KXPredicate::predicateWithFormat("bpm > year")
            : random.chance(0.4)                      ? KXPredicate::truePredicate()
                                 : KXPredicate::predicateWithFormat("plays >= %@ OR loved == TRUE", random.below(4));
        return [fixed] { return fixed; };
    }

    static KXPredicate predicateOf(const Facet &facet)
    {
        QList<KXPredicate> included, excluded;
        for (const Choice &choice : facet.choices) {
            const KXPredicate comparison
                = KXPredicate::comparison(facet.keyPath, choice.comparisonOperator, choice.value, facet.modifier);
            (choice.comparisonOperator == KXPredicateOperator::NotEqual ? excluded : included).append(comparison);
        }
        const auto joined = [](const QList<KXPredicate> &parts) {
            return parts.isEmpty() ? KXPredicate::truePredicate() : KXPredicate::orPredicate(parts);
        };
        return facet.takesPart ? KXPredicate::andPredicate({ joined(included), joined(excluded) })
                               : KXPredicate::truePredicate();
    }

    static Facet with(Facet facet, const QVariant &value, KXPredicateOperator comparisonOperator)
    {
        facet.choices.removeIf([&](const Choice &choice) {
            return KXPredicateValue::isEqual(KXPredicateValue(choice.value), KXPredicateValue(value));
        });
        facet.choices.append({ value, comparisonOperator });
        return facet;
    }

    qint64 count(const QString &changed, const Facet &facet)
    {
        QList<KXPredicate> parts { base, rest ? rest() : KXPredicate() };
        for (auto each = facets.cbegin(); each != facets.cend(); ++each)
            parts.append(each.key() == changed ? predicateOf(facet) : predicateOf(*each));
        return Track::countOfUsingPredicate(KXPredicate::andPredicate(parts), *world.library.context);
    }

    void expectEqual(const KXWhatIfCounts &counts)
    {
        const KXClockMoment moment(counts.liveCounts().asOf());
        ASSERT_EQ(counts.count(), count({}, {}));
        for (auto facet = facets.cbegin(); facet != facets.cend(); ++facet) {
            const QList<KXWhatIfCounts::ValueCounts> answers = counts.valueCounts(facet.key());
            ASSERT_EQ(answers.size(), facet->values.size());
            for (qsizetype i = 0; i < answers.size(); ++i) {
                const QVariant &value = facet->values[i];
                const auto trace = [&] {
                    return counts.predicateWithValue(facet.key(), value, KXPredicateOperator::Equal)
                        .predicateFormat()
                        .toStdString();
                };
                ASSERT_EQ(answers[i].added, count(facet.key(), with(*facet, value, KXPredicateOperator::Equal)))
                    << trace();
                ASSERT_EQ(answers[i].excluded, count(facet.key(), with(*facet, value, KXPredicateOperator::NotEqual)))
                    << trace();
            }
        }
    }

    Changing &world;
    KXTestRandom &random;
    KXPredicate base;
    KXLiveCounts::Rule rest;
    QMap<QString, Facet> facets;
};

} // namespace

TEST(WhatIfCounts, equalCountingWithTheValuePutInAfterEveryChange)
{
    KXTestRandom random;
    const KXClockPin pin(QDateTime(QDate(2024, 3, 30), QTime(22, 0), Qt::UTC));
    for (int walk = 0; walk < KXTestRandom::scaled(200); ++walk) {
        Changing world(random);
        Searching search(world);
        search.base
            = random.chance(0.3) ? KXPredicate::predicateWithFormat("plays >= 0") : KXPredicate::truePredicate();
        KXLiveCounts live(world.library.context, u"Track"_s, { search.base });
        KXWhatIfCounts counts(live);
        const auto setFacet = [&](const QString &name, const Facet &facet) {
            search.facets[name] = facet;
            counts.setFacet(name, facet);
        };
        for (int i = random.below(4); i >= 0; --i)
            setFacet(QString::number(i), search.facet());
        counts.setCondition(search.rest = search.condition());
        for (int step = 0; step < 30; ++step) {
            SCOPED_TRACE("walk " + std::to_string(walk) + " step " + std::to_string(step));
            const int kind = random.below(20);
            const QString name = QString::number(random.below(5));
            if (kind < 5 && search.facets.contains(name)) {
                Facet facet = search.facets.value(name);
                search.choose(facet);
                setFacet(name, facet);
            } else if (kind < 7) {
                setFacet(name, search.facet());
            } else if (kind < 8) {
                search.facets.remove(name);
                counts.removeFacet(name);
            } else if (kind < 10) {
                counts.setCondition(search.rest = search.condition());
            } else if (kind < 12) {
                KXClock::advance(random.chance(0.3) ? random.between(0, 100) : random.between(0, 200000));
                live.advance();
            }
            if (kind > 2)
                world.step();
            ASSERT_TRUE(counts.update());
            search.expectEqual(counts);
            if (testing::Test::HasFatalFailure())
                return;
        }
    }
}

TEST(WhatIfCounts, followsOneTrackAmongManyValues)
{
    LibraryTest library;
    constexpr int many = 70'000; // more than sixteen bits tell apart
    for (int i = 0; i < many; ++i)
        Track::createInContext(*library.context)->setTitle(u"t%1"_s.arg(i));
    ASSERT_TRUE(library.context->save());
    KXLiveCounts live(library.context, u"Track"_s);
    KXWhatIfCounts counts(live);
    Facet titles { u"title"_s, {}, { u"t0"_s, u"t69999"_s, u"nowhere"_s }, {}, {} };
    counts.setFacet(u"title"_s, titles);
    counts.setFacet(u"plays"_s, { u"plays"_s, {}, { 0, 7 }, {}, {} });
    QSignalSpy changed(&counts, &KXWhatIfCounts::countsDidChange);
    ASSERT_TRUE(counts.update());
    EXPECT_EQ(changed.size(), 1);
    using Counts = QList<KXWhatIfCounts::ValueCounts>;
    EXPECT_EQ(counts.valueCounts(u"title"_s), (Counts { { 1, many - 1 }, { 1, many - 1 }, { 0, many } }));

    titles.choices = { { u"t69999"_s, KXPredicateOperator::Equal } };
    counts.setFacet(u"title"_s, titles);
    ASSERT_TRUE(counts.update());
    EXPECT_EQ(counts.valueCounts(u"title"_s), (Counts { { 2, 1 }, { 1, many - 1 }, { 1, 1 } }));
    EXPECT_EQ(counts.valueCounts(u"plays"_s), (Counts { { 1, 0 }, { 0, 1 } }));

    const auto last = Track::findFirstUsingPredicate(
        KXPredicate::predicateWithFormat("title == %@", u"t69999"_s), *library.context);
    last->setPlays(7);
    changed.clear();
    library.context->processPendingChanges();
    EXPECT_EQ(changed.size(), 1);
    EXPECT_EQ(counts.valueCounts(u"plays"_s), (Counts { { 0, 1 }, { 1, 0 } }));
    library.context->processPendingChanges();
    EXPECT_EQ(changed.size(), 1) << "nothing changed";
}

TEST(WhatIfCounts, areAbsentWhereTheStoreRefuses)
{
    LibraryTest library;
    (void)Track::createInContext(*library.context);
    KXLiveCounts live(library.context, u"Track"_s);
    KXWhatIfCounts counts(live);
    counts.setFacet(u"plays"_s, { u"plays"_s, {}, { 0, 1 }, { { 1, KXPredicateOperator::Equal } }, {} });
    const KXTestLog log;
    for (const char *refused : { "bpm == 'x'", "nothing == 1" }) {
        counts.setCondition(KXPredicate::predicateWithFormat(refused));
        (void)counts.update();
        EXPECT_FALSE(counts.count()) << refused;
        EXPECT_TRUE(counts.valueCounts(u"plays"_s).isEmpty()) << refused;
        EXPECT_FALSE(counts.valueCounts(u"plays"_s, 1)) << refused;
    }
}

TEST(WhatIfCounts, spreadNumbersOverWhatFitsTheRest)
{
    LibraryTest library;
    for (int i = 0; i < 10; ++i) {
        const auto track = Track::createInContext(*library.context);
        track->setPlays(i % 2);
        if (i > 1)
            track->setBpm(120 + i / 4 * 0.5);
    }
    KXLiveCounts live(library.context, u"Track"_s);
    auto counts = std::make_unique<KXWhatIfCounts>(live);
    Facet tempo;
    tempo.keyPath = u"bpm"_s;
    tempo.condition = [] { return KXPredicate::predicateWithFormat("bpm > 120.9"); };
    counts->setFacet(u"bpm"_s, tempo);
    counts->setFacet(u"plays"_s, { u"plays"_s, {}, { 0, 1 }, { { 1, KXPredicateOperator::Equal } }, {} });
    ASSERT_TRUE(counts->update());
    const auto spread = [&] {
        QMap<double, qint64> map;
        for (const auto &each : counts->distribution(u"bpm"_s))
            map[each.number] = each.count;
        return map;
    };
    EXPECT_EQ(spread(), (QMap<double, qint64> { { 120, 1 }, { 120.5, 2 }, { 121, 1 } }));
    EXPECT_EQ(counts->count(), 1);
    counts->setCondition(KXPredicate::predicateWithFormat("bpm != 120.5"));
    ASSERT_TRUE(counts->update());
    EXPECT_EQ(spread(), (QMap<double, qint64> { { 120, 1 }, { 121, 1 } }));
    EXPECT_TRUE(counts->distribution(u"other"_s).isEmpty());

    // It leaves nothing behind in the counts that it used.
    counts.reset();
    Track::createInContext(*library.context)->setPlays(1);
    EXPECT_TRUE(live.update());
}
