// The details manager and the inspector.

#include <QApplication>
#include <QLabel>
#include <QSplitter>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/navigation/KXDetailsManager.h>
#include <kestrixkit/navigation/KXInspectorOutlineView.h>
#include <kestrixkit/navigation/KXInspectorViewController.h>

#include "Pages.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;

namespace {

KXInspectorViewItem *inspectorItem(KXViewController &controller)
{
    return KXInspectorViewItem::inspectorViewItem(&controller);
}

/// Heights of the rows from the top: headers plain, content in brackets.
QString rowsOf(const KXInspectorViewController &inspector)
{
    QStringList rows;
    const KXInspectorOutlineView *const outline = inspector.outlineView();
    for (QModelIndex row = outline->indexAt({ 1, 1 }); row.isValid(); row = outline->indexBelow(row)) {
        const QString height = QString::number(outline->visualRect(row).height());
        rows += row.parent().isValid() ? u'[' + height + u']' : height;
    }
    return rows.join(u' ');
}

class Sheet : public Page
{
    Q_OBJECT
public:
    Sheet(const QString &title, int height)
        : Page(title)
        , height(height)
    {
    }
    void setHeight(int newHeight)
    {
        height = newHeight;
        view()->setFixedHeight(newHeight);
    }
    int height;

protected:
    void loadView() override
    {
        Page::loadView();
        view()->setFixedHeight(height);
    }
};

}

TEST(Details, showOneAtATime)
{
    KXDetailsManager &manager = KXDetailsManager::sharedManager();
    QSplitter splitter;
    auto *const container = new QWidget;
    splitter.addWidget(new QWidget);
    splitter.addWidget(container);
    splitter.setChildrenCollapsible(false);
    splitter.resize(2000, 300);
    splitter.show();
    Page a(u"A"_s), b(u"B"_s);
    manager.addDetailsViewController(&a, u"a"_s);
    manager.addDetailsViewController(nullptr, u"none"_s);
    manager.showDetailsViewController(&a); // waits for a container
    EXPECT_EQ(a.said(), QString());
    manager.setContentContainerView(container);
    EXPECT_EQ(a.said(), u"will appear, did appear"_s);
    manager.showDetailsViewController(&a);
    EXPECT_EQ(a.said(), QString());
    QCoreApplication::sendPostedEvents();
    splitter.setSizes({ 1990, 10 });
    EXPECT_EQ(a.view()->width(), 200);
    splitter.setSizes({ 10, 1990 });
    EXPECT_EQ(a.view()->width(), 1000);

    // Readers keep what they have; what is shown stays when another takes its name.
    const auto before = manager.detailsViewControllers();
    manager.addDetailsViewController(&b, u"a"_s);
    EXPECT_EQ(before.value(u"a"_s), &a);
    EXPECT_EQ(manager.detailsViewControllers().value(u"a"_s), &b);
    EXPECT_EQ(manager.currentDetailsViewController(), &a);
    manager.removeDetailsViewControllerWithIdentifier(u"a"_s);
    EXPECT_EQ(manager.currentDetailsViewController(), &a);
    manager.addDetailsViewController(&b, u"b"_s);
    manager.showDetailsViewController(&b);
    EXPECT_EQ(a.said(), u"will disappear, did disappear"_s);
    manager.removeDetailsViewControllerWithIdentifier(u"b"_s);
    manager.removeDetailsViewControllerWithIdentifier(u"b"_s);
    EXPECT_EQ(b.said(), u"will appear, did appear, will disappear, did disappear"_s);
    EXPECT_EQ(manager.currentDetailsViewController(), nullptr);
    EXPECT_TRUE(container->findChildren<QWidget *>().isEmpty());
    EXPECT_EQ(container->maximumWidth(), QWIDGETSIZE_MAX);
    manager.setContentContainerView(nullptr);
}

TEST(Details, mayEndWhileTheyAreShownOrToldToGo)
{
    KXDetailsManager &manager = KXDetailsManager::sharedManager();
    QWidget container;
    manager.setContentContainerView(&container);
    Page a(u"A"_s), b(u"B"_s);
    auto brief = std::make_unique<Page>(u"Brief"_s);
    manager.addDetailsViewController(brief.get(), u"brief"_s);
    manager.showDetailsViewController(brief.get());
    brief.reset();
    EXPECT_EQ(manager.currentDetailsViewController(), nullptr);
    EXPECT_FALSE(manager.detailsViewControllers().contains(u"brief"_s));
    brief = std::make_unique<Page>(u"Brief"_s);
    manager.showDetailsViewController(brief.get());
    brief->onHearing = [&](const QString &) { brief.reset(); };
    manager.showDetailsViewController(&a);
    EXPECT_EQ(manager.currentDetailsViewController(), &a);
    a.onHearing = [&](const QString &) {
        a.onHearing = {};
        manager.showDetailsViewController(&b);
    };
    manager.showDetailsViewController(nullptr);
    EXPECT_EQ(manager.currentDetailsViewController(), &b);

    // Whatever is asked for on the way, one is shown, and it is the current one.
    const auto shown = [&] {
        QString titles;
        for (Page *page : { &a, &b }) {
            if (page->view()->parentWidget() && page->hasAppeared())
                titles += page->title();
        }
        return titles;
    };
    a.onHearing = [&](const QString &what) {
        if (what == u"will appear"_s)
            manager.showDetailsViewController(&b);
    };
    manager.showDetailsViewController(&a);
    EXPECT_EQ(manager.currentDetailsViewController(), &b);
    EXPECT_EQ(shown(), u"B"_s);
    a.onHearing = [&](const QString &what) {
        if (what == u"will disappear"_s)
            manager.showDetailsViewController(&a); // which it still is
    };
    manager.showDetailsViewController(&a);
    EXPECT_EQ(shown(), u"A"_s);
    manager.showDetailsViewController(&b);
    EXPECT_EQ(manager.currentDetailsViewController(), &b);
    EXPECT_EQ(shown(), u"B"_s);
    Page c(u"C"_s);
    manager.showDetailsViewController(&a);
    a.onHearing = [&](const QString &what) {
        if (what == u"will disappear"_s)
            manager.showDetailsViewController(&c);
    };
    manager.showDetailsViewController(&b);
    EXPECT_EQ(manager.currentDetailsViewController(), &c);
    EXPECT_EQ(shown(), QString());
    EXPECT_TRUE(c.hasAppeared() && c.view()->isVisibleTo(&container));

    // Whoever goes takes its name away, or empties the container, or names another one.
    QWidget other;
    const auto goingWith = [&](const std::function<void()> &does, KXViewController *next) {
        a.onHearing = {};
        manager.showDetailsViewController(&a);
        manager.addDetailsViewController(&a, u"a"_s);
        const QPointer<QWidget> view = a.view();
        (void)a.said();
        a.onHearing = [&](const QString &what) {
            if (what == u"will disappear"_s)
                does();
        };
        manager.showDetailsViewController(next);
        EXPECT_TRUE(view && !view->parentWidget());
        EXPECT_EQ(a.said(), u"will disappear, did disappear"_s);
    };
    goingWith([&] { manager.removeDetailsViewControllerWithIdentifier(u"a"_s); }, &b);
    EXPECT_EQ(manager.currentDetailsViewController(), &b);
    EXPECT_EQ(shown(), u"B"_s);
    EXPECT_FALSE(manager.detailsViewControllers().contains(u"a"_s));
    goingWith([&] { manager.showDetailsViewController(nullptr); }, &b);
    EXPECT_EQ(manager.currentDetailsViewController(), nullptr);
    goingWith([&] { manager.setContentContainerView(&other); }, &b);
    EXPECT_EQ(manager.contentContainerView(), &other);
    EXPECT_EQ(manager.currentDetailsViewController(), &b);
    EXPECT_TRUE(other.isAncestorOf(b.view()));
    a.onHearing = {};
    manager.setContentContainerView(nullptr);
    manager.showDetailsViewController(nullptr);
}

TEST(Inspector, stacksSections)
{
    Sheet head(u"Head"_s, 60), facts(u"Facts"_s, 100), file(u"File"_s, 40);
    inspectorItem(facts)->setShowHeader(true);
    inspectorItem(file)->setShowHeader(true);
    inspectorItem(file)->setTitle(u"The file"_s);
    QWidget window;
    window.resize(300, 600);
    KXInspectorViewController inspector;
    inspector.setViewControllers({ &head, nullptr, &facts });
    inspector.appearIn(&window);
    window.show();
    QTest::qWait(1);
    EXPECT_EQ(rowsOf(inspector), u"8 [60] 28"_s);
    EXPECT_EQ(head.said(), u"will appear, did appear"_s);
    EXPECT_EQ(facts.said(), QString());
    inspector.setExpanded(&facts, true);
    inspector.setViewControllers({ &head, &facts, &file });
    inspector.setViewControllers({ &head, &facts, &file });
    QTest::qWait(1);
    EXPECT_EQ(rowsOf(inspector), u"8 [60] 28 [100] 28"_s);
    EXPECT_EQ(facts.said(), u"will appear, did appear"_s);
    EXPECT_EQ(KXInspectorViewController::inspectorViewController(&file), &inspector);
    EXPECT_EQ(inspector.viewControllerForItem(inspectorItem(file)), &file);
    EXPECT_EQ(inspector.viewControllerForItem(nullptr), nullptr);
    // Folded by mouse and keyboard; the gap of one without header is no handle.
    KXInspectorOutlineView *const outline = inspector.outlineView();
    const auto click = [&](int y) { QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, { 40, y }); };
    click(4);
    EXPECT_TRUE(inspector.isExpanded(&head));
    click(8 + 60 + 14);
    EXPECT_FALSE(inspector.isExpanded(&facts));
    EXPECT_EQ(facts.said(), u"will disappear, did disappear"_s);
    QTest::keyClick(outline, Qt::Key_Down);
    QTest::keyClick(outline, Qt::Key_Space);
    EXPECT_TRUE(inspector.isExpanded(&file));
    QTest::keyClick(outline, Qt::Key_Left);
    EXPECT_FALSE(inspector.isExpanded(&file));
    click(4);
    QTest::keyClick(outline, Qt::Key_Left);
    QTest::qWait(20);
    EXPECT_EQ(rowsOf(inspector), u"8 [60] 28 28"_s);
    // Heights follow the views.
    head.setHeight(90);
    QTest::qWait(20);
    EXPECT_EQ(rowsOf(inspector), u"8 [90] 28 28"_s);
    inspector.heightOfViewControllerDidChange(&head);
    inspector.heightOfViewControllerDidChange(nullptr);
    inspectorItem(head)->setShowHeader(true);
    QTest::qWait(1);
    EXPECT_EQ(rowsOf(inspector), u"28 28 28"_s);
    inspector.setViewControllers({});
    EXPECT_EQ(rowsOf(inspector), QString());
    EXPECT_TRUE(head.isViewLoaded()); // which is the controller's
    EXPECT_EQ(KXInspectorViewController::inspectorViewController(&head), nullptr);
    auto brief = std::make_unique<Sheet>(u"Brief"_s, 30);
    inspector.setViewControllers({ &facts, brief.get() });
    brief.reset();
    EXPECT_EQ(inspector.viewControllers(), QList<KXViewController *> { &facts });
    QTest::qWait(1);
    EXPECT_EQ(rowsOf(inspector), u"28"_s);
    brief = std::make_unique<Sheet>(u"Brief"_s, 30);
    inspector.setViewControllers({ brief.get(), &facts });
    brief.reset();
    inspectorItem(facts)->setShowHeader(false); // whose place is another one now
    QTest::qWait(1);
    EXPECT_EQ(rowsOf(inspector), u"8 [100]"_s);
}

TEST(Inspector, remembersWhatIsOpenByItsPlace)
{
    const QString key = u"tracks Expanded Items"_s;
    const auto openIn = [](const QList<Sheet *> &sheets) {
        KXInspectorViewController inspector;
        inspector.setAutosaveName(u"tracks"_s);
        for (Sheet *sheet : sheets)
            inspectorItem(*sheet)->setShowHeader(true);
        inspector.setViewControllers({ sheets.cbegin(), sheets.cend() });
        (void)inspector.view();
        QString open;
        for (Sheet *sheet : sheets)
            open += inspector.isExpanded(sheet) ? u'o' : u'-';
        return open;
    };
    Sheet a(u"A"_s, 10), b(u"B"_s, 10), c(u"C"_s, 10);
    EXPECT_EQ(openIn({ &a, &b, &c }), u"---"_s);
    {
        KXInspectorViewController inspector;
        inspector.setViewControllers({ &a, &b, &c });
        (void)inspector.view();
        inspector.setAutosaveName(u"tracks"_s);
        inspector.setExpanded(&a, true);
        inspector.setExpanded(&c, true);
        EXPECT_EQ(
            inspector.itemForPersistentObject(inspector.persistentObjectForItem(inspectorItem(c))), inspectorItem(c));
        EXPECT_EQ(inspector.persistentObjectForItem(nullptr), QByteArray());
    }
    EXPECT_EQ(openIn({ &a, &b, &c }), u"o-o"_s);
    EXPECT_EQ(openIn({ &b, &a }), u"o-"_s); // the third place is not there
    {
        KXInspectorViewController inspector;
        inspector.setAutosaveName(u"tracks"_s);
        inspector.setViewControllers({ &a, &b, &c });
        EXPECT_TRUE(inspector.isExpanded(&c));
        inspector.setExpanded(&b, true); // before there is a view
    }
    EXPECT_EQ(openIn({ &a, &b, &c }), u"ooo"_s);
    {
        // The place of one that ends is the next one's, which stays as it is.
        auto brief = std::make_unique<Sheet>(u"Brief"_s, 10);
        inspectorItem(*brief)->setShowHeader(true);
        KXInspectorViewController inspector;
        inspector.setAutosaveName(u"tracks"_s);
        inspector.setViewControllers({ brief.get(), &a, &b });
        (void)inspector.view();
        inspector.setExpanded(&a, false);
        brief.reset();
        EXPECT_FALSE(inspector.isExpanded(&a));
        EXPECT_TRUE(inspector.isExpanded(&b));
    }
    for (const QVariant &rubbish : { QVariant(u"x"_s), QVariant(QVariantList { u"x"_s, QByteArray("x"), 7 }) }) {
        KXUserDefaults::standard().setValue(key, rubbish);
        EXPECT_EQ(openIn({ &a, &b }), u"--"_s);
    }
    KXUserDefaults::standard().remove(key);
}

#include "tst_inspector.moc"
