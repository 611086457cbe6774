// What a filter set says of an object, and of itself: against every value that can make a difference.

#include <gtest/gtest.h>

#include <kestrixkit/filters/KXFilterSetCheck.h>
#include <kestrixkit/filters/KXFilterSetExplanation.h>
#include <kestrixkit/foundation/KXClock.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"
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

namespace {

using Truths = QList<std::vector<bool>>; // of parts, by world

bool anyWorld(const Truths &parts)
{
    for (size_t world = 0; !parts.isEmpty() && world < parts.first().size(); ++world) {
        if (std::all_of(parts.begin(), parts.end(), [world](const auto &part) { return part[world]; }))
            return true;
    }
    return parts.isEmpty();
}

bool everyWorld(const std::vector<bool> &part) { return !std::count(part.begin(), part.end(), false); }

/// "N0" for part 0 that never matches, "A1" for one that always does, "C2,3" for a contradiction.
QString inShort(const QList<Check::Finding> &findings)
{
    QStringList texts;
    for (const Check::Finding &finding : findings) {
        QStringList parts;
        for (const int part : finding.parts)
            parts.append(QString::number(part));
        texts.append(u"NAC"_s[int(finding.problem)] + parts.join(u','));
    }
    texts.sort();
    return texts.join(u' ');
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
        Truths truths;
        QMap<QString, Truths> ofKeyPath;
        for (int i = 0; i < check.parts().size(); ++i) {
            const auto keyPathOf = [&](int place) { return check.parts()[place].predicate.keyPaths(); };
            truths.append(truth(check.parts()[i].predicate));
            ofKeyPath[keyPathOf(i).value(0)].append(truths[i]);
            if (everyWorld(truths[i]))
                expected.append({ Problem::AlwaysMatches, { i } });
            if (!anyWorld({ truths[i] }))
                expected.append({ Problem::NeverMatches, { i } });
            for (int j = 0; j < i; ++j) {
                if (keyPathOf(i) == keyPathOf(j) && anyWorld({ truths[i] }) && anyWorld({ truths[j] })
                    && !anyWorld({ truths[i], truths[j] }))
                    expected.append({ Problem::Contradiction, { j, i } });
            }
        }
        QList<Check::Finding> findings = check.findings();
        // Which larger groups there are is the check's to say, if only each needs all of its parts.
        findings.removeIf([&](const Check::Finding &finding) {
            Truths members;
            for (const int place : finding.parts)
                members.append(truths[place]);
            EXPECT_TRUE(members.size() < 3 || !anyWorld(members));
            for (qsizetype i = 0; i < members.size(); ++i) {
                Truths others = members;
                others.removeAt(i);
                EXPECT_TRUE(anyWorld(others));
            }
            return members.size() > 2;
        });
        ASSERT_EQ(inShort(findings), inShort(expected));
        ASSERT_TRUE(check.undecided().isEmpty());
        ASSERT_EQ(check.neverMatches(), !std::all_of(ofKeyPath.begin(), ofKeyPath.end(), anyWorld));
        ASSERT_EQ(check.alwaysMatches(), std::all_of(truths.begin(), truths.end(), everyWorld));
        shelf.context->rollback();
    }
}

TEST_F(FilterSets, areExplainedAsTheStoreDecides)
{
    QList<KXRef<Mark>> tags;
    for (const QVariant &name : QVariantList { names[0], names[1], names[2], u"other"_s, QVariant() }) {
        tags.append(shelf.make<Mark>());
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

/// "year > 5; rows.title all a|b": a bound, or values under a modifier ("not" excludes them).
static KXRef<KXFilterSet> setOf(Shelf &shelf, const QString &text)
{
    QList<KXRef<KXFilter>> filters;
    for (const QString &part : text.split(u"; "_s)) {
        const QStringList words = part.split(u' ');
        const QStringList values = words[2].split(u'|');
        const qsizetype code = QStringList { u"<"_s, u"<="_s, u">"_s, u">="_s, u"="_s, u"!="_s }.indexOf(words[1]);
        if (code >= 0) {
            const auto range = shelf.range(words[2], {});
            range->setStartValueOperatorType(KXPredicateOperator(code));
            filters.append(range);
        } else {
            const bool isExclusion = words[1] == u"not";
            filters.append(shelf.facet(isExclusion ? QStringList() : values, isExclusion ? values : QStringList()));
            filters.last()->setLocalValuePredicateModifier(
                KXPredicateModifier(std::max<qsizetype>(0, QStringList { {}, u"all"_s, u"any"_s }.indexOf(words[1]))));
        }
        filters.last()->setLocalValuePredicateKeyPath(words[0]);
        filters.last()->setPosition(filters.size());
    }
    return shelf.set(filters);
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
    const struct
    {
        const char *filters;
        const char *known;
        const char *unknown; ///< without an entity
    } rows[] = {
        { "year > 5; year < 6", "C0,1", "" }, // no integer between
        { "year = 5.5", "N0", "" }, { "year > 32767", "N0", "" }, { "year >= -32768", "", "" }, // it may be absent
        { "plays >= -9223372036854775808", "A0", "" }, { "loved != 0; loved != 1.0", "C0,1", "" },
        { "bpm = 0.1000000000000000055511151231257827", "N0", "" }, // no double is that
        { "price = 0.1000000000000000055511151231257827", "", "" }, { "title > 5", "N0", "" },
        { "title != 5", "A0", "" }, { "title in a|b; title not a; title not b", "C0,1,2", "C0,1,2" },
        { "title not a|b", "A0", "A0" }, // exclusions joined by OR
        { "rows.title any a; rows.title any b; rows.title any c", "", "" },
        { "rows.title all a|b; rows.title any c", "C0,1", "C0,1" },
        { "rows.title all a|b; rows.title any a; rows.title any b", "C0,1,2", "C0,1,2" },
        { "rows.@count >= 0; rows.@count < 0", "A0 N1", "C0,1" }, { "a. < 0", "N0", "N0" }, // leads nowhere
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.filters);
        const auto set = setOf(shelf, QString::fromLatin1(row.filters));
        EXPECT_EQ(inShort(Check::check(*set, model->entity(u"Row"_s)).findings()), QString::fromLatin1(row.known));
        EXPECT_EQ(inShort(Check::check(*set, nullptr).findings()), QString::fromLatin1(row.unknown));
    }
    EXPECT_TRUE(Check::check(*shelf.set({ shelf.range({}, {}) }), nullptr).alwaysMatches());
}

// And it keeps nothing else from being understood.
TEST_F(FilterSets, whatIsNotUnderstoodIsSaidToBeSo)
{
    const auto pattern = shelf.range(u"5"_s, {});
    pattern->setStartValueOperatorType(KXPredicateOperator::BeginsWith);
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
