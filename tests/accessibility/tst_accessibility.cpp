// The browser as assistive technology meets it: another program, on the bus, with keys pressed on a display.

#include <QTest>
#include <gtest/gtest.h>

#include <algorithm>

#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>

#include <filters/Presets.h>
#include <library/Library.h>

#include <host/MusicFiles.h>
#include <support/KXTestPrint.h>

#include "AccessibleSession.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int patience = 15'000; // in milliseconds

} // namespace

class AccessibleBrowserTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        session = std::make_unique<AccessibleSession>();
        problem = session->start();
    }
    static void TearDownTestSuite() { session.reset(); }
    void SetUp() override
    {
#ifdef KX_SANITIZED
        GTEST_SKIP() << "what the display's libraries do is not ours to check";
#endif
        if (!problem.isEmpty())
            GTEST_SKIP() << problem.toStdString();
        makeMusic(path("music/a.flac"), { { "TITLE", "Night Signal" }, { "GENRE", "House" }, { "BPM", "126" } });
        makeMusic(path("music/b.flac"), { { "TITLE", "Morning Tram" }, { "GENRE", "Dub" }, { "BPM", "90" } });
        makeMusic(path("music/c.flac"), { { "TITLE", "Harbour" }, { "GENRE", "House" }, { "BPM", "128" } });
        const bool isThere
            = session->startBrowser({ u"--store"_s, store(), u"--music"_s, folder.filePath(u"music"_s) });
        const QByteArray said = session->browser().readAll();
        if (said.contains("no Qt platform plugin could be initialized"))
            GTEST_SKIP() << "the toolkit cannot use the display";
        ASSERT_TRUE(isThere) << said.toStdString();
        ASSERT_FALSE(session->find(u"label"_s, u"3 tracks"_s).isNull());
        ASSERT_FALSE(session->find(u"tree item"_s, u"Four Stars"_s).isNull()) << "the presets came";
    }
    void TearDown() override
    {
        if (session->browser().state() != QProcess::NotRunning) {
            session->press({ u"Escape"_s, u"Escape"_s, u"Escape"_s });
            session->focusWindow();
            EXPECT_EQ(session->endBrowser(), 0);
        }
        // The bus takes exception to what contradicts itself.
        const QByteArray said = session->browser().readAll();
        EXPECT_FALSE(said.contains("qt.accessibility")) << said.toStdString();
    }

    std::string path(const char *name) const { return folder.filePath(QString::fromLatin1(name)).toStdString(); }
    QString store() const { return folder.filePath(u"library.db"_s); }

    /// What is operated and has no name, or does not say what it is.
    static QString unnamed()
    {
        static const QStringList operated { u"push button"_s, u"check box"_s, u"radio button"_s, u"toggle button"_s,
            u"button menu"_s, u"combo box"_s, u"text"_s, u"slider"_s, u"spin button"_s, u"menu item"_s, u"table"_s,
            u"tree"_s, u"list"_s, u"link"_s, u"dialog"_s, u"frame"_s, u"tool bar"_s, u"image"_s };
        static const QStringList saysNothing { u"filler"_s, u"panel"_s, u"unknown"_s, u"invalid"_s, u""_s };
        QStringList found;
        session->application().visit([&](const AccessibleObject &each, const QString &trail) {
            const QString role = each.role();
            const bool isFocusable = each.has(AccessibleObject::Focusable);
            // A cell may be empty.
            const bool needsName = (isFocusable && role != "cell"_L1) || operated.contains(role);
            if ((needsName && each.name().isEmpty()) || (isFocusable && saysNothing.contains(role)))
                found.append(trail);
        });
        return found.join(u'\n');
    }

    static inline std::unique_ptr<AccessibleSession> session;
    static inline QString problem;
    QTemporaryDir folder;
};

TEST_F(AccessibleBrowserTest, everyControlHasANameAndARole)
{
    EXPECT_EQ(unnamed(), QString());
    session->press({ u"ctrl+i"_s });
    ASSERT_FALSE(session->find(u"tree"_s, u"Inspector"_s).isNull());
    EXPECT_EQ(unnamed(), QString()) << "with the inspector";
    session->press({ u"ctrl+shift+a"_s });
    ASSERT_TRUE(session->waitForFocus(u"check box"_s, u"Tempo"_s));
    EXPECT_EQ(unnamed(), QString()) << "with the kinds of filters";
    session->press({ u"space"_s });
    ASSERT_TRUE(session->waitForFocus(u"text"_s, u"First bound"_s));
    EXPECT_FALSE(session->find(u"combo box"_s, u"First comparison, at least"_s).isNull());
    EXPECT_EQ(unnamed(), QString()) << "with the editor of a range";
    session->press({ u"Escape"_s });
    session->press({ u"ctrl+shift+a"_s });
    ASSERT_TRUE(session->waitForFocus(u"check box"_s, u"Tempo"_s));
    session->press({ u"Right"_s, u"Right"_s, u"space"_s });
    ASSERT_FALSE(session->find(u"dialog"_s, u"Genre"_s).isNull());
    EXPECT_EQ(unnamed(), QString()) << "with the editor of values";
    session->press({ u"Escape"_s });
    session->press({ u"ctrl+f"_s });
    session->type(u"night"_s);
    ASSERT_FALSE(session->find(u"table"_s, u"Results"_s).isNull());
    EXPECT_EQ(unnamed(), QString()) << "with the search";
    session->press({ u"Escape"_s });
    session->press({ u"ctrl+l"_s });
    ASSERT_FALSE(session->find(u"dialog"_s, u"Presets"_s).isNull());
    EXPECT_EQ(unnamed(), QString()) << "with the presets library";
    session->press({ u"Escape"_s });
    session->press({ u"ctrl+comma"_s });
    ASSERT_FALSE(session->find(u"list"_s, u"Music folders"_s).isNull());
    EXPECT_EQ(unnamed(), QString()) << "with the preferences";
    session->press({ u"Escape"_s });
    session->focusWindow();
}

TEST_F(AccessibleBrowserTest, rowsAreSpokenWithTheirColumnsAndCounts)
{
    const AccessibleObject table = session->find(u"table"_s, u"Tracks"_s);
    ASSERT_EQ(table.rowCount(), 3);
    int line = 0; // an import reads several files at once: their order is any
    while (line < 3 && table.cell(line, 0).name() != u"Night Signal"_s)
        ++line;
    QStringList columns, row;
    for (int column = 0; column < table.columnCount(); ++column) {
        columns.append(table.columnTitle(column));
        const AccessibleObject cell = table.cell(line, column);
        EXPECT_EQ(cell.role(), u"cell"_s) << column;
        row.append(cell.name());
    }
    EXPECT_EQ(columns.join(u", "_s).toStdString(),
        "Title, Artist, Album, Genre, BPM, Key, Rating, Length, Label, Year, Added, Comment, Waveform");
    EXPECT_EQ(row.at(0), u"Night Signal"_s);
    EXPECT_EQ(row.at(3), u"House"_s);
    EXPECT_EQ(row.at(4), u"126.0"_s);
    EXPECT_EQ(row.at(6), u"0 of 5 stars"_s);
    for (const char *const item :
        { "All Tracks, 3", "Recently Added, 3", "House, 2", "Dub, 1", "Four Stars and More", "Prepare" })
        EXPECT_FALSE(session->find(u"tree item"_s, QString::fromLatin1(item)).isNull())
            << item << " is not one of: " << session->namesOf(u"tree item"_s).join(u"; "_s).toStdString();
}

TEST_F(AccessibleBrowserTest, changesAreAnnouncedOnceAndTheKeyboardStaysWhereItIs)
{
    session->press({ u"slash"_s });
    ASSERT_TRUE(session->waitForFocus(u"text"_s, u"Narrow the list"_s));
    const QString field = session->focus().path();
    const AccessibleObject summary = session->find(u"label"_s, u"3 tracks"_s);
    QTest::qWait(500); // for what is on its way
    (void)session->takeEvents();
    session->type(u"nig"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return summary.name() == u"1 track"_s; }, patience));
    QTest::qWait(500); // what would be said late, or again
    const QList<AccessibleEvent> events = session->takeEvents();
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                  [&](const AccessibleEvent &event) {
                      return event.path == summary.path() && event.detail == "accessible-name"_L1;
                  }),
        1);
    // Events of focus are not counted: late ones come in on a busy machine. Where the keyboard is, is what matters.
    EXPECT_EQ(session->focus().path(), field);

    // Stars are given where one is, and are there for those who ask.
    session->press({ u"Return"_s });
    const AccessibleObject table = session->find(u"table"_s, u"Tracks"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return table.has(AccessibleObject::Focused); }, patience));
    (void)session->takeEvents();
    session->press({ u"ctrl+a"_s, u"4"_s });
    EXPECT_TRUE(QTest::qWaitFor([&] { return table.cell(0, 6).name() == u"4 of 5 stars"_s; }, patience))
        << table.cell(0, 6).name().toStdString();
    QTest::qWait(500);
    QStringList said;
    for (const AccessibleEvent &event : session->takeEvents()) {
        if (event.detail == "accessible-name"_L1 && event.path == table.cell(0, 6).path())
            said.append(event.detail);
    }
    EXPECT_EQ(said.size(), 1) << "the stars of the row where the keyboard is";
    EXPECT_FALSE(session->find(u"tree item"_s, u"Four Stars and More, 1"_s).isNull());
    EXPECT_TRUE(table.has(AccessibleObject::Focused));
}

TEST_F(AccessibleBrowserTest, aSessionNeedsNoPointer)
{
    const bool hasSound = session->hasSound();
    makeMusic(path("more/d.flac"), { { "TITLE", "Second Deck" }, { "GENRE", "House" }, { "BPM", "131" } });
    makeMusic(path("more/e.flac"), { { "TITLE", "Slow Tram" }, { "GENRE", "Dub" }, { "BPM", "80" } });
    // Import
    session->press({ u"ctrl+o"_s });
    ASSERT_TRUE(session->waitForFocus(u"text"_s, u"Directory"_s));
    session->type(folder.filePath(u"more"_s));
    session->press({ u"Return"_s });
    ASSERT_FALSE(session->find(u"label"_s, u"5 tracks"_s).isNull());
    session->focusWindow();
    // Filter
    session->press({ u"ctrl+shift+a"_s });
    ASSERT_TRUE(session->waitForFocus(u"check box"_s, u"Tempo"_s));
    session->press({ u"space"_s });
    ASSERT_TRUE(session->waitForFocus(u"text"_s, u"First bound"_s));
    session->type(u"120"_s);
    session->press({ u"Return"_s });
    ASSERT_FALSE(session->find(u"label"_s, u"3 tracks"_s).isNull());
    session->press({ u"Escape"_s });
    // Save
    session->press({ u"ctrl+s"_s });
    ASSERT_TRUE(session->waitForFocus(u"text"_s, u"Name of the preset"_s));
    session->type(u"Late Night"_s);
    session->press({ u"Return"_s });
    EXPECT_FALSE(session->find(u"tree item"_s, u"Late Night, 3"_s).isNull());
    // Play
    session->press({ u"slash"_s, u"Return"_s });
    const AccessibleObject table = session->find(u"table"_s, u"Tracks"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return table.has(AccessibleObject::Focused); }, patience));
    session->press({ u"Home"_s, u"space"_s });
    EXPECT_FALSE(session->find(u"label"_s, hasSound ? u"Finished "_s : u"No sound card"_s).isNull());
    // Quit
    EXPECT_EQ(session->endBrowser(), 0);
    Library::registerEntities();
    const auto coordinator = Library::open(store(), nullptr);
    ASSERT_TRUE(coordinator);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    EXPECT_EQ(context->countForEntity(QString(Track::entityName)), 5);
    const KXRef<KXFilterSetPreset> preset = Presets::find(*context, u"Late Night"_s);
    ASSERT_TRUE(preset);
    EXPECT_EQ(preset->filterSet()->filters().size(), 1);
}
