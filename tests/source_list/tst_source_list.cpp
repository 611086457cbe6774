// Source lists: what may be dropped where, what users do to them, and what is remembered.

#include <QAbstractItemModelTester>
#include <QLineEdit>
#include <QSignalSpy>

#include <kestrixkit/filter_ui/KXFilterSetPresetEditing.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/source_list/KXSourceListItemController.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXPasteboard.h>
#include <support/DragAndDrop.h>
#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>
#include <support/KXTestRandom.h>

#include "filter_ui/PresetTree.h"

using namespace Qt::StringLiterals;

using Object = KXManagedObject;

namespace Rules = KXSourceListDropRules;

TEST(SourceListDropRules, decide)
{
    constexpr Qt::DropActions any = Qt::CopyAction | Qt::MoveAction;
    // allowed, duplicable, target, its parent, can hold, inside, refused, below, target's index, child, height
    const Rules::Question into { any, false, true, false, true, false, false, false, 4, -1, 0.5 };
    const auto with = [](Rules::Question question, auto change) {
        change(question);
        return question;
    };
    const auto onto = [&](double height) { return with(into, [=](auto &q) { q.height = height; }); };
    const auto between = with(into, [](auto &q) { q.childIndex = 2, q.height = 0.05; });
    const auto nested = with(into, [](auto &q) { q.targetHasParent = true, q.height = 0.99; });
    const auto flat = with(into, [](auto &q) { q.targetCanBeParent = false, q.height = 0.01; });
    const Rules::Question top { any, false, false, false, false, false, false, false, -1, 3, 0 };
    const auto allowing = [&](Qt::DropActions actions, bool duplicable) {
        return with(into, [=](auto &q) { q.allowed = actions, q.canBeDuplicated = duplicable; });
    };
    const auto refused = [](auto &q) { q.isRefused = true; };
    struct Case
    {
        const char *what;
        Rules::Question question;
        Qt::DropAction operation;
        bool intoTarget;
        int childIndex;
    };
    const Case cases[] {
        { "upper fifth", onto(0.19), Qt::MoveAction, false, 4 },
        { "just in", onto(0.2), Qt::MoveAction, true, -1 },
        { "still in", onto(0.8), Qt::MoveAction, true, -1 },
        { "lower fifth", onto(0.81), Qt::MoveAction, false, 5 },
        { "between children, whatever the height", between, Qt::MoveAction, true, 2 },
        { "below the top level rows are not divided", nested, Qt::MoveAction, true, -1 },
        { "beside what cannot hold it", flat, Qt::MoveAction, false, 4 },
        { "and after, from above", with(flat, [](auto &q) { q.targetIsBelow = true; }), Qt::MoveAction, false, 5 },
        { "nowhere beside below the top level", with(flat, [](auto &q) { q.targetHasParent = true; }), Qt::IgnoreAction,
            false, 0 },
        { "not between its rows", with(flat, [](auto &q) { q.childIndex = 0; }), Qt::IgnoreAction, false, 0 },
        { "nor where it refuses", with(flat, refused), Qt::IgnoreAction, false, 0 },
        { "refusal is not asked where it can be held", with(into, refused), Qt::MoveAction, true, -1 },
        { "into itself: beside", with(into, [](auto &q) { q.targetIsInside = true; }), Qt::MoveAction, false, 4 },
        { "into its own child", with(nested, [](auto &q) { q.targetIsInside = true; }), Qt::IgnoreAction, false, 0 },
        { "between its own children", with(between, [](auto &q) { q.targetIsInside = true; }), Qt::IgnoreAction, false,
            0 },
        { "top level", top, Qt::MoveAction, false, 3 },
        { "top level, no place", with(top, [](auto &q) { q.childIndex = -1; }), Qt::MoveAction, false, 0 },
        { "top level refused", with(top, refused), Qt::IgnoreAction, false, 0 },
        { "copied where only that is allowed", allowing(Qt::CopyAction, true), Qt::CopyAction, true, -1 },
        { "moved where both are", allowing(any, true), Qt::MoveAction, true, -1 },
        { "moved where it has no copies", allowing(Qt::CopyAction, false), Qt::MoveAction, true, -1 },
        { "links are not made", allowing(Qt::LinkAction, true), Qt::IgnoreAction, false, 0 },
    };
    for (const Case &c : cases) {
        const Rules::Answer answer = Rules::decide(c.question);
        EXPECT_EQ(answer.operation, c.operation) << c.what;
        if (c.operation == Qt::IgnoreAction)
            continue;
        EXPECT_EQ(answer.intoTarget, c.intoTarget) << c.what;
        EXPECT_EQ(answer.childIndex, c.childIndex) << c.what;
    }
}

class SourceListTest : public PresetTree
{
protected:
    using Preset = KXRef<KXFilterSetPreset>;

    ~SourceListTest() override { KXUserDefaults::standard().remove(u"test Selection"_s); }

    void start(const QString &name, const Preset &root = {})
    {
        list.reset();
        tree.reset();
        show(KXFilterSetPreset::entityName);
        list->setRootItem(root);
        list->setAutosaveName(name);
        endOfTurn();
    }
    /// What the store answers, with badges: "a:2(b c:1)".
    QString stored(const QString &identifier, const Preset &parent = {})
    {
        QStringList parts;
        KXFetchRequest request(QString(KXFilterSetPreset::entityName),
            parent ? KXPredicate::predicateWithFormat("parent == %@", KXVariantFromRef(parent))
                   : KXPredicate::predicateWithFormat("parent == nil"));
        request.setSortDescriptors({ { u"position"_s } });
        for (const KXRef<Object> &object : context->fetch(request)) {
            const auto preset = KXFilterSetPreset::cast(object);
            const QString below = stored(identifier, preset);
            const qint64 count = preset->counts().value_or(KXCounts()).value(identifier);
            parts += preset->title() + (count > 0 ? u':' + QString::number(count) : QString())
                + (below.isEmpty() ? QString() : u'(' + below + u')');
        }
        return parts.join(u' ');
    }
    /// The same as rows show it, closed ones included.
    QString shown(const QModelIndex &parent = {})
    {
        QStringList parts;
        for (int i = 0; i < tree->rowCount(parent); ++i) {
            const QModelIndex index = tree->index(i, 0, parent);
            const KXSourceListCell cell = view()->cellForRow(index);
            const QString below = shown(index);
            parts += cell.title + (cell.count > 0 ? u':' + QString::number(cell.count) : QString())
                + (below.isEmpty() ? QString() : u'(' + below + u')');
        }
        return parts.join(u' ');
    }
};

class SourceListWalk : public SourceListTest
{
protected:
    using Acts = std::vector<std::pair<const char *, std::function<void()>>>;

    /// Three folders with a preset each.
    void begin()
    {
        QList<KXRef<Object>> all;
        for (const KXRef<Object> &object : KXFilterSetPreset::findAllInContext(*context))
            all.append(object);
        context->deleteObjects(all);
        list.reset();
        tree.reset();
        for (int i = 0; i < 3; ++i) {
            const Preset above = presetFolder(u"f%1"_s.arg(++serial), i);
            preset(QString::number(++serial), above);
        }
        show(KXFilterSetPreset::entityName);
        view()->expandAll();
        QObject::connect(view(), &KXSourceListView::deletePressed, view(), [this] {
            const auto presets = KXFilterSetPresetEditing::selectedPresets(*tree);
            if (KXFilterSetPresetEditing::confirmRemoval(presets, nullptr))
                KXFilterSetPresetEditing::removePresets(*tree, presets);
        });
    }
    const KXTreeNode *anyNode()
    {
        const auto nodes = tree->flattenedNodes();
        return nodes.isEmpty() ? nullptr : random.oneOf(nodes);
    }
    QModelIndex anyRow() { return tree->indexForNode(anyNode()); }
    Preset selected() { return KXFilterSetPresetEditing::selectedPresets(*tree).value(0); }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) { QTest::keyClick(view(), key, modifiers); }
    void drag()
    {
        const auto dragged = view()->selectionModel()->selectedRows();
        static constexpr double heights[] = { 0, 0.1, 0.3, 0.5, 0.7, 0.9, 1 };
        if (!dragged.isEmpty())
            DragAndDrop::rows(*view(), dragged, random.chance(0.1) ? QModelIndex() : anyRow(), random.oneOf(heights),
                random.chance(0.2) ? Qt::ControlModifier : Qt::NoModifier);
    }
    void rename()
    {
        press(Qt::Key_F2);
        if (auto *editor = view()->viewport()->findChild<QLineEdit *>()) {
            QTest::keyClicks(editor, random.chance(0.2) ? u"  "_s : u"r%1"_s.arg(++serial));
            QTest::keyClick(editor, random.chance(0.8) ? Qt::Key_Return : Qt::Key_Escape);
            endOfTurn(); // which takes over the title
        }
    }
    void click()
    {
        if (const QModelIndex index = anyRow(); index.isValid()) {
            view()->scrollTo(index);
            QTest::mouseClick(view()->viewport(), Qt::LeftButton,
                random.chance(0.5)       ? Qt::NoModifier
                    : random.chance(0.5) ? Qt::ShiftModifier
                                         : Qt::ControlModifier,
                view()->visualRect(index).center());
        }
    }
    void somebodyElse()
    {
        const KXFetchedList all = KXFilterSetPreset::findAllInContext(*other);
        const auto object = all.isEmpty() ? Preset() : KXFilterSetPreset::cast(all.at(random.below(int(all.size()))));
        if (!object || random.chance(0.3)) {
            const auto made = KXFilterSetPreset::createInContext(*other);
            made->setTitle(u"o%1"_s.arg(++serial));
            made->setPosition(random.below(4));
            made->setParent(object && object->isFolder() ? object : Preset());
        } else if (random.chance(0.3)) {
            other->removeManagedObject(object);
        } else {
            object->setPosition(random.below(4));
            object->setTitle(object->title() + u'x');
        }
        EXPECT_TRUE(other->save(nullptr));
    }
    Acts acts()
    {
        return {
            { "click", [this] { click(); } },
            { "click ", [this] { click(); } },
            { "drag", [this] { drag(); } },
            { "drag ", [this] { drag(); } },
            { "drag  ", [this] { drag(); } },
            { "move",
                [this] {
                    static constexpr Qt::Key arrows[] = { Qt::Key_Up, Qt::Key_Down, Qt::Key_Left, Qt::Key_Right };
                    press(random.oneOf(arrows), Qt::AltModifier);
                } },
            { "rename", [this] { rename(); } },
            { "delete", [this] { press(random.chance(0.5) ? Qt::Key_Delete : Qt::Key_Backspace); } },
            { "folder",
                [this] { list->selectForEditing(KXFilterSetPresetEditing::addFolder(*tree, selected()).get()); } },
            { "down", [this] { press(Qt::Key_Down, random.chance(0.3) ? Qt::ShiftModifier : Qt::NoModifier); } },
            { "up", [this] { press(Qt::Key_Up); } },
            { "right", [this] { press(Qt::Key_Right); } },
            { "left", [this] { press(Qt::Key_Left); } },
            { "find", [this] { QTest::keyClicks(view(), QString::number(random.below(100))); } },
            { "copy",
                [this] { KXFilterSetPresetEditing::copyPresets(KXFilterSetPresetEditing::selectedPresets(*tree)); } },
            { "paste",
                [this] {
                    if (KXFilterSetPresetEditing::canPaste(selected()))
                        KXFilterSetPresetEditing::duplicatePresets(
                            *tree, KXFilterSetPresetEditing::presetsOnPasteboard(*tree).mid(0, 1), selected());
                } },
            { "count",
                [this] {
                    if (const KXTreeNode *node = anyNode())
                        KXFilterSetPreset::cast(node->representedObject())->setCount(random.below(50), u"here"_s);
                } },
            { "undo", [this] { undo().undo(); } },
            { "redo", [this] { undo().redo(); } },
            { "other", [this] { somebodyElse(); } },
            { "other ", [this] { somebodyElse(); } },
            { "turn", endOfTurn },
        };
    }

    KXTestRandom random;
    int serial = 0;
    const KXScopeToken alert
        = KXAlert::setRunner([this](const KXAlert &) { return KXAlertAnswer { random.chance(0.7) ? 0 : 1 }; });
    const KXManagedObjectContext::Ref other
        = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const KXPersistentStoreCoordinator::ChangeToken merging
        = coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
              context->mergeChangesFromStoreChange(change);
              other->mergeChangesFromStoreChange(change);
          });
};

// Whatever users do, others save and is taken back: what is on screen is what the store holds, in order, nesting,
// titles and badges, and what is selected is there.
TEST_F(SourceListWalk, showsTheStore)
{
    const Acts all = acts();
    const int walks = KXTestRandom::scaled(1000);
    for (int walk = 0; walk < walks; ++walk) {
        begin();
        QAbstractItemModelTester tester(tree.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        for (int step = 0; step < 100; ++step) {
            const auto before = tree->selectedObjects();
            const KXIndexPath path = tree->selectionIndexPath();
            const auto &[name, act] = random.oneOf(all);
            act();
            context->processPendingChanges();
            ASSERT_EQ(shown(), stored(u"here"_s)) << "walk " << walk << ", step " << step << ": " << name;
            ASSERT_EQ(list->currentSelectedIndexPath(), tree->selectionIndexPath());
            for (const KXRef<Object> &object : tree->selectedObjects())
                ASSERT_FALSE(object->isDeleted()) << name;
            if (!before.isEmpty() && !path.isEmpty() && tree->selectedObjects().isEmpty() && tree->rowCount() > 0
                && QByteArray(name).startsWith("delete")) {
                FAIL() << "what stands beside the deleted is not selected: walk " << walk << ", step " << step;
            }
            if (QByteArray(name).startsWith("drag") || QByteArray(name) == "move") {
                ASSERT_TRUE(std::all_of(before.begin(), before.end(), [&](const auto &object) {
                    return tree->treeNodeForObject(object.get());
                })) << "dragging loses nothing";
            }
        }
    }
}

/// "f(a b) c d g(l)", where l is to stay.
class SourceListMoves : public SourceListTest
{
protected:
    void SetUp() override
    {
        locked->setIsRepositionable(false);
        show(KXFilterSetPreset::entityName);
        view()->expandAll();
        ASSERT_EQ(outline(), u"f(a b) c d g(l)"_s);
    }

    const Preset f = presetFolder(u"f"_s, 0), g = presetFolder(u"g"_s, 3), a = preset(u"a"_s, f, 0),
                 b = preset(u"b"_s, f, 1), c = preset(u"c"_s, {}, 1), d = preset(u"d"_s, {}, 2),
                 locked = preset(u"l"_s, g, 0);
};

TEST_F(SourceListMoves, byDragsAreOneStepSavedAndUndone)
{
    struct Step
    {
        QList<Preset> dragged;
        Preset onto; // none: below all rows
        double height;
        QString after; // empty: refused
    };
    const Step steps[] {
        { { c, d }, f, 0.5, u"f(c d a b) g(l)"_s }, // in front
        { { d }, b, 0.95, u"f(c a b d) g(l)"_s },
        { { a, c }, b, 0.05, u"f(c a b d) g(l)"_s }, // they stand there already
        { { b }, f, 0.0, u"b f(c a d) g(l)"_s }, { { c }, f, 1.0, u"b f(a d) c g(l)"_s },
        { { b }, c, 0.5, u"f(a d) c b g(l)"_s }, // cannot be nested: after, as it comes from above
        { { b }, {}, 0, u"f(a d) c g(l) b"_s }, { { f }, g, 0.5, u"c g(f(a d) l) b"_s },
        { { g }, a, 0.05, {} }, // into itself
        { { g }, f, 0.5, {} }, { { locked, b }, c, 0.5, {} },
        { { b, a }, f, 0.5, u"c g(f(a b d) l)"_s }, // as they stand, whatever was selected first
        { { f, d }, g, 1.0, u"c g(l) f(a b d)"_s }, // d goes with f
    };
    QStringList states { outline() };
    for (const Step &step : steps) {
        QModelIndexList rows;
        for (const Preset &dragged : step.dragged)
            rows.append(row(dragged));
        view()->expandAll();
        const bool done = DragAndDrop::rows(*view(), rows, row(step.onto), step.height) == Qt::MoveAction;
        ASSERT_EQ(done, !step.after.isEmpty()) << step.after.toStdString() << outline().toStdString();
        ASSERT_EQ(outline(), done ? step.after : states.last());
        ASSERT_FALSE(context->hasChanges());
        for (const KXTreeNode *node : tree->flattenedNodes())
            ASSERT_EQ(KXFilterSetPreset::cast(node->representedObject())->position(), node->row());
        if (outline() != states.last()) {
            ASSERT_EQ(undo().undoActionName(), u"Move Items"_s);
            states.append(outline());
        }
    }
    for (qsizetype i = states.size() - 1; i-- > 0;) {
        undo().undo();
        EXPECT_EQ(outline(), states[i]);
    }
    EXPECT_FALSE(undo().canUndo());
}

TEST_F(SourceListMoves, byKeysGoAsFarAsTheyCan)
{
    struct Key
    {
        Preset moved;
        Qt::Key arrow;
        QString after;
    };
    for (const Key &key : { Key { b, Qt::Key_Up, u"f(b a) c d g(l)"_s }, Key { b, Qt::Key_Up, u"f(b a) c d g(l)"_s },
             Key { b, Qt::Key_Left, u"f(a) b c d g(l)"_s }, Key { c, Qt::Key_Right, u"f(a) b c d g(l)"_s },
             Key { b, Qt::Key_Down, u"f(a) c b d g(l)"_s }, Key { c, Qt::Key_Right, u"f(a c) b d g(l)"_s },
             Key { locked, Qt::Key_Left, u"f(a c) b d g(l)"_s }, Key { g, Qt::Key_Down, u"f(a c) b d g(l)"_s } }) {
        list->selectItem(key.moved.get());
        QTest::keyClick(view(), key.arrow, Qt::AltModifier);
        EXPECT_EQ(outline(), key.after);
        EXPECT_EQ(list->selectedItem(), key.moved.get());
    }
}

TEST_F(SourceListMoves, areStepsOfTheContextWhereTheListIsUndoneElsewhere)
{
    KXUndoManager elsewhere;
    view()->setUndoManager(&elsewhere);
    DragAndDrop::rows(*view(), { row(c) }, {}, 0);
    EXPECT_EQ(undo().undoActionName(), u"Move Items"_s);
    EXPECT_FALSE(elsewhere.canUndo());
}

/// Takes files, and notes what it is asked.
class FileTaker : public QObject, public KXSourceListItemController
{
    Q_OBJECT
public:
    KXSourceListItem *sourceItem() const override { return item; }
    void setSourceItem(KXSourceListItem *given) override { item = given; }
    Qt::DropAction validateDrop(
        KXSourceListView &, const QMimeData &data, Qt::DropActions, KXSourceListItem *, int) override
    {
        return data.hasUrls() ? Qt::CopyAction : Qt::IgnoreAction;
    }
    bool acceptDrop(KXSourceListView &, const QMimeData &data, KXSourceListItem *onto, int childIndex) override
    {
        taken = data.urls().first().fileName() + u" on "_s + onto->title() + u' ' + QString::number(childIndex);
        return true;
    }
    QMenu *contextMenuForItem(KXSourceListView &, KXSourceListItem *) override { return &menu; }
    bool didReceiveKeyDownEvent(KXSourceListView &, QKeyEvent &event) override { return event.key() == Qt::Key_X; }

    KXSourceListItem *item = nullptr;
    QString taken;
    QMenu menu;
};

// What is foreign, stale or rubbish does nothing; the rest finds its way by the objects, not by where they stood.
TEST_F(SourceListTest, foreignAndStaleDrops)
{
    KXViewState::registerControllerClass<FileTaker>();
    const auto top = make<KXViewState>(u"top"_s), below = make<KXViewState>(u"below"_s, top, 0);
    const auto a = make<KXViewState>(u"a"_s, {}, 1), b = make<KXViewState>(u"b"_s, {}, 2);
    below->setControllerClass(&FileTaker::staticMetaObject);
    show(KXViewState::entityName);
    view()->expandAll();
    list->restoreExpandedState();
    EXPECT_TRUE(top->expanded());
    view()->collapse(row(top));
    EXPECT_FALSE(top->expanded());
    view()->expand(row(top));
    endOfTurn();
    EXPECT_FALSE(undo().canUndo() || context->hasChanges()) << "what is open is remembered, and no step to undo";
    const auto data = [&](const QVariantList &items) {
        return std::unique_ptr<QMimeData>(KXPasteboard::mimeDataWithItems(KXSourceListItemPasteboardType, items));
    };
    const auto place = [&](const KXRef<KXViewState> &on) { return view()->visualRect(row(on)).center(); };
    KXTestLog log;
    QMimeData broken;
    broken.setData(KXSourceListItemPasteboardType, "\x01\x02 no archive");
    EXPECT_EQ(DragAndDrop::drop(*view(), broken, place(a)), Qt::IgnoreAction);
    for (const QVariantList &bad : { QVariantList {}, QVariantList { u"text"_s, 7, QVariantList { -1 } },
             QVariantList { QVariant(QVariantList { 5, 1 }) } })
        EXPECT_EQ(DragAndDrop::drop(*view(), *data(bad), place(a)), Qt::IgnoreAction);
    EXPECT_TRUE(log.contains(u"unreadable"_s));
    EXPECT_EQ(
        DragAndDrop::drop(*view(), *data({ QVariant(QVariantList { 1 }) }), place(b)), Qt::MoveAction); // paths alone
    EXPECT_EQ(outline(), u"top(below) b a"_s);

    // The tree changes while something is dragged: it is still that which was taken.
    const std::unique_ptr<QMimeData> dragged(view()->delegate()->mimeDataForRows(*view(), { row(a), row(b) }));
    b->setPosition(-1);
    context->processPendingChanges();
    context->removeManagedObject(a);
    context->processPendingChanges();
    ASSERT_EQ(outline(), u"b top(below)"_s);
    EXPECT_EQ(DragAndDrop::drop(*view(), *dragged, place(top)), Qt::MoveAction);
    EXPECT_EQ(outline(), u"top(below) b"_s);
    undo().undo();
    undo().undo(); // what else happened in the turn
    EXPECT_EQ(outline(), u"top(below) b a"_s);

    // Files: the item's controller is asked, where it has one; its keys and its menu go first.
    QMimeData files;
    files.setUrls({ QUrl(u"file:///music/x.wav"_s) });
    EXPECT_EQ(DragAndDrop::drop(*view(), files, place(top)), Qt::IgnoreAction);
    EXPECT_EQ(DragAndDrop::drop(*view(), files, place(below)), Qt::CopyAction);
    auto *taker = qobject_cast<FileTaker *>(below->controllerObject());
    EXPECT_EQ(taker->taken, u"x.wav on below -1"_s);
    list->selectItem(below.get());
    QTest::keyClick(view(), Qt::Key_X);
    QTest::keyClick(view(), Qt::Key_A);
    EXPECT_EQ(list->selectedItem(), a.get());
    QContextMenuEvent asked(QContextMenuEvent::Mouse, place(below), view()->mapToGlobal(place(below)));
    QApplication::sendEvent(view()->viewport(), &asked);
    EXPECT_TRUE(taker->menu.isVisible());
    taker->menu.hide();
}

TEST_F(SourceListTest, controlCopiesWhatCanBeCopied)
{
    const auto one = make<KXViewState>(u"one"_s), two = make<KXViewState>(u"two"_s, {}, 1);
    const auto below = make<KXViewState>(u"below"_s, one);
    show(KXViewState::entityName);
    EXPECT_EQ(DragAndDrop::rows(*view(), { row(one), row(two) }, row(one), 0.5, Qt::ControlModifier), Qt::CopyAction);
    EXPECT_EQ(outline(), u"one two one(below) two"_s); // copies of the top level come without what is below
    EXPECT_EQ(undo().undoActionName(), u"Copy Items"_s);
    EXPECT_FALSE(context->hasChanges());
    for (const KXTreeNode *node : tree->flattenedNodes())
        EXPECT_EQ(KXViewState::cast(node->representedObject())->position(), node->row());
    undo().undo();
    EXPECT_EQ(outline(), u"one(below) two"_s);
    context->save();
}

// A row is renamed while its counts change, while others save, and while it is deleted.
TEST_F(SourceListTest, renamingInPlace)
{
    const auto a = preset(u"a"_s), b = preset(u"b"_s, {}, 1);
    show(KXFilterSetPreset::entityName);
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto merging = coordinator->addChangeObserver(
        [&](const std::shared_ptr<const KXStoreChange> &change) { context->mergeChangesFromStoreChange(change); });
    const auto editor = [&] { return view()->viewport()->findChild<QLineEdit *>(); };
    const auto there
        = [&](const Preset &preset) { return KXFilterSetPreset::cast(other->objectWithID(preset->objectID())); };
    list->selectForEditing(a.get());
    ASSERT_TRUE(editor());
    EXPECT_EQ(editor()->selectedText(), u"a"_s);
    QTest::keyClicks(editor(), u"typed"_s);
    a->setCount(5, u"here"_s);
    there(a)->setPosition(7);
    other->save(nullptr);
    EXPECT_EQ(outline(), u"b a"_s);
    EXPECT_EQ(editor()->text(), u"typed"_s);
    QTest::keyClick(editor(), Qt::Key_Return);
    endOfTurn();
    EXPECT_EQ(outline(), u"b typed"_s);
    EXPECT_EQ(undo().undoActionName(), u"Rename"_s);
    EXPECT_FALSE(context->hasChanges());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    list->selectForEditing(a.get());
    QTest::keyClicks(editor(), u"gone"_s);
    other->removeManagedObject(there(a));
    other->save(nullptr);
    EXPECT_EQ(outline(), u"b"_s);
    EXPECT_FALSE(view()->isEditing());
    endOfTurn();
    EXPECT_EQ(list->selectedItem(), b.get());
    undo().undo();
    EXPECT_EQ(b->title(), u"b"_s);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    // Another row goes: what is typed is there to be taken over.
    const auto c = preset(u"c"_s, {}, 2);
    context->save(nullptr);
    list->selectForEditing(b.get());
    QTest::keyClicks(editor(), u"kept"_s);
    other->removeManagedObject(there(c));
    other->save(nullptr);
    EXPECT_EQ(outline(), u"b"_s);
    EXPECT_TRUE(view()->isEditing());
    EXPECT_EQ(editor()->text(), u"kept"_s);
    view()->commitEditing();
    EXPECT_EQ(b->title(), u"kept"_s);
    EXPECT_FALSE(view()->isEditing());
}

TEST_F(SourceListTest, remembersSelectionAndWhatIsOpen)
{
    const auto f = presetFolder(u"f"_s), g = presetFolder(u"g"_s, 1);
    const auto a = preset(u"a"_s, f, 0), b = preset(u"b"_s, f, 1), c = preset(u"c"_s, g, 0);
    start(u"test"_s, g);
    EXPECT_EQ(list->selectedItem(), g.get()); // nothing is remembered yet
    list->expandItem(f.get());
    list->selectItem(b.get());
    start(u"test"_s, g); // at once: what was due is not lost
    EXPECT_EQ(list->selectedItem(), b.get());
    EXPECT_TRUE(view()->isExpanded(row(f)));
    EXPECT_FALSE(view()->isExpanded(row(g)));

    // What is due belongs to the name that it was done under.
    list->selectItem(a.get());
    list->setAutosaveName(u"other"_s);
    endOfTurn();
    EXPECT_EQ(list->selectedItem(), g.get()) << "of this name nothing is remembered";
    list->setAutosaveName(u"test"_s);
    endOfTurn();
    EXPECT_EQ(list->selectedItem(), a.get());
    list->selectItem(b.get());

    // And to the tree that it was done in.
    KXTreeRequest request { KXFilterSetPreset::entityName };
    request.sortDescriptors = { { u"position"_s } };
    KXTreeController second(context, request);
    list->setTreeController(&second);
    endOfTurn();
    EXPECT_EQ(list->selectedItem(), b.get());
    EXPECT_TRUE(view()->isExpanded(second.indexForNode(second.treeNodeForObject(f.get()))));
    list->setTreeController(tree.get());
    endOfTurn();
    EXPECT_EQ(list->selectedItem(), b.get());

    // Deleted: the one before, then the folder.
    KXFilterSetPresetEditing::removePresets(*tree, { b });
    EXPECT_EQ(list->selectedItem(), a.get());
    KXFilterSetPresetEditing::removePresets(*tree, { a });
    EXPECT_EQ(list->selectedItem(), f.get());
}

TEST_F(SourceListTest, selectsWhatIsNearestToAPathThatHasGone)
{
    const auto f = presetFolder(u"f"_s), g = presetFolder(u"g"_s, 1);
    const auto c = preset(u"c"_s, g, 0);
    start(u"test"_s, g);
    struct Remembered
    {
        QVariant value;
        KXSourceListItem *selected;
    };
    list->selectItem(c.get());
    list->saveState();
    KXUserDefaults &defaults = KXUserDefaults::standard();
    const QByteArray whole = defaults.dataForKey(u"test Selection"_s).value();
    const auto path = [&](const KXIndexPath &rows) {
        list->setSelectionIndexPath(rows);
        return list->selectedItem();
    };
    EXPECT_EQ(path({ 1, 9999999 }), c.get());
    EXPECT_EQ(path({ 1, 0, 3, 5 }), c.get());
    EXPECT_EQ(path({ 7 }), g.get());
    EXPECT_EQ(path({ 0, 2 }), f.get());
    EXPECT_EQ(path({ -3 }), nullptr);
    for (const Remembered &remembered : { Remembered { whole, c.get() }, Remembered { whole.left(9), f.get() },
             Remembered { u"rubbish"_s, f.get() }, Remembered { QVariant(), g.get() } }) {
        list.reset();
        defaults.setValue(u"test Selection"_s, remembered.value); // a path that cannot be read is 0.1
        defaults.setValue(u"test Expanded Items"_s, QVariantList { remembered.value, 7, whole });
        start(u"test"_s, g);
        EXPECT_EQ(list->selectedItem(), remembered.selected) << remembered.value.typeName();
    }
    start({}, g);
    EXPECT_EQ(list->selectedItem(), nullptr); // nothing is remembered without name
}

// None of it needs a tree, a view or a context.
TEST_F(SourceListTest, listsOfNothing)
{
    const auto a = preset(u"a"_s);
    KXSourceListViewController nothing;
    nothing.selectForEditing(a.get());
    nothing.expandItem(a.get(), true);
    nothing.setSelectionIndexPath({ 0, 1 });
    nothing.restoreExpandedState();
    nothing.setAutosaveName(u"test"_s);
    EXPECT_FALSE(nothing.insertItem(a, { 0 }));
    EXPECT_FALSE(nothing.removeItem(a.get()));
    EXPECT_FALSE(nothing.removeItemAtArrangedObjectIndexPath({ 0 }));
    QMimeData files;
    files.setUrls({ QUrl(u"file:///x"_s) });
    EXPECT_EQ(DragAndDrop::drop(*nothing.sourceListView(), files, { 5, 5 }), Qt::IgnoreAction);
    show(KXFilterSetPreset::entityName);
    list->setDelegate(nullptr);
    context.reset();
    QTest::keyClick(view(), Qt::Key_Down);
    QTest::keyClick(view(), Qt::Key_F2);
    tree.reset();
    EXPECT_TRUE(list->selectedItems().isEmpty());
    EXPECT_FALSE(view()->grab().isNull());
}

#include "tst_source_list.moc"
