// The navigation controller and its bar: what is shown and told, breadcrumbs, whatever controllers do meanwhile.

#include <QApplication>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/navigation/KXNavigationController.h>
#include <kestrixkit/toolkit/KXMenu.h>

#include "Pages.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

QString crumbs(const KXNavigationController &navigation)
{
    QStringList titles;
    for (const QWidget *button : navigation.navigationBar()->buttons()) {
        const auto *const crumb = qobject_cast<const KXNavigationBarButton *>(button);
        titles += !crumb ? u"…"_s : crumb->isCurrent() ? u'*' + crumb->text() : crumb->text();
    }
    return titles.join(u' ');
}

/// What the container shows; empty for nothing.
QString shown(const KXNavigationController &navigation)
{
    QStringList titles;
    for (KXViewController *controller : navigation.viewControllers()) {
        if (controller->isViewLoaded() && controller->view()->parentWidget() == navigation.contentContainerView())
            titles += controller->title();
    }
    return titles.join(u' ');
}

}

struct NavigationWindow
{
    NavigationWindow()
    {
        KXAnimationGroup::setAnimationsEnabled(false);
        widget.resize(600, 300);
        navigation.appearIn(&widget);
        widget.show();
        widget.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&widget));
    }
    ~NavigationWindow() { KXAnimationGroup::setAnimationsEnabled(true); }
    QWidget widget;
    Page root { u"Root"_s }, a { u"A"_s }, b { u"B"_s };
    KXNavigationController navigation { &root };
};

TEST(Navigation, pushesAndPops)
{
    NavigationWindow window;
    KXNavigationController &navigation = window.navigation;
    EXPECT_EQ(window.root.said(), u"will appear, did appear"_s);
    EXPECT_EQ(navigation.navigationBarVerticalLayoutConstraint(), -25);
    EXPECT_FALSE(navigation.navigationBar()->isVisible());
    window.root.field->setFocus();
    navigation.pushViewController(&window.a, true);
    EXPECT_EQ(window.root.said(), u"will disappear, did disappear"_s);
    EXPECT_EQ(window.a.said(), u"will appear, did appear"_s);
    EXPECT_TRUE(window.a.field->hasFocus()); // the keyboard goes along
    EXPECT_EQ(KXNavigationController::navigationController(&window.a), &navigation);
    EXPECT_EQ(navigation.navigationBarVerticalLayoutConstraint(), 0);
    EXPECT_TRUE(navigation.navigationBar()->isVisible());
    EXPECT_EQ(navigation.navigationBar()->height(), 25);
    navigation.pushViewController(&window.b, false);
    EXPECT_EQ(crumbs(navigation), u"Root A *B"_s);
    // Nothing happens for what is there, for what is on top, for itself and for nothing.
    const QStringList before { titlesOf(navigation), shown(navigation) };
    navigation.pushViewController(&window.a, true);
    navigation.pushViewController(nullptr, true);
    navigation.pushViewController(&navigation, true);
    navigation.popToViewController(&window.b, true);
    navigation.popToViewController(nullptr, true);
    EXPECT_EQ((QStringList { titlesOf(navigation), shown(navigation) }), before);
    EXPECT_EQ(before, (QStringList { u"Root A B"_s, u"B"_s }));
    // Nor for one that is pushed elsewhere.
    KXNavigationController other;
    other.pushViewController(&window.a, false);
    EXPECT_EQ(other.viewControllers().size(), 0);

    window.a.setTitle(u"A && B"_s);
    KXNavigationItem::navigationItem(&window.b)->setTitle(u"Bee"_s);
    EXPECT_EQ(crumbs(navigation), u"Root A &&&& B *Bee"_s);
    QTest::mouseClick(navigation.navigationBar()->allButtons().at(1), Qt::LeftButton);
    EXPECT_EQ(shown(navigation), u"A && B"_s);
    EXPECT_EQ(KXNavigationController::navigationController(&window.b), nullptr);
    EXPECT_EQ(window.b.navigationStack(), nullptr);
    EXPECT_TRUE(window.a.field->hasFocus());
    navigation.didEndNavigateBackGesture();
    navigation.back();
    EXPECT_EQ(shown(navigation), u"Root"_s);
    EXPECT_FALSE(navigation.navigationBar()->isVisible());
    EXPECT_FALSE(navigation.shouldShowBackArrowForCurrentItem(nullptr));
    for (Page *page : { &window.a, &window.b })
        navigation.pushViewController(page, false);
    navigation.popToTopViewController();
    EXPECT_EQ(titlesOf(navigation), u"Root"_s);
    navigation.removeAllViewControllers();
    EXPECT_EQ(shown(navigation), QString());
    EXPECT_EQ(navigation.visibleViewController(), nullptr);
}

TEST(Navigation, tellsOfAppearanceOnlyInAWindow)
{
    Page root(u"Root"_s), a(u"A"_s);
    KXNavigationController navigation(&root);
    navigation.pushViewController(&a, false);
    EXPECT_EQ(root.said(), u"will disappear, did disappear"_s);
    EXPECT_EQ(a.said(), QString());
    QWidget window;
    navigation.appearIn(&window);
    EXPECT_EQ(a.said(), u"will appear, did appear"_s);
    navigation.disappear();
    EXPECT_EQ(a.said(), u"will disappear, did disappear"_s);
    EXPECT_EQ(root.said(), QString());
    // The view of what is shown outlives the navigation.
    QPointer<QWidget> view;
    {
        KXNavigationController brief(nullptr);
        Page page(u"Page"_s);
        brief.pushViewController(&page, false);
        view = page.view();
        brief.removeAllViewControllers();
        EXPECT_TRUE(view);
    }
    EXPECT_FALSE(view);
}

/// Five places below the root, without room for all of them.
class NavigationBar : public ::testing::Test
{
protected:
    NavigationBar()
    {
        for (int i = 1; i <= 5; ++i) {
            pages.push_back(std::make_unique<Page>(u"Place %1"_s.arg(i)));
            navigation.pushViewController(pages.back().get(), false);
        }
        resize(60);
    }
    void resize(int width)
    {
        window.widget.setMinimumWidth(0);
        window.widget.resize(width, 300);
        QCoreApplication::sendPostedEvents();
    }

    NavigationWindow window;
    KXNavigationController &navigation = window.navigation;
    std::vector<std::unique_ptr<Page>> pages;
    KXNavigationBar *const bar = navigation.navigationBar();
};

TEST_F(NavigationBar, collapsesItsMiddle)
{
    QList<int> widths;
    for (const KXNavigationBarButton *button : bar->allButtons()) {
        EXPECT_GE(button->sizeHint().width(), 2 * KXNavigationBarButtonInset);
        widths += button->sizeHint().width();
    }
    const int total = std::accumulate(widths.begin(), widths.end(), 0);
    struct Case
    {
        int width;
        QString crumbs;
    };
    const Case cases[] { { total, u"Root Place 1 Place 2 Place 3 Place 4 *Place 5"_s },
        { total - 1, u"Root … Place 2 Place 3 Place 4 *Place 5"_s },
        // A rest that just fits does not end it.
        { total - widths[1], u"Root … Place 3 Place 4 *Place 5"_s },
        { total - widths[1] - widths[2] + 1, u"Root … Place 3 Place 4 *Place 5"_s }, { 60, u"Root … *Place 5"_s },
        { total + 200, u"Root Place 1 Place 2 Place 3 Place 4 *Place 5"_s } };
    for (const Qt::LayoutDirection direction : { Qt::LeftToRight, Qt::RightToLeft }) {
        window.widget.setLayoutDirection(direction);
        for (const Case &one : cases) {
            resize(one.width);
            ASSERT_EQ(bar->width(), one.width);
            EXPECT_EQ(crumbs(navigation), one.crumbs) << one.width;
            // Side by side in reading direction, and inside where they can be.
            int x = 0;
            for (const QWidget *button : bar->buttons()) {
                const QRect place = QStyle::visualRect(direction, bar->rect(), button->geometry());
                EXPECT_EQ(place.left(), x);
                x = place.right() + 1;
                EXPECT_TRUE(button->isVisible());
            }
            EXPECT_LE(x, std::max(one.width, total - widths[1]));
        }
    }
}

TEST_F(NavigationBar, leadsToWhatItHasCollapsed)
{
    bar->overflowMenu()->validate();
    QStringList entries;
    for (const QAction *entry : bar->overflowMenu()->actions())
        entries += entry->text();
    EXPECT_EQ(entries.join(u' '), u"Place 4 Place 3 Place 2 Place 1"_s);
    // One that has ended meanwhile is no place to go.
    QAction *const third = bar->overflowMenu()->actions().at(1);
    const QPointer<QAction> second = bar->overflowMenu()->actions().at(2);
    pages[2].reset();
    third->trigger();
    EXPECT_EQ(titlesOf(navigation), u"Root Place 1 Place 2 Place 4 Place 5"_s);
    second->trigger();
    EXPECT_EQ(titlesOf(navigation), u"Root Place 1 Place 2"_s);
}

TEST_F(NavigationBar, goesBackByKeys)
{
    bar->allButtons().at(0)->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Right);
    EXPECT_EQ(QApplication::focusWidget(), bar->buttons().at(1));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Left);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_EQ(titlesOf(navigation), u"Root"_s);
    bar->popToItem(nullptr);
    bar->setDelegate(nullptr);
    bar->popToItem(bar->allButtons().at(0));
}

// Whatever controllers do while they are told something, what is shown is what is on top, and it was told so.
/// Controllers that do anything to their navigation whenever they are told something.
struct MeddlingPages
{
    explicit MeddlingPages(KXTestRandom &anyRandom)
        : random(anyRandom)
    {
        navigation->appearIn(window.get());
        KXAnimationGroup::setAnimationsEnabled(random.chance(0.5));
        for (int i = 0; i < 5; ++i) {
            pages.push_back(std::make_unique<Page>(QString::number(i)));
            pages.back()->onHearing = meddler();
        }
    }
    ~MeddlingPages()
    {
        for (auto &page : pages)
            page->onHearing = {};
        if (random.chance(0.5))
            pages.clear();
        navigation.reset();
        KXAnimationGroup::setAnimationsEnabled(true);
    }
    std::function<void(const QString &)> meddler()
    {
        return [this](const QString &) {
            if (depth >= 3 || !random.chance(0.2))
                return;
            ++depth;
            step();
            --depth;
        };
    }
    void step()
    {
        Page *const page = pages[size_t(random.below(5))].get();
        if (!navigation)
            return;
        switch (random.below(8)) {
        case 0:
            navigation->popToViewController(page, true);
            break;
        case 1:
            navigation->back();
            break;
        case 2:
            if (random.chance(0.2))
                navigation->removeAllViewControllers();
            break;
        case 3:
            if (random.chance(0.2)) { // ends, perhaps while it is told, and another takes its place
                for (auto &one : pages) {
                    if (one.get() == page) {
                        one.reset();
                        one = std::make_unique<Page>(u"new"_s);
                        one->onHearing = meddler();
                    }
                }
            } else if (random.chance(0.02)) {
                navigation.reset();
            }
            break;
        default:
            navigation->pushViewController(page, random.chance(0.5));
        }
    }
    void expectOneVisible() const
    {
        const KXViewController *const visible = navigation->visibleViewController();
        ASSERT_EQ(shown(*navigation), visible ? visible->title() : QString());
        ASSERT_EQ(navigation->navigationBar()->items().size(), navigation->viewControllers().size());
        for (const auto &page : pages) {
            ASSERT_EQ(page->hasAppeared(), page.get() == visible);
            ASSERT_EQ(page->navigationStack() != nullptr, navigation->viewControllers().contains(page.get()));
        }
    }

    KXTestRandom &random;
    const std::unique_ptr<QWidget> window = std::make_unique<QWidget>();
    std::unique_ptr<KXNavigationController> navigation = std::make_unique<KXNavigationController>();
    std::vector<std::unique_ptr<Page>> pages {};
    int depth = 0;
};

TEST(Navigation, controllersMayDoAnythingMeanwhile)
{
    KXTestRandom random;
    for (int round = 0; round < KXTestRandom::scaled(500); ++round) {
        MeddlingPages pages(random);
        for (int i = 0; i < 30 && pages.navigation; ++i) {
            pages.step();
            if (pages.navigation)
                pages.expectOneVisible();
            ASSERT_FALSE(testing::Test::HasFatalFailure()) << "round " << round;
        }
    }
}
