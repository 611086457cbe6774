// The inspector beside the table, and how the window is divided and placed after a restart.

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QScreen>
#include <QTest>

#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/theme/controls/KXHyperlinkButton.h>
#include <kestrixkit/theme/controls/KXStarRating.h>

#include <filters/Presets.h>
#include <inspector/TrackInspector.h>
#include <places/SidebarRoom.h>
#include <places/SourceColumn.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>

#include "WindowTest.h"

using namespace Qt::StringLiterals;

class InspectorTest : public WindowTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        for (int i = 0; i < 5; ++i)
            add(u"Track %1"_s.arg(i), 120 + i)->setRating(i);
        save();
        open();
        window->table()->setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Title) });
    }
    void open()
    {
        openWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        window->sources()->musicDidChange();
        QTest::qWait(5);
    }
    void select(int from, int to)
    {
        QItemSelection rows(window->model()->index(from, 0), window->model()->index(to, 0));
        window->table()->selectionModel()->select(
            rows, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        QTest::qWait(100);
    }
    /// The section's widget of that name; what is not seen is nullptr.
    template <typename Type> Type *find(int section, const QString &name)
    {
        for (Type *each :
            window->inspector()->inspector()->viewControllers().at(section)->view()->findChildren<Type *>())
            if (each->accessibleName() == name && each->isVisible())
                return each;
        return nullptr;
    }
    QStringList texts(int section)
    {
        QStringList all;
        for (const QLabel *label :
            window->inspector()->inspector()->viewControllers().at(section)->view()->findChildren<QLabel *>())
            all += label->text();
        return all;
    }
    QString enter(const QString &field, const QString &text)
    {
        auto *const line = find<QLineEdit>(1, field);
        line->setFocus();
        line->selectAll();
        QTest::keyClicks(line, text.isEmpty() ? u" "_s : text);
        QTest::keyClick(line, Qt::Key_Return);
        QTest::qWait(20);
        return line->text();
    }
    void show()
    {
        QTest::keyClick(window.get(), Qt::Key_I, Qt::ControlModifier);
        ASSERT_TRUE(window->inspector()->isShown());
    }
};

TEST_F(InspectorTest, showsAndEditsWhatIsSelected)
{
    EXPECT_FALSE(window->inspector()->isShown());
    show();
    EXPECT_TRUE(window->inspector()->container()->isVisible());
    EXPECT_GE(window->inspector()->container()->width(), 200);
    EXPECT_TRUE(texts(0).contains(u"No track is selected"_s)) << texts(0).join(u'|').toStdString();
    select(1, 1);
    EXPECT_TRUE(texts(0).contains(u"Track 1"_s));
    auto *const title = find<QLineEdit>(1, u"Title"_s);
    ASSERT_TRUE(title);
    EXPECT_EQ(title->text(), u"Track 1"_s);
    const KXRef<Track> track = window->model()->track(1);
    EXPECT_EQ(enter(u"BPM"_s, u"128.5"_s), u"128.5"_s);
    EXPECT_EQ(track->bpm(), 128.5);
    EXPECT_EQ(enter(u"BPM"_s, u"fast"_s), u"128.5"_s); // no tempo: nothing is lost
    EXPECT_EQ(enter(u"Year"_s, u"2024"_s), u"2024"_s);
    EXPECT_EQ(enter(u"Year"_s, QString()), QString());
    EXPECT_EQ(track->year(), std::nullopt);
    EXPECT_EQ(enter(u"Title"_s, QString()), u"Track 1"_s); // it has one, always
    EXPECT_EQ(enter(u"Comment"_s, u"Nice & loud"_s), u"Nice & loud"_s);
    window->context()->undoManager()->undo();
    QTest::qWait(20);
    EXPECT_EQ(find<QLineEdit>(1, u"Comment"_s)->text(), QString());
    find<KXStarRating>(1, u"Rating"_s)->rate(4);
    EXPECT_EQ(track->rating(), 4);
}

/// The player goes on to the next track, and the selection with it.
TEST_F(InspectorTest, whatIsTypedIsOfTheTrackAtWhichItBegan)
{
    show();
    select(1, 1);
    auto *const comment = find<QLineEdit>(1, u"Comment"_s);
    comment->setFocus();
    QTest::keyClicks(comment, u"about one"_s);
    select(2, 2);
    EXPECT_EQ(window->model()->track(1)->comment(), u"about one"_s);
    QTest::keyClick(comment, Qt::Key_Return);
    QTest::qWait(20);
    EXPECT_NE(window->model()->track(2)->comment(), u"about one"_s);
    EXPECT_EQ(window->model()->track(1)->comment(), u"about one"_s);
}

TEST_F(InspectorTest, editsSeveralTogether)
{
    show();
    select(0, 3);
    EXPECT_TRUE(texts(0).contains(u"4 tracks"_s)) << texts(0).join(u'|').toStdString();
    auto *const several = find<QLineEdit>(1, u"Title"_s);
    EXPECT_EQ(several->text(), QString());
    EXPECT_EQ(several->placeholderText(), u"Mixed"_s);
    several->setFocus();
    QTest::keyClick(several, Qt::Key_Return);
    EXPECT_EQ(window->model()->track(3)->title(), u"Track 3"_s) << "nothing was entered";
    EXPECT_EQ(enter(u"Genre"_s, u"House; Disco"_s), u"House, Disco"_s);
    for (int row = 0; row < 4; ++row)
        EXPECT_EQ(window->model()->track(row)->genres().size(), 2);
    EXPECT_EQ(window->model()->track(4)->genreText(), std::nullopt);
    find<KXStarRating>(1, u"Rating"_s)->rate(2);
    EXPECT_EQ(window->model()->track(3)->rating(), 2);
}

TEST_F(InspectorTest, leadsToThePresetsThatHoldTheTrack)
{
    show();
    select(1, 1);
    auto *const link
        = window->inspector()->inspector()->viewControllers().at(2)->view()->findChild<KXHyperlinkButton *>();
    ASSERT_TRUE(link);
    EXPECT_TRUE(texts(2).join(u'|').contains(u"✓"_s)) << texts(2).join(u'|').toStdString();
    link->click();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !window->sources()->presets()->selectedItems().isEmpty(); }));
    select(0, 0);
    window->context()->removeManagedObject(window->model()->track(0));
    window->context()->save();
    QTest::qWait(100);
    EXPECT_TRUE(window->inspector()->isShown());
}

TEST_F(InspectorTest, windowIsAsItWas)
{
    const QRect screen = window->screen()->availableGeometry();
    window->setGeometry(screen.left() + 30, screen.top() + 40, 700, 500);
    window->inspector()->setShown(true);
    QTest::qWait(5);
    auto *const panes = qobject_cast<QSplitter *>(window->inspector()->container()->parentWidget());
    panes->setSizes({ 180, 260, 260 });
    window->sources()->room().choose({ 150, 300, 200 });
    const QList<int> widths = panes->sizes(), heights = window->sources()->sizes();
    window->inspector()->inspector()->setExpanded(window->inspector()->inspector()->viewControllers().at(3), false);
    const QRect frame = window->geometry();
    window->close();
    open();
    EXPECT_EQ(window->geometry(), frame);
    EXPECT_TRUE(window->inspector()->isShown());
    EXPECT_EQ(qobject_cast<QSplitter *>(window->inspector()->container()->parentWidget())->sizes(), widths);
    EXPECT_EQ(window->sources()->sizes(), heights);
    const KXInspectorViewController &inspector = *window->inspector()->inspector();
    EXPECT_FALSE(inspector.isExpanded(inspector.viewControllers().at(3)));
    EXPECT_TRUE(inspector.isExpanded(inspector.viewControllers().at(2)));
    // Hidden it keeps its width.
    window->inspector()->setShown(false);
    window->close();
    open();
    EXPECT_FALSE(window->inspector()->isShown());
    window->inspector()->setShown(true);
    QTest::qWait(5);
    EXPECT_NEAR(window->inspector()->container()->width(), widths.constLast(), 2);
    window->close();
    // Where no screen is any more, and rubbish.
    KXUserDefaults &defaults = KXUserDefaults::standard();
    struct Case
    {
        QVariant frame;
        bool keepsSize;
    };
    for (const Case &one : { Case { QVariantList { 50'000, 50'000, 700, 500, false }, true },
             Case { QVariantList { -680, 10, 700, 500, false }, true }, Case { QVariantList { 1, 2 }, false },
             Case { u"x"_s, false }, Case { QVariantList { 0, 0, -5, 1'000'000, u"y"_s }, false } }) {
        defaults.setValue(u"browser.frame"_s, one.frame);
        defaults.setValue(u"browser.panes"_s, QVariantList { u"a"_s, 1, 2 });
        defaults.setValue(u"browser.sidebar-scrolled"_s, 7);
        open();
        EXPECT_TRUE(screen.intersects(window->geometry()));
        if (one.keepsSize) {
            EXPECT_EQ(window->size(), QSize(700, 500));
        }
        EXPECT_NE(window->geometry().left(), -680);
        window->close();
    }
}
