// The table with column presets: layouts and orders that are kept, tables that are kept in step, the menu, painting.

#include <QApplication>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QLineEdit>
#include <QPainter>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStandardItemModel>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "support/ChildProcess.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

/// Five columns: a, b, c, hidden d, and e that cannot be sorted by.
class LettersTable : public KXTableView
{
public:
    explicit LettersTable(QAbstractItemModel *model)
    {
        QList<KXTableColumn> columns;
        for (const QChar letter : u"abcde"_s)
            columns.append({ letter, 100, letter == u'd', { letter == u'e' ? QString() : QString(letter) } });
        columns[1].sortDescriptorPrototype.options = KXCaseInsensitive;
        setTableColumns(columns);
        setModel(model);
    }
    /// "a:100 b:50 (d:100)", from first to last.
    QString shown() const
    {
        QStringList parts;
        for (int i = 0; i < horizontalHeader()->count(); ++i) {
            const int column = horizontalHeader()->logicalIndex(i);
            const QVariantMap preset = columnPresetDictionary(tableColumns()[column].identifier);
            EXPECT_EQ(preset[u"position"_s], uint(i));
            EXPECT_EQ(preset[u"hidden"_s].toBool(), isColumnHidden(column));
            const QString part = preset[u"identifier"_s].toString() + u':' + preset[u"width"_s].toString();
            parts.append(isColumnHidden(column) ? u'(' + part + u')' : part);
            EXPECT_TRUE(isColumnHidden(column) || columnWidth(column) == qRound(preset[u"width"_s].toDouble()));
        }
        return parts.join(u' ');
    }
    QList<QList<KXSortDescriptor>> sorted;

protected:
    void sortRows(const QList<KXSortDescriptor> &descriptors) override { sorted.append(descriptors); }
};

class CountingDelegate : public KXTableViewDelegate
{
public:
    QVariantList willSaveColumnPresets(KXTableView *, const QVariantList &presets) override { return ++saves, presets; }
    QVariantList willLoadColumnPresets(KXTableView *, const QVariantList &presets) override { return ++loads, presets; }
    bool isGroupRow(KXTableView *, int row) override { return row == 2; }
    bool shouldSelectRow(KXTableView *, int row) override { return row != 3; }
    int saves = 0, loads = 0;
};

QVariantMap entry(const QVariant &identifier, const QVariant &position, const QVariant &width, const QVariant &hidden)
{
    QVariantMap map { { u"identifier"_s, identifier }, { u"position"_s, position }, { u"width"_s, width } };
    if (hidden.isValid())
        map.insert(u"hidden"_s, hidden);
    return map;
}

constexpr char defaultsVariable[] = "KX_TEST_DEFAULTS";

}

class TableViewTest : public ::testing::Test
{
protected:
    TableViewTest()
    {
        for (int row = 0; row < 50; ++row) {
            QList<QStandardItem *> items;
            for (const QChar letter : u"abcde"_s)
                items.append(new QStandardItem(letter + QString::number(row)));
            model.appendRow(items);
        }
        for (const QString &key : { u"layout"_s, u"order"_s })
            defaults.remove(key);
    }
    KXUserDefaults &defaults = KXUserDefaults::standard();
    QStandardItemModel model;
};

TEST_F(TableViewTest, laysItselfOutWhateverIsStored)
{
    const QString initial = u"a:100 b:100 c:100 (d:100) e:100"_s;
    const struct
    {
        const char *what;
        QVariant stored;
        QString shown;
        bool logged = false;
    } cases[] {
        { "nothing", {}, initial },
        { "one after another, the rest hidden",
            QVariantList {
                entry(u"c"_s, 0U, 50.0, false), entry(u"d"_s, 0U, 60.5, false), entry(u"a"_s, 1U, 70, true) },
            u"d:60.5 (a:70) c:50 (b:100) (e:100)"_s },
        { "positions beyond the end, columns that are not there",
            QVariantList { entry(u"x"_s, 0U, 5.0, false), entry(u"a"_s, 5U, 80.0, false),
                entry(u"b"_s, 4'000'000'000U, 80.0, false), entry(u"c"_s, 4U, 80.0, false) },
            u"(d:100) (e:100) a:80 b:80 c:80"_s },
        { "texts",
            QVariantList { entry(u"c"_s, u"0"_s, u"44.5"_s, u"true"_s), entry(u"b"_s, u"1"_s, u"wide"_s, u"0"_s) },
            u"(c:44.5) b:100 (a:100) (d:100) (e:100)"_s },
        { "rubbish in entries",
            QVariantList { 7, u"a"_s, entry(5, 1U, 10.0, false), entry(u"b"_s, -1, -20.0, QByteArray("?")),
                entry(u"a"_s, QVariantList(), std::nan(""), {}), entry(u"e"_s, 1e300, 0, QVariantMap()),
                entry(u"d"_s, u"x"_s, 1e300, true) },
            u"a:100 b:100 (c:100) (d:10000) e:100"_s },
        { "no list", u"a, b"_s, initial, true },
        { "a map", QVariantMap { { u"a"_s, 1 } }, initial, true },
        { "nobody's columns", QVariantList { entry(u"x"_s, 0U, 5.0, false) }, initial, true },
        { "an empty list", QVariantList(), initial, true },
        { "all hidden", QVariantList { entry(u"c"_s, 0U, 50.0, true) }, u"c:50 (a:100) (b:100) (d:100) (e:100)"_s },
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        KXTestLog log;
        defaults.setValue(u"layout"_s, one.stored);
        LettersTable table(&model);
        EXPECT_EQ(table.shown(), initial);
        table.setColumnPresetsName(u"layout"_s);
        EXPECT_EQ(table.shown(), one.shown);
        EXPECT_EQ(log.contains(u"\"layout\""_s), one.logged) << log.lines().join(u'\n').toStdString();
        // Without model at first.
        LettersTable late(nullptr);
        late.setColumnPresetsName(u"layout"_s);
        late.saveColumnPresets();
        late.setModel(&model);
        EXPECT_EQ(late.shown(), one.shown);
    }
}

TEST_F(TableViewTest, columnsThatTheModelLacksForAWhileKeepTheirPlaces)
{
    QStandardItemModel narrow(3, 2);
    for (const bool remembers : { true, false }) {
        SCOPED_TRACE(remembers);
        LettersTable table(&model);
        if (remembers)
            table.setColumnPresetsName(u"layout"_s);
        table.horizontalHeader()->moveSection(4, 0);
        table.setColumnWidth(2, 44);
        EXPECT_EQ(table.shown(), u"e:100 a:100 b:100 c:44 (d:100)"_s);
        table.setModel(&narrow);
        table.setColumnWidth(1, 55);
        table.horizontalHeader()->moveSection(1, 0);
        table.setModel(nullptr);
        table.setModel(&model);
        EXPECT_EQ(table.shown(), u"e:100 b:55 a:100 c:44 (d:100)"_s);
        table.setModel(&narrow);
        table.setTableColumns(table.tableColumns()); // as if the program began with that model
        table.setColumnWidth(0, 66);
        table.setModel(&model);
        EXPECT_EQ(table.shown(), remembers ? u"e:100 b:55 a:66 c:44 (d:100)"_s : u"a:66 b:100 c:100 (d:100) e:100"_s);
    }
}

TEST_F(TableViewTest, hundredTablesAreKeptInStep)
{
    std::vector<std::unique_ptr<LettersTable>> tables;
    CountingDelegate delegates[2];
    for (int i = 0; i < 100; ++i) {
        tables.push_back(std::make_unique<LettersTable>(&model));
        tables.back()->setDelegate(&delegates[i == 0 ? 0 : 1]);
        tables.back()->setColumnPresetsName(u"layout"_s);
    }
    LettersTable other(&model);
    other.setColumnPresetsName(u"another layout"_s);
    int writes = 0;
    const auto token = defaults.onChange(u"layout"_s, [&] { ++writes; });
    const std::pair<std::function<void(LettersTable &)>, QString> changes[] {
        { [](auto &table) { table.horizontalHeader()->resizeSection(1, 150); }, u"a:100 b:150 c:100 (d:100) e:100"_s },
        { [](auto &table) { table.horizontalHeader()->moveSection(0, 2); }, u"b:150 c:100 a:100 (d:100) e:100"_s },
        { [](auto &table) { table.setColumnShown(u"b"_s, false); }, u"(b:150) c:100 a:100 (d:100) e:100"_s },
        { [](auto &table) { table.horizontalHeader()->resizeSection(2, 77); }, u"(b:150) c:77 a:100 (d:100) e:100"_s },
        { [](auto &table) { table.setColumnShown(u"b"_s, true); }, u"b:150 c:77 a:100 (d:100) e:100"_s },
        { [](auto &table) { table.resetColumns(); }, u"a:100 b:100 c:100 (d:100) e:100"_s },
    };
    for (const auto &[change, shown] : changes) {
        writes = delegates[0].saves = delegates[0].loads = delegates[1].loads = delegates[1].saves = 0;
        change(*tables[0]);
        EXPECT_EQ(writes, 1);
        EXPECT_EQ(delegates[0].saves, 1);
        EXPECT_EQ(delegates[0].loads, 0);
        EXPECT_EQ(delegates[1].loads, 99);
        EXPECT_EQ(delegates[1].saves, 0);
        for (const auto &table : tables)
            ASSERT_EQ(table->shown(), shown);
    }
    EXPECT_EQ(other.shown(), u"a:100 b:100 c:100 (d:100) e:100"_s);

    // The same name again; none; another table's.
    tables[1]->setColumnPresetsName(u"layout"_s);
    EXPECT_EQ(delegates[1].loads, 99);
    tables[1]->setColumnPresetsName({});
    tables[1]->horizontalHeader()->resizeSection(0, 33);
    tables[0]->horizontalHeader()->resizeSection(0, 140);
    EXPECT_EQ(tables[1]->columnWidth(0), 33);
    EXPECT_EQ(tables[2]->columnWidth(0), 140);
    // One that hides a column behind the table's back; one that goes while the others hear of it.
    tables[2]->hideColumn(4);
    EXPECT_TRUE(QTest::qWaitFor([&] { return tables[3]->isColumnHidden(4); }));
    const auto ending = KXNotificationCenter::defaultCenter().addObserver(KXTableViewColumnPresetsDidChangeNotification,
        tables[0].get(), [&](const KXNotification &) { tables.resize(1); });
    tables[0]->horizontalHeader()->resizeSection(0, 141);
    EXPECT_EQ(tables.size(), 1U);
    // Columns that stretch follow the window: nobody's layout.
    LettersTable &last = *tables[0];
    last.setColumnShown(u"e"_s, true);
    last.horizontalHeader()->setStretchLastSection(true);
    last.show();
    writes = 0;
    last.resize(900, 300);
    EXPECT_EQ(writes, 0);
}

TEST_F(TableViewTest, aChangeBelongsToTheNameThatItWasMadeUnder)
{
    LettersTable table(&model), other(&model);
    table.setColumnPresetsName(u"layout"_s);
    table.hideColumn(1);
    table.setColumnPresetsName(u"another layout"_s);
    QTest::qWait(0);
    EXPECT_FALSE(defaults.valueForKey(u"another layout"_s).isValid());
    other.setColumnPresetsName(u"layout"_s);
    EXPECT_TRUE(other.isColumnHidden(1));
}

TEST_F(TableViewTest, anEditorIsThereToBeTakenOverWhenOtherRowsGo)
{
    LettersTable table(&model);
    table.show();
    const QModelIndex cell = model.index(2, 0);
    const QPersistentModelIndex edited(cell);
    table.setCurrentIndex(cell);
    table.edit(cell);
    auto *const editor = table.viewport()->findChild<QLineEdit *>();
    ASSERT_TRUE(editor);
    editor->setText(u"typed"_s);
    model.removeRow(5);
    model.removeRow(0);
    EXPECT_TRUE(editor->isVisible());
    table.commitOpenEditor();
    EXPECT_EQ(edited.data(), u"typed"_s);
}

TEST(TableViewChild, DISABLED_writesLayouts)
{
    qputenv("XDG_CONFIG_HOME", qgetenv(defaultsVariable));
    QStandardItemModel model(1, 5);
    LettersTable table(&model);
    table.setColumnPresetsName(u"layout"_s);
    for (int width = 60;; width = width < 400 ? width + 1 : 60) {
        for (int column = 0; column < 5; ++column) {
            table.setColumnShown(table.tableColumns()[column].identifier, true); // at its own width the first time
            table.setColumnWidth(column, width);
        }
        ASSERT_TRUE(KXUserDefaults::standard().synchronize());
        std::cout << "saved " << width << std::endl;
    }
}

TEST_F(TableViewTest, layoutsSurviveAKilledProcess)
{
    KXTestRandom random;
    const QTemporaryDir folder;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(defaultsVariable), folder.path());
    for (int round = 0; round < KXTestRandom::scaled(40); ++round) {
        ChildProcess child("TableViewChild.*", environment);
        QByteArray output;
        for (const int enough = random.between(1, 40); output.count("saved") < enough;)
            output += child.read();
        ASSERT_TRUE(child.kill());
        const KXUserDefaults left(folder.filePath(KXBundle::mainBundle().identifier() + u"/defaults.cbor"_s));
        const auto list = left.arrayForKey(u"layout"_s);
        ASSERT_TRUE(list && list->size() == 5);
        for (const QVariant &column : *list)
            EXPECT_EQ(column.toMap()[u"width"_s], list->first().toMap()[u"width"_s]); // all of one save
    }
}

/// "-b1+a0"
static QString textOf(const QList<KXSortDescriptor> &descriptors)
{
    QString all;
    for (const KXSortDescriptor &one : descriptors)
        all += (one.ascending ? u'+' : u'-') + one.key + QString::number(one.options);
    return all;
}

TEST_F(TableViewTest, keepsItsOrderOfSeveralColumns)
{
    LettersTable table(&model);
    table.resize(600, 300);
    table.setSortOptionsAutoSaveName(u"order"_s);
    table.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&table));
    const auto click = [&](int column, Qt::KeyboardModifiers modifiers = {}) {
        const QHeaderView *header = table.horizontalHeader();
        QTest::mouseClick(header->viewport(), Qt::LeftButton, modifiers,
            QPoint(header->sectionViewportPosition(column) + 30, header->height() / 2));
        return textOf(table.sortDescriptors());
    };
    EXPECT_EQ(click(1), u"+b1"_s);
    EXPECT_EQ(click(1), u"-b1"_s);
    EXPECT_EQ(click(0, Qt::ShiftModifier), u"-b1+a0"_s);
    EXPECT_EQ(click(0, Qt::ShiftModifier), u"-b1-a0"_s);
    EXPECT_EQ(click(4), u"-b1-a0"_s) << "this one cannot be sorted by";
    EXPECT_EQ(table.horizontalHeader()->sortIndicatorSection(), 1);
    EXPECT_EQ(textOf(table.sorted.last()), u"-b1-a0"_s);

    // Stored when another application becomes active, once.
    const auto store = [&] { Q_EMIT qApp->applicationStateChanged(Qt::ApplicationInactive); };
    int writes = 0;
    const auto token = defaults.onChange(u"order"_s, [&] { ++writes; });
    store();
    store();
    EXPECT_EQ(writes, 1);
    EXPECT_FALSE(table.sortDescriptorsHaveChanged());
    table.setSortDescriptors(table.sortDescriptors());
    EXPECT_TRUE(table.sortDescriptorsHaveChanged()) << "even where nothing is sorted anew";
}

// In the window or not.
TEST_F(TableViewTest, takesAnOrderByItsOwnPrototypes)
{
    {
        LettersTable table(&model);
        table.setSortOptionsAutoSaveName(u"order"_s);
        table.setSortDescriptors({ { u"b"_s, false, KXCaseInsensitive }, { u"a"_s, false } });
    }
    LettersTable again(nullptr);
    QList<KXTableColumn> columns = again.tableColumns();
    columns[0].sortDescriptorPrototype.options = 3;
    columns[1].sortDescriptorPrototype.key = u"z"_s;
    again.setTableColumns(columns);
    again.setSortOptionsAutoSaveName(u"order"_s);
    EXPECT_TRUE(again.sortDescriptors().isEmpty());
    again.loadSortOptions();
    EXPECT_EQ(textOf(again.sortDescriptors()), u"-a3"_s);
    again.setModel(&model);
    ASSERT_EQ(again.sorted.size(), 1);
    EXPECT_EQ(again.horizontalHeader()->sortIndicatorOrder(), Qt::DescendingOrder);

    QByteArray cut = defaults.valueForKey(u"order"_s).toByteArray();
    cut.chop(3);
    for (const QVariant &rubbish : QVariantList { cut, QByteArray(), u"-a"_s, QVariantList { 1 }, QVariantMap() }) {
        KXTestLog log;
        defaults.setValue(u"order"_s, rubbish);
        again.loadSortOptions();
        EXPECT_EQ(textOf(again.sortDescriptors()), u"-a3"_s);
        EXPECT_TRUE(log.contains(u"\"order\""_s)) << rubbish.typeName();
    }
}

TEST_F(TableViewTest, takesNoOrderAtAllForOneThatWasChosen)
{
    LettersTable table(&model);
    table.setSortOptionsAutoSaveName(u"order"_s);
    table.setSortDescriptors({ { u"b"_s } });
    table.setSortDescriptors({});
    table.saveSortOptions();
    LettersTable other(nullptr);
    other.setSortOptionsAutoSaveName(u"order"_s);
    other.setSortDescriptors({ { u"b"_s } });
    other.loadSortOptions();
    EXPECT_TRUE(other.sortDescriptors().isEmpty());
}

TEST_F(TableViewTest, homeAndEndAreRows)
{
    LettersTable table(&model);
    table.resize(300, 200);
    table.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&table));
    table.setRowHidden(49, true);
    table.setCurrentIndex(model.index(20, 2));
    const auto selected = [&](int key, Qt::KeyboardModifiers modifiers) {
        QTest::keyClick(&table, Qt::Key(key), modifiers);
        EXPECT_EQ(table.currentIndex().column(), 2);
        QString rows = QString::number(table.currentIndex().row()) + u':';
        for (const QModelIndex &row : table.selectionModel()->selectedRows())
            rows += u' ' + QString::number(row.row());
        return rows;
    };
    EXPECT_EQ(selected(Qt::Key_Home, {}), u"0: 0"_s);
    EXPECT_EQ(selected(Qt::Key_End, {}), u"48: 48"_s);
    EXPECT_EQ(selected(Qt::Key_Home, Qt::ControlModifier), u"0: 0"_s);
    EXPECT_EQ(selected(Qt::Key_End, Qt::ControlModifier), u"48: 48"_s);
    (void)selected(Qt::Key_Home, {});
    (void)selected(Qt::Key_Down, {});
    (void)selected(Qt::Key_Down, {});
    EXPECT_EQ(selected(Qt::Key_Home, Qt::ControlModifier | Qt::ShiftModifier), u"0: 0 1 2"_s);
    table.setModel(nullptr);
    QTest::keyClick(&table, Qt::Key_End);
}

TEST_F(TableViewTest, menusConcernTheRowBelowThePointer)
{
    LettersTable table(&model);
    CountingDelegate delegate;
    table.setDelegate(&delegate);
    table.resize(600, 300);
    table.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&table));
    QMenu menu;
    table.setMenu(&menu);
    const auto selected = [&] {
        QList<int> rows;
        for (const QModelIndex &index : table.selectionModel()->selectedRows())
            rows.append(index.row());
        std::sort(rows.begin(), rows.end());
        return rows;
    };
    const auto ask = [&](int row) {
        const QPoint place = row < 0 ? QPoint(5, 295) : table.visualRect(model.index(row, 1)).center();
        const QContextMenuEvent event(QContextMenuEvent::Mouse, place, table.viewport()->mapToGlobal(place));
        EXPECT_EQ(table.menuForEvent(&event), &menu);
        return table.clickedCell().row();
    };
    for (int row : { 0, 1 })
        table.selectionModel()->select(model.index(row, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    EXPECT_EQ(ask(1), 1);
    EXPECT_EQ(selected(), (QList<int> { 0, 1 })) << "is selected already";
    EXPECT_EQ(ask(4), 4);
    EXPECT_EQ(selected(), QList<int> { 4 });
    for (const int refused : { 2, 3 }) {
        EXPECT_EQ(ask(refused), refused);
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, table.visualRect(model.index(refused, 1)).center());
        EXPECT_EQ(selected(), QList<int> { 4 }) << "a heading, and one that may not be selected";
    }
    model.setRowCount(5);
    EXPECT_EQ(ask(-1), -1);

    QSignalSpy tracked(&table, &KXTableView::trackedCellChanged);
    QTest::mouseMove(table.viewport(), table.visualRect(model.index(1, 2)).center());
    QTest::mouseMove(table.viewport(), table.visualRect(model.index(1, 2)).center() + QPoint(1, 1));
    EXPECT_EQ(table.currentTrackedCell(), model.index(1, 2));
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(table.viewport(), &leave);
    EXPECT_FALSE(table.currentTrackedCell().isValid());
    EXPECT_EQ(tracked.size(), 2);

    struct Passing : QObject, KXTableViewDelegate
    {
    };
    auto passing = std::make_unique<Passing>();
    table.setDelegate(passing.get());
    passing.reset();
    EXPECT_EQ(table.delegate(), nullptr);
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, table.visualRect(model.index(1, 1)).center());
    EXPECT_EQ(selected(), QList<int> { 1 });
}

TEST_F(TableViewTest, textsStandAtTheirSide)
{
    for (const auto direction : { Qt::LeftToRight, Qt::RightToLeft }) {
        KXTableView table;
        table.setLayoutDirection(direction);
        QStandardItemModel one(1, 1);
        table.setTableColumns({ { u"text"_s, 200 } });
        table.setModel(&one);
        one.setData(one.index(0, 0), u"abc"_s);
        table.resize(200, 60);
        (void)table.grab(); // lays it out
        for (const auto alignment : { Qt::AlignLeft, Qt::AlignHCenter, Qt::AlignRight }) {
            one.setData(one.index(0, 0), QVariant::fromValue(Qt::Alignment(alignment)), Qt::TextAlignmentRole);
            const QImage image = table.viewport()->grab(table.visualRect(one.index(0, 0))).toImage();
            QRect ink;
            for (int x = 0; x < image.width(); ++x) {
                for (int y = 0; y < image.height(); ++y)
                    ink |= image.pixel(x, y) != image.pixel(0, y) ? QRect(x, y, 1, 1) : QRect();
            }
            const auto side = QStyle::visualAlignment(direction, alignment);
            const int middle = side & Qt::AlignLeft ? 20
                : side & Qt::AlignRight             ? image.width() - 20
                                                    : image.width() / 2;
            EXPECT_NEAR(ink.center().x(), middle, 5) << direction << " " << alignment;
            EXPECT_NEAR(ink.center().y(), image.height() / 2, 2);
        }
    }
}

// However a text is measured, none reaches into the next cell, and a part painted alone looks like the whole.
TEST_F(TableViewTest, paintsWithinItsCells)
{
    KXTestRandom random;
    const QString letters = u"abcdefgiljmnrtwyAVTWiIl1.,;0123456789 éÜß–ﬁЖ漢ע😀"_s;
    QStandardItemModel texts(12, 2);
    for (const auto direction : { Qt::LeftToRight, Qt::RightToLeft }) {
        for (int round = 0; round < KXTestRandom::scaled(40); ++round) {
            KXTableView table;
            table.setLayoutDirection(direction);
            table.setTableColumns({ { u"text"_s, double(random.between(30, 160)) }, { u"empty"_s, 60 } });
            table.setModel(&texts);
            for (int row = 0; row < texts.rowCount(); ++row) {
                QString text;
                const int plain = random.chance(0.7) ? 36 : int(letters.size());
                for (int i = random.below(24); i >= 0; --i)
                    text += letters[random.below(plain)];
                texts.setData(texts.index(row, 0), text);
                texts.setData(texts.index(row, 0),
                    QVariant::fromValue(
                        Qt::Alignment(random.oneOf(std::array { Qt::AlignLeft, Qt::AlignRight, Qt::AlignHCenter }))),
                    Qt::TextAlignmentRole);
            }
            table.resize(300, 200);
            table.verticalScrollBar()->setValue(random.below(60));
            const QImage whole = table.viewport()->grab().toImage();
            const QRect inside(random.below(200), random.below(100), 60, 50);
            const QImage part = table.viewport()->grab(inside).toImage();
            EXPECT_EQ(part, whole.copy(inside));
            const int first = table.columnViewportPosition(1), row = table.rowViewportPosition(table.rowAt(100));
            for (int y = qMax(0, row); y < 160; ++y) {
                const QRgb empty = whole.pixel(first + 30, y);
                for (int x = first + 1; x < first + 59; ++x)
                    ASSERT_EQ(whole.pixel(x, y), empty) << "at " << x << ", " << y;
            }
        }
    }
}

TEST(TableTheme, headerTextsStandAboveTheCells)
{
    KXTheme::apply(*qApp, std::make_shared<KXDarkTheme>());
    QStandardItemModel model(1, 2);
    for (int column = 0; column < 2; ++column) {
        model.setHorizontalHeaderItem(column, new QStandardItem(u"HHH"_s));
        model.setItem(0, column, new QStandardItem(u"HHH"_s));
        const auto alignment = QVariant::fromValue(Qt::AlignVCenter | (column ? Qt::AlignRight : Qt::AlignLeft));
        model.setHeaderData(column, Qt::Horizontal, alignment, Qt::TextAlignmentRole);
        model.setData(model.index(0, column), alignment, Qt::TextAlignmentRole);
    }
    KXTableView table; // nobody names its style
    table.setModel(&model);
    table.resize(400, 120);
    const QImage image = table.grab().toImage();
    const QHeaderView *const header = table.horizontalHeader();
    // Where ink begins and ends, in a section's own coordinates.
    const auto ink = [&](int column, int top, int height) {
        const int left = table.columnViewportPosition(column);
        std::pair<int, int> found { -1, -1 };
        for (int x = 5; x < table.columnWidth(column) - 5; ++x) {
            for (int y = top + 3; y < top + height - 3; ++y) {
                if (std::abs(qGray(image.pixel(left + x, y)) - qGray(image.pixel(left + 4, y))) > 60)
                    found = { found.first < 0 ? x : found.first, x };
            }
        }
        return found;
    };
    const auto headLeft = ink(0, 0, header->height()), headRight = ink(1, 0, header->height());
    const auto cellLeft = ink(0, header->height(), table.rowHeight(0)),
               cellRight = ink(1, header->height(), table.rowHeight(0));
    EXPECT_GT(cellLeft.first, 5);
    EXPECT_LE(std::abs(headLeft.first - cellLeft.first), 1);
    EXPECT_LE(std::abs(headRight.second - cellRight.second), 1);
    KXTheme::apply(*qApp, nullptr);
}
