// What the user changes of tracks, one or many: in the table, against what files say, and written into the files.

#include <map>
#include <random>
#include <thread>

#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QTest>

#include <kestrixkit/audio/KXAudioFingerprint.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/messages/KXMessageCenter.h>

#include <import/FileCommands.h>
#include <import/Importer.h>
#include <library/TrackFields.h>
#include <table/TrackCommands.h>
#include <table/TrackTableView.h>
#include <tags/TagWriter.h>
#include <window/BrowserWindow.h>

#include <support/KXTestProcess.h>

#include "LibraryTest.h"
#include "MusicFiles.h"

using namespace Qt::StringLiterals;
using TrackFields::Field;
namespace fs = std::filesystem;

class FieldsTest : public LibraryTest
{
protected:
    std::string file(const std::string &name) const
    {
        return fs::canonical(music.path().toStdString()).native() + '/' + name;
    }
    KXManagedObjectContext::Ref fresh()
    {
        contexts.append(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator));
        return contexts.last();
    }
    ImportResult import() { return Importer(fresh(), ImportTask(file("."))).run({}); }
    void open()
    {
        window = std::make_unique<BrowserWindow>(coordinator);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        window->activateWindow();
        window->table()->setFocus();
        window->table()->sortByColumn(TrackTableModel::Added, Qt::AscendingOrder);
        QTest::qWait(5);
    }
    QAction *action(const QString &menu, const QString &text) const
    {
        for (const QMenu *each : window->findChildren<QMenu *>()) {
            for (QAction *action : each->actions()) {
                if (each->accessibleName() == menu && action->text().remove(u'&') == text && !action->menu())
                    return action;
            }
        }
        return nullptr;
    }
    /// Opens the editor of a field by the menu; null where none opens.
    QLineEdit *edit(const QString &field) const
    {
        action(u"Edit"_s, field)->trigger();
        return qobject_cast<QLineEdit *>(QApplication::focusWidget());
    }
    void enter(const QString &field, const QString &text) const
    {
        QLineEdit *const line = edit(field);
        ASSERT_TRUE(line) << field.toStdString();
        line->selectAll();
        for (const QChar each : text) {
            if (each.unicode() < 128)
                QTest::keyClick(line, each.toLatin1());
            else
                line->insert(each); // no key of the test's keyboard
        }
        QTest::keyClick(line, Qt::Key_Return);
        QTest::qWait(2);
    }
    KXRef<Track> track(int row) const { return window->model()->track(row); }

    QTemporaryDir music;
    QList<KXManagedObjectContext::Ref> contexts;
    std::unique_ptr<BrowserWindow> window;
};

TEST_F(FieldsTest, areEditedInTheTableForAllSelectedRows)
{
    const KXClockPin pin;
    KXClock::setLocale(QLocale(QLocale::English, QLocale::UnitedKingdom));
    for (const QString &title : { u"a"_s, u"b"_s, u"c"_s })
        add(title, title == u"c"_s ? 100 : 120);
    save();
    open();
    window->table()->sortByColumn(TrackTableModel::Title, Qt::AscendingOrder);
    window->table()->selectRow(0);
    QTest::keyClick(window->table(), Qt::Key_Down, Qt::ShiftModifier);
    enter(u"Artist"_s, u"Ann feat. Bob"_s);
    enter(u"Album"_s, u"Debut"_s);
    enter(u"Genre"_s, u"House; Disco"_s);
    enter(u"Label"_s, u"Home"_s);
    enter(u"Key"_s, u"8A"_s);
    enter(u"Year"_s, u"2024"_s);
    enter(u"BPM"_s, u"127.5"_s);
    for (const int row : { 0, 1 }) {
        const KXRef<Track> edited = track(row);
        EXPECT_EQ(edited->artists().size(), 2);
        EXPECT_EQ(edited->album()->title(), u"Debut"_s);
        EXPECT_EQ(edited->genreText(), u"House, Disco"_s);
        EXPECT_EQ(edited->labels().value(0)->name(), u"Home"_s);
        EXPECT_EQ(edited->key()->name(), u"Am"_s);
        EXPECT_EQ(edited->keyOrder(), 16);
        EXPECT_EQ(edited->year(), 2024);
        EXPECT_EQ(edited->bpm(), 127.5);
    }
    EXPECT_EQ(track(0)->album(), track(1)->album());
    EXPECT_EQ(track(2)->artistText(), std::nullopt);
    // What makes no value changes nothing; an empty text takes one away, but a title.
    enter(u"BPM"_s, u"fast"_s);
    enter(u"Key"_s, u"H"_s);
    enter(u"Title"_s, u" "_s);
    EXPECT_EQ(track(0)->bpm(), 127.5);
    EXPECT_EQ(track(0)->keyOrder(), 16);
    EXPECT_EQ(track(0)->title(), u"a"_s);
    enter(u"Year"_s, u" "_s);
    EXPECT_EQ(track(1)->year(), std::nullopt);
    // Where the rows differ nothing changes until something is entered.
    QTest::keyClick(window->table(), Qt::Key_Down, Qt::ShiftModifier);
    QLineEdit *const mixed = edit(u"BPM"_s);
    ASSERT_TRUE(mixed);
    EXPECT_EQ(mixed->text(), QString());
    EXPECT_EQ(mixed->placeholderText(), u"Mixed"_s);
    QTest::keyClick(mixed, Qt::Key_Return);
    QTest::qWait(2);
    EXPECT_EQ(track(2)->bpm(), 100);
    EXPECT_EQ(track(0)->bpm(), 127.5);
    // Step by step back.
    const QStringList steps { u"Change Year"_s, u"Change BPM"_s, u"Change Year"_s, u"Change Key"_s, u"Change Label"_s,
        u"Change Genre"_s, u"Change Album"_s, u"Change Artist"_s };
    for (const QString &step : steps) {
        EXPECT_EQ(window->context()->undoManager()->undoActionName(), step);
        QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
        QTest::qWait(2);
    }
    EXPECT_EQ(track(0)->artists().size(), 0);
    EXPECT_EQ(track(0)->key(), nullptr);
    EXPECT_EQ(track(1)->bpm(), 120);
    EXPECT_FALSE(window->context()->undoManager()->canUndo());
}

TEST_F(FieldsTest, ofThousandsOfRowsAreEditedInTheBackground)
{
    constexpr int rows = 2'100;
    for (int i = 0; i < rows; ++i)
        add(u"%1"_s.arg(i + 10'000))->setArtistText(QString::number(i));
    save();
    open();
    window->table()->selectAll();
    enter(u"Artist"_s, u"Ann; Bob"_s);
    KXUndoManager &undo = *window->context()->undoManager();
    const auto artists = [&](const QString &text) {
        return fresh()->countForEntity(
            u"Track"_s, KXPredicate::predicateWithFormat("artistText == %@ AND artists.@count == 2", text));
    };
    ASSERT_TRUE(QTest::qWaitFor([&] { return artists(u"Ann; Bob"_s) == rows; }, 60'000));
    EXPECT_EQ(undo.undoActionName(), u"Change Artist"_s);
    undo.undo();
    const auto before = KXPredicate::predicateWithFormat("artistText != 'Ann; Bob' AND artists.@count == 0");
    EXPECT_TRUE(QTest::qWaitFor([&] { return fresh()->countForEntity(u"Track"_s, before) == rows; }, 60'000));
    EXPECT_EQ(track(7)->artistText(), QString::number(track(7)->title().toInt() - 10'000));
}

TEST_F(FieldsTest, stayUntilTheFileSaysSomethingNew)
{
    makeMusic(file("a.flac"), { { "TITLE", "file's" }, { "ARTIST", "file's" }, { "GENRE", "House" } });
    import();
    const auto mine = fresh();
    const KXRef<Track> track = Track::findAllInContext(*mine).first();
    LibraryEditor editor(mine);
    editor.setField({ track }, Field::Title, u"mine"_s);
    editor.setField({ track }, Field::Genre, u"Disco"_s);
    EXPECT_EQ(TrackFields::unwritten(*track), (QList { Field::Title, Field::Genre }));
    setTags(file("a.flac"), { { "TITLE", "file's" }, { "ARTIST", "new" }, { "GENRE", "House" } });
    EXPECT_EQ(import().updated, 1);
    const KXRef<Track> read = Track::findAllInContext(*fresh()).first();
    EXPECT_EQ(read->title(), u"mine"_s);
    EXPECT_EQ(read->genres().value(0)->name(), u"Disco"_s);
    EXPECT_EQ(read->artistText(), u"new"_s);
    setTags(file("a.flac"), { { "TITLE", "the file's again" }, { "ARTIST", "new" }, { "GENRE", "House" } });
    import();
    EXPECT_EQ(Track::findAllInContext(*fresh()).first()->title(), u"the file's again"_s);
}

TEST_F(FieldsTest, areWrittenIntoTheFilesThatCanHoldThem)
{
    const std::pair<const char *, AudioFormat> formats[] { { "a.flac", AudioFormat::Flac },
        { "b.mp3", AudioFormat::Mp3 }, { "c.m4a", AudioFormat::M4a }, { "d.ogg", AudioFormat::Vorbis },
        { "e.opus", AudioFormat::Opus }, { "f.wav", AudioFormat::Wav }, { "g.aiff", AudioFormat::Aiff } };
    std::map<std::string, KXAudioFingerprint> sounds;
    for (const auto &[name, format] : formats) {
        makeMusic(file(name), { { "TITLE", name }, { "ARTIST", "Old" }, { "TRACKNUMBER", "7" } }, format);
        sounds[name] = KXAudioFingerprint::ofFile(urlOfPath(file(name)));
    }
    fs::permissions(file("a.flac"), fs::perms(0640));
    fs::create_symlink(file("b.mp3"), file("link.mp3")); // the same file, seen once
    makeMusic(file("gone.flac"), { { "TITLE", "gone" } });
    import();
    open();
    window->table()->sortByColumn(TrackTableModel::Title, Qt::AscendingOrder);
    window->table()->selectAll();
    enter(u"Title"_s, u"Neuer Titel ♯1"_s);
    enter(u"Artist"_s, u"Ann feat. Bob"_s);
    enter(u"Album"_s, u"Debut"_s);
    enter(u"Genre"_s, u"House, Disco"_s);
    enter(u"Label"_s, u"Home"_s);
    enter(u"Year"_s, u"1999"_s);
    enter(u"Key"_s, u"F#m"_s);
    enter(u"BPM"_s, u"127.98"_s);
    enter(u"Comment"_s, u"Very \"loud\" & <fast>"_s);
    const std::string before = readBytes(file("a.flac"));
    EXPECT_EQ(import().updated, 0) << "nothing is written unasked";
    fs::remove(file("gone.flac"));
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    center.clearMessages(center.messages());
    action(u"Track"_s, u"Write Tags"_s)->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->trackCommands()->isWriting(); }, 60'000));
    EXPECT_EQ(center.messageCount(), 1) << "of the file that is gone";
    EXPECT_EQ(center.messages().value(0)->info().count(u"<li>"_s), 1)
        << center.messages().value(0)->info().toStdString();
    center.clearMessages(center.messages());
    EXPECT_NE(readBytes(file("a.flac")), before);
    for (const auto &[name, format] : formats) {
        const TagReading reading = readTags(file(name));
        ASSERT_TRUE(reading.tags) << name;
        EXPECT_EQ(reading.tags->title, u"Neuer Titel ♯1"_s) << name;
        EXPECT_EQ(reading.tags->artists, (QStringList { u"Ann"_s, u"Bob"_s })) << name;
        EXPECT_EQ(reading.tags->album, u"Debut"_s) << name;
        EXPECT_EQ(reading.tags->genres, (QStringList { u"House"_s, u"Disco"_s })) << name;
        EXPECT_EQ(reading.tags->labels, QStringList { u"Home"_s }) << name;
        EXPECT_EQ(reading.tags->year, 1999) << name;
        EXPECT_EQ(reading.tags->key, TagValues::key(u"F#m"_s)) << name;
        EXPECT_EQ(reading.tags->bpm, 127.98) << name;
        EXPECT_EQ(reading.tags->comment, u"Very \"loud\" & <fast>"_s) << name;
        EXPECT_EQ(reading.tags->trackNumber, 7) << name << ": what nobody changed stays";
        EXPECT_EQ(KXAudioFingerprint::ofFile(urlOfPath(file(name))), sounds[name]) << name;
    }
    EXPECT_EQ(fs::status(file("a.flac")).permissions(), fs::perms(0640));
    EXPECT_TRUE(fs::is_symlink(file("link.mp3")));
    for (const auto &entry : fs::directory_iterator(file(".")))
        EXPECT_FALSE(entry.path().filename().native().starts_with('.')) << entry.path();
    const ImportResult again = import();
    EXPECT_EQ(again.updated, 0) << "the library knows what it wrote";
    EXPECT_EQ(again.unchanged, std::ssize(formats));
    EXPECT_TRUE(QTest::qWaitFor([&] { return TrackFields::unwritten(*track(0)).isEmpty(); }, 60'000));
}

// Not a test: writes tags until it is ended, for the next one.
TEST_F(FieldsTest, DISABLED_areWrittenForEver)
{
    const std::string path = qEnvironmentVariable("BROWSER_TEST_FILE").toStdString();
    Importer(fresh(),
        [&] {
            ImportTask task;
            task.files = { path };
            return task;
        }())
        .run({});
    const auto mine = fresh();
    const KXRef<Track> track = Track::findAllInContext(*mine).first();
    ASSERT_TRUE(track);
    TagWriter writer(mine);
    LibraryEditor editor(mine);
    for (int round = 0;; ++round) {
        editor.setField({ track }, Field::Title, u"round %1 "_s.arg(round) + QString(round % 900, u'x'));
        ASSERT_EQ(writer.run({ track->objectID().key() }, {}).written, 1);
        puts("written");
        fflush(stdout);
    }
}

TEST_F(FieldsTest, areOldOrNewWhereverTheProgramIsKilled)
{
    makeMusic(file("a.mp3"), { { "TITLE", "round 0" }, { "ARTIST", "Ann" } }, AudioFormat::Mp3);
    const auto sound = KXAudioFingerprint::ofFile(urlOfPath(file("a.mp3")));
    std::mt19937 random(std::random_device {}());
    for (int round = 0; round < 12; ++round) {
        QProcess process;
        startWithFork(process);
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"BROWSER_TEST_FILE"_s, QString::fromStdString(file("a.mp3")));
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationFilePath(),
            { u"--gtest_also_run_disabled_tests"_s, u"--gtest_filter=FieldsTest.DISABLED_areWrittenForEver"_s });
        QByteArray said;
        while (!said.contains("written") && process.waitForReadyRead(60'000))
            said += process.readAll();
        ASSERT_TRUE(said.contains("written")) << said.toStdString();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
        process.kill();
        process.waitForFinished();
        const TagReading reading = readTags(file("a.mp3"));
        ASSERT_TRUE(reading.tags) << reading.refusal.toStdString();
        EXPECT_TRUE(reading.tags->title.startsWith(u"round "_s));
        EXPECT_EQ(reading.tags->artistText, u"Ann"_s);
        ASSERT_EQ(KXAudioFingerprint::ofFile(urlOfPath(file("a.mp3"))), sound);
        EXPECT_EQ(Importer(fresh(), ImportTask(file("."))).run({}).skipped.size(), 0U);
    }
}
