// Layers: where they lie, what is told and posted, peeking, and what may go wrong between.

#include <QApplication>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

#include "Pages.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int W = 1000, H = 401; // odd, so that halves and mirrored places show

struct LayerStack
{
    LayerStack()
    {
        for (const auto name :
            { KXLayeredNavigationControllerDidPushViewController, KXLayeredNavigationControllerDidPopToViewController,
                KXLayeredNavigationControllerDidDropViewController }) {
            tokens.push_back(KXNotificationCenter::defaultCenter().addObserver(
                QString(name), &navigation, [this](const KXNotification &did) { posted += did.name.mid(32, 3); }));
        }
        KXAnimationGroup::setAnimationsEnabled(false);
        QCursor::setPos(0, 0); // outside
        widget.setGeometry(200, 200, W, H);
        navigation.appearIn(&widget);
        widget.show();
        widget.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&widget));
        for (int i = 0; i < 4; ++i)
            pages.push_back(std::make_unique<Page>(QString(QChar('a' + i))));
    }
    ~LayerStack() { KXAnimationGroup::setAnimationsEnabled(true); }
    void push(int count, bool animated = true)
    {
        for (int i = 0; i < count; ++i)
            navigation.pushViewController(pages[size_t(i)].get(), animated);
        for (auto &page : pages)
            page->said();
        posted.clear();
    }
    KXLayeredView *layer(int i) { return KXLayeredView::layeredView(pages[size_t(i)].get()); }
    KXLayeredNavigationItem *item(int i)
    {
        return KXLayeredNavigationItem::layeredNavigationItem(pages[size_t(i)].get());
    }
    /// Where each layer lies: x+width.
    QString places()
    {
        QStringList all;
        for (const KXViewController *controller : navigation.layeredViewControllers()) {
            const KXLayeredView *const layer = KXLayeredView::layeredView(controller);
            const QRect frame
                = QStyle::visualRect(widget.layoutDirection(), navigation.view()->rect(), layer->geometry());
            EXPECT_EQ(frame.y(), 0);
            EXPECT_EQ(frame.height(), H);
            all += u"%1+%2"_s.arg(frame.x()).arg(frame.width());
        }
        return all.join(u' ');
    }
    QWidget widget;
    QStringList posted;
    std::vector<KXNotificationToken> tokens;
    std::vector<std::unique_ptr<Page>> pages;
    KXLayeredNavigationController navigation;
};

void waitForPeek() { QTest::qWait(int(KXLayeredNavigationController::PeekDelay * 1000) + 100); }

void hover(KXLayeredView *layer, bool inside)
{
    QEvent event(inside ? QEvent::Enter : QEvent::Leave);
    QApplication::sendEvent(layer, &event);
}

}

TEST(Layers, lieAStripApart)
{
    LayerStack stack;
    for (const bool animated : { true, false }) {
        stack.navigation.removeAllViewControllers();
        stack.push(3, animated);
        EXPECT_EQ(stack.places(), u"0+1000 25+975 50+950"_s);
        EXPECT_EQ(stack.layer(0)->clippingView()->width(), 25);
        EXPECT_EQ(stack.layer(2)->clippingView()->width(), 945);
    }
    EXPECT_EQ(stack.navigation.childViewController(stack.pages[0].get()), stack.pages[1].get());
    EXPECT_EQ(stack.navigation.childViewController(stack.pages[2].get()), nullptr);
    EXPECT_EQ(KXLayeredView::hostingLayeredView(stack.pages[1]->field), stack.layer(1));
    // The distance counts from the next layout on, and only below the topmost.
    stack.item(0)->setNextItemDistance(70);
    stack.item(1)->setNextItemDistance(120);
    EXPECT_EQ(stack.places(), u"0+1000 25+975 50+950"_s);
    stack.navigation.layoutLayers();
    EXPECT_EQ(stack.places(), u"0+1000 25+975 145+855"_s);
    EXPECT_EQ(stack.layer(1)->clippingView()->width(), 120);
    stack.widget.setLayoutDirection(Qt::RightToLeft);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(stack.layer(2)->x(), 0);
    EXPECT_EQ(stack.places(), u"0+1000 25+975 145+855"_s);
    stack.widget.resize(800, H);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(stack.places(), u"0+800 25+775 145+655"_s);
    // A pop keeps the distance of what is below.
    stack.navigation.pushViewController(stack.pages[3].get(), false);
    EXPECT_EQ(stack.places(), u"0+800 25+775 50+750 75+725"_s);
    stack.navigation.popToViewController(stack.pages[2].get(), true);
    EXPECT_EQ(stack.places(), u"0+800 25+775 145+655"_s);
}

TEST(Layers, tellAndPost)
{
    LayerStack stack;
    KXLayeredNavigationController &navigation = stack.navigation;
    const auto said = [&] {
        QStringList all;
        for (auto &page : stack.pages)
            all += page->said();
        return all.join(u" | "_s) + u" # "_s + std::exchange(stack.posted, {}).join(u' ');
    };
    navigation.pushViewController(stack.pages[0].get(), false);
    EXPECT_EQ(said(), u"will appear, did appear, pushed |  |  |  # Pus"_s);
    // What is covered slides to its strip.
    {
        LayerStack moving;
        moving.push(3, false);
        moving.item(1)->setNextItemDistance(120);
        moving.navigation.layoutLayers();
        KXAnimationGroup::setAnimationsEnabled(true);
        moving.navigation.pushViewController(moving.pages[3].get(), true);
        EXPECT_EQ(moving.layer(2)->frame().x(), 145);
        EXPECT_TRUE(QTest::qWaitFor([&] { return !moving.navigation.isPushing(); }));
        EXPECT_EQ(moving.layer(2)->frame().x(), 50);
    }
    // While a push runs: no peeking, and the end is told when it comes.
    KXAnimationGroup::setAnimationsEnabled(true);
    navigation.pushViewController(stack.pages[1].get(), true);
    EXPECT_TRUE(navigation.isPushing());
    EXPECT_GT(stack.layer(1)->x(), 500);
    EXPECT_EQ(said(), u"child pushed | will appear, did appear |  |  # "_s);
    navigation.beginPeekingAtLayeredView(stack.layer(0));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !navigation.isPushing(); }));
    waitForPeek();
    EXPECT_EQ(said(), u" | pushed |  |  # Pus"_s);
    EXPECT_EQ(navigation.peekingViewController(), nullptr);
    // Another push ends the one before.
    navigation.pushViewController(stack.pages[2].get(), true);
    KXAnimationGroup::setAnimationsEnabled(false);
    navigation.pushViewController(stack.pages[3].get(), true);
    EXPECT_EQ(said(),
        u" | child pushed | will appear, did appear, pushed, child pushed | will appear, did appear, "
        "pushed # Pus Pus"_s);
    EXPECT_FALSE(navigation.isPushing());

    {
        // Who hears that it will appear may push.
        QWidget window;
        Page root(u"root"_s), next(u"next"_s);
        KXLayeredNavigationController embedded;
        embedded.pushViewController(&root, false);
        root.onHearing = [&](const QString &what) {
            if (what == u"will appear"_s)
                embedded.pushViewController(&next, false);
        };
        embedded.appearIn(&window);
        window.show();
        EXPECT_EQ(root.said(), u"pushed, will appear, child pushed, did appear"_s);
        EXPECT_EQ(next.said(), u"pushed, will appear, did appear"_s);
    }
    navigation.popToViewController(stack.pages[1].get(), true);
    EXPECT_EQ(said(), u" | revealed | will disappear, did disappear | will disappear, did disappear # Pop"_s);
    EXPECT_EQ(KXLayeredNavigationController::layeredNavigationController(stack.pages[3].get()), nullptr);
    EXPECT_EQ(stack.layer(3), nullptr);
    navigation.popToViewController(stack.pages[1].get(), true); // the topmost: nothing goes, but it is told
    EXPECT_EQ(said(), u" | revealed |  |  # Pop"_s);
    navigation.popToViewController(stack.pages[3].get(), true);
    navigation.popToViewController(nullptr, true);
    navigation.dropViewController(stack.pages[3].get(), true);
    navigation.dropViewController(nullptr, true);
    EXPECT_EQ(said(), u" |  |  |  # "_s);
    navigation.dropViewController(stack.pages[0].get(), true);
    EXPECT_EQ(said(), u"will disappear, did disappear |  |  |  # Dro"_s);
    navigation.popToViewController(stack.pages[1].get(), true); // the only one
    EXPECT_EQ(said(), u" |  |  |  # "_s);
    navigation.dropVisibleViewController();
    EXPECT_EQ(navigation.visibleViewController(), nullptr);
    navigation.dropVisibleViewController();
    navigation.shouldPopToLayeredView(nullptr);
    navigation.endPeekingAtLayeredView(nullptr);
}

TEST(Layers, dropLeavesAGapUntilTheNextLayout)
{
    LayerStack stack;
    stack.push(4);
    const QPointer<QWidget> view = stack.pages[1]->view();
    stack.navigation.dropViewController(stack.pages[1].get(), true);
    EXPECT_EQ(stack.places(), u"0+1000 25+950 50+925"_s);
    EXPECT_TRUE(stack.layer(3)->isPeeking());
    EXPECT_TRUE(view); // it is the controller's
    stack.navigation.layoutLayers();
    EXPECT_EQ(stack.places(), u"0+1000 25+975 50+950"_s);
    stack.navigation.pushViewController(stack.pages[1].get(), false);
    EXPECT_EQ(titlesOf(stack.navigation), u"a c d b"_s);
    EXPECT_TRUE(view && view->isVisible());
}

TEST(Layers, peekOutUnderAPointerThatRests)
{
    LayerStack stack;
    stack.push(3);
    hover(stack.layer(1), true);
    hover(stack.layer(1), false);
    waitForPeek();
    EXPECT_EQ(stack.pages[1]->said(), QString());
    stack.item(1)->setNextItemDistance(120);
    hover(stack.layer(1), true);
    EXPECT_TRUE(stack.layer(1)->isPeeking());
    waitForPeek();
    EXPECT_EQ(stack.navigation.peekingViewController(), stack.pages[1].get());
    EXPECT_EQ(stack.places(), u"0+1000 25+975 325+675"_s);
    EXPECT_EQ(stack.layer(1)->clippingView()->width(), 300);
    // Right over to another one.
    hover(stack.layer(1), false);
    hover(stack.layer(0), true);
    waitForPeek();
    EXPECT_EQ(stack.pages[1]->said(), u"begin peeking, finish peeking"_s);
    EXPECT_EQ(stack.places(), u"0+1000 300+975 325+675"_s);
    hover(stack.layer(0), false);
    waitForPeek();
    EXPECT_EQ(stack.pages[0]->said(), u"begin peeking, finish peeking"_s);
    EXPECT_EQ(stack.places(), u"0+1000 25+975 145+855"_s);
    stack.item(1)->setNextItemDistance(400);
    stack.navigation.beginPeekingAtLayeredView(stack.layer(1));
    waitForPeek();
    EXPECT_EQ(stack.places(), u"0+1000 25+975 425+575"_s);
    // Whoever goes to a layer while another one peeks finds all at rest.
    stack.item(1)->setNextItemDistance(0);
    stack.navigation.beginPeekingAtLayeredView(stack.layer(0));
    waitForPeek();
    QTest::mouseClick(stack.layer(1)->layeredHeaderView(), Qt::LeftButton, {}, { 5, 5 });
    EXPECT_EQ(titlesOf(stack.navigation), u"a b"_s);
    EXPECT_EQ(stack.places(), u"0+1000 25+975"_s);
    // A pending peek ends with what it was for.
    stack.navigation.beginPeekingAtLayeredView(stack.layer(0));
    stack.navigation.dropViewController(stack.pages[0].get(), true);
    waitForPeek();
    EXPECT_EQ(stack.navigation.peekingViewController(), nullptr);
    EXPECT_EQ(stack.places(), u"0+975"_s);
}

TEST(Layers, headersGoBackAndClose)
{
    LayerStack stack;
    stack.push(4);
    EXPECT_EQ(stack.layer(3)->layeredHeaderView()->focusPolicy(), Qt::NoFocus);
    QTest::mouseClick(stack.layer(3)->layeredHeaderView(), Qt::LeftButton, {}, { 50, 5 });
    EXPECT_EQ(titlesOf(stack.navigation), u"a b c d"_s);
    // By keyboard: headers of what is covered, and the frontmost content.
    stack.pages[3]->field->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
    EXPECT_EQ(QApplication::focusWidget(), stack.layer(2)->layeredHeaderView());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), stack.pages[3]->field);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_EQ(titlesOf(stack.navigation), u"a b c"_s);
    // A press on what is covered goes to it.
    QTest::mouseClick(stack.navigation.view()->childAt(12, 200), Qt::LeftButton, {}, { 12, 200 });
    EXPECT_EQ(titlesOf(stack.navigation), u"a"_s);
    // The close button: while it peeks, under the pointer, not at the root.
    stack.navigation.pushViewController(stack.pages[1].get(), false);
    stack.navigation.pushViewController(stack.pages[2].get(), false);
    for (const int i : { 0, 1 }) {
        hover(stack.layer(i), true);
        stack.layer(i)->layeredHeaderView()->setAttribute(Qt::WA_UnderMouse);
        QEvent enter(QEvent::Enter);
        QApplication::sendEvent(stack.layer(i)->layeredHeaderView(), &enter);
        EXPECT_EQ(stack.layer(i)->layeredHeaderView()->closeButton()->isVisible(), i == 1);
    }
    QTest::mouseClick(stack.layer(1)->layeredHeaderView()->closeButton(), Qt::LeftButton);
    EXPECT_EQ(titlesOf(stack.navigation), u"a c"_s);
    stack.item(2)->setProcessing(true);
    stack.item(2)->setSpacerColour(Qt::red);
    EXPECT_FALSE(stack.widget.grab().isNull());
}

// Controllers push, pop, drop and end whenever they are told something, and the stack itself may end.
/// Layers whose controllers do anything to the stack whenever they are told something.
struct MeddlingLayers
{
    explicit MeddlingLayers(KXTestRandom &anyRandom)
        : random(anyRandom)
    {
        KXAnimationGroup::setAnimationsEnabled(random.chance(0.3));
        window.resize(W, H);
        navigation->appearIn(&window);
        for (auto &page : pages)
            renew(page);
    }
    ~MeddlingLayers()
    {
        if (random.chance(0.5))
            pages.clear();
        navigation.reset();
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    void renew(std::unique_ptr<Page> &page)
    {
        page.reset();
        page = std::make_unique<Page>(u"page"_s);
        page->onHearing = [this](const QString &) {
            if (depth >= 3 || !random.chance(0.2))
                return;
            ++depth;
            step();
            --depth;
        };
    }
    void step()
    {
        std::unique_ptr<Page> &page = pages[size_t(random.below(5))];
        if (!navigation)
            return;
        const bool animated = random.chance(0.5);
        KXLayeredView *const layer = KXLayeredView::layeredView(page.get());
        switch (random.below(11)) {
        case 0:
            navigation->popToViewController(page.get(), animated);
            break;
        case 1:
            navigation->dropViewController(page.get(), animated);
            break;
        case 2:
            navigation->beginPeekingAtLayeredView(layer);
            break;
        case 3:
            navigation->shouldPopToLayeredView(layer);
            break;
        case 4:
            random.chance(0.2) ? navigation->removeAllViewControllers() : navigation->layoutLayers();
            break;
        case 5:
            if (random.chance(0.2))
                renew(page);
            else if (random.chance(0.02))
                navigation.reset();
            break;
        case 6:
            QCoreApplication::processEvents();
            break;
        default:
            navigation->pushViewController(page.get(), animated);
        }
    }
    void expectOrder()
    {
        navigation->layoutLayers();
        ASSERT_FALSE(navigation->isPushing());
        int x = 0;
        const QSize room = navigation->view()->size();
        for (const KXViewController *controller : navigation->layeredViewControllers()) {
            const KXLayeredView *const layer = KXLayeredView::layeredView(controller);
            ASSERT_TRUE(layer);
            ASSERT_EQ(layer->frame(), QRect(x, 0, room.width() - x, room.height()));
            ASSERT_EQ(layer->isFrontmost(), controller == navigation->visibleViewController());
            x += 25;
        }
        for (const auto &page : pages) {
            ASSERT_EQ(page->hasAppeared(), KXLayeredView::layeredView(page.get()) != nullptr);
            ASSERT_EQ(page->navigationStack() != nullptr, page->hasAppeared());
        }
    }

    KXTestRandom &random;
    QWidget window;
    std::unique_ptr<KXLayeredNavigationController> navigation = std::make_unique<KXLayeredNavigationController>();
    std::vector<std::unique_ptr<Page>> pages { 5 };
    int depth = 0;
};

TEST(Layers, controllersMayDoAnythingMeanwhile)
{
    KXTestRandom random;
    for (int round = 0; round < KXTestRandom::scaled(1000); ++round) {
        MeddlingLayers layers(random);
        for (int i = 0; i < 30 && layers.navigation; ++i)
            layers.step();
        for (auto &page : layers.pages)
            page->onHearing = {};
        if (layers.navigation)
            layers.expectOrder();
        ASSERT_FALSE(testing::Test::HasFatalFailure()) << "round " << round;
    }
}
