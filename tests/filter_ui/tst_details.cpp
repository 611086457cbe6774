// Details of a preset: what they show, what they load, and that they stay true.

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/KXFacetFilterValueCellView.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using Details = KXFilterSetPresetDetailsViewController;

class DetailsOwner : public KXFilterSetPresetDetailsViewControllerDelegate
{
public:
    void loadFilterSet(Details &, const KXRef<KXFilterSet> &set) override { loaded.append(set); }
    bool isCountsFilterEnabledForFacetFilter(Details &, const KXRef<KXFacetFilter> &) override { return countsFilter; }
    void willDisplayFacetFilterValueCell(Details &, KXFacetFilterValueCellView &cell) override
    {
        displayed.append(cell.cell().title + u':' + KXCountBadgeText(cell.cell().count));
    }

    QList<KXRef<KXFilterSet>> loaded;
    QStringList displayed;
    bool countsFilter = true;
};

namespace {

/// "Key(a b) Tempo(120)", with an asterisk behind what is selected and without what lies below closed rows.
QString detailsShown(const Details &details)
{
    const QTreeView *outline = details.outlineView();
    QStringList rows;
    for (int i = 0; i < outline->model()->rowCount(); ++i) {
        const QModelIndex filter = outline->model()->index(i, 0);
        QStringList below;
        for (int j = 0; outline->isExpanded(filter) && j < outline->model()->rowCount(filter); ++j) {
            const QModelIndex row = outline->model()->index(j, 0, filter);
            below += row.data().toString() + (outline->selectionModel()->isSelected(row) ? u"*"_s : QString());
        }
        rows += filter.data().toString() + u'(' + below.join(u' ') + u')';
    }
    return rows.join(u' ');
}

QStringList detailsEnabledIn(const KXRef<KXFilterSet> &set)
{
    QStringList names;
    for (const KXRef<KXFilter> &filter : set->sortedFilters()) {
        if (const auto facet = KXFacetFilter::cast(filter)) {
            for (const auto &value : facet->valuesSortedByName()) {
                if (value->enabled())
                    names += *value->name();
            }
        }
    }
    return names;
}

}

class DetailsTest : public ::testing::Test, public Shelf
{
protected:
    DetailsTest()
    {
        KXUserDefaults::standard().remove(key);
        tempo = range(u"120"_s, {});
        tempo->setName(u"Tempo"_s);
        tempo->setPosition(1);
        keys = facet({ u"c"_s, u"a"_s, u"b"_s }, { u"x"_s });
        keys->setName(u"Key"_s);
        names = facet({ u"m"_s, u"n"_s }, {}, ToMany);
        names->setName(u"Mark"_s);
        names->setPosition(2);
        preset = Shelf::preset(u"p"_s, set({ tempo, names, keys }));
        EXPECT_TRUE(context->save());
    }
    ~DetailsTest() override { KXUserDefaults::standard().remove(key); }

    std::unique_ptr<Details> show(const KXRef<KXFilterSetPreset> &of)
    {
        auto details = std::make_unique<Details>(of);
        details->setDelegate(&owner);
        details->setCountsContextIdentifier(u"shop.beats"_s); // dots belong to it
        details->setLoadEnabled(true);
        details->setAvailable(true);
        details->view()->resize(300, 300);
        details->appearIn(&window);
        window.show();
        return details;
    }
    void select(const Details &details, const QStringList &titles)
    {
        QTreeView *outline = details.outlineView();
        outline->clearSelection();
        for (QModelIndex row = outline->model()->index(0, 0); row.isValid(); row = outline->indexBelow(row)) {
            if (titles.contains(row.data().toString()))
                outline->selectionModel()->select(row, QItemSelectionModel::Select);
        }
    }
    KXRef<KXFacetFilterValue> value(const QString &name) const
    {
        for (const auto &value : keys->values()) {
            if (value->name() == name)
                return value;
        }
        return {};
    }

    const QString key { KXFilterSetPresetDetailsOnlyShowItemsWithCountsKey };
    KXRef<KXRangeFilter> tempo;
    KXRef<KXFacetFilter> keys, names;
    KXRef<KXFilterSetPreset> preset;
    DetailsOwner owner;
    QWidget window;
};

TEST_F(DetailsTest, showFiltersAndWhatIsBelowThem)
{
    const auto details = show(preset);
    const QAbstractItemModelTester tester(
        details->outlineView()->model(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    const QString all = u"Key(a b c NOT x) Tempo(>= 120) Mark(m n)"_s;
    EXPECT_EQ(detailsShown(*details), all);
    EXPECT_EQ(details->outlineView()->visualRect(details->outlineView()->model()->index(0, 0)).height(), 22);
    EXPECT_EQ(
        details->outlineView()
            ->visualRect(details->outlineView()->model()->index(0, 0, details->outlineView()->model()->index(0, 0)))
            .height(),
        19);

    value(u"a"_s)->setCount(3, u"shop.beats"_s);
    value(u"b"_s)->setCount(0, u"shop.beats"_s);
    value(u"c"_s)->setCount(1200, u"beats"_s);
    KXUserDefaults::standard().setValue(key, true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return detailsShown(*details) == u"Key(a) Tempo(>= 120) Mark()"_s; }));
    details->outlineView()->viewport()->grab();
    EXPECT_TRUE(owner.displayed.contains(u"a:3"_s));
    owner.countsFilter = false;
    details->reload();
    EXPECT_EQ(detailsShown(*details), all);
    owner.countsFilter = true;
    details->setOnlyShowItemsWithCounts(true);
    KXUserDefaults::standard().remove(key);
    EXPECT_TRUE(QTest::qWaitFor([&] { return detailsShown(*details) == all; }));

    // However many counts arrive, one reading; each makes a row for the setting.
    const size_t before = details->defaultValues().size();
    QSignalSpy resets(details->outlineView()->model(), &QAbstractItemModel::modelReset);
    details->outlineView()->collapse(details->outlineView()->model()->index(1, 0));
    select(*details, { u"b"_s });
    for (int i = 0; i < 100; ++i)
        preset->setCount(i, u"shop.beats"_s);
    EXPECT_TRUE(QTest::qWaitFor([&] { return details->defaultValues().size() > before; }));
    QTest::qWait(0);
    EXPECT_EQ(details->defaultValues().size(), before + 1);
    EXPECT_EQ(detailsShown(*details), u"Key(a b* c NOT x) Tempo() Mark(m n)"_s);
    EXPECT_EQ(resets.count(), 0);
}

TEST_F(DetailsTest, areAsTheyWereWhereTheirWindowHasEnded)
{
    const auto details = show(preset);
    const QString all = detailsShown(*details);
    auto other = std::make_unique<QWidget>();
    details->appearIn(other.get());
    other.reset();
    EXPECT_FALSE(details->hasAppeared());
    details->appearIn(&window);
    EXPECT_TRUE(details->hasAppeared());
    EXPECT_EQ(detailsShown(*details), all);
}

TEST_F(DetailsTest, loadWhatIsPicked)
{
    auto details = show(preset);
    // Not saved, and to be seen all the same.
    const auto fresh = make<KXFacetFilterValue>();
    fresh->setName(u"d"_s);
    keys->addToValues(fresh);
    context->processPendingChanges();
    details->reload();
    select(*details, { u"a"_s, u"d"_s, u"Tempo"_s, u">= 120"_s });
    EXPECT_EQ(detailsShown(*details), u"Key(a* b c d* NOT x) Tempo(>= 120) Mark(m n)"_s); // values alone can be picked
    int announced = 0;
    const auto token
        = KXNotificationCenter::defaultCenter().addObserver(QString(KXManagedObjectContextObjectsDidChangeNotification),
            context.get(), [&](const KXNotification &) { ++announced; });
    QTest::keyClick(details->outlineView(), Qt::Key_Return);
    ASSERT_EQ(owner.loaded.size(), 1);
    const KXRef<KXFilterSet> set = owner.loaded.takeFirst();
    details.reset();
    context->processPendingChanges();
    QTest::qWait(0);
    EXPECT_EQ(detailsEnabledIn(set), (QStringList { u"a"_s, u"d"_s, u"m"_s, u"n"_s }));
    EXPECT_NE(set->managedObjectContext(), context.get());
    EXPECT_EQ(detailsEnabledIn(preset->filterSet()),
        (QStringList { u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"x"_s, u"m"_s, u"n"_s }));
    EXPECT_EQ(announced, 0);
    context->rollback();

    struct Case
    {
        bool loadEnabled, available;
        int items, loads;
    };
    for (const Case &one : { Case { true, true, 1, 1 }, { true, false, 0, 0 }, { false, true, 0, 0 } }) {
        details = show(preset);
        select(*details, { u"a"_s });
        details->setLoadEnabled(one.loadEnabled);
        details->setAvailable(one.available);
        KXMenu menu;
        details->menuNeedsUpdate(menu);
        ASSERT_EQ(menu.actions().size(), one.items);
        QTest::keyClick(details->outlineView(), Qt::Key_Return);
        EXPECT_EQ(owner.loaded.size(), one.loads);
        EXPECT_EQ(details->outlineView()->selectionModel()->hasSelection(), one.loads == 1);
        EXPECT_EQ(details->notAvailableMessageView()->isVisible(), !one.available);
        EXPECT_EQ(details->outlineView()->isVisible(), one.available);
        owner.loaded.clear();
    }
}

// Saves, merges and deletions elsewhere are seen while the window is; what came meanwhile when it is shown again.
TEST_F(DetailsTest, stayTrue)
{
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto merging = coordinator->addChangeObserver([&](const std::shared_ptr<const KXStoreChange> &change) {
        if (change->originatingContext() == other.get())
            context->mergeChangesFromStoreChange(change);
    });
    const auto there = [&]<typename Object>(const KXRef<Object> &object) {
        return Object::cast(other->objectWithID(object->objectID()));
    };
    const auto details = show(preset);
    make<KXFilterSet>();
    const size_t before = details->defaultValues().size();
    ASSERT_TRUE(context->save());
    EXPECT_EQ(details->defaultValues().size(), before); // nothing of ours
    value(u"a"_s)->setName(u"z"_s);
    ASSERT_TRUE(context->save());
    EXPECT_EQ(detailsShown(*details), u"Key(b c NOT x z) Tempo(>= 120) Mark(m n)"_s);
    context->removeManagedObject(names);
    ASSERT_TRUE(context->save());
    EXPECT_EQ(detailsShown(*details), u"Key(b c NOT x z) Tempo(>= 120)"_s);
    there(tempo)->setStartValue(KXDecimal::fromInteger(99));
    other->removeManagedObject(there(value(u"b"_s)));
    ASSERT_TRUE(other->save(nullptr));
    EXPECT_EQ(detailsShown(*details), u"Key(c NOT x z) Tempo(>= 99)"_s);

    // Another set altogether, and back.
    const auto first = preset->filterSet();
    const auto second = set({ range(u"1"_s, {}) });
    preset->setFilterSet(second);
    ASSERT_TRUE(context->save());
    EXPECT_EQ(detailsShown(*details), u">= 1(>= 1)"_s);
    preset->setFilterSet(first);
    context->removeManagedObject(second);
    ASSERT_TRUE(context->save());
    EXPECT_EQ(detailsShown(*details), u"Key(c NOT x z) Tempo(>= 99)"_s);

    window.hide();
    context->removeManagedObject(tempo);
    ASSERT_TRUE(context->save());
    EXPECT_EQ(detailsShown(*details), u"Key(c NOT x z) ()"_s); // not looked at again, and no harm
    details->viewWillAppear();
    window.show();
    EXPECT_EQ(detailsShown(*details), u"Key(c NOT x z)"_s);

    select(*details, { u"c"_s });
    other->removeManagedObject(there(preset));
    ASSERT_TRUE(other->save(nullptr));
    EXPECT_EQ(detailsShown(*details), QString());
    details->outlineView()->viewport()->grab();
    details->loadSelected();
    EXPECT_TRUE(owner.loaded.isEmpty());
    EXPECT_EQ(KXFilterSet::countOfInContext(*context), 1); // the other one
}

TEST_F(DetailsTest, doWithoutWhatIsMissing)
{
    const auto dangling = Shelf::preset(u"d"_s);
    dangling->setFilterSetURI(QUrl(u"x-kestrix-store://none/KXFilterSet/p1"_s));
    for (const auto &missing : { KXRef<KXFilterSetPreset>(), folderPreset(u"f"_s), dangling, preset }) {
        Details details(missing);
        EXPECT_EQ(details.outlineView(), nullptr);
        details.setLoadEnabled(true);
        details.setAvailable(true);
        KXMenu menu;
        details.menuNeedsUpdate(menu);
        details.setAvailable(false);
        details.menuNeedsUpdate(menu);
        EXPECT_TRUE(menu.actions().isEmpty());
        details.setAvailable(true);
        details.reload();
        details.loadSelected();
        details.view()->show();
        details.loadSelected(); // nobody to load it
        auto owner = std::make_unique<DetailsOwner>();
        details.setDelegate(owner.get());
        details.loadEnablingComponents(
            { tempo->objectID(), KXManagedObjectID(), preset ? preset->objectID() : KXManagedObjectID() });
        EXPECT_EQ(owner->loaded.size(), missing == preset ? 1 : 0);
        details.setDelegate(nullptr);
        // A save that no details follow, on a thread of its own.
        std::thread([&] {
            const auto elsewhere = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            EXPECT_TRUE(KXFilterSet::createInContext(*elsewhere));
            EXPECT_TRUE(elsewhere->save(nullptr));
        }).join();
    }
}
