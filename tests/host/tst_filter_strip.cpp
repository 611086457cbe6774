// Building filters above the table, keeping them as presets and loading them, by mouse, keys and drags.

#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QTest>
#include <QTimer>

#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/filter_ui/KXViewState.h>
#include <kestrixkit/filter_ui/editors/KXDateFilterViewController.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

#include <filters/FilterEditors.h>
#include <filters/FilterStrip.h>
#include <filters/FilterTypes.h>
#include <filters/Presets.h>
#include <filters/TrackReasons.h>
#include <places/SourceColumn.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>

#include "WindowTest.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

class FilterStripTest : public WindowTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        KXAnimationGroup::setAnimationsEnabled(false);
        for (int i = 0; i < 20; ++i) {
            const auto track = add(u"t%1"_s.arg(i), 110.0 + i);
            track->setLocation(QUrl(u"file:///music/t%1.%2"_s.arg(i).arg(i % 2 ? u"FLAC"_s : u"mp3"_s)));
            track->setRating(i % 6);
            track->setYear(2000 + i);
            track->setKeyOrder(2 + i);
            track->setComment(i % 3 ? u"plain"_s : u"Warm-up (b)"_s);
            const QString name = u"g%1"_s.arg(i % 3);
            auto genre = Genre::findFirstUsingPredicate(KXPredicate::predicateWithFormat("name == %@", name), *context);
            if (!genre)
                genre = Genre::createInContext(*context);
            genre->setName(name);
            track->addToGenres(genre);
        }
        Presets::install(*context);
        save();
    }
    void TearDown() override
    {
        WindowTest::TearDown();
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    void open()
    {
        openWindow({ 1400, 700 });
        QApplication::setActiveWindow(window.get());
        ASSERT_TRUE(QTest::qWaitFor([&] { return bool(strip().filters()->filterSet()); }));
    }
    FilterStrip &strip() { return *window->filterStrip(); }
    KXFilterBar &bar() { return *strip().filters()->filterBar(); }
    KXFilterSetPresetsBar &presetsBar() { return *strip().presets()->filterSetPresetsBar(); }
    KXFilterButton *button(int index) { return bar().filterViews()[index]->button(); }
    static QWidget *focus() { return QApplication::focusWidget(); }
    /// Adds a filter of the type by clicking on it, and leaves its editor open.
    template <class Editor> Editor *addFilter(const QString &type)
    {
        QTest::mouseClick(strip().filters()->addButton(), Qt::LeftButton);
        auto *const matrix = strip().filters()->filterSetManagerViewController()->filterTypeSelectionMatrix();
        for (KXThemeableButton *const one : matrix->buttons()) {
            if (one->text() == type)
                QTest::mouseClick(one, Qt::LeftButton);
        }
        turns();
        KXPopoverController *const popover = strip().filters()->filterPopover();
        return popover ? qobject_cast<Editor *>(popover->contentViewController()) : nullptr;
    }
    void addRange(const QString &type, const QString &start, const QString &end)
    {
        auto *const editor = addFilter<KXRangeFilterViewController>(type);
        ASSERT_TRUE(editor);
        QTest::keyClicks(editor->startValueField(), start);
        editor->endValueField()->setFocus();
        QTest::keyClicks(editor->endValueField(), end);
        QTest::keyClick(editor->endValueField(), Qt::Key_Return);
        turns();
    }
    /// "Tempo Year- Genre": names of the filters, those that are off marked, as the bar has them and the store too.
    QString filters()
    {
        QStringList names;
        qint64 position = 0;
        for (const auto &filter : bar().filters()) {
            names += filter->name().value_or(u"?"_s) + (filter->enabled() ? QString() : u"-"_s);
            EXPECT_EQ(filter->position(), position++);
        }
        return names.join(u' ');
    }
    int rows()
    {
        turns();
        const int expected = int(window->context()->countForEntity(
            QString(Track::entityName), strip().predicate() ? strip().predicate() : KXPredicate::truePredicate()));
        EXPECT_EQ(window->model()->rowCount(), expected);
        return window->model()->rowCount();
    }
    static void click(TrackFacetEditor &editor, int row, Qt::KeyboardModifiers modifiers = {})
    {
        KXThemeableTableView &list = *editor.valuesView();
        const QModelIndex index = list.model()->index(row, 0);
        list.scrollTo(index);
        QTest::mouseClick(list.viewport(), Qt::LeftButton, modifiers, list.visualRect(index).center());
    }
    KXRef<KXFilterSetPreset> preset(const QString &path) { return Presets::find(*window->context(), path); }
    KXFilterSetPresetSaveViewController &openSave()
    {
        QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier);
        turns();
        return *strip().filters()->filterSetPresetSaveViewController();
    }
    /// Filters by tempo, year, genre and date, which leave five rows.
    void openWithFour()
    {
        open();
        addRange(u"Tempo"_s, u"112"_s, u"126"_s);
        addRange(u"Year"_s, u"2004"_s, QString());
        auto *const choice = addFilter<TrackFacetEditor>(u"Genre"_s);
        click(*choice, choice->valuesModel()->rowOfValue(u"g1"_s));
        QTest::keyClick(choice->valuesView(), Qt::Key_Return);
        turns();
        ASSERT_TRUE(addFilter<KXDateFilterViewController>(u"Added"_s));
        QTest::keyClick(focus(), Qt::Key_Escape);
        ASSERT_EQ(rows(), 5);
    }
    /// In the folder, or at the top level.
    void keepAs(const QString &name, const QString &folder = {})
    {
        KXFilterSetPresetSaveViewController &popover = openSave();
        KXTreeController &tree = *popover.filterSetPresetsViewController()->sourceListTreeController();
        tree.setSelectedObjects({}); // else it is what it was the last time
        if (!folder.isEmpty())
            select(popover,
                KXFilterSetPreset::findFirstUsingPredicate(
                    KXPredicate::predicateWithFormat("title == %@", folder), *window->context()));
        popover.nameTextField()->selectAll();
        QTest::keyClicks(popover.nameTextField(), name);
        QTest::keyClick(popover.nameTextField(), Qt::Key_Return);
        turns();
    }
    static void select(KXFilterSetPresetSaveViewController &popover, const KXRef<KXFilterSetPreset> &preset)
    {
        popover.filterSetPresetsViewController()->sourceListTreeController()->setSelectedObjects({ preset });
    }
    /// What the menu that is open shows; picks the item by keys.
    static QStringList pickInMenu(const QString &item)
    {
        QStringList items;
        auto *const menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        for (QAction *action : menu ? menu->actions() : QList<QAction *>()) {
            items += action->text();
            if (action->text().startsWith(item)) {
                menu->setActiveAction(action);
                QTest::keyClick(menu, Qt::Key_Return);
                break;
            }
        }
        return items;
    }
};

TEST_F(FilterStripTest, eachFilterFiltersTheTableAsItIsSet)
{
    open();
    EXPECT_EQ(rows(), 20);
    addRange(u"Tempo"_s, u"112"_s, u"126"_s);
    EXPECT_EQ(rows(), 15);
    addRange(u"Year"_s, u"2004"_s, QString());
    EXPECT_EQ(rows(), 13);
    auto *const choice = addFilter<TrackFacetEditor>(u"Genre"_s);
    ASSERT_TRUE(choice);
    EXPECT_EQ(focus(), choice->searchField());
    QTest::keyClicks(focus(), u"G1"_s);
    QTest::keyClick(focus(), Qt::Key_Down);
    QTest::keyClick(focus(), Qt::Key_Space);
    EXPECT_EQ(rows(), 5);
    QTest::keyClick(focus(), Qt::Key_Return);
    turns();
    ASSERT_TRUE(addFilter<KXDateFilterViewController>(u"Added"_s));
    QTest::keyClick(focus(), Qt::Key_Escape);
    turns();
    EXPECT_EQ(filters(), u"Tempo Year Genre Added"_s);
    EXPECT_EQ(rows(), 5);
}

TEST_F(FilterStripTest, filtersAreSwitchedDraggedRemovedAndBroughtBack)
{
    openWithFour();
    QTest::mouseClick(button(2)->enabledSwitch(), Qt::LeftButton);
    EXPECT_EQ(filters(), u"Tempo Year Genre- Added"_s);
    EXPECT_EQ(rows(), 13);
    const std::unique_ptr<QMimeData> dragged(bar().mimeDataForFilterView(*bar().filterViews()[3]));
    const QPoint place = bar().filterViews()[0]->geometry().center();
    QDragEnterEvent enter(place, Qt::MoveAction, dragged.get(), Qt::LeftButton, {});
    QApplication::sendEvent(&bar(), &enter);
    QDropEvent drop(place, Qt::MoveAction, dragged.get(), Qt::LeftButton, {});
    QApplication::sendEvent(&bar(), &drop);
    EXPECT_EQ(filters(), u"Added Tempo Year Genre-"_s);
    QTest::mouseClick(button(3)->enabledSwitch(), Qt::LeftButton);
    button(1)->setFocus();
    QTest::keyClick(button(1), Qt::Key_Delete);
    EXPECT_EQ(filters(), u"Added Year Genre"_s);
    EXPECT_EQ(rows(), 6);
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    turns();
    EXPECT_EQ(filters(), u"Added Tempo Year Genre"_s);
    EXPECT_EQ(rows(), 5);
}

TEST_F(FilterStripTest, filtersAreKeptUnderANameOverwrittenAndKeptInAFolder)
{
    openWithFour();
    keepAs(u"Night"_s);
    const auto night = preset(u"Night"_s);
    ASSERT_TRUE(night);
    EXPECT_EQ(strip().loadedPreset(), night);
    EXPECT_FALSE(strip().isChanged());
    QTest::mouseClick(button(2)->enabledSwitch(), Qt::LeftButton);
    turns();
    EXPECT_TRUE(strip().isChanged());
    int asked = 0;
    const auto runner = KXAlert::setRunner([&](const KXAlert &) {
        ++asked;
        return KXAlertAnswer { 0 };
    });
    auto &popover = openSave();
    select(popover, night);
    QTest::mouseClick(popover.saveButton(), Qt::LeftButton);
    turns();
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(strip().isChanged());
    EXPECT_EQ(preset(u"Night"_s)->filterSet()->sortedFilters()[2]->enabled(), false);
    keepAs(u"Mine"_s, u"Keys"_s);
    EXPECT_TRUE(preset(u"Keys/Mine"_s));
}

TEST_F(FilterStripTest, presetsAreLoadedByAButtonTheMenuOfAFolderAndTheOverflowMenu)
{
    openWithFour();
    QTest::mouseClick(button(2)->enabledSwitch(), Qt::LeftButton);
    keepAs(u"Night"_s);
    keepAs(u"Mine"_s, u"Keys"_s);
    auto *const four = presetsBar().presetButtonForPreset(preset(u"Four Stars and More"_s).get());
    const QUrl before = preset(u"Four Stars and More"_s)->filterSetURI();
    QTest::mouseClick(four, Qt::LeftButton);
    EXPECT_EQ(filters(), u"Rating"_s);
    EXPECT_EQ(rows(), 6);
    EXPECT_EQ(preset(u"Four Stars and More"_s)->filterSetURI(), before);
    EXPECT_TRUE(preset(u"Four Stars and More"_s)->lastLoaded().isValid());
    const auto inFolder = [&](const QString &folder, const QString &item) {
        QStringList items;
        QTimer::singleShot(0, window.get(), [&] { items = pickInMenu(item); });
        for (auto *one : presetsBar().presetButtons()) {
            if (one->filterSetPreset()->title() == folder)
                QTest::mouseClick(one, Qt::LeftButton); // returns when the menu has closed
        }
        return items;
    };
    EXPECT_EQ(inFolder(u"Keys"_s, u"Mine"_s).last().left(4), u"Mine"_s);
    EXPECT_EQ(filters(), u"Tempo Year Genre- Added"_s);
    EXPECT_EQ(rows(), 13);
    window->resize(700, 600);
    turns();
    ASSERT_TRUE(presetsBar().overflowButton()->isVisible());
    QTest::mouseClick(presetsBar().overflowButton(), Qt::LeftButton);
    EXPECT_EQ(pickInMenu(u"Night"_s).last().left(5), u"Night"_s);
    turns();
    EXPECT_EQ(strip().loadedPreset()->title(), u"Night"_s);
}

TEST_F(FilterStripTest, afterARestartAllOfItIsThereAgainAndAnotherPlaceHasItsOwn)
{
    openWithFour();
    keepAs(u"Night"_s);
    QTest::mouseClick(button(0)->enabledSwitch(), Qt::LeftButton);
    EXPECT_EQ(filters(), u"Tempo- Year Genre Added"_s);
    const int shown = rows();
    window->close();
    window.reset();
    open();
    EXPECT_EQ(filters(), u"Tempo- Year Genre Added"_s);
    EXPECT_EQ(rows(), shown);
    EXPECT_EQ(strip().loadedPreset()->title(), u"Night"_s);
    EXPECT_TRUE(strip().isChanged());
    strip().revert();
    EXPECT_EQ(filters(), u"Tempo Year Genre Added"_s);
    EXPECT_FALSE(strip().isChanged());
    EXPECT_FALSE(window->context()->undoManager()->canUndo());

    window->sources()->library()->selectItem(dynamic_cast<KXViewState *>(
        window->sources()->library()->treeController()->rootNodes()[1]->representedObject().get()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return bar().filterViews().isEmpty(); }));
}

TEST_F(FilterStripTest, wordsNarrowTheListAsTheyAreTyped)
{
    open();
    window->table()->setFocus();
    QTest::keyClick(window->table(), Qt::Key_Slash);
    auto *const field = qobject_cast<KXThemeableTextField *>(focus());
    ASSERT_TRUE(field);
    for (const auto &[typed, expected] : { std::pair(u"w"_s, 7), { u"arm g0"_s, 7 }, { u" 5"_s, 0 } }) {
        QTest::keyClicks(field, typed);
        const auto follows = [&, wanted = expected] { return window->model()->rowCount() == wanted; };
        EXPECT_TRUE(QTest::qWaitFor(follows)) << field->text().toStdString() << ": " << window->model()->rowCount();
    }
    for (int i = 0; i < 2; ++i)
        QTest::keyClick(field, Qt::Key_Backspace);
    QTest::keyClick(field, Qt::Key_Return); // does not wait for the pause
    EXPECT_EQ(rows(), 7);
    EXPECT_TRUE(QTest::qWaitFor([this] { return strip().whatIfCounts()->count() == 7; }));
    EXPECT_EQ(focus(), window->table());
    addRange(u"Tempo"_s, u"110"_s, u"115"_s);
    EXPECT_EQ(rows(), 2);
    window->table()->selectRow(0);
    QTest::keyClick(window->table(), Qt::Key_2); // rates, and is no word
    EXPECT_EQ(window->model()->track(0)->rating(), 2);
    QTest::keyClick(window.get(), Qt::Key_F, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(focus(), field);
    QTest::keyClick(field, Qt::Key_Escape);
    EXPECT_EQ(rows(), 6);
    EXPECT_EQ(focus(), window->table());
    strip().setNarrowingText(u"nothing"_s);
    EXPECT_EQ(rows(), 0);
    strip().setPlace(QUrl(u"x-place:1"_s), {});
    EXPECT_EQ(strip().narrowingText(), QString());
}

TEST_F(FilterStripTest, everyTypeFiltersWhatItSays)
{
    open();
    struct Case
    {
        const char16_t *type, *choice;
        KXPredicate brute;
    };
    const auto format = [](const char *text) { return KXPredicate::predicateWithFormat(text); };
    const Case cases[] { { u"Genre", u"g2", format("ANY genres.name == \"g2\"") },
        { u"File Kind", u"FLAC", format("location ENDSWITH \"FLAC\"") }, { u"Key", u"8A", format("keyOrder == 16") } };
    for (const auto &[type, wanted, brute] : cases) {
        auto *const editor = addFilter<TrackFacetEditor>(QString::fromUtf16(type));
        ASSERT_TRUE(editor);
        QTest::keyClicks(editor->searchField(), QString::fromUtf16(wanted));
        click(*editor, 0);
        EXPECT_EQ(rows(), window->context()->countForEntity(QString(Track::entityName), brute)) << int(type[0]);
        EXPECT_GT(rows(), 0);
        // Escape takes it back.
        QTest::keyClick(editor->valuesView(), Qt::Key_Escape);
        EXPECT_EQ(rows(), 20);
        strip().filters()->removeAllFilters();
    }
    auto *const text = addFilter<TextEditor>(u"Comment"_s);
    ASSERT_TRUE(text);
    QTest::keyClicks(text->field(), u"UP (B"_s);
    QTest::keyClick(text->field(), Qt::Key_Return);
    EXPECT_EQ(rows(), 7);
    strip().filters()->removeAllFilters();

    // Like the track at hand.
    const auto current = [&] {
        window->table()->setCurrentIndex(window->model()->index(0, 0));
        return window->model()->track(0);
    };
    rows();
    const auto tempoTrack = current();
    ASSERT_TRUE(addFilter<TrackRangeEditor>(u"Same Tempo"_s));
    const double bpm = *tempoTrack->bpm();
    for (int row = 0; row < rows(); ++row)
        EXPECT_NEAR(*window->model()->track(row)->bpm(), bpm, bpm * 0.041);
    QTest::keyClick(focus(), Qt::Key_Return);
    strip().filters()->removeAllFilters();
    rows();
    const auto track = current();
    ASSERT_TRUE(addFilter<TrackFacetEditor>(u"Fitting Key"_s));
    EXPECT_EQ(KXFacetFilter::cast(KXRef<KXManagedObject>(bar().filters()[0]))->values().size(), 4);
    QTest::keyClick(focus(), Qt::Key_Return);

    // Why it is there, in words.
    addRange(u"Year"_s, QString(), u"1999"_s);
    EXPECT_EQ(rows(), 0);
    const QString reasons = TrackReasons::text(strip().filters()->filterSet(), *track);
    EXPECT_TRUE(reasons.contains(u"✓  Key is"_s) && reasons.contains(u"✗  Year is"_s)) << qPrintable(reasons);
    // Two that exclude each other say so.
    addRange(u"Year"_s, u"2001"_s, QString());
    EXPECT_FALSE(bar().filterViews()[1]->problem().isEmpty());
    EXPECT_TRUE(bar().filterViews()[0]->problem().isEmpty());
}

TEST_F(FilterStripTest, theNumberBesideAValueIsWhatTheTableHasAfterAClick)
{
    open();
    addRange(u"Tempo"_s, u"112"_s, u"126"_s);
    for (const char16_t *type : { u"Genre", u"Key" }) {
        auto *const editor = addFilter<TrackFacetEditor>(QString::fromUtf16(type));
        ASSERT_TRUE(editor);
        KXFacetFilterValuesModel &model = *editor->valuesModel();
        for (int row = 0; row < model.rowCount(); ++row) {
            for (const Qt::KeyboardModifiers how :
                { Qt::KeyboardModifiers(), Qt::KeyboardModifiers(Qt::AltModifier) }) {
                const QVariant promised = model.index(row).data(
                    how ? KXFacetFilterValuesModel::ExcludedRole : KXFacetFilterValuesModel::AddedRole);
                ASSERT_TRUE(promised.isValid());
                click(*editor, row, how);
                EXPECT_EQ(rows(), promised.toInt()) << qPrintable(model.index(row).data().toString());
                click(*editor, row, how); // let go of it
            }
        }
        // Of those that are chosen together as well.
        for (int row = 0; row < std::min(3, model.rowCount()); ++row) {
            const int promised = model.index(row).data(KXFacetFilterValuesModel::AddedRole).toInt();
            click(*editor, row);
            EXPECT_EQ(rows(), promised);
        }
        QTest::keyClick(editor->valuesView(), Qt::Key_Return);
        turns();
    }
}

TEST_F(FilterStripTest, valuesThatWouldLeaveNothingArePaleAndCanBeChosenAllTheSame)
{
    open();
    addRange(u"Year"_s, u"2019"_s, QString());
    auto *const genres = addFilter<TrackFacetEditor>(u"Genre"_s);
    const int last = genres->valuesModel()->rowCount() - 1;
    ASSERT_TRUE(genres->valuesModel()->index(last).data(KXFacetFilterValuesModel::EmptiesRole).toBool());
    click(*genres, last);
    EXPECT_EQ(rows(), 0);
    // Another editor for the same key path is opened over it, and has its counts at once and later on.
    strip().filters()->showFilter(bar().filters()[1]);
    turns();
    auto *const again = qobject_cast<TrackFacetEditor *>(strip().filters()->filterPopover()->contentViewController());
    ASSERT_TRUE(again && again != genres);
    click(*again, again->valuesModel()->rowOfValue(u"g1"_s));
    EXPECT_EQ(again->valuesModel()->index(last).data(KXFacetFilterValuesModel::AddedRole).toInt(), rows());
    QTest::keyClick(again->valuesView(), Qt::Key_Return);
    turns();
}

TEST_F(FilterStripTest, inAnotherPlaceItsOwnTracksAreCounted)
{
    open();
    const auto places = window->sources()->library()->treeController();
    const auto *const genrePlaces = [&]() -> const KXTreeNode * {
        for (const KXTreeNode *root : places->rootNodes()) {
            if (!root->childNodes().isEmpty())
                return root->childNodes().first();
        }
        return nullptr;
    }();
    ASSERT_TRUE(genrePlaces);
    window->sources()->library()->selectItem(dynamic_cast<KXViewState *>(genrePlaces->representedObject().get()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return bar().filterViews().isEmpty() && window->model()->rowCount() < 20; }));
    auto *const keys = addFilter<TrackFacetEditor>(u"Key"_s);
    ASSERT_TRUE(keys);
    qint64 all = 0;
    for (int row = 0; row < keys->valuesModel()->rowCount(); ++row)
        all += keys->valuesModel()->index(row).data(KXFacetFilterValuesModel::AddedRole).toInt();
    EXPECT_EQ(all, window->model()->rowCount());
}

TEST_F(FilterStripTest, aClickAsksForWhatFitsTheTrackAtHand)
{
    open();
    rows();
    window->table()->setCurrentIndex(window->model()->index(3, 0));
    const auto track = window->model()->track(3);
    auto *const range = addFilter<TrackRangeEditor>(u"Tempo"_s);
    ASSERT_TRUE(range && range->aroundButton() && range->distributionView());
    EXPECT_FALSE(range->distributionView()->bars().isEmpty());
    QTest::mouseClick(range->aroundButton(), Qt::LeftButton);
    EXPECT_NEAR(range->filter()->startValue()->toDouble(), *track->bpm() * 0.96, 0.06);
    EXPECT_NEAR(range->filter()->endValue()->toDouble(), *track->bpm() * 1.04, 0.06);
    EXPECT_LT(rows(), 20);
    QTest::keyClick(range->startValueField(), Qt::Key_Escape);
    EXPECT_EQ(rows(), 20);
    turns();
    strip().filters()->removeAllFilters();
    rows();
    window->table()->setCurrentIndex(window->model()->index(3, 0));
    auto *const keys = addFilter<TrackFacetEditor>(u"Key"_s);
    ASSERT_TRUE(keys && keys->fittingButton());
    click(*keys, 5); // goes
    QTest::mouseClick(keys->fittingButton(), Qt::LeftButton);
    EXPECT_EQ(keys->filter()->values().size(), 4);
    const int own = *window->model()->track(0)->keyOrder();
    EXPECT_EQ(
        keys->valuesModel()->state(keys->valuesModel()->rowOfValue(own)), KXFacetFilterViewController::State::Included);
}

TEST_F(FilterStripTest, ofMoreValuesThanAreOfferedAnyIsFound)
{
    for (int i = 0; i < TrackFacetEditor::mostOffers + 10; ++i)
        Genre::createInContext(*context)->setName(u"a rare one %1"_s.arg(i));
    const auto last = Genre::createInContext(*context);
    last->setName(u"Zouk é"_s);
    save();
    open();
    auto *const editor = addFilter<TrackFacetEditor>(u"Genre"_s);
    ASSERT_TRUE(editor);
    const auto &model = *editor->valuesModel();
    EXPECT_EQ(model.rowCount(), TrackFacetEditor::mostOffers);
    EXPECT_EQ(model.index(0).data().toString(), u"g0"_s) << "those that bring most are among them";
    EXPECT_EQ(model.rowOfValue(u"Zouk é"_s), -1);
    QTest::keyClicks(editor->searchField(), u"k E"_s);
    ASSERT_EQ(model.rowCount(), 1);
    click(*editor, 0);
    EXPECT_EQ(rows(), 0);
    QTest::keyClicks(editor->searchField(), u"x"_s);
    editor->searchField()->clear();
    EXPECT_EQ(model.state(model.rowOfValue(u"Zouk é"_s)), KXFacetFilterViewController::State::Included);
}
