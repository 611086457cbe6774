// The presets library and its popover: what the user does there, and what happens underneath meanwhile.

#include <QApplication>
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetsManagerViewController.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableSplitView.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXPasteboard.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;
using Preset = KXRef<KXFilterSetPreset>;
using Library = KXFilterSetPresetsViewController;
using Details = KXFilterSetPresetDetailsViewController;
using Manager = KXFilterSetPresetsManagerViewController;
using Item = Library::MenuItem;

namespace {

/// Says yes to everything (nothing at all, too) but presets whose title says no.
class PickyMapper : public KXFilterSetMapper
{
public:
    bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override { return !set || set->title() != "no"_L1; }
    KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override
    {
        return set->duplicateInContext(inContext);
    }
};

}

class LibraryTest : public ::testing::Test,
                    public Shelf,
                    public KXFilterSetPresetsViewControllerDelegate,
                    public KXFilterSetPresetDetailsViewControllerDelegate,
                    public KXFilterSetPresetsManagerViewControllerDelegate
{
protected:
    LibraryTest()
    {
        forgetDefaults();
        KXAnimationGroup::setAnimationsEnabled(false);
        context->setUndoManager(std::make_shared<KXUndoManager>());
        presetsManager = std::make_shared<KXFilterSetPresetsManager>(context);
        KXFilterSetPresetsManager::setSharedManager(presetsManager);
        presetsManager->registerFilterSetMapper(std::make_shared<PickyMapper>(), context);
        a = add(u"a"_s, 0);
        b = add(u"b"_s, 1);
        f = folderPreset(u"F"_s, { a, b });
        c = add(u"c"_s, 1);
        d = add(u"d"_s, 2);
        d->setIsDeletable(false);
        d->setIsOverwritable(false);
        context->save();
        context->undoManager()->removeAllActions();
        library = std::make_unique<Library>(context);
        library->setEditActionsEnabled(true);
        library->setLoadEnabled(true);
        library->setCountsContextIdentifier(u"here"_s);
        library->setDelegate(this);
        library->view()->resize(600, 400);
        library->view()->show();
        list()->expandAll();
        QApplication::setActiveWindow(list()->window());
        list()->setFocus();
    }
    ~LibraryTest() override
    {
        library.reset();
        KXFilterSetPresetsManager::setSharedManager(nullptr);
        KXAnimationGroup::setAnimationsEnabled(true);
        forgetDefaults();
    }
    static void forgetDefaults()
    {
        KXUserDefaults::standard().remove(QString(KXRemoveFilterSetPresetAlertSuppressKey));
        for (const char *what : { "Selection", "Expanded Items", "Split View" })
            KXUserDefaults::standard().remove(KXStringWithFormat("lib %s", what));
    }

    Preset add(const QString &title, qint64 position)
    {
        const Preset made = preset(title, set({ facet({ u"x"_s, u"y"_s }) }));
        made->filterSet()->setTitle(title == "c"_L1 ? u"no"_s : u"yes"_s);
        made->setPosition(position);
        return made;
    }
    Preset named(const QString &title)
    {
        return KXFilterSetPreset::findFirstUsingPredicate(
            KXPredicate::predicateWithFormat("title == %@", title), *context);
    }
    void select(const QStringList &titles)
    {
        QList<KXRef<KXManagedObject>> objects;
        for (const QString &title : titles)
            objects.append(named(title));
        library->sourceListTreeController()->setSelectedObjects(objects);
    }
    /// "F(a b) c d" as the store has it; numbers behind titles whose places are not 0, 1, 2, …
    QString stored(const Preset &parent = {})
    {
        QStringList parts;
        KXFetchRequest request(QString(KXFilterSetPreset::entityName),
            KXPredicate::predicateWithFormat("parent == %@", KXVariantFromRef(parent)));
        for (const auto &object : context->fetch(request.setSortDescriptors({ { u"position"_s } }))) {
            const auto one = KXFilterSetPreset::cast(object);
            const QString below = stored(one);
            const QString place = one->position() == parts.size() ? QString() : QString::number(one->position());
            parts += one->title() + place + (below.isEmpty() ? QString() : u'(' + below + u')');
        }
        return parts.join(u' ');
    }
    /// What is scheduled for the next turn may schedule something itself.
    static void turns()
    {
        for (int i = 0; i < 5; ++i)
            QTest::qWait(0);
    }
    KXSourceListView *list() { return library->sourceListViewController()->sourceListView(); }
    KXUndoManager &undo() { return *context->undoManager(); }
    QString shown()
    {
        const Details *details = library->currentDetailsViewController();
        EXPECT_NE(library->placeholderView()->isVisible(), library->filterSetDetailsContainerView()->isVisible());
        if (library->placeholderView()->isVisible())
            return library->placeholderView()->text();
        return details->filterSetPreset()->title() + (details->isAvailable() ? u""_s : u" (not here)"_s);
    }

    // What the views ask

    bool isPresetAvailable(Library &, const Preset &preset) override
    {
        return presetsManager->isPresetAvailable(preset, context);
    }
    std::unique_ptr<Details> detailsViewControllerForPreset(Library &, const Preset &preset) override
    {
        ++made;
        auto details = std::make_unique<Details>(preset);
        details->setDelegate(this);
        return details;
    }
    void loadFilterSet(Details &, const KXRef<KXFilterSet> &) override { }
    bool isCountsFilterEnabledForFacetFilter(Details &, const KXRef<KXFacetFilter> &) override { return false; }
    void willDisplayFacetFilterValueCell(Details &, KXFacetFilterValueCellView &) override { }
    bool loadFilterSet(Manager &, const KXRef<KXFilterSet> &set) override
    {
        loaded.append(set);
        if (onLoading)
            onLoading();
        return loads;
    }

    std::function<void()> onLoading;
    KXFilterSetPresetsManager::Ref presetsManager;
    Preset a, b, c, d, f;
    std::unique_ptr<Library> library;
    int made = 0;
    bool loads = true;
    QList<KXRef<KXFilterSet>> loaded;
};

TEST_F(LibraryTest, deletesAfterAQuestion)
{
    struct Case
    {
        QStringList selected;
        KXAlertAnswer answer;
        QString question, left, undoName;
        bool suppresses = false;
    };
    const QString one = u"Are you sure you want to delete the selected preset?"_s;
    const QString more = u"Are you sure you want to delete the selected presets?"_s;
    const QString all = u"F(a b) c d"_s;
    const Case cases[] {
        { { u"c"_s }, { 0 }, one, u"F(a b) d"_s, u"Delete Filter Preset"_s },
        { { u"a"_s }, { 0, true }, one, u"F(b) c d"_s, u"Delete Filter Preset"_s, true },
        { { u"c"_s, u"d"_s }, { 0 }, more, u"F(a b) d"_s, u"Delete Filter Presets"_s },
        { { u"F"_s, u"b"_s }, { 0 }, more, u"c d"_s, u"Delete Filter Presets"_s },
        { { u"a"_s, u"b"_s, u"c"_s }, { 0 }, more, u"F d"_s, u"Delete Filter Presets"_s },
        { { u"c"_s }, { 1, true }, one, all, {} },
        { { u"c"_s }, { -1, true }, one, all, {} },
        { { u"d"_s }, { 0 }, {}, all, {} },
        { {}, { 0 }, {}, all, {} },
    };
    for (const Case &now : cases) {
        QString asked;
        const auto runner = KXAlert::setRunner([&](const KXAlert &alert) {
            asked += alert.text();
            EXPECT_TRUE(alert.showsSuppressionButton());
            EXPECT_EQ(alert.buttons(), (QStringList { u"Yes"_s, u"No"_s }));
            return now.answer;
        });
        const qint64 sets = KXFilterSet::countOfInContext(*context);
        select(now.selected);
        QTest::keyClick(list(), now.selected.size() == 1 ? Qt::Key_Backspace : Qt::Key_Delete);
        EXPECT_EQ(asked, now.question);
        EXPECT_EQ(stored(), now.left);
        EXPECT_FALSE(context->hasChanges());
        EXPECT_EQ(undo().canUndo() ? undo().undoActionName() : QString(), now.undoName);
        const QString key(KXRemoveFilterSetPresetAlertSuppressKey);
        EXPECT_EQ(KXUserDefaults::standard().boolForKey(key).value_or(false), now.suppresses);
        if (undo().canUndo())
            undo().undo();
        EXPECT_EQ(stored(), all);
        EXPECT_EQ(KXFilterSet::countOfInContext(*context), sets);
        context->save();
        undo().removeAllActions();
        if (now.suppresses) { // without a question from now on
            select({ u"c"_s });
            library->deletePreset();
            EXPECT_EQ(asked, now.question);
            EXPECT_EQ(stored(), u"F(a b) d"_s);
            undo().undo();
            KXUserDefaults::standard().remove(key);
            context->save();
            undo().removeAllActions();
        }
    }
}

// While the question stands everything else goes on.
TEST_F(LibraryTest, looksAgainAfterTheQuestion)
{
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto merging = coordinator->addChangeObserver([&](const std::shared_ptr<const KXStoreChange> &change) {
        if (change->originatingContext() == other.get())
            context->mergeChangesFromStoreChange(change);
    });
    QPushButton anchor;
    anchor.show();
    KXPopoverController popover(library.get());
    popover.setBehaviour(KXPopoverBehaviour::SemiTransient);
    library->setPresentingPopoverController(&popover);
    std::function<void()> meanwhile;
    const auto runner = KXAlert::setRunner([&](const KXAlert &) {
        EXPECT_EQ(popover.behaviour(), KXPopoverBehaviour::ApplicationDefined);
        meanwhile();
        return KXAlertAnswer { 0 };
    });

    select({ u"c"_s, u"b"_s });
    meanwhile = [&] {
        for (const QString &title : { u"c"_s, u"a"_s })
            other->removeManagedObject(other->objectWithID(named(title)->objectID()));
        ASSERT_TRUE(other->save(nullptr));
    };
    library->deletePreset();
    EXPECT_EQ(stored(), u"F d2"_s); // the other one did not renumber; the top level was not ours to change
    EXPECT_EQ(popover.behaviour(), KXPopoverBehaviour::Transient);
    undo().undo();
    EXPECT_EQ(stored(), u"F(b1) d2"_s);
    ASSERT_TRUE(context->save());

    select({ u"b"_s });
    meanwhile = [&] {
        library->setPresentingPopoverController(nullptr);
        library->sourceListTreeController()->setSelectedObjects({});
        undo().removeAllActions();
    };
    library->deletePreset();
    EXPECT_EQ(stored(), u"F d2"_s);

    select({ u"F"_s });
    library->setPresentingPopoverController(&popover);
    meanwhile = [&] { library.reset(); };
    library->deletePreset();
    EXPECT_EQ(stored(), u"F d2"_s);
}

TEST_F(LibraryTest, makesFoldersAndCopies)
{
    const QString type(KXFilterSetPresetPasteboardType);
    const auto folderMade = [&] { library->addFolder(); };
    const auto pasted = [&] { library->paste(); };
    const QVariantList two { b->objectID().URIRepresentation(), d->objectID().URIRepresentation() };
    const Preset gone = add(u"gone"_s, 9);
    const QVariantList stale { gone->objectID().URIRepresentation() };
    context->removeManagedObject(gone);
    context->save();
    const QVariantList foreign { u"c"_s, 7, QVariantMap { { u"a"_s, 1 } }, QUrl(u"https://example.org"_s),
        QUrl(u"x-kestrix-store://elsewhere/KXFilterSetPreset/p1"_s), a->filterSet()->objectID().URIRepresentation() };
    undo().removeAllActions();
    struct Case
    {
        QStringList selected;
        QVariantList pasteboard;
        std::function<void()> act;
        QString then;
        bool mayPaste;
    };
    const QString all = u"F(a b) c d"_s;
    const Case cases[] {
        { {}, {}, folderMade, u"F(a b) c d untitled folder"_s, false },
        { { u"a"_s }, {}, folderMade, u"F(a b) c d untitled folder"_s, false },
        { { u"F"_s, u"c"_s }, {}, folderMade, u"F(a b untitled folder) c d"_s, false },
        { {}, two, pasted, u"F(a b) c d b d"_s, true },
        { { u"a"_s }, two, pasted, u"F(a b d b) c d"_s, true },
        { { u"F"_s }, two, pasted, u"F(a b b d) c d"_s, true },
        { { u"c"_s }, two, pasted, u"F(a b) c b d d"_s, true },
        { { u"d"_s }, two, pasted, all, false }, // is not to be changed
        { {}, stale, pasted, all, true },
        { {}, foreign, pasted, all, true },
    };
    for (const Case &now : cases) {
        KXPasteboard::setItems(type, now.pasteboard);
        select(now.selected);
        EXPECT_EQ(library->validateMenuItem(Item::Paste), now.mayPaste) << stored().toStdString();
        const qint64 sets = KXFilterSet::countOfInContext(*context);
        now.act();
        EXPECT_EQ(stored(), now.then);
        EXPECT_FALSE(context->hasChanges() || undo().canUndo());
        EXPECT_EQ(list()->isEditing(), now.then.contains(u"folder"_s)); // to be named at once
        const auto selected = library->selectedPreset();
        if (now.then != all) {
            ASSERT_TRUE(selected);
            EXPECT_TRUE(!now.selected.contains(selected->title()) || selected->objectID().key() > d->objectID().key());
        }
        // Away again, and nothing is left of it.
        for (const KXRef<KXManagedObject> &object : KXFilterSetPreset::findAllInContext(*context)) {
            if (object->objectID().key() > gone->objectID().key())
                context->removeManagedObject(object);
        }
        EXPECT_EQ(KXFilterSet::countOfInContext(*context), sets);
        d->setPosition(2);
        b->setPosition(1);
        context->save();
        undo().removeAllActions();
        ASSERT_EQ(stored(), all);
    }
}

TEST_F(LibraryTest, copiesAndPastesByKeys)
{
    const QString type(KXFilterSetPresetPasteboardType);
    // Folders stay behind; alone they leave nothing to paste.
    select({ u"F"_s, u"b"_s });
    QTest::keyClick(list(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(KXPasteboard::items(type), QVariantList { b->objectID().URIRepresentation() });
    select({ u"F"_s });
    EXPECT_FALSE(library->validateMenuItem(Item::Copy));
    library->copy();
    EXPECT_TRUE(QGuiApplication::clipboard()->mimeData()->hasFormat(type));
    EXPECT_FALSE(library->validateMenuItem(Item::Paste));
    select({ u"b"_s });
    library->copy();
    select({});
    QTest::keyClick(list(), Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(stored(), u"F(a b) c d b"_s);
}

TEST_F(LibraryTest, duplicatesWherePositionsSayNothing)
{
    // As undoing between other changes leaves them.
    for (const auto &one : { a, b })
        one->setPosition(40);
    context->processPendingChanges();
    library->sourceListTreeController()->setSelectedObjects({ a });
    library->duplicatePresets({ c, a });
    EXPECT_EQ(stored(), u"F(a c a b) c d"_s);
}

TEST_F(LibraryTest, showsDetailsOfTheSelected)
{
    EXPECT_EQ(shown(), u"No Filter Preset Selected"_s);
    EXPECT_TRUE(library->isAddEnabled() && !library->isDeleteEnabled());
    const Preset empty = preset(u"empty"_s, set({}));
    const Preset dangling = preset(u"dangling"_s);
    context->processPendingChanges();
    struct Case
    {
        QStringList selected;
        QString shown;
        bool mayDelete, mayAdd;
    };
    const Case cases[] { { { u"a"_s }, u"a"_s, true, true }, { { u"c"_s }, u"c (not here)"_s, true, true },
        { { u"d"_s }, u"d"_s, false, false }, { { u"a"_s, u"d"_s }, u"a"_s, false, false },
        { { u"F"_s }, u"No Filter Preset Selected"_s, true, true }, { { u"empty"_s }, u"Empty Preset"_s, true, true },
        { { u"dangling"_s }, u"Empty Preset"_s, true, true }, { { u"a"_s }, u"a"_s, true, true } };
    for (const Case &now : cases) {
        select(now.selected);
        EXPECT_EQ(shown(), now.shown);
        EXPECT_EQ(library->isDeleteEnabled(), now.mayDelete);
        EXPECT_EQ(library->isAddEnabled(), now.mayAdd);
        EXPECT_EQ(library->deleteButton()->isEnabled(), now.mayDelete);
    }
    EXPECT_EQ(made, 3); // once each
    const Details *details = library->currentDetailsViewController();
    EXPECT_EQ(library->currentDetailsViewController()->view()->geometry().topLeft(), QPoint(1, 1));
    EXPECT_TRUE(details->isLoadEnabled());
    EXPECT_EQ(details->countsContextIdentifier(), u"here"_s);

    // The window that it was in has ended.
    auto window = std::make_unique<QWidget>();
    library->appearIn(window.get());
    window.reset();
    QWidget next;
    library->appearIn(&next);
    next.show();
    EXPECT_EQ(shown(), u"a"_s);
    EXPECT_TRUE(
        library->filterSetDetailsContainerView()->isAncestorOf(library->currentDetailsViewController()->view()));
}

TEST_F(LibraryTest, rowsSayWhatIsOfUseAndWhatMayBeRenamed)
{
    select({ u"a"_s });
    const auto cell = [&](const Preset &of) {
        return list()->cellForRow(library->sourceListTreeController()->indexForNode(
            library->sourceListTreeController()->treeNodeForObject(of.get())));
    };
    a->setCount(7, u"here"_s);
    EXPECT_TRUE(cell(a).isEnabled && cell(a).isEditable && cell(f).isEnabled && !cell(a).isExpandable);
    EXPECT_EQ(cell(a).count, 7);
    EXPECT_EQ(cell(f).count, 7);
    a->setCount(7, u"here"_s, KXClock::now());
    const QModelIndex aged = library->sourceListTreeController()->indexForNode(
        library->sourceListTreeController()->treeNodeForObject(a.get()));
    EXPECT_TRUE(aged.data(Qt::ToolTipRole).toString().endsWith(u"7, counted just now"_s));
    EXPECT_TRUE(aged.data(Qt::AccessibleTextRole).toString().endsWith(u"7, counted just now"_s));
    EXPECT_FALSE(cell(c).isEnabled || cell(d).isEditable || cell(c).toolTip.isEmpty());
    KXMenu menu;
    library->menuNeedsUpdate(menu);
    EXPECT_EQ(menu.actions().size(), 3);
    library->setEditActionsEnabled(false);
    library->menuNeedsUpdate(menu);
    EXPECT_EQ(menu.actions().size(), 1);
    EXPECT_FALSE(library->validateMenuItem(Item::Copy));
    EXPECT_TRUE(library->validateMenuItem(Item::Delete) && library->validateMenuItem(Item::Other));
}

TEST_F(LibraryTest, aTitleIsNoLongerEditedOnceItsPresetHasGone)
{
    select({ u"b"_s });
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto merging = coordinator->addChangeObserver(
        [&](const std::shared_ptr<const KXStoreChange> &change) { context->mergeChangesFromStoreChange(change); });
    list()->editTitle(list()->currentIndex());
    other->removeManagedObject(other->objectWithID(b->objectID()));
    ASSERT_TRUE(other->save(nullptr));
    EXPECT_NE(shown(), u"b"_s);
    EXPECT_FALSE(list()->isEditing());
    QTest::qWait(0);
    library->view()->grab();
}

// Whatever the user and others do, in any order: buttons and panes say what the store does.
static void editAtRandom(const Preset &preset, KXTestRandom &random)
{
    const auto set = preset ? preset->filterSet() : KXRef<KXFilterSet>();
    const int what = preset ? random.below(7) : 0;
    if (what == 1)
        preset->setIsDeletable(random.chance(0.7));
    else if (what == 2)
        preset->setIsOverwritable(random.chance(0.7));
    else if (what == 3 && set && !set->isMissing() && !set->filters().isEmpty())
        preset->managedObjectContext()->removeManagedObject(set->filters().first());
    else if (what == 4 && set && !set->isMissing())
        set->setTitle(random.chance(0.5) ? u"no"_s : u"yes"_s);
    else if (what == 5 && random.chance(0.3))
        preset->managedObjectContext()->removeManagedObject(preset);
    else if (what == 6)
        preset->setCount(random.below(2000), u"here"_s);
}

TEST_F(LibraryTest, tellsTheTruthThroughRandomWalks)
{
    KXTestRandom random;
    const auto runner = KXAlert::setRunner([&](const KXAlert &) { return KXAlertAnswer { random.below(4) ? 0 : 1 }; });
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto merging = coordinator->addChangeObserver([&](const std::shared_ptr<const KXStoreChange> &change) {
        (change->originatingContext() == other.get() ? context : other)->mergeChangesFromStoreChange(change);
    });
    const auto any = [&](KXManagedObjectContext &of) {
        const KXFetchedList all = KXFilterSetPreset::findAllInContext(of);
        return all.isEmpty() ? Preset() : KXFilterSetPreset::cast(all.at(random.below(int(all.size()))));
    };
    const auto selectAny = [&] {
        QList<KXRef<KXManagedObject>> objects;
        for (int i = random.below(4); i > 0; --i)
            objects.append(any(*context));
        library->sourceListTreeController()->setSelectedObjects(objects);
    };
    const std::vector<std::function<void()>> acts { selectAny, selectAny, selectAny, [&] { library->addFolder(); },
        [&] { library->deletePreset(); }, [&] { library->copy(); }, [&] { library->paste(); },
        [&] {
            library->duplicatePresets({ any(*context), any(*context) });
        },
        [&] { undo().undo(); }, [&] { undo().redo(); }, [&] { editAtRandom(any(*context), random); },
        [&] { editAtRandom(library->selectedPreset(), random); },
        [&] { editAtRandom(library->selectedPreset(), random); }, [&] { context->save(nullptr); },
        [&] {
            editAtRandom(any(*other), random);
            EXPECT_TRUE(other->save(nullptr));
        },
        [&] {
            add(QString::number(random.below(100)), random.below(5));
            context->save(nullptr);
        } };
    const int rounds = KXTestRandom::scaled(4000);
    for (int round = 0; round < rounds; ++round) {
        const int what = random.below(int(acts.size()));
        acts[size_t(what)]();
        context->processPendingChanges();
        const auto selected = library->selectedPresets();
        bool mayDelete = !selected.isEmpty(), mayAdd = true;
        for (const Preset &one : selected) {
            mayDelete &= one->isDeletable();
            mayAdd &= one->isOverwritable();
        }
        ASSERT_EQ(library->isDeleteEnabled(), mayDelete) << "round " << round << ", step " << what;
        ASSERT_EQ(library->isAddEnabled(), mayAdd) << "round " << round << ", step " << what;
        const Preset first = selected.value(0);
        const auto set = first && !first->isFolder() ? first->filterSet() : KXRef<KXFilterSet>();
        const bool hasDetails = set && !set->filters().isEmpty();
        const Details *const details = library->currentDetailsViewController();
        ASSERT_EQ(details ? details->filterSetPreset() : Preset(), hasDetails ? first : Preset()) << "round " << round;
        ASSERT_EQ(details && details->isAvailable(), hasDetails && set->title() != "no"_L1) << "round " << round;
        if (random.chance(0.05)) {
            turns();
            library->view()->grab();
        }
        if (KXFilterSetPreset::countOfInContext(*context) > 25)
            library->removePresets({ any(*context), any(*context), any(*context) });
    }
}

TEST_F(LibraryTest, remembersHowItWas)
{
    library->setAutosaveName(u"lib"_s);
    turns();
    list()->expandAll();
    select({ u"b"_s });
    library->splitView()->setSizes({ 300, 200 });
    Q_EMIT library->splitView()->splitterMoved(300, 1);
    const int left = library->splitView()->sizes().first();
    turns();
    const auto again = [&] {
        library = std::make_unique<Library>(context);
        library->setAutosaveName(u"lib"_s);
        library->setDelegate(this);
        library->view()->resize(600, 400);
        library->view()->show();
        turns();
        library->restoreState(); // once more does no harm
        turns();
    };
    again();
    EXPECT_EQ(library->selectedPreset(), b);
    EXPECT_TRUE(list()->isExpanded(list()->model()->index(0, 0)));
    EXPECT_EQ(library->splitView()->sizes().first(), left);
    EXPECT_TRUE(library->currentDetailsViewController());
    select({ u"a"_s });
    turns();
    select({ u"b"_s }); // soon after another
    again();
    EXPECT_EQ(library->selectedPreset(), b);

    // Without name nothing is remembered any more.
    library->setAutosaveName({});
    select({ u"a"_s });
    library->splitView()->setSizes({ 200, 300 });
    Q_EMIT library->splitView()->splitterMoved(200, 1);
    QTest::qWait(500);
    again();
    EXPECT_EQ(library->selectedPreset(), b);
    EXPECT_EQ(library->splitView()->sizes().first(), left);

    for (const QVariant &rubbish :
        { QVariant(u"x"_s), QVariant(QVariantList { -5, 900000 }), QVariant(QByteArray("\xff\x01zz")) }) {
        for (const char *what : { "Selection", "Expanded Items", "Split View" })
            KXUserDefaults::standard().setValue(KXStringWithFormat("lib %s", what), rubbish);
        again();
        EXPECT_GT(library->splitView()->sizes().first(), 0);
    }
}

/// The library in its popover, which a button opens.
class LibraryPopoverTest : public LibraryTest
{
protected:
    LibraryPopoverTest()
    {
        library.reset(); // the manager has its own one
        anchor.show();
        manager = std::make_unique<Manager>(context);
        manager->setDelegate(this);
        own = manager->filterSetPresetsViewController();
        own->setDelegate(this);
        popover = std::make_unique<KXPopoverController>(manager.get());
        popover->setCloseAction([this] { ++closed; });
    }
    ~LibraryPopoverTest() override
    {
        KXUserDefaults::standard().remove(u"KXFilterSetPresetsManagerViewController Selection"_s);
    }

    QPushButton anchor;
    std::unique_ptr<Manager> manager;
    Library *own;
    std::unique_ptr<KXPopoverController> popover;
    int closed = 0;
};

TEST_F(LibraryPopoverTest, loadsByMouseKeyAndButton)
{
    EXPECT_TRUE(own->editActionsEnabled() && own->isLoadEnabled() && own->context() == context);
    const auto select = [&](const Preset &preset) {
        own->sourceListTreeController()->setSelectedObjects({ preset });
        const QModelIndex row = own->sourceListTreeController()->indexForNode(
            own->sourceListTreeController()->treeNodeForObject(preset.get()));
        return own->sourceListViewController()->sourceListView()->visualRect(row).center();
    };
    struct Case
    {
        Preset preset;
        bool canLoad, isLoaded;
    };
    for (const Case &now : { Case { a, true, true }, { c, false, false }, { f, true, false }, { {}, true, false } }) {
        popover->showRelativeTo(&anchor, Qt::BottomEdge);
        KXSourceListView *outline = own->sourceListViewController()->sourceListView();
        EXPECT_EQ(own->autosaveName(), u"KXFilterSetPresetsManagerViewController"_s);
        EXPECT_EQ(own->presentingPopoverController(), popover.get());
        EXPECT_TRUE(own->countsFilterButton()->isHidden());
        EXPECT_LE(own->countsFilterButton()->geometry().right() + 5, manager->loadButton()->geometry().left());
        outline->expandAll();
        loaded.clear();
        closed = 0;
        const QPoint place = select(now.preset);
        EXPECT_EQ(manager->selectedPreset(), now.preset);
        EXPECT_EQ(manager->canLoadSelectedPreset(), now.canLoad);
        EXPECT_EQ(manager->loadButton()->isEnabled(), now.isLoaded);
        for (const int way : { 0, 1, 2 }) { // by mouse, by key, by the button
            popover->showRelativeTo(&anchor, Qt::BottomEdge);
            if (way == 0 && now.preset) {
                QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, place);
                QTest::mouseDClick(outline->viewport(), Qt::LeftButton, {}, place);
            } else {
                way == 1 ? QTest::keyClick(outline, Qt::Key_Return) : manager->loadButton()->click();
            }
            EXPECT_EQ(popover->isShown(), !now.isLoaded) << way;
        }
        EXPECT_EQ(loaded.size(), now.isLoaded ? 3 : 0);
        EXPECT_EQ(closed, now.isLoaded ? 3 : 0);
        popover->close();
    }
    EXPECT_TRUE(a->lastLoaded().isValid() && !c->lastLoaded().isValid());
}

// Which the window behind would have.
TEST_F(LibraryPopoverTest, hasTheKeysThatUndoAndThatLeaveATitleAlone)
{
    popover->showRelativeTo(&anchor, Qt::BottomEdge);
    KXSourceListView *outline = own->sourceListViewController()->sourceListView();
    QApplication::setActiveWindow(outline->window());
    outline->editTitle(outline->model()->index(0, 0));
    ASSERT_TRUE(outline->isEditing());
    QTest::keyClick(outline->viewport()->findChild<QLineEdit *>(), Qt::Key_Escape);
    EXPECT_TRUE(popover->isShown() && !outline->isEditing());
    const auto runner = KXAlert::setRunner([](const KXAlert &) { return KXAlertAnswer { 0 }; });
    own->removePresets({ c });
    EXPECT_EQ(stored(), u"F(a b) d"_s);
    QTest::keyClick(outline, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(stored(), u"F(a b) c d"_s);
}

TEST_F(LibraryPopoverTest, notesNoLoadingThatWasRefused)
{
    loads = false;
    manager->loadPreset(b);
    EXPECT_EQ(loaded.size(), 1);
    EXPECT_FALSE(b->lastLoaded().isValid());
    // Nor where the preset is gone by then, and another one selected.
    loads = true;
    own->sourceListTreeController()->setSelectedObjects({ a });
    ASSERT_EQ(manager->selectedPreset(), a);
    onLoading = [&] {
        context->removeManagedObject(a);
        context->save();
    };
    manager->loadPreset(manager->selectedPreset());
    for (const Preset &other : { b, c, d })
        EXPECT_FALSE(other->lastLoaded().isValid()) << other->title().toStdString();
}

TEST_F(LibraryTest, doesWithoutWhatIsMissing)
{
    KXPasteboard::setItems(QString(KXFilterSetPresetPasteboardType), { a->objectID().URIRepresentation() });
    KXFilterSetPresetsManager::setSharedManager(nullptr);
    const auto runner = KXAlert::setRunner([](const KXAlert &) { return KXAlertAnswer { 0 }; });
    for (const bool shows : { false, true }) {
        Library alone(shows ? context : nullptr);
        Manager manager(nullptr);
        for (Library *one : { &alone, manager.filterSetPresetsViewController() }) {
            const auto everything = [&] {
                one->addFolder();
                one->removePresets({ Preset(), shows ? Preset() : a });
                one->deletePreset();
                one->copy();
                one->paste();
                one->duplicatePresets({ a, Preset() });
                one->showDetailsForPreset(a);
                one->showDetailsForPreset({});
                one->restoreState();
                (void)one->validateMenuItem(Item::Paste);
            };
            everything();
            one->view()->show();
            everything();
        }
        manager.load();
        manager.loadPreset({});
        manager.loadPreset(a);
        manager.view()->show();
        manager.load();
        manager.popoverWillShow();
        manager.popoverDidShow();
        alone.sourceListTreeController()->setSelectedObjects({ a });
        EXPECT_EQ(alone.currentDetailsViewController(), nullptr);
        alone.view()->grab();
    }
    EXPECT_TRUE(named(u"a"_s));
}
