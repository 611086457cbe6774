// The preferences window.

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>
#include <kestrixkit/util/views/KXPreferences.h>
#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

using namespace Qt::StringLiterals;

class PaneViewController : public KXPreferencesViewController
{
public:
    PaneViewController(const QString &name, QSize size)
        : m_size(size)
    {
        setPreferencesSectionName(name);
        setIdentifier(name.toUpper());
    }
    int shown = 0;
    std::function<void()> onAppearing, onGoing;

protected:
    void viewWillAppear() override
    {
        KXPreferencesViewController::viewWillAppear();
        if (onAppearing)
            std::exchange(onAppearing, {})();
    }
    void viewWillDisappear() override
    {
        KXPreferencesViewController::viewWillDisappear();
        if (onGoing)
            std::exchange(onGoing, {})();
    }
    void viewDidAppear() override
    {
        KXPreferencesViewController::viewDidAppear();
        ++shown;
    }
    void loadView() override
    {
        auto *view = new QLabel(preferencesSectionName());
        view->resize(m_size);
        setView(view);
    }

private:
    const QSize m_size;
};

class PreferencesTest : public ::testing::TestWithParam<bool>
{
protected:
    PreferencesTest() { KXAnimationGroup::setAnimationsEnabled(GetParam()); }
    ~PreferencesTest() override { KXAnimationGroup::setAnimationsEnabled(true); }
    QSize contentSize() { return preferences.activeContentView()->size(); }

    PaneViewController small { u"small"_s, { 201, 101 } }, large { u"large"_s, { 803, 399 } },
        same { u"small"_s, { 90, 90 } };
    KXPreferences preferences;
};

INSTANTIATE_TEST_SUITE_P(Animated, PreferencesTest, ::testing::Bool());

TEST_P(PreferencesTest, theWindowFollowsTheSection)
{
    preferences.setViewControllers({ &small, &large, &same });
    EXPECT_EQ(preferences.selectedViewController(), &small);
    EXPECT_FALSE(preferences.isWindowLoaded());
    EXPECT_EQ(large.preferences(), &preferences);
    EXPECT_EQ(preferences.toolbarItemIdentifiers(), QStringList({ u"small"_s, u"large"_s, u"small"_s }));

    preferences.showWindow();
    QWidget *const window = preferences.window();
    const int width = preferences.defaultWindowWidth(), bar = preferences.toolbar()->height();
    EXPECT_EQ(window->windowTitle(), u"small"_s);
    EXPECT_TRUE(small.view()->isVisible());
    EXPECT_EQ(small.view()->size(), QSize(width, 101)); // widened
    window->move(50, 60);
    const QPoint corner = window->pos();
    const auto select = [&](PaneViewController *pane, QSize size) {
        preferences.setSelectedViewController(pane);
        EXPECT_TRUE(QTest::qWaitFor([&] { return window->size() == size + QSize(0, bar); }));
        EXPECT_EQ(pane->view()->size(), size);
        EXPECT_EQ(window->pos(), corner);
        EXPECT_EQ(window->windowTitle(), pane->preferencesSectionName());
        EXPECT_EQ(window->minimumSize(), window->maximumSize());
    };
    // There and back: nothing adds up.
    for (int i = 0; i < 2; ++i) {
        select(&large, { 803, 399 });
        select(&small, { width, 101 });
    }
    EXPECT_EQ(small.shown, 3);
    preferences.setSelectedViewController(&small);
    preferences.showPreferenceViewWithIdentifier(u"NOWHERE"_s);
    EXPECT_EQ(small.shown, 3);
    preferences.showPreferenceViewWithIdentifier(u"LARGE"_s);
    preferences.showPreferenceViewWithIdentifier(u"SMALL"_s); // before the first has come to its size
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->size() == QSize(width, 101 + bar); }));
    QTest::qWait(300);
    EXPECT_EQ(window->size(), QSize(width, 101 + bar));

    // By keyboard: Tab reaches the items, Space selects, Escape closes.
    const QList<QAction *> items = preferences.toolbar()->actions();
    QWidget *const item = preferences.toolbar()->widgetForAction(items[1]);
    item->setFocus();
    QTest::keyClick(item, Qt::Key_Space);
    EXPECT_EQ(preferences.selectedViewController(), &large);
    EXPECT_TRUE(items[1]->isChecked() && !items[0]->isChecked());
    preferences.toggleActivePreferenceView(items[2]);
    EXPECT_EQ(preferences.selectedViewController(), &small); // the first of that name
    QTest::keyClick(item, Qt::Key_Escape);
    EXPECT_FALSE(window->isVisible());
}

TEST_P(PreferencesTest, opensOverTheActiveWindow)
{
    QWidget main;
    main.setGeometry(150, 100, 600, 500);
    main.show();
    main.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&main));
    preferences.setViewControllers({ &small });
    preferences.showWindow();
    const QPoint between = preferences.window()->geometry().center() - main.geometry().center();
    EXPECT_LE(between.manhattanLength(), 4);
    preferences.window()->move(10, 20); // from then on it is the user's
    preferences.window()->close();
    main.activateWindow();
    preferences.showWindow();
    EXPECT_EQ(preferences.window()->pos(), QPoint(10, 20));
}

TEST_P(PreferencesTest, sectionsKeepTheirSizesWhereverTheyAreShown)
{
    preferences.setViewControllers({ &small, &large });
    preferences.showWindow();
    const int width = preferences.defaultWindowWidth();
    preferences.setSelectedViewController(&large);
    QTest::qWait(60); // on the way
    preferences.setViewControllers({ &large, &small }); // in another order
    preferences.setSelectedViewController(&small);
    EXPECT_TRUE(QTest::qWaitFor([&] { return small.view()->size() == QSize(width, 101); }));
    preferences.setSelectedViewController(&large);
    EXPECT_TRUE(QTest::qWaitFor([&] { return large.view()->size() == QSize(803, 399); }));

    // Moved to a second window, also on the way, it is the second's alone.
    preferences.setSelectedViewController(&small);
    QTest::qWait(60);
    KXPreferences second;
    second.showWindow();
    second.setViewControllers({ &small });
    EXPECT_EQ(small.preferences(), &second);
    EXPECT_EQ(preferences.selectedViewController(), &large);
    EXPECT_EQ(preferences.toolbar()->actions().size(), 1);
    preferences.setViewControllers({});
    EXPECT_TRUE(small.view()->isVisible());
    EXPECT_EQ(small.view()->window(), second.window());
    EXPECT_TRUE(QTest::qWaitFor([&] { return small.view()->size() == QSize(width, 101); }));
    second.setViewControllers({});
}

TEST_P(PreferencesTest, sectionsComeAndGo)
{
    preferences.showWindow();
    EXPECT_FALSE(preferences.selectedViewController());
    {
        PaneViewController brief(u"brief"_s, { 50, 50 });
        preferences.setViewControllers({ &brief, nullptr, &large });
        EXPECT_TRUE(brief.view()->isVisible());
        EXPECT_EQ(preferences.toolbar()->actions().size(), 2);
    }
    EXPECT_EQ(preferences.toolbarItemIdentifiers(), QStringList(u"large"_s));
    EXPECT_EQ(preferences.toolbar()->actions().size(), 1);
    EXPECT_FALSE(preferences.selectedViewController());
    preferences.setViewControllers({ &small });
    EXPECT_TRUE(small.view()->isVisible());
    preferences.setViewControllers({});
    EXPECT_FALSE(preferences.selectedViewController());
    EXPECT_FALSE(small.view()->isVisible());
    QTest::qWait(0);
    preferences.setViewControllers({ nullptr, &large });
    EXPECT_EQ(preferences.selectedViewController(), &large);

    // One that is told that it appears has another one selected, all of them removed, or ends.
    preferences.setViewControllers({ &large, &small });
    small.onAppearing = [&] { preferences.setSelectedViewController(&same); };
    preferences.setViewControllers({ &large, &small, &same });
    preferences.setSelectedViewController(&small);
    EXPECT_EQ(preferences.selectedViewController(), &same);
    EXPECT_TRUE(same.view()->isVisible());
    EXPECT_FALSE(small.view()->isVisible());
    small.onAppearing = [&] { preferences.setViewControllers({}); };
    preferences.setSelectedViewController(&small);
    EXPECT_FALSE(preferences.selectedViewController());
    EXPECT_FALSE(small.view()->isVisible());
    auto brief = std::make_unique<PaneViewController>(u"brief"_s, QSize(50, 50));
    brief->onAppearing = [&] { brief.reset(); };
    preferences.setViewControllers({ brief.get(), &large });
    EXPECT_FALSE(preferences.selectedViewController());
    preferences.setViewControllers({ &small });
    QTest::qWait(0);

    // And one that is told that it goes.
    preferences.setViewControllers({ &small, &large, &same });
    small.onGoing = [&] { preferences.setSelectedViewController(&same); };
    preferences.setSelectedViewController(&large);
    EXPECT_EQ(preferences.selectedViewController(), &same);
    EXPECT_TRUE(same.view()->isVisible() && !large.view()->isVisible() && !small.view()->isVisible());
    same.onGoing = [&] { preferences.setViewControllers({}); };
    preferences.setSelectedViewController(&large);
    EXPECT_FALSE(preferences.selectedViewController());
    EXPECT_FALSE(large.view()->isVisible() || same.view()->isVisible());
    brief = std::make_unique<PaneViewController>(u"brief"_s, QSize(50, 50));
    preferences.setViewControllers({ &small, brief.get() });
    small.onGoing = [&] { brief.reset(); };
    preferences.setSelectedViewController(brief.get());
    EXPECT_FALSE(preferences.selectedViewController());
    preferences.setViewControllers({ &small });
    QTest::qWait(0);

    // A host's window that makes no sense: one without looks.
    QTemporaryDir folder;
    QDir(folder.path()).mkdir(u"interfaces"_s);
    QFile file(folder.filePath(u"interfaces/KXPreferences.ui"_s));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("<ui>");
    file.close();
    KXBundle::mainBundle().setResourceFolders({ folder.path() });
    const KXTestLog log;
    KXPreferences own;
    own.setViewControllers({ &small });
    own.showWindow();
    EXPECT_TRUE(small.view()->isVisible());
    EXPECT_TRUE(log.contains(u"KXPreferences.ui"_s));
    KXBundle::mainBundle().setResourceFolders({});
}
