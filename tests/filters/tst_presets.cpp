#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoGuards.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeManager.h>

#include "filters/Shelf.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

TEST(Presets, answerTheTreesQuestions)
{
    Shelf shelf;
    const auto child = shelf.preset(u"child"_s);
    const auto folder = shelf.folderPreset(u"folder"_s, { child });
    EXPECT_TRUE(folder->canBeParentForItem(child.get()));
    folder->setIsOverwritable(false);
    EXPECT_FALSE(folder->canBeParentForItem(child.get()) || child->canBeParentForItem(folder.get()));
    EXPECT_TRUE(child->isDescendantOfItem(child.get()) && child->isDescendantOfItem(folder.get()));
    EXPECT_FALSE(folder->isDescendantOfItem(child.get()));
    child->setIsRepositionable(false);
    EXPECT_FALSE(child->canBeRepositioned());
    EXPECT_TRUE(child->isEditable());

    const auto set = shelf.set({});
    EXPECT_FALSE(set->isEditable() || set->canBeParentForItem(set.get()) || set->isDescendantOfItem(set.get()));
    set->setIsFolder(true);
    EXPECT_TRUE(set->isEditable() && set->canBeParentForItem(child.get()));

    const auto theme = std::make_shared<KXTheme>();
    theme->setValueForKey(
        u"filterPresetIcons"_s, QVariantMap { { u"folder"_s, QIcon(u":/kestrixkit/icons/filter_set.svg"_s) } });
    KXThemeManager::sharedManager().setTheme(theme);
    EXPECT_FALSE(folder->image().isNull());
    EXPECT_TRUE(child->image().isNull());
    KXThemeManager::sharedManager().setTheme(nullptr);
}

TEST(Presets, ownTheSetsThatTheyName)
{
    Shelf shelf;
    auto filter = shelf.facet({ u"a"_s });
    auto preset = shelf.preset(u"p"_s, shelf.set({ filter }));
    const auto id = preset->objectID();
    const QUrl uri = preset->filterSetURI();
    filter = {};
    preset = {};
    shelf.reopen();

    const auto undo = std::make_shared<KXUndoManager>();
    undo->setGroupsByEvent(false);
    shelf.context->setUndoManager(undo);
    preset = KXFilterSetPreset::cast(shelf.context->objectWithID(id));
    const auto set = preset->filterSet();
    ASSERT_TRUE(set);
    EXPECT_EQ(set->filters().size(), 1);
    const auto everything = [&] {
        return KXFilterSetPreset::countOfInContext(*shelf.context) + KXFilterSet::countOfInContext(*shelf.context)
            + KXFilter::countOfInContext(*shelf.context) + KXFacetFilterValue::countOfInContext(*shelf.context);
    };
    // Held once found, whatever becomes of the URI.
    preset->setFilterSetURI(QUrl(u"nonsense"_s));
    EXPECT_EQ(preset->filterSet(), set);
    preset->setFilterSetURI(uri);
    const auto folder = shelf.folderPreset(u"f"_s, { preset });
    ASSERT_TRUE(shelf.context->save());
    {
        const KXUndoGroup group(undo.get());
        shelf.context->removeManagedObject(folder); // and with it the preset, its set, the filter and the value
    }
    EXPECT_EQ(everything(), 0);
    ASSERT_TRUE(shelf.context->save());
    EXPECT_EQ(preset->filterSet(), set); // without a context to ask
    undo->undo();
    EXPECT_EQ(everything(), 5);
    EXPECT_EQ(preset->filterSet(), set);
    EXPECT_EQ(set->filters().size(), 1);
    ASSERT_TRUE(shelf.context->save());

    // A set that is gone: the preset stays, and whatever lies at its old place is not touched.
    shelf.context->removeManagedObject(set);
    ASSERT_TRUE(shelf.context->save());
    preset = {};
    shelf.reopen();
    preset = KXFilterSetPreset::cast(shelf.context->objectWithID(id));
    const auto stranger = shelf.set({});
    EXPECT_TRUE(!preset->filterSet() || preset->filterSet()->isMissing());
    const auto copy = preset->duplicateInContext(*shelf.context);
    EXPECT_TRUE(copy->filterSetURI().isEmpty());
    copy->setFilterSetURI(preset->objectID().URIRepresentation()); // names no set
    for (const auto &doomed : { preset, copy, shelf.preset(u"without"_s) })
        shelf.context->removeManagedObject(doomed);
    EXPECT_TRUE(shelf.context->save());
    EXPECT_EQ(KXFilterSet::countOfInContext(*shelf.context), 1);
    EXPECT_FALSE(stranger->isDeleted());
}

TEST(Presets, holdTheSetThatUndoAndRedoName)
{
    Shelf shelf;
    const auto a = shelf.set({});
    const auto b = shelf.set({});
    const auto preset = shelf.preset(u"p"_s, a);
    shelf.context->save();
    const auto undo = std::make_shared<KXUndoManager>();
    undo->setGroupsByEvent(false);
    shelf.context->setUndoManager(undo);
    {
        const KXUndoGroup group(undo.get());
        preset->setFilterSet(b);
        preset->setTitle(u"q"_s);
    }
    for (int round = 0; round < 2; ++round) {
        undo->undo();
        EXPECT_EQ(preset->filterSet(), a);
        EXPECT_EQ(preset->filterSetURI(), a->objectID().URIRepresentation());
        undo->redo();
        EXPECT_EQ(preset->filterSet(), b);
        EXPECT_EQ(preset->filterSetURI(), b->objectID().URIRepresentation());
    }

    // Whoever is told of another one may ask for it; what is rolled back names the one before.
    const auto observer
        = preset->onChangeOf(u"filterSetURI"_s, [&](const KXKeyValueChange &) { EXPECT_EQ(preset->filterSet(), a); });
    preset->setFilterSet(a);
    preset->removeKVOBlockObserver(observer);
    ASSERT_TRUE(shelf.context->save());
    preset->setFilterSet(shelf.set({}));
    shelf.context->rollback();
    EXPECT_EQ(preset->filterSet(), a);
    preset->setFilterSet(b);
    ASSERT_TRUE(shelf.context->save());

    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(shelf.coordinator);
    EXPECT_THROW(preset->setFilterSet(KXFilterSet::cast(other->objectWithID(a->objectID()))), KXException);
    const auto gone = shelf.set({});
    shelf.context->removeManagedObject(gone);
    shelf.context->save();
    preset->setFilterSet(gone);
    EXPECT_EQ(preset->filterSet(), b) << "a set that nobody keeps any more is refused";
}

TEST(Presets, areCopiedWithASetOfTheirOwn)
{
    Shelf shelf;
    const auto nested = shelf.range(u"1"_s, {});
    const auto outer = shelf.facet({ u"a"_s });
    nested->setParent(outer);
    const auto set = shelf.set({ outer, nested });
    set->setTitle(u"of the set"_s);
    set->setPosition(4);
    const auto preset = shelf.preset(u"p"_s, set);
    preset->setPosition(7);
    preset->setIsSticky(true);
    preset->setIsDeletable(false);
    preset->setCount(3, u"here"_s);
    const auto folder = shelf.folderPreset(u"folder"_s, { preset });

    const auto copy = preset->duplicateInContext(*shelf.context);
    EXPECT_EQ(copy->title(), u"p"_s);
    EXPECT_EQ(copy->position(), 0);
    EXPECT_TRUE(copy->isDeletable() && !copy->isSticky());
    EXPECT_EQ(copy->parent(), nullptr);
    EXPECT_EQ(copy->counts(), (KXCounts { { u"here"_s, 3 } }));
    ASSERT_TRUE(copy->filterSet());
    EXPECT_NE(copy->filterSet(), set);
    EXPECT_EQ(copy->filterSetURI(), copy->filterSet()->objectID().URIRepresentation());
    EXPECT_TRUE(copy->filterSet()->title().isNull());
    EXPECT_EQ(copy->filterSet()->position(), 0);
    ASSERT_EQ(copy->filterSet()->filters().size(), 2);
    for (const KXRef<KXFilter> &filter : copy->filterSet()->filters())
        EXPECT_TRUE(!filter->parent() && filter->children().isEmpty());

    const auto copiedFolder = folder->duplicateInContext(*shelf.context);
    EXPECT_TRUE(copiedFolder->isFolder() && copiedFolder->children().isEmpty() && !copiedFolder->filterSet());
    EXPECT_EQ(copiedFolder->counts(), KXCounts()); // the sums that were copied are not looked at
    copiedFolder->setIsFolder(false);
    EXPECT_EQ(copiedFolder->counts(), (KXCounts { { u"here"_s, 3 } })); // as long as it is one
    const auto untitled = shelf.make<KXFilterSetPreset>();
    EXPECT_FALSE(untitled->duplicateInContext(*shelf.context)->valueForKey(u"title"_s).isValid());
}

TEST(Presets, doNotKeepAChildContext)
{
    Shelf shelf;
    const auto preset = shelf.preset(u"p"_s, shelf.set({ shelf.range(u"1"_s, {}) }));
    auto child = KXManagedObjectContext::contextWithParentContext(shelf.context);
    const long holders = shelf.context.use_count(); // the child among them
    auto edited = KXFilterSetPreset::cast(child->objectWithID(preset->objectID()));
    EXPECT_EQ(edited->filterSet()->filters().size(), 1);
    auto copy = edited->duplicateInContext(*child);
    EXPECT_EQ(copy->filterSet()->filters().size(), 1);
    edited->filterSet()->filters().first()->setEnabled(false);
    ASSERT_TRUE(child->save());
    EXPECT_FALSE(preset->filterSet()->filters().first()->enabled());
    EXPECT_EQ(KXFilterSetPreset::cast(shelf.context->objectWithID(copy->objectID()))->filterSet()->filters().size(), 1);
    copy.reset();
    edited.reset();
    child.reset();
    EXPECT_EQ(shelf.context.use_count(), holders - 1);
}

TEST(Presets, foldersSumWhatTheirChildrenCount)
{
    Shelf shelf;
    const auto one = shelf.preset(u"1"_s);
    const auto two = shelf.preset(u"2"_s);
    const auto uncounted = shelf.preset(u"3"_s);
    const auto inner = shelf.folderPreset(u"inner"_s, { two });
    const auto outer = shelf.folderPreset(u"outer"_s, { one, inner, uncounted });
    EXPECT_EQ(uncounted->counts(), std::nullopt);
    EXPECT_EQ(shelf.folderPreset(u"empty"_s)->counts(), KXCounts());

    int innerChanged = 0;
    int outerChanged = 0;
    inner->onChangeOf(u"counts"_s, [&](const KXKeyValueChange &) { ++innerChanged; });
    outer->onChangeOf(u"counts"_s, [&](const KXKeyValueChange &) { ++outerChanged; });
    one->setCount(2, u"A"_s);
    two->setCount(3, u"A"_s);
    two->setCount(1, u"B"_s);
    EXPECT_EQ(outer->counts(), (KXCounts { { u"A"_s, 5 }, { u"B"_s, 1 } }));
    EXPECT_EQ(innerChanged, 2);
    EXPECT_EQ(outerChanged, 1); // the folder around it is told, the one around that is not
    EXPECT_TRUE(KXPredicate::predicateWithFormat("counts.A > 4").evaluateWithObject(outer.get()));
    uncounted->setParent(inner);
    EXPECT_EQ(innerChanged, 3);
}

TEST(Presets, countsThatGrowOldSayHowOldTheyAre)
{
    Shelf shelf;
    const auto one = shelf.preset(u"1"_s);
    const auto two = shelf.preset(u"2"_s);
    const auto live = shelf.preset(u"3"_s);
    const auto folder = shelf.folderPreset(u"folder"_s, { one, shelf.folderPreset(u"inner"_s, { two }), live });
    const QDateTime now(QDate(2024, 5, 3), QTime(12, 0), Qt::UTC);
    const KXClockPin pin(now);
    live->setCount(1, u"A"_s);
    EXPECT_EQ(folder->countNoteForContextIdentifier(u"A"_s), QString()) << "what is kept right has no age";
    const std::pair<qint64, const char *> ages[] = { { -5, "counted just now" }, { 59, "counted just now" },
        { 60, "counted a minute ago" }, { 300, "counted 5 minutes ago" }, { 3600, "counted an hour ago" },
        { 7200, "counted 2 hours ago" }, { 86'400, "counted a day ago" }, { 3 * 86'400 - 1, "counted 2 days ago" } };
    for (const auto &[seconds, text] : ages) {
        one->setCount(7, u"A"_s, now.addSecs(-seconds));
        EXPECT_EQ(one->countNoteForContextIdentifier(u"A"_s), QLatin1StringView(text)) << seconds;
    }
    two->setCount(1, u"A"_s, now);
    EXPECT_EQ(folder->countNoteForContextIdentifier(u"A"_s), u"counted 2 days ago"_s) << "as old as its oldest";
    EXPECT_EQ(one->countNoteForContextIdentifier(u"B"_s), QString());
    one->setCount(7, u"A"_s);
    EXPECT_EQ(folder->countNoteForContextIdentifier(u"A"_s), u"counted just now"_s);
}
