#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/util/KXDate.h>

#include "filters/Shelf.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

QString text(const KXPredicate &predicate) { return predicate ? predicate.predicateFormat() : u"none"_s; }

}

TEST(Filters, startWithTheModelsDefaults)
{
    Shelf shelf;
    const auto filter = shelf.make<KXRangeFilter>();
    EXPECT_TRUE(filter->enabled());
    EXPECT_EQ(filter->position(), 0);
    EXPECT_EQ(filter->localValuePredicateModifier(), KXPredicateModifier::Direct);
    EXPECT_FALSE(filter->name());
    EXPECT_EQ(filter->label(), QString());
    EXPECT_TRUE(shelf.make<KXFacetFilterValue>()->enabled());
    const auto preset = shelf.make<KXFilterSetPreset>();
    EXPECT_TRUE(preset->isDeletable() && preset->isOverwritable() && preset->isRepositionable());
    EXPECT_FALSE(preset->isFolder() || preset->isSticky());

    // A row without them reads as 0 and false.
    for (const QString &key : { u"enabled"_s, u"position"_s, u"localValuePredicateModifier"_s })
        filter->setValueForKey(key, QVariant());
    const KXManagedObjectID id = filter->objectID();
    shelf.reopen();
    const auto again = KXRangeFilter::cast(shelf.context->objectWithID(id));
    EXPECT_FALSE(again->enabled());
    EXPECT_EQ(again->position(), 0);
}

TEST(Filters, becomePredicatesAndWords)
{
    Shelf shelf;
    const auto empty = shelf.range({}, {});
    const auto both = shelf.range(u"120"_s, u"0.10"_s);
    both->setStartValueOperatorType(KXPredicateOperator::GreaterThan);
    both->setEndValueOperatorType(KXPredicateOperator::LessThan);
    both->setLocalValuePredicateModifier(KXPredicateModifier::Any);
    const auto endOnly = shelf.range({}, u"130"_s);
    endOnly->setName(u"Tempo"_s);
    const auto two = shelf.facet({ u"b"_s }, { u"Y"_s, u"X"_s });
    const auto disabled = shelf.facet({ u"a"_s });
    disabled->values().first()->setEnabled(false);
    const auto none = shelf.facet({});
    none->setName(u"Genre"_s);
    const auto four = shelf.facet({ u"é"_s, u"Z"_s, u"a"_s }, { u"d"_s });
    four->setName(u"Genre"_s);
    four->values().last()->setName(std::nullopt); // "d", which goes before the others then
    const auto five = shelf.facet({ u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s });
    five->setName(u"Genre"_s);
    five->values().first()->setEnabled(false);
    const auto nowhere = shelf.facet({ u"a"_s });
    nowhere->setLocalValuePredicateKeyPath(std::nullopt);
    nowhere->values().first()->setValue({});
    const auto plain = shelf.make<KXFilter>();

    const struct
    {
        KXRef<KXFilter> filter;
        QString predicate;
        QString label;
        QString html;
    } rows[] = {
        { plain, u"none"_s, u""_s, u""_s },
        { empty, u"AND()"_s, u""_s, u"<i></i></br>"_s },
        { both, u"ANY bpm > DECIMAL(\"120\") AND ANY bpm < DECIMAL(\"0.1\")"_s, u"> 120 AND < 0.1"_s,
            u"> 120 AND < 0.1</br>"_s },
        { endOnly, u"AND(bpm <= DECIMAL(\"130\"))"_s, u"Tempo"_s, u"<i>Tempo</i></br>"_s },
        { two, u"OR(key == \"b\") AND (key != \"Y\" OR key != \"X\")"_s, u"NOT X, NOT Y, b"_s,
            u"X </br>Y </br>b </br>"_s },
        { disabled, u"none"_s, u"a"_s, u"a </br>"_s },
        { none, u"none"_s, u"Genre"_s, u"<i>Genre</i> </br>"_s },
        { four, u"(key == \"é\" OR key == \"Z\" OR key == \"a\") AND OR(key != \"d\")"_s, u"Z, a, é"_s,
            u" </br>Z </br>a </br>é </br>"_s },
        { five, u"AND(key == \"b\" OR key == \"c\" OR key == \"d\" OR key == \"e\")"_s, u"Genre (5)"_s,
            u"a </br>b </br>c </br>d </br>e </br>"_s },
        { nowhere, u"AND(OR(`` == nil))"_s, u"a"_s, u"a </br>"_s },
    };
    for (const auto &row : rows) {
        EXPECT_EQ(text(row.filter->representedLocalPredicateWithKeyPath()), row.predicate);
        EXPECT_EQ(row.filter->label(), row.label);
        EXPECT_EQ(row.filter->detailsAsHTMLString(), row.html);
    }
    // An empty label is a label, an absent one is none.
    both->setLabel(u""_s);
    EXPECT_EQ(both->label(), u""_s);
    both->setLabel(std::nullopt);
    EXPECT_EQ(both->title(), u"> 120 AND < 0.1"_s);
    // The prefix stands as it is, and the dot comes last.
    EXPECT_EQ(
        text(endOnly->representedLocalPredicateWithKeyPath(u"release"_s)), u"AND(`releasebpm.` <= DECIMAL(\"130\"))"_s);
}

TEST(Filters, askTheRemoteCatalogueByIdentifierWhereTheyCan)
{
    Shelf shelf;
    const auto filter = shelf.facet({ u"in"_s, u"plain"_s }, { u"A"_s, u"B"_s });
    const auto values = filter->values();
    EXPECT_EQ(text(filter->representedRemotePredicateWithKeyPath()), u"none"_s); // no key path at all
    filter->setRemoteValuePredicateKeyPath(u"genre"_s);
    filter->setRemoteValueIdentifierPredicateKeyPath(u"genreId"_s);
    filter->setRemoteValueIdentifierPredicateModifier(KXPredicateModifier::Any);
    values[0]->setValueIdentifier(u"7\".x"_s);
    values[2]->setValueIdentifier(u"8"_s);
    EXPECT_EQ(text(filter->representedRemotePredicateWithKeyPath()),
        u"(ANY genreId == \"7\\\".x\" OR genre == \"plain\") AND (ANY genreId != \"8\" AND genre != \"B\")"_s);
    filter->setRemoteValueIdentifierPredicateKeyPath(std::nullopt); // falls back to plain values
    values[1]->setValue({}); // has neither
    EXPECT_EQ(text(filter->representedRemotePredicateWithKeyPath(u"release."_s)),
        u"OR(`release.genre.` == \"in\") AND (`release.genre.` != \"A\" AND `release.genre.` != \"B\")"_s);
}

TEST(Filters, spanDates)
{
    Shelf shelf;
    const KXClockPin pin;
    const QTimeZone zone("Europe/Berlin");
    KXClock::setTimeZone(zone);
    KXClock::setLocale(QLocale(u"de_DE"_s));
    const auto local = [&zone](int month, int day, int hour, int minute = 0) {
        return QDateTime(QDate(2024, month, day), QTime(hour, minute), zone);
    };
    KXClock::setFixed(local(4, 2, 15, 30));

    const auto filter = shelf.make<KXDateFilter>();
    filter->setLocalValuePredicateKeyPath(u"added"_s);
    filter->setStartDate(local(1, 1, 0));
    const struct
    {
        int range;
        QDateTime start;
        QDateTime end;
        QString label;
    } rows[] = {
        { 0, QDateTime::fromMSecsSinceEpoch(0, Qt::UTC), local(4, 2, 15, 30), u"All"_s },
        { 1, local(4, 1, 0), local(4, 2, 15, 30), u"Today"_s },
        { 2, local(3, 31, 15, 30), local(4, 1, 15, 30), u"Yesterday"_s },
        { 3, local(3, 26, 15, 30), local(4, 2, 15, 30), u"Last 7 Days"_s }, // the clocks went forward meanwhile
        { 4, local(3, 3, 15, 30), local(4, 2, 15, 30), u"Last 30 Days"_s },
        { 5, local(1, 1, 0), local(4, 2, 15, 30), u"This Year"_s },
        { 6, local(1, 1, 0), {}, u"01.01.24 - "_s },
        { 7, {}, {}, u""_s },
        { -1, {}, {}, u""_s },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.range);
        filter->setRange(KXDateRange(row.range));
        const auto expected = KXPredicate::predicateWithFormat("added >= %@ AND added <= %@", row.start, row.end);
        EXPECT_EQ(text(filter->representedLocalPredicateWithKeyPath()), text(expected));
        EXPECT_EQ(filter->label(), row.label);
        EXPECT_EQ(filter->detailsAsHTMLString(), row.label + u"</br>"_s);
    }
}

TEST(Filters, keepTheirTree)
{
    Shelf shelf;
    const auto top = shelf.make<KXFilter>();
    const auto facet = shelf.facet({});
    const auto leaf = shelf.range({}, {});
    const auto other = shelf.make<KXFilter>();
    facet->setParent(top);
    leaf->setParent(facet);
    other->setParent(top);

    EXPECT_EQ(leaf->ancestorOfClass<KXFacetFilter>(), facet);
    EXPECT_EQ(facet->ancestorOfClass<KXFacetFilter>(), nullptr);
    EXPECT_EQ(facet->ancestorOfClass<KXFilter>(), top);
    EXPECT_EQ(leaf->furthestDescendants(), QList<KXRef<KXFilter>> { leaf });
    const auto leaves = top->furthestDescendants();
    EXPECT_EQ(QSet<KXRef<KXFilter>>(leaves.begin(), leaves.end()), (QSet<KXRef<KXFilter>> { leaf, other }));
    EXPECT_TRUE(leaf->isDescendantOfItem(top.get()));
    EXPECT_FALSE(top->isDescendantOfItem(top.get()) || top->isDescendantOfItem(leaf.get())
        || leaf->isDescendantOfItem(other.get()));
    EXPECT_TRUE(top->canBeParentForItem(leaf.get()));

    // Nothing becomes its own ancestor.
    KXTestLog log;
    top->setParent(leaf);
    EXPECT_FALSE(top->setParentItem(top.get()) || top->setValueForKey(u"parent"_s, KXVariantFromRef(leaf)));
    EXPECT_EQ(top->parent(), nullptr);
    EXPECT_EQ(log.lines().size(), 3);
    EXPECT_FALSE(leaf->setParentItem(shelf.make<KXFilterSet>().get()));
    EXPECT_EQ(leaf->parent(), facet);

    // A file that says otherwise ends nothing.
    const auto ids = QList { top->objectID(), facet->objectID(), leaf->objectID() };
    shelf.reopen();
    sqlite3 *file = nullptr;
    ASSERT_EQ(sqlite3_open(shelf.path().toUtf8().constData(), &file), SQLITE_OK);
    const QString sql = u"UPDATE KXFilter SET parent = %1 WHERE kx_id = %2"_s.arg(ids[2].key()).arg(ids[0].key());
    EXPECT_EQ(sqlite3_exec(file, sql.toUtf8().constData(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(file);
    shelf.reopen();
    const auto damaged = KXFilter::cast(shelf.context->objectWithID(ids[0]));
    EXPECT_EQ(damaged->furthestDescendants().size(), 1); // "other" alone
    EXPECT_EQ(damaged->ancestorOfClass<KXDateFilter>(), nullptr);
    EXPECT_TRUE(damaged->isDescendantOfItem(damaged->parent().get()));
    shelf.context->removeManagedObject(damaged);
    EXPECT_TRUE(shelf.context->save());
    EXPECT_EQ(KXFilter::countOfInContext(*shelf.context), 0);
}

TEST(Filters, areCopiedWithTheirValuesAndNothingElse)
{
    Shelf shelf;
    const auto facet = shelf.facet({ u"5"_s }, { u"x"_s });
    facet->setName(u"Genre"_s);
    facet->setParent(shelf.make<KXFilter>());
    facet->setFilterSet(shelf.make<KXFilterSet>());
    facet->setPosition(-3);
    facet->values()[0]->setValue(5); // a number, beside the text "5"
    facet->values()[0]->setEnabled(false);
    facet->values()[0]->setCount(9, u"here"_s);
    auto coloured = shelf.make<ColouredValue>();
    coloured->setValue(u"5"_s);
    facet->addToValues(coloured);

    const KXManagedObjectID id = facet->duplicateInContext(*shelf.context)->objectID();
    shelf.reopen();
    const auto copy = KXFacetFilter::cast(shelf.context->objectWithID(id));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->name(), u"Genre"_s);
    EXPECT_EQ(copy->storedLabel(), std::nullopt);
    EXPECT_EQ(copy->position(), -3);
    EXPECT_EQ(copy->parent(), nullptr);
    EXPECT_EQ(copy->filterSet(), nullptr);
    const auto values = copy->values();
    ASSERT_EQ(values.size(), 3);
    EXPECT_EQ(values[0]->value(), QVariant(qint64(5)));
    EXPECT_EQ(values[2]->value(), QVariant(u"5"_s));
    EXPECT_TRUE(KXDynamicRefCast<ColouredValue>(values[2]));
    EXPECT_FALSE(values[0]->enabled());
    EXPECT_FALSE(values[0]->counts());
    EXPECT_EQ(values[1]->operatorType(), KXPredicateOperator::NotEqual);

    // As another kind, what that cannot hold is left out; what is no filter is refused and leaves nothing behind.
    KXTestLog log;
    const auto asDate = shelf.range(u"1"_s, u"2"_s)->duplicateInContext(*shelf.context, u"KXDateFilter"_s);
    EXPECT_TRUE(KXDynamicRefCast<KXDateFilter>(asDate));
    EXPECT_EQ(log.lines().size(), 4);
    EXPECT_FALSE(copy->duplicateInContext(*shelf.context, u"Mark"_s));
    EXPECT_EQ(Mark::countOfInContext(*shelf.context), 0);
}

TEST(Filters, tellWhenTheirWordsChange)
{
    Shelf shelf;
    const auto range = shelf.range(u"1"_s, {});
    const auto facet = shelf.facet({});
    int changes = 0;
    QString seen;
    const auto count = [&](const KXKeyValueChange &change) {
        ++changes;
        seen = change.newValue.toString();
    };
    range->onChangeOf(u"label"_s, KXObservingOptionNew, count);
    facet->onChangeOf(u"title"_s, KXObservingOptionNew, count);
    range->setEndValue(KXDecimal::fromInteger(3));
    range->setEndValueOperatorType(KXPredicateOperator::LessThan);
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(seen, u">= 1 AND < 3"_s);
    const auto value = shelf.make<KXFacetFilterValue>();
    value->setName(u"House"_s);
    facet->addToValues(value);
    EXPECT_EQ(changes, 3);
    EXPECT_EQ(seen, u"House"_s);
    facet->setLabel(u"Mine"_s);
    EXPECT_EQ(seen, u"Mine"_s);

    // A count of 0 is a count; one announcement each.
    int counted = 0;
    value->onChangeOf(u"counts"_s, [&](const KXKeyValueChange &) { ++counted; });
    value->setCount(4, u"a.\"b"_s);
    value->setCount(0, u"a.\"b"_s);
    EXPECT_EQ(counted, 2);
    EXPECT_EQ(value->counts(), (KXCounts { { u"a.\"b"_s, 0 } }));
    EXPECT_TRUE(KXPredicate::predicateWithFormat("counts.%K == 0", u"a.\"b"_s).evaluateWithObject(value.get()));

    const auto choice = KXFacetFilterValue::createTemporaryInstanceInContext(
        *shelf.context, u"n"_s, 7, u"id"_s, KXPredicateOperator::NotEqual);
    EXPECT_EQ(choice->value(), QVariant(qint64(7)));
    EXPECT_FALSE(choice->managedObjectContext());
    EXPECT_FALSE(choice->isInserted());
}
