// What a filter set says of an object, and of itself: against every value that can make a difference.

#include <gtest/gtest.h>

#include <kestrixkit/filters/KXFilterSetCheck.h>
#include <kestrixkit/filters/KXFilterSetExplanation.h>
#include <kestrixkit/foundation/KXClock.h>

#include "filters/Shelf.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;
using Check = KXFilterSetCheck;
using Problem = KXFilterSetCheck::Problem;

namespace {

/// An object of plain values.
class World : public KXObservable
{
public:
    QVariant valueForKey(const QString &key) const override { return values.value(key); }
    QVariantMap values;
};

const QStringList names { u"A"_s, u"B"_s, u"C"_s };
const QList<int> bounds { 120, 121, 130 };
const QDateTime now = QDateTime(QDate(2024, 4, 2), QTime(15, 30), Qt::UTC);

/// What each attribute is tried with: absent, each bound, one below, between and above.
QVariantList worldsOf(const QString &keyPath)
{
    QVariantList worlds { QVariant() };
    if (keyPath == u"bpm") {
        for (const int bound : bounds)
            worlds << bound - 1.0 << double(bound) << bound + 0.5;
    } else if (keyPath == u"key") {
        for (const QString &name : names)
            worlds << name << name + u"b"_s;
        worlds << u"@"_s;
    } else if (keyPath == u"added") {
        for (const int days : { 0, 1, 2, 7, 30, 92, 93, 20'000 }) {
            for (const int milliseconds : { -1, 0, 1 })
                worlds << now.addDays(-days).addMSecs(milliseconds);
        }
        worlds << QDateTime(QDate(2024, 1, 1), QTime(0, 0), Qt::UTC)
               << QDateTime(QDate(2024, 4, 1), QTime(0, 0), Qt::UTC) << now.addDays(5)
               << QDateTime::fromMSecsSinceEpoch(0, Qt::UTC) << QDateTime::fromMSecsSinceEpoch(-1, Qt::UTC);
    } else { // sets of names, to the size of three: "all differ from A, or from B, or from C" needs these
        worlds.clear();
        const QVariantList elements { QVariant(), u"@"_s, names[0], u"Ab"_s, names[1], u"Bb"_s, names[2], u"other"_s };
        for (int members = 0; members < 1 << elements.size(); ++members) {
            QVariantList set;
            for (qsizetype i = 0; i < elements.size(); ++i) {
                if (members >> i & 1)
                    set << elements[i];
            }
            if (set.size() <= 3)
                worlds << QVariant(set);
        }
    }
    return worlds;
}

class FilterSets : public ::testing::Test
{
protected:
    FilterSets()
    {
        KXClock::setTimeZone(QTimeZone::utc());
        KXClock::setFixed(now);
        for (const QString &keyPath : { u"bpm"_s, u"key"_s, u"added"_s, u"tags.name"_s })
            worlds.insert(keyPath, worldsOf(keyPath));
    }

    KXRef<KXFilter> randomFilter()
    {
        static constexpr KXPredicateOperator operators[]
            = { KXPredicateOperator::LessThan, KXPredicateOperator::LessThanOrEqual, KXPredicateOperator::GreaterThan,
                  KXPredicateOperator::GreaterThanOrEqual, KXPredicateOperator::Equal, KXPredicateOperator::NotEqual };
        KXRef<KXFilter> filter;
        switch (random.below(5)) {
        case 0:
        case 1: {
            const auto bound = [&] { return random.chance(0.3) ? QString() : QString::number(random.oneOf(bounds)); };
            const auto range = shelf.range(bound(), bound());
            range->setStartValueOperatorType(random.oneOf(operators));
            range->setEndValueOperatorType(random.oneOf(operators));
            filter = range;
            break;
        }
        case 2: {
            const auto date = shelf.make<KXDateFilter>();
            date->setLocalValuePredicateKeyPath(u"added"_s);
            date->setRange(KXDateRange(random.below(8)));
            if (random.chance(0.8))
                date->setStartDate(now.addDays(-random.oneOf(QList { 1, 7, 93 })));
            if (random.chance(0.8))
                date->setEndDate(now.addDays(-random.oneOf(QList { 1, 7, 93 })));
            filter = date;
            break;
        }
        default: {
            QStringList included;
            QStringList excluded;
            for (const QString &name : names) {
                if (random.chance(0.5))
                    (random.chance(0.6) ? included : excluded).append(name);
            }
            const bool toMany = m_toManyParts == 0 && random.chance(0.5); // of more, sets of three would not do
            const auto facet = shelf.facet(included, excluded, toMany ? Shelf::ToMany : Shelf::ToOne);
            for (const auto &value : facet->values()) {
                if (random.chance(0.1))
                    value->setEnabled(false);
                else if (random.chance(0.1))
                    value->setValue(QVariant());
                else if (random.chance(0.1))
                    value->setOperatorType(random.oneOf(operators));
            }
            if (toMany) {
                m_toManyParts = 2;
                facet->setLocalValuePredicateModifier(KXPredicateModifier(random.below(3)));
            } else if (random.chance(0.2)) {
                facet->setLocalValuePredicateModifier(KXPredicateModifier(random.below(3)));
            }
            filter = facet;
        }
        }
        filter->setEnabled(!random.chance(0.1));
        filter->setPosition(random.below(3));
        return filter;
    }

    KXRef<KXFilterSet> randomSet()
    {
        m_toManyParts = 0;
        QList<KXRef<KXFilter>> filters;
        for (int i = random.below(5); i > 0; --i)
            filters.append(randomFilter());
        return shelf.set(filters);
    }

    /// In which worlds of its key path a part holds.
    std::vector<bool> truth(const KXPredicate &part)
    {
        const QString keyPath = part.keyPaths().value(0, u"bpm"_s);
        std::vector<bool> holds;
        for (const QVariant &value : worlds[keyPath]) {
            World world;
            if (keyPath == u"tags.name") {
                QVariantList tags;
                for (const QVariant &name : value.toList())
                    tags.append(QVariantMap { { u"name"_s, name } });
                world.values = { { u"tags"_s, tags } };
            } else {
                world.values = { { keyPath, value } };
            }
            holds.push_back(part.evaluateWithObject(&world));
        }
        return holds;
    }

    KXTestRandom random;
    Shelf shelf;
    QMap<QString, QVariantList> worlds;

private:
    const KXClockPin m_pin;
    int m_toManyParts = 0;
};

bool anyWorld(const QList<std::vector<bool>> &parts)
{
    for (size_t world = 0; world < parts.first().size(); ++world) {
        if (std::all_of(parts.begin(), parts.end(), [world](const auto &part) { return part[world]; }))
            return true;
    }
    return false;
}

}

TEST_F(FilterSets, areCheckedAsEveryWorldSays)
{
    const KXEntityDescription *entity = shelf.coordinator->model()->entity(u"Thing"_s);
    for (int round = KXTestRandom::scaled(10'000); round > 0; --round) {
        const auto set = randomSet();
        const Check check = Check::check(*set, entity);
        SCOPED_TRACE(set->representedLocalPredicateWithKeyPath().predicateFormat().toStdString());

        QList<Check::Finding> expected;
        QList<std::vector<bool>> truths;
        QMap<QString, QList<int>> ofKeyPath;
        for (const Check::Part &part : check.parts()) {
            const int place = int(truths.size());
            truths.append(truth(part.predicate));
            const bool never = !anyWorld({ truths.last() });
            const bool always = !std::count(truths.last().begin(), truths.last().end(), false);
            if (never || always)
                expected.append({ never ? Problem::NeverMatches : Problem::AlwaysMatches, { place } });
            if (part.predicate.countOfComparisons() > 0)
                ofKeyPath[part.predicate.keyPaths().first()].append(place);
        }
        bool nothingFits = std::any_of(expected.begin(), expected.end(),
            [](const auto &finding) { return finding.problem == Problem::NeverMatches; });
        QList<QList<int>> unexplained;
        for (const QList<int> &places : ofKeyPath) {
            QList<std::vector<bool>> together;
            bool isExplained = false;
            for (qsizetype i = 0; i < places.size(); ++i) {
                const auto &one = truths[places[i]];
                isExplained = isExplained || !anyWorld({ one });
                for (qsizetype j = i + 1; j < places.size(); ++j) {
                    const auto &other = truths[places[j]];
                    if (!anyWorld({ one }) || !anyWorld({ other }) || anyWorld({ one, other }))
                        continue;
                    expected.append({ Problem::Contradiction, { places[i], places[j] } });
                    isExplained = true;
                }
                together.append(one);
            }
            nothingFits = nothingFits || !anyWorld(together);
            if (!isExplained && !anyWorld(together))
                unexplained.append(places);
        }

        QList<Check::Finding> findings = check.findings();
        for (const QList<int> &places : unexplained) { // which group it is, is the check's to say
            const auto group = std::find_if(findings.begin(), findings.end(), [&](const auto &finding) {
                return finding.parts.size() > 2 && places.contains(finding.parts.first());
            });
            ASSERT_NE(group, findings.end());
            QList<std::vector<bool>> members;
            for (const int place : group->parts)
                members.append(truths[place]);
            EXPECT_FALSE(anyWorld(members));
            for (qsizetype i = 0; i < members.size(); ++i) {
                auto without = members;
                without.removeAt(i);
                EXPECT_TRUE(anyWorld(without));
            }
            findings.erase(group);
        }
        const auto sorted = [](QList<Check::Finding> list) {
            std::sort(list.begin(), list.end(), [](const auto &a, const auto &b) {
                return std::pair(a.problem, a.parts) < std::pair(b.problem, b.parts);
            });
            return list;
        };
        ASSERT_EQ(sorted(findings), sorted(expected));
        ASSERT_TRUE(check.undecided().isEmpty());
        ASSERT_EQ(check.neverMatches(), nothingFits);
        ASSERT_EQ(check.alwaysMatches(), std::all_of(truths.begin(), truths.end(), [](const auto &part) {
            return !std::count(part.begin(), part.end(), false);
        }));
        shelf.context->rollback();
    }
}

TEST_F(FilterSets, areExplainedAsTheStoreDecides)
{
    QList<KXRef<Tag>> tags;
    for (const QVariant &name : QVariantList { names[0], names[1], names[2], u"other"_s, QVariant() }) {
        tags.append(shelf.make<Tag>());
        tags.last()->setValueForKey(u"name"_s, name);
    }
    QList<KXRef<Thing>> things;
    for (int i = 0; i < 200; ++i) {
        things.append(shelf.make<Thing>());
        for (const QString &key : { u"bpm"_s, u"key"_s, u"added"_s })
            things.last()->setValueForKey(key, random.oneOf(worlds[key]));
        for (int tag = random.below(3); tag > 0; --tag)
            things.last()->addToTags(random.oneOf(tags));
    }
    ASSERT_TRUE(shelf.context->save());
    const auto keysOf = [&](const KXPredicate &predicate) {
        const std::vector<qint64> keys = shelf.context->fetchForEntity(u"Thing"_s, predicate).keys();
        return QSet<qint64>(keys.begin(), keys.end());
    };
    for (int round = KXTestRandom::scaled(10'000); round > 0; --round) {
        const auto set = randomSet();
        const KXPredicate whole = set->representedLocalPredicateWithKeyPath();
        SCOPED_TRACE(whole.predicateFormat().toStdString());
        const QSet<qint64> inside = keysOf(whole);
        QHash<const KXFilter *, QSet<qint64>> ofFilter;
        for (const auto &filter : set->filters())
            ofFilter.insert(filter.get(), keysOf(filter->representedLocalPredicateWithKeyPath()));

        for (int i = 0; i < 20; ++i) {
            const KXRef<Thing> thing = random.oneOf(things);
            const qint64 key = thing->objectID().key();
            const auto explanation = KXFilterSetExplanation::explain(*set, thing.get());
            ASSERT_EQ(explanation.matches(), inside.contains(key));
            ASSERT_EQ(explanation.verdicts().size(), set->filters().size());
            for (const auto &verdict : explanation.verdicts()) {
                ASSERT_EQ(verdict.matches, ofFilter[verdict.filter.get()].contains(key));
                const bool isNamed
                    = (verdict.matches ? explanation.lettingIn() : explanation.keepingOut()).contains(verdict.filter);
                ASSERT_EQ(isNamed, verdict.filter->enabled() && !verdict.parts.isEmpty());
                for (const auto &part : verdict.parts)
                    ASSERT_TRUE(
                        part.predicate.type() != KXPredicateType::Or || part.matches != part.matching.isEmpty());
            }
        }
        shelf.context->rollback();
    }
}

TEST_F(FilterSets, areCheckedByTheTypesOfTheirAttributes)
{
    using Property = KXPropertyDescription;
    using Type = KXAttributeType;
    const auto model
        = KXManagedObjectModel::make({ KXEntityDescription(u"Row"_s)
                                           .add(Property::attribute(u"year"_s, Type::Integer16))
                                           .add(Property::attribute(u"plays"_s, Type::Integer64).required())
                                           .add(Property::attribute(u"loved"_s, Type::Boolean).required())
                                           .add(Property::attribute(u"bpm"_s, Type::Double))
                                           .add(Property::attribute(u"price"_s, Type::Decimal))
                                           .add(Property::attribute(u"title"_s, Type::String))
                                           .add(Property::toMany(u"rows"_s, u"Row"_s)) });
    const auto bound = [this](const QString &keyPath, int comparisonOperator, const QString &value) {
        const auto filter = shelf.range(value, {});
        filter->setLocalValuePredicateKeyPath(keyPath);
        filter->setStartValueOperatorType(KXPredicateOperator(comparisonOperator));
        return filter;
    };
    const auto text
        = [this](const QString &keyPath, const QStringList &included, const QStringList &excluded, int modifier) {
              const auto filter = shelf.facet(included, excluded);
              filter->setLocalValuePredicateKeyPath(keyPath);
              filter->setLocalValuePredicateModifier(KXPredicateModifier(modifier));
              return filter;
          };
    constexpr int less = 0, greater = 2, atLeast = 3, equal = 4, different = 5;
    const struct
    {
        const char *name;
        QList<KXRef<KXFilter>> filters;
        QList<Check::Finding> known;
        QList<Check::Finding> unknown; ///< without an entity
    } rows[] = {
        { "no integer between", { bound(u"year"_s, greater, u"5"_s), bound(u"year"_s, less, u"6"_s) },
            { { Problem::Contradiction, { 0, 1 } } }, {} },
        { "no integer at all", { bound(u"year"_s, equal, u"5.5"_s) }, { { Problem::NeverMatches, { 0 } } }, {} },
        { "out of the type's range", { bound(u"year"_s, greater, u"32767"_s) }, { { Problem::NeverMatches, { 0 } } },
            {} },
        { "all numbers, but absent ones", { bound(u"year"_s, atLeast, u"-32768"_s) }, {}, {} },
        { "all numbers", { bound(u"plays"_s, atLeast, u"-9223372036854775808"_s) },
            { { Problem::AlwaysMatches, { 0 } } }, {} },
        { "neither true nor false", { bound(u"loved"_s, different, u"0"_s), bound(u"loved"_s, different, u"1.0"_s) },
            { { Problem::Contradiction, { 0, 1 } } }, {} },
        { "no double", { bound(u"bpm"_s, equal, u"0.1000000000000000055511151231257827"_s) },
            { { Problem::NeverMatches, { 0 } } }, {} },
        { "a decimal", { bound(u"price"_s, equal, u"0.1000000000000000055511151231257827"_s) }, {}, {} },
        { "a text is no number", { bound(u"title"_s, greater, u"5"_s) }, { { Problem::NeverMatches, { 0 } } }, {} },
        { "all texts differ from a number", { bound(u"title"_s, different, u"5"_s) },
            { { Problem::AlwaysMatches, { 0 } } }, {} },
        { "three that only pairs can fit",
            { text(u"title"_s, { u"a"_s, u"b"_s }, {}, 0), text(u"title"_s, {}, { u"a"_s }, 0),
                text(u"title"_s, {}, { u"b"_s }, 0) },
            { { Problem::Contradiction, { 0, 1, 2 } } }, { { Problem::Contradiction, { 0, 1, 2 } } } },
        { "exclusions joined by OR", { text(u"title"_s, {}, { u"a"_s, u"b"_s }, 0) },
            { { Problem::AlwaysMatches, { 0 } } }, { { Problem::AlwaysMatches, { 0 } } } },
        { "many values have all of three",
            { text(u"rows.title"_s, { u"a"_s }, {}, 2), text(u"rows.title"_s, { u"b"_s }, {}, 2),
                text(u"rows.title"_s, { u"c"_s }, {}, 2) },
            {}, {} },
        { "all are one, some is another",
            { text(u"rows.title"_s, { u"a"_s, u"b"_s }, {}, 1), text(u"rows.title"_s, { u"c"_s }, {}, 2) },
            { { Problem::Contradiction, { 0, 1 } } }, { { Problem::Contradiction, { 0, 1 } } } },
        { "all are one, some are two",
            { text(u"rows.title"_s, { u"a"_s, u"b"_s }, {}, 1), text(u"rows.title"_s, { u"a"_s }, {}, 2),
                text(u"rows.title"_s, { u"b"_s }, {}, 2) },
            { { Problem::Contradiction, { 0, 1, 2 } } }, { { Problem::Contradiction, { 0, 1, 2 } } } },
        { "no fewer than none", { bound(u"rows.@count"_s, atLeast, u"0"_s), bound(u"rows.@count"_s, less, u"0"_s) },
            { { Problem::NeverMatches, { 1 } }, { Problem::AlwaysMatches, { 0 } } },
            { { Problem::Contradiction, { 0, 1 } } } },
        { "a key path that leads nowhere", { bound(u"a."_s, less, u"0"_s) }, { { Problem::NeverMatches, { 0 } } },
            { { Problem::NeverMatches, { 0 } } } },
        { "nothing asked", { shelf.range({}, {}) }, { { Problem::AlwaysMatches, { 0 } } },
            { { Problem::AlwaysMatches, { 0 } } } },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        for (qsizetype i = 0; i < row.filters.size(); ++i)
            row.filters[i]->setPosition(i);
        const auto set = shelf.set(row.filters);
        EXPECT_EQ(Check::check(*set, model->entity(u"Row"_s)).findings(), row.known);
        EXPECT_EQ(Check::check(*set, nullptr).findings(), row.unknown);
    }
    // What is not understood is said to be so, and keeps nothing from being understood.
    const auto pattern = bound(u"title"_s, 8, u"5"_s);
    const Check check = Check::check(*shelf.set({ pattern }), nullptr);
    EXPECT_EQ(check.undecided(), QList<int> { 0 });
    EXPECT_FALSE(check.neverMatches() || check.alwaysMatches());
}

TEST_F(FilterSets, mayHaveAHundredThousandValues)
{
    const int count = KXTestRandom::scaled(100'000);
    QStringList values;
    for (int i = 0; i < count; ++i)
        values.append(u"value %1.\"'"_s.arg(i));
    for (const QString &key : { u"value 0.\"'"_s, u"none of them"_s })
        shelf.make<Thing>()->setKey(key);
    ASSERT_TRUE(shelf.context->save());
    const auto counted = [&](const KXRef<KXFacetFilter> &facet) {
        const auto set = shelf.set({ facet });
        EXPECT_EQ(Check::check(*set, nullptr).alwaysMatches(),
            facet->values().first()->operatorType() == KXPredicateOperator::NotEqual);
        return shelf.context->countForEntity(u"Thing"_s, set->representedLocalPredicateWithKeyPath());
    };
    EXPECT_EQ(counted(shelf.facet(values)), 1);
    EXPECT_EQ(counted(shelf.facet({}, values)), 2);
}
