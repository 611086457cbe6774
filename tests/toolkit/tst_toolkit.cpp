// Popovers, alerts, lists, menus, animations, the pasteboard.

#include <QAbstractItemModelTester>
#include <QAction>
#include <QCborArray>
#include <QCheckBox>
#include <QClipboard>
#include <QGraphicsOpacityEffect>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXArchive.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXPopoverFrame.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/toolkit/KXListController.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXPasteboard.h>
#include <kestrixkit/toolkit/KXPopoverController.h>
#include <kestrixkit/toolkit/KXViewController.h>

#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

class BubbleViewController : public KXViewController
{
    Q_OBJECT
public:
    QStringList heard;
    std::function<void()> onAppearing;
    void viewWillAppear() override
    {
        KXViewController::viewWillAppear();
        if (onAppearing)
            std::exchange(onAppearing, {})();
    }
    void popoverWillShow() override { heard += u"will show"_s; }
    void popoverDidShow() override { heard += u"did show"_s; }
    void popoverWillClose() override { heard += u"will close"_s; }
    void popoverDidClose() override { heard += u"did close"_s; }

protected:
    void loadView() override { setView(new QLineEdit); }
};

class PopoverTest : public ::testing::Test
{
protected:
    PopoverTest()
    {
        KXAnimationGroup::setAnimationsEnabled(false);
        window.resize(300, 200);
        other.resize(100, 100);
        anchor = new QPushButton(u"Anchor"_s, &window);
        anchor->move(100, 20);
        window.show();
        other.show();
        popover.setCloseAction([this] { ++closed; });
    }
    ~PopoverTest() override
    {
        KXAnimationGroup::setAnimationsEnabled(true);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    void show(KXPopoverBehaviour behaviour)
    {
        popover.setBehaviour(behaviour);
        popover.showRelativeTo(anchor, Qt::BottomEdge);
    }

    QWidget window, other;
    QPointer<QPushButton> anchor;
    BubbleViewController content;
    KXPopoverController popover { &content };
    int closed = 0;
};

TEST_F(PopoverTest, tellsItsContentAndClosesOnce)
{
    int shown = 0;
    popover.setDidShowAction([&] { ++shown; });
    show(KXPopoverBehaviour::Transient);
    show(KXPopoverBehaviour::Transient);
    EXPECT_TRUE(popover.isShown());
    EXPECT_TRUE(content.hasAppeared());
    EXPECT_TRUE(content.view()->isVisible());
    // Its arrow stands on the anchor, at whichever edge there is room.
    for (const auto &[edge, arrow] : { std::pair(Qt::BottomEdge, Qt::TopEdge), { Qt::RightEdge, Qt::LeftEdge } }) {
        window.move(200, 200);
        for (const bool hasRoom : { true, false }) {
            if (!hasRoom)
                window.move(window.screen()->availableGeometry().bottomRight() - QPoint(120, 40));
            popover.showRelativeTo(anchor, edge);
            auto *frame = qobject_cast<KXPopoverFrame *>(content.view()->window());
            ASSERT_TRUE(frame);
            EXPECT_EQ(frame->arrowEdge() == arrow, hasRoom);
            const QRect near(anchor->mapToGlobal(QPoint()) - QPoint(1, 1), anchor->size() + QSize(2, 2));
            EXPECT_TRUE(near.contains(frame->mapToGlobal(frame->tip())));
            EXPECT_TRUE(frame->contentsRect().contains(content.view()->geometry()));
        }
    }
    popover.close();
    popover.close();
    EXPECT_EQ(content.heard.join(u", "_s), u"will show, did show, will close, did close"_s);
    EXPECT_EQ(shown, 1);
    EXPECT_EQ(closed, 1);
    EXPECT_FALSE(content.view()->isVisible());

    // What closes it may also open it again, or end it.
    popover.setCloseAction([&] {
        if (++closed == 2)
            show(KXPopoverBehaviour::Transient);
    });
    show(KXPopoverBehaviour::Transient);
    popover.close();
    EXPECT_TRUE(popover.isShown());
    BubbleViewController second;
    auto *brief = new KXPopoverController(&second);
    brief->setCloseAction([&] { delete std::exchange(brief, nullptr); });
    brief->showRelativeTo(anchor, Qt::TopEdge);
    brief->close();
    EXPECT_FALSE(brief);
}

TEST_F(PopoverTest, closesWhenItsBehaviourSays)
{
    using enum KXPopoverBehaviour;
    const std::vector<std::pair<const char *, std::function<void()>>> acts {
        { "inside", [&] { QTest::mouseClick(content.view(), Qt::LeftButton); } },
        { "its window", [&] { QTest::mouseClick(&window, Qt::LeftButton, {}, QPoint(5, 5)); } },
        { "another window", [&] { QTest::mouseClick(&other, Qt::LeftButton); } },
        { "another window becomes active",
            [&] {
                other.activateWindow();
                EXPECT_TRUE(QTest::qWaitForWindowActive(&other));
            } },
        { "a popover of its own",
            [&] {
                BubbleViewController inner;
                KXPopoverController own(&inner);
                own.showRelativeTo(content.view(), Qt::BottomEdge);
                EXPECT_TRUE(QTest::qWaitForWindowActive(inner.view()->window()));
                QTest::mouseClick(inner.view(), Qt::LeftButton);
            } },
        { "escape", [&] { QTest::keyClick(content.view(), Qt::Key_Escape); } },
    };
    const std::map<KXPopoverBehaviour, std::vector<bool>> closes {
        { ApplicationDefined, { false, false, false, false, false, false } },
        { SemiTransient, { false, true, false, false, false, true } },
        { Transient, { false, true, true, true, false, true } },
    };
    for (const auto &[behaviour, expected] : closes) {
        for (size_t i = 0; i < acts.size(); ++i) {
            show(behaviour);
            EXPECT_TRUE(QTest::qWaitForWindowActive(content.view()->window()));
            acts[i].second();
            EXPECT_EQ(!popover.isShown(), expected[i]) << acts[i].first << ", behaviour " << int(behaviour);
            popover.close();
        }
    }
}

TEST_F(PopoverTest, losesWhatItStandsOn)
{
    show(KXPopoverBehaviour::ApplicationDefined);
    anchor->hide();
    EXPECT_FALSE(popover.isShown());
    anchor->show();
    show(KXPopoverBehaviour::ApplicationDefined);
    delete anchor;
    EXPECT_FALSE(popover.isShown());
    EXPECT_EQ(closed, 2);
    show(KXPopoverBehaviour::Transient); // without anchor
    EXPECT_FALSE(popover.isShown());

    auto *doomed = new QWidget;
    doomed->show();
    popover.showRelativeTo(doomed, QRect(2, 2, 5, 5), Qt::LeftEdge);
    const QPointer<QWidget> view = content.view();
    delete doomed;
    EXPECT_FALSE(popover.isShown());
    EXPECT_TRUE(view); // the content keeps its view
    auto *brief = new BubbleViewController;
    KXPopoverController empty(brief);
    empty.showRelativeTo(&window, Qt::RightEdge);
    delete brief;
    EXPECT_FALSE(empty.isShown());
    empty.showRelativeTo(&window, Qt::RightEdge);
    EXPECT_FALSE(empty.isShown());
}

TEST_F(PopoverTest, doesWhatItsContentAskedForLast)
{
    content.onAppearing = [&] { popover.close(); };
    show(KXPopoverBehaviour::Transient);
    EXPECT_FALSE(popover.isShown() || content.hasAppeared());
    auto brief = std::make_unique<BubbleViewController>();
    KXPopoverController ofBrief(brief.get());
    brief->onAppearing = [&] { brief.reset(); };
    ofBrief.showRelativeTo(anchor, Qt::BottomEdge);
    EXPECT_FALSE(ofBrief.isShown());
    BubbleViewController second;
    auto ending = std::make_unique<KXPopoverController>(&second);
    second.onAppearing = [&] { ending.reset(); };
    ending->showRelativeTo(anchor, Qt::BottomEdge);
    EXPECT_FALSE(ending || second.hasAppeared());
    content.onAppearing = [&] { delete anchor; };
    show(KXPopoverBehaviour::Transient);
    EXPECT_FALSE(popover.isShown() || content.hasAppeared());
}

TEST_F(PopoverTest, goesWithItsAnchorInWhateverThatLies)
{
    auto *const pane = new QWidget(&window);
    pane->resize(200, 100);
    anchor->setParent(pane);
    anchor->show();
    pane->show();
    show(KXPopoverBehaviour::ApplicationDefined);
    const QPoint before = content.view()->window()->pos();
    pane->move(pane->pos() + QPoint(0, 30));
    EXPECT_EQ(content.view()->window()->pos(), before + QPoint(0, 30));
}

TEST(Popover, standsAtItsEdgeWithinTheScreen)
{
    const QRect screen(0, 0, 1000, 700);
    const QSize size(201, 99);
    const auto at
        = [&](QRect anchor, Qt::Edge edge) { return KXPopoverController::placed(anchor, size, edge, screen); };
    const QRect middle(500, 300, 21, 11);
    EXPECT_EQ(at(middle, Qt::BottomEdge), QRect(QPoint(410, 311), size));
    EXPECT_EQ(at(middle, Qt::TopEdge), QRect(QPoint(410, 201), size));
    EXPECT_EQ(at(middle, Qt::LeftEdge), QRect(QPoint(299, 256), size));
    EXPECT_EQ(at(middle, Qt::RightEdge), QRect(QPoint(521, 256), size));
    // No room there; at neither side; beyond the screen altogether.
    EXPECT_EQ(at(QRect(500, 650, 21, 11), Qt::BottomEdge).bottom(), 649);
    EXPECT_EQ(at(QRect(0, 300, 21, 11), Qt::LeftEdge).left(), 21);
    for (const QRect &anchor : { QRect(-50, -50, 10, 10), QRect(2000, 900, 10, 10), QRect(0, 0, 1000, 700) }) {
        for (const Qt::Edge edge : { Qt::TopEdge, Qt::LeftEdge, Qt::RightEdge, Qt::BottomEdge })
            EXPECT_TRUE(screen.contains(at(anchor, edge)));
    }
}

TEST(Alert, isAnsweredByTheUserOrByARunner)
{
    KXAlert alert(u"Really?"_s);
    alert.setButtons({ u"Yes"_s, u"No"_s }).setShowsSuppressionButton(true);
    const auto answerBy = [&](const std::function<void(QMessageBox &)> &act) {
        QTimer::singleShot(0, [act] { act(*qobject_cast<QMessageBox *>(QApplication::activeModalWidget())); });
        return alert.run();
    };
    auto answer = answerBy([](QMessageBox &box) {
        box.checkBox()->setChecked(true);
        QTest::mouseClick(
            box.buttons().at(0)->text() == u"Yes"_s ? box.buttons().at(0) : box.buttons().at(1), Qt::LeftButton);
    });
    EXPECT_EQ(answer.button, 0);
    EXPECT_TRUE(answer.suppressed);
    answer = answerBy([](QMessageBox &box) { QTest::keyClick(&box, Qt::Key_Escape); });
    EXPECT_EQ(answer.button, 1);
    EXPECT_FALSE(answer.suppressed);
    // The window below goes while the alert waits.
    auto *window = new QWidget;
    QTimer::singleShot(0, window, [window] { delete window; });
    EXPECT_EQ(alert.run(window).button, -1);

    const KXScopeToken outer = KXAlert::setRunner([](const KXAlert &) { return KXAlertAnswer { 7 }; });
    {
        const KXScopeToken inner = KXAlert::setRunner([](const KXAlert &asked) {
            return KXAlertAnswer { int(asked.buttons().size()), true };
        });
        EXPECT_EQ(alert.run().button, 2);
    }
    EXPECT_EQ(alert.run().button, 7);
}

TEST(ListController, keepsTheSelectionOfWhatStays)
{
    KXListController list;
    QAbstractItemModelTester tester(&list, QAbstractItemModelTester::FailureReportingMode::Fatal);
    QSignalSpy selections(&list, &KXListController::selectionChanged);
    const auto titles = [](const QVariantList &values) {
        QString text;
        for (const QVariant &value : values)
            text += value.toString();
        return text;
    };
    const auto set = [&](const QString &text) {
        QVariantList values;
        for (const QChar one : text)
            values.append(QString(one));
        list.setArrangedObjects(values);
        return titles(list.arrangedObjects()) + u' ' + titles(list.selectedObjects());
    };
    EXPECT_EQ(set(u"abcde"_s), u"abcde "_s);
    list.setSelectedRows({ 4, 0, 9 });
    EXPECT_EQ(titles(list.selectedObjects()), u"ae"_s);
    EXPECT_EQ(set(u"abxyde"_s), u"abxyde ae"_s);
    EXPECT_EQ(selections.count(), 1);
    EXPECT_EQ(set(u"bxyde"_s), u"bxyde e"_s);
    EXPECT_TRUE(list.moveObject(4, 0));
    EXPECT_TRUE(list.insertObject(u"n"_s, 0));
    EXPECT_EQ(titles(list.arrangedObjects()), u"nebxyd"_s);
    EXPECT_EQ(list.selectedRows(), QList<int> { 1 });
    EXPECT_TRUE(list.removeObjects(1, 2));
    EXPECT_EQ(titles(list.arrangedObjects()) + titles(list.selectedObjects()), u"nxyd"_s);
    for (const bool wrong : { list.removeObjects(3, 2), list.removeObjects(-1), list.insertObject({}, 5),
             list.moveObject(4, 0), list.moveObject(0, 9) })
        EXPECT_FALSE(wrong);

    KXViewController named;
    named.setTitle(u"Named"_s);
    list.setArrangedObjects({ QVariant::fromValue<QObject *>(&named), 5, QVariant() });
    list.setTitleKeyPath(u"title"_s);
    EXPECT_EQ(list.index(0).data().toString(), u"Named"_s);
    EXPECT_FALSE(list.index(1).data().isValid());
}

TEST(Menu, filledAnewAsksItsNewItemsAlone)
{
    KXMenu menu;
    int round = 0;
    menu.setUpdater([&](KXMenu &filled) {
        for (int i = 0; i < 4; ++i)
            filled.addItem(u"item"_s, &menu, {}, [valid = i % 2 == round % 2] { return valid; });
    });
    for (; round < 20; ++round) {
        menu.validate();
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(menu.actions()[i]->isEnabled(), i % 2 == round % 2) << round << ' ' << i;
    }
}

TEST(Menu, asksItsItems)
{
    KXMenu menu;
    bool possible = false;
    int done = 0, filled = 0;
    auto target = std::make_unique<QObject>();
    QAction *item = nullptr;
    menu.setUpdater([&](KXMenu &updated) {
        ++filled;
        item = updated.addItem(
            u"Copy"_s, target.get(), [&] { ++done; }, [&] { return possible; });
        updated.addItem(u"Other"_s, target.get(), {});
        updated.addSeparator();
    });
    menu.popup({});
    EXPECT_FALSE(item->isEnabled());
    menu.close();
    possible = true;
    menu.validate();
    EXPECT_EQ(menu.actions().size(), 3);
    EXPECT_EQ(filled, 2);
    item->trigger();
    EXPECT_EQ(done, 1);
    possible = false; // since the menu opened
    item->trigger();
    possible = true;
    target.reset();
    item->trigger();
    EXPECT_EQ(done, 1);
}

TEST(AnimationGroup, endsWhereItShould)
{
    int completed = 0;
    QWidget widget;
    auto *doomed = new QGraphicsOpacityEffect;
    KXAnimationGroup group(0.05);
    const auto run = [&](double opacity) {
        group.add(&widget, "windowOpacity", opacity).add(nullptr, "x", 1);
        group.start([&] { ++completed; });
    };
    KXAnimationGroup::setAnimationsEnabled(false);
    run(0.5);
    EXPECT_NEAR(widget.windowOpacity(), 0.5, 0.01);
    EXPECT_EQ(completed, 1);

    KXAnimationGroup::setAnimationsEnabled(true);
    {
        KXTestLog log;
        group.add(doomed, "opacity", 0.25).add(doomed, "colour", 1);
        EXPECT_TRUE(log.contains(u"QGraphicsOpacityEffect has no property \"colour\""_s));
    }
    run(0.75);
    EXPECT_TRUE(group.isRunning());
    delete doomed;
    EXPECT_TRUE(QTest::qWaitFor([&] { return completed == 2; }));
    EXPECT_NEAR(widget.windowOpacity(), 0.75, 0.01);
    run(1.0);
    run(0.25); // the one before is brought to its end
    EXPECT_EQ(completed, 3);
    group.finish();
    group.finish();
    EXPECT_EQ(completed, 4);
    EXPECT_NEAR(widget.windowOpacity(), 0.25, 0.01);
}

TEST(Pasteboard, carriesItemsAndNothingElse)
{
    const QString type = u"com.kestrix.kxkit.internal.KXFilterSetPreset"_s;
    const QVariantList items { QUrl(u"x-kestrix-store://a/KXFilterSetPreset/p3"_s), QVariantList { 0, 1 }, u"text"_s };
    KXPasteboard::setItems(type, items);
    EXPECT_TRUE(KXPasteboard::canReadItems(type));
    EXPECT_EQ(KXPasteboard::items(type), items);
    EXPECT_FALSE(KXPasteboard::canReadItems(type + u'x'));
    KXPasteboard::setItems(type, {});
    EXPECT_TRUE(QGuiApplication::clipboard()->mimeData()->hasFormat(type));
    EXPECT_FALSE(KXPasteboard::canReadItems(type));

    // Others' data, cut off anywhere, of another version, too large.
    const QByteArray good = KXArchive::archive(type, 1, QCborArray { 1, 2, 3 });
    QList<QByteArray> bad { {}, "x", KXArchive::archive(type, 2, QCborArray { 1 }),
        KXArchive::archive(u"other", 1, QCborArray { 1 }), KXArchive::archive(type, 1, QCborValue(4)),
        good + QByteArray(KXArchive::mostBytes, ' ') };
    for (qsizetype length = 0; length < good.size(); ++length)
        bad.append(good.first(length));
    KXTestLog log;
    for (const QByteArray &bytes : bad) {
        QMimeData data;
        data.setData(type, bytes);
        EXPECT_EQ(KXPasteboard::itemsOfMimeData(&data, type), QVariantList()) << bytes.left(80).toHex().toStdString();
    }
    EXPECT_EQ(KXPasteboard::itemsOfMimeData(nullptr, type), QVariantList());
    KXPasteboard::setItems(type, { QByteArray(KXArchive::mostBytes, 'x') });
    EXPECT_FALSE(KXPasteboard::canReadItems(type));
}

TEST(UndoActions, areOfTheManagerThatDrivesThem)
{
    KXUndoManager library;
    auto shop = std::make_unique<KXUndoManager>();
    QObject owner;
    QAction *const undo = library.createUndoAction(&owner), *const redo = library.createRedoAction(&owner);
    int fromLibrary = 0, fromShop = 0;
    const auto remember = [](KXUndoManager &manager, const QString &name, int &count) {
        const KXUndoGroup group(&manager, name);
        manager.registerUndo([&count] { ++count; });
    };
    remember(library, u"Rate"_s, fromLibrary);
    EXPECT_EQ(undo->text(), u"Undo Rate"_s);

    shop->driveActions(undo, redo);
    EXPECT_FALSE(undo->isEnabled());
    remember(*shop, u"Cut && Paste"_s, fromShop);
    EXPECT_EQ(undo->text(), u"Undo Cut &&&& Paste"_s);
    remember(library, u"Sort"_s, fromLibrary);
    EXPECT_EQ(undo->text(), u"Undo Cut &&&& Paste"_s) << "the other one is heard";
    undo->trigger();
    EXPECT_EQ(fromShop, 1);
    EXPECT_EQ(fromLibrary, 0);

    shop.reset();
    EXPECT_FALSE(undo->isEnabled() || redo->isEnabled());
    undo->trigger();
    library.driveActions(undo, redo);
    library.driveActions(undo, redo);
    undo->trigger();
    EXPECT_EQ(fromLibrary, 1) << "once for each time that it was driven";
    EXPECT_EQ(undo->text(), u"Undo Rate"_s);
}

#include "tst_toolkit.moc"
