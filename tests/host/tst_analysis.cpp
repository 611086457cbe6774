// Tempo and key of tracks whose files do not say them: found by a program of its own, marked until somebody confirms
// them.

#include <fstream>

#include <QElapsedTimer>
#include <QTest>

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/messages/KXMessageCenter.h>

#include <analysis/AnalysisCommands.h>
#include <demo/DemoMusic.h>
#include <import/Importer.h>
#include <table/TrackTableView.h>
#include <tags/TagWriter.h>
#include <window/BrowserWindow.h>

#include "LibraryTest.h"
#include "Tunes.h"

using namespace Qt::StringLiterals;
using TrackFields::Field;
namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds patience { 700 };

// Stands for the program: the file's name says what becomes of it.
constexpr const char *actor = R"(#!/bin/sh
case "$1" in
    *waits*) while [ ! -e "${0%/*}/go" ]; do sleep 0.02; done; echo '{"bpm":126,"key":"Em"}' ;;
    *crashes*) kill -SEGV $$ ;;
    *hangs*) sleep 60 ;;
    *closes*) exec >&-; sleep 60 ;;
    *babbles*) exec yes '{"bpm":124}' ;;
    *stutters*) printf '{"bpm":' ;;
    *lies*) echo '{"bpm":-7,"key":"Am"}' ;;
    *hums*) echo '{"bpm":124,"key":"H sharp"}' ;;
    *fails*) echo '{"bpm":124}'; exit 3 ;;
    *refuses*) echo '{"error":"cannot be read: it is a <b>picture</b>"}' ;;
    *silent*) echo '{}' ;;
    *beats*) echo '{"bpm":174.5}' ;;
    *) echo '{"bpm":124,"file":"x","key":"Am"}' ;;
esac
)";

} // namespace

class AnalysisTest : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        program = folder.filePath(u"actor"_s).toStdString();
        writeBytes(program, actor);
        fs::permissions(program, fs::perms(0700));
    }
    [[nodiscard]] Analyser analyser() const { return Analyser(program, patience); }
    /// A track with a file of that name, which is not looked into.
    KXRef<Track> addFile(const QString &name)
    {
        const KXRef<Track> track = add(name);
        track->setLocation(QUrl::fromLocalFile(folder.filePath(name)));
        return track;
    }
    KXManagedObjectContext::Ref fresh()
    {
        contexts.append(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator));
        return contexts.last();
    }
    KXRef<Track> stored(const QString &title)
    {
        const auto found
            = Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == %@", title), *fresh());
        EXPECT_TRUE(found) << title.toStdString();
        return found;
    }
    TrackAnalysisResult analyseAll(const Analyser &with)
    {
        TrackAnalysis analysis(fresh(), with);
        return analysis.run(analysis.unknown(), {});
    }
    [[nodiscard]] std::string file(const std::string &name) const
    {
        return fs::canonical(folder.path().toStdString()).native() + "/music/" + name;
    }
    ImportResult import() { return Importer(fresh(), ImportTask(file("."))).run({}); }

    void open()
    {
        window = std::make_unique<BrowserWindow>(coordinator);
        window->analysis()->setAnalyser(Analyser(program, std::chrono::seconds(30)));
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        window->table()->sortByColumn(TrackTableModel::Title, Qt::AscendingOrder);
        window->table()->setFocus();
        QTest::qWait(5);
    }
    [[nodiscard]] QVariant shown(int row, int column, int role = Qt::DisplayRole) const
    {
        return window->model()->index(row, column).data(role);
    }
    void waitForAnalysis()
    {
        ASSERT_TRUE(QTest::qWaitFor([&] { return !window->analysis()->isBusy(); }, 30'000));
        QTest::qWait(20); // what it says comes in a later turn
    }

    std::string program;
    QList<KXManagedObjectContext::Ref> contexts;
    std::unique_ptr<BrowserWindow> window;
};

TEST_F(AnalysisTest, whatGoesWrongCostsOneFile)
{
    const std::pair<const char *, const char *> reasons[] { { "crashes", "ended its analysis (" },
        { "hangs", "did not come to an end" }, { "closes", "did not come to an end" }, { "babbles", "made no sense" },
        { "stutters", "made no sense" }, { "lies", "made no sense" }, { "hums", "made no sense" },
        { "fails", "analysis failed" }, { "refuses", "cannot be read: it is a <b>picture</b>" } };
    for (const auto &[name, reason] : reasons)
        addFile(QString::fromLatin1(name));
    for (const QString &name : { u"good"_s, u"with 'quotes' $(and) more"_s, u"beats"_s, u"silent"_s })
        addFile(name);
    save();
    QElapsedTimer clock;
    clock.start();
    const TrackAnalysisResult result = analyseAll(analyser());
    EXPECT_LT(clock.elapsed(), 20'000);
    EXPECT_EQ(result.found.size(), 3U);
    EXPECT_EQ(result.silent, 1);
    EXPECT_EQ(result.failed.size(), std::size(reasons));
    for (const auto &[name, reason] : reasons) {
        const KXRef<Track> track = stored(QString::fromLatin1(name));
        EXPECT_TRUE(track->analysisNote().value_or(QString()).contains(QString::fromLatin1(reason)))
            << name << ": " << track->analysisNote().value_or(QString()).toStdString();
        EXPECT_FALSE(track->bpm() || track->keyOrder() || track->analysedBpm()) << name;
    }
    for (const QString &name : { u"good"_s, u"with 'quotes' $(and) more"_s }) {
        const KXRef<Track> good = stored(name);
        EXPECT_EQ(good->bpm(), 124);
        EXPECT_EQ(good->key()->name(), u"Am"_s);
        EXPECT_EQ(good->keyOrder(), 16);
        EXPECT_TRUE(TrackFields::isAnalysed(*good, Field::Tempo) && TrackFields::isAnalysed(*good, Field::Key));
    }
    EXPECT_EQ(stored(u"beats"_s)->bpm(), 174.5);
    EXPECT_EQ(stored(u"beats"_s)->analysisNote(), u"no key was heard"_s);
    EXPECT_EQ(Key::countOfInContext(*fresh()), 1);
    // Nobody is asked twice for what was not found, but by name.
    EXPECT_TRUE(TrackAnalysis(fresh(), analyser()).unknown().empty());
    writeBytes(program, "#!/bin/sh\necho '{\"bpm\":90,\"key\":\"C\"}'\n");
    const std::vector<qint64> some { stored(u"crashes"_s)->objectID().key(), stored(u"good"_s)->objectID().key() };
    EXPECT_EQ(TrackAnalysis(fresh(), analyser()).run(some, {}).found.size(), 1U);
    EXPECT_EQ(stored(u"crashes"_s)->bpm(), 90);
    EXPECT_EQ(stored(u"crashes"_s)->analysisNote(), std::nullopt);
    EXPECT_EQ(stored(u"good"_s)->bpm(), 124);
}

TEST_F(AnalysisTest, isCancelledAtOnceAndGoesOnWhereItWas)
{
    addFile(u"first"_s);
    for (int i = 0; i < 9; ++i)
        addFile(u"hangs %1"_s.arg(i));
    save();
    std::atomic<bool> stops = false;
    QElapsedTimer clock;
    clock.start();
    TrackAnalysis analysis(fresh(), Analyser(program, std::chrono::minutes(1)));
    const TrackAnalysisResult result = analysis.run(
        analysis.unknown(), [&] { return stops.load(); }, [&](qint64, qint64) { stops = true; });
    EXPECT_LT(clock.elapsed(), 20'000);
    EXPECT_TRUE(result.cancelled);
    EXPECT_TRUE(result.failed.empty()) << "who was interrupted is not to blame";
    EXPECT_EQ(stored(u"first"_s)->bpm(), 124);
    EXPECT_EQ(TrackAnalysis(fresh(), analyser()).unknown().size(), 9U);
}

TEST_F(AnalysisTest, isOneStepToUndoWhichLeavesAloneWhatWasConfirmedSince)
{
    for (const QString &name : { u"a"_s, u"b"_s, u"c"_s, u"crashes"_s })
        addFile(name);
    save();
    open();
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    center.clearMessages(center.messages());
    window->analysis()->all->trigger();
    waitForAnalysis();
    EXPECT_EQ(center.messageCount(), 1) << "of the one that failed";
    center.clearMessages(center.messages());
    for (int row = 0; row < 3; ++row) {
        EXPECT_EQ(shown(row, TrackTableModel::Bpm).toString(), u"124.0"_s);
        EXPECT_TRUE(shown(row, TrackTableModel::Bpm, TrackTableModel::AnalysedRole).toBool());
        EXPECT_TRUE(shown(row, TrackTableModel::KeyName, TrackTableModel::AnalysedRole).toBool());
        EXPECT_TRUE(shown(row, TrackTableModel::KeyName, Qt::ToolTipRole).toString().contains(u"Analysed"_s));
        EXPECT_TRUE(shown(row, TrackTableModel::Bpm, Qt::AccessibleTextRole).toString().contains(u"analysed"_s));
    }
    KXUndoManager &undo = *window->context()->undoManager();
    EXPECT_EQ(undo.undoActionName(), u"Analyse Tempo and Key"_s);
    undo.undo();
    waitForAnalysis();
    EXPECT_EQ(shown(0, TrackTableModel::Bpm).toString(), QString());
    EXPECT_FALSE(window->model()->track(0)->key());
    undo.redo();
    waitForAnalysis();
    EXPECT_EQ(shown(0, TrackTableModel::Bpm).toString(), u"124.0"_s);
    EXPECT_TRUE(shown(0, TrackTableModel::Bpm, TrackTableModel::AnalysedRole).toBool());
    // Confirmed by the command, and by an edit, to the same value or another one.
    window->table()->selectRow(0);
    window->analysis()->confirm->trigger();
    EXPECT_EQ(undo.undoActionName(), u"Confirm Tempo and Key"_s);
    EXPECT_FALSE(shown(0, TrackTableModel::Bpm, TrackTableModel::AnalysedRole).toBool());
    undo.undo();
    QTest::qWait(5);
    EXPECT_TRUE(shown(0, TrackTableModel::Bpm, TrackTableModel::AnalysedRole).toBool());
    undo.redo();
    window->table()->clearSelection();
    EXPECT_TRUE(window->model()->setData(window->model()->index(1, TrackTableModel::Bpm), u"124"_s));
    EXPECT_FALSE(shown(1, TrackTableModel::Bpm, TrackTableModel::AnalysedRole).toBool());
    EXPECT_TRUE(shown(1, TrackTableModel::KeyName, TrackTableModel::AnalysedRole).toBool());
    undo.undo();
    QTest::qWait(5);
    EXPECT_TRUE(shown(1, TrackTableModel::Bpm, TrackTableModel::AnalysedRole).toBool());
    undo.redo();
    ASSERT_TRUE(window->context()->save());
    const auto takenBack = [&] {
        TrackAnalysis analysis(fresh(), analyser());
        std::vector<AnalysedValues> found;
        for (int row = 0; row < 3; ++row)
            found.push_back({ window->model()->tracks().key(row), 124, 16 });
        return !analysis.takeBack(found);
    };
    EXPECT_TRUE(takenBack());
    EXPECT_EQ(stored(u"a"_s)->bpm(), 124);
    EXPECT_EQ(stored(u"a"_s)->keyOrder(), 16);
    EXPECT_EQ(stored(u"b"_s)->bpm(), 124);
    EXPECT_EQ(stored(u"b"_s)->keyOrder(), std::nullopt);
    EXPECT_EQ(stored(u"c"_s)->bpm(), std::nullopt);
}

TEST_F(AnalysisTest, whatIsUndoneIsUndoneThoughAnotherIsCancelledAndTheWindowCloses)
{
    addFile(u"a"_s);
    addFile(u"waits"_s);
    save();
    open();
    window->table()->selectRow(0);
    window->analysis()->selected->trigger();
    waitForAnalysis();
    EXPECT_EQ(stored(u"a"_s)->bpm(), 124);
    window->table()->selectRow(1);
    window->analysis()->selected->trigger();
    QTest::qWait(50);
    ASSERT_TRUE(window->analysis()->isBusy());
    window->context()->undoManager()->undo();
    window.reset();
    EXPECT_EQ(stored(u"a"_s)->bpm(), std::nullopt);
    EXPECT_EQ(stored(u"waits"_s)->bpm(), std::nullopt);
}

TEST_F(AnalysisTest, neverTakesThePlaceOfWhatTheUserEntersMeanwhile)
{
    addFile(u"waits"_s);
    save();
    open();
    window->table()->selectRow(0);
    window->analysis()->selected->trigger();
    QTest::qWait(50);
    ASSERT_TRUE(window->analysis()->isBusy());
    EXPECT_TRUE(window->model()->setData(window->model()->index(0, TrackTableModel::Bpm), u"101"_s));
    writeBytes(folder.filePath(u"go"_s).toStdString(), "");
    waitForAnalysis();
    EXPECT_EQ(shown(0, TrackTableModel::Bpm).toString(), u"101.0"_s);
    EXPECT_FALSE(shown(0, TrackTableModel::Bpm, TrackTableModel::AnalysedRole).toBool());
    EXPECT_TRUE(shown(0, TrackTableModel::KeyName, TrackTableModel::AnalysedRole).toBool());
    // Nor where two find different values at once.
    EXPECT_EQ(analyseAll(analyser()).found.size(), 0U);
    window->analysis()->setAnalyser(Analyser("/no such program"));
    EXPECT_FALSE(window->analysis()->selected->isEnabled());
    EXPECT_TRUE(window->analysis()->all->toolTip().contains(u"not installed"_s));
}

TEST_F(AnalysisTest, isWrittenIntoFilesOnceConfirmedAndGivesWayToTheirTags)
{
    makeMusic(file("a.flac"), { { "TITLE", "a" }, { "BPM", "98" } });
    makeMusic(file("b.mp3"), { { "TITLE", "b" } }, AudioFormat::Mp3);
    makeMusic(file("c.flac"), { { "TITLE", "c" } });
    import();
    EXPECT_EQ(analyseAll(analyser()).found.size(), 3U);
    EXPECT_EQ(stored(u"a"_s)->bpm(), 98) << "what the tag says stays";
    EXPECT_FALSE(TrackFields::isAnalysed(*stored(u"a"_s), Field::Tempo));
    EXPECT_TRUE(TrackFields::isAnalysed(*stored(u"a"_s), Field::Key));
    const auto mine = fresh();
    const auto all = Track::findAllInContext(*mine);
    std::vector<qint64> keys;
    for (const KXRef<Track> &track : all)
        keys.push_back(track->objectID().key());
    EXPECT_EQ(TagWriter(fresh()).run(keys, {}).unchanged, 3) << "a guess is not written";
    const KXRef<Track> b = Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == 'b'"), *mine);
    EXPECT_TRUE(LibraryEditor(mine).confirmAnalysed({ b }));
    EXPECT_EQ(TrackFields::unwritten(*b), (QList { Field::Key, Field::Tempo }));
    EXPECT_EQ(TagWriter(fresh()).run(keys, {}).written, 1);
    EXPECT_EQ(readTags(file("b.mp3")).tags->bpm, 124);
    EXPECT_EQ(readTags(file("b.mp3")).tags->key, TagValues::key(u"Am"_s));
    EXPECT_EQ(readTags(file("a.flac")).tags->key, std::nullopt);
    EXPECT_EQ(import().updated, 0);
    // Another title says nothing of tempo and key; a tempo does.
    setTags(file("c.flac"), { { "TITLE", "c" }, { "ARTIST", "Ann" } });
    EXPECT_EQ(import().updated, 1);
    EXPECT_TRUE(TrackFields::isAnalysed(*stored(u"c"_s), Field::Tempo));
    setTags(file("c.flac"), { { "TITLE", "c" }, { "BPM", "62" } });
    EXPECT_EQ(import().updated, 1);
    EXPECT_EQ(stored(u"c"_s)->bpm(), 62);
    EXPECT_EQ(stored(u"c"_s)->analysedBpm(), std::nullopt);
    EXPECT_TRUE(TrackFields::isAnalysed(*stored(u"c"_s), Field::Key));
}

#ifdef KX_ANALYSIS

namespace {

enum class Verdict { Exact, Related, Wrong, None };

/// Half and double tempos are related.
Verdict ofTempo(const std::optional<double> &found, double truth)
{
    const auto isNear = [&](double factor) { return std::abs(*found / (truth * factor) - 1) <= 0.01; };
    return !found                  ? Verdict::None
        : isNear(1)                ? Verdict::Exact
        : isNear(0.5) || isNear(2) ? Verdict::Related
                                   : Verdict::Wrong;
}

/// Relatives and neighbours on the wheel are related.
Verdict ofKey(const std::optional<MusicalKey> &found, const MusicalKey &truth)
{
    if (!found || *found == truth)
        return found ? Verdict::Exact : Verdict::None;
    const int apart = (found->number - truth.number + 12) % 12;
    const bool isFifth = found->minor == truth.minor && (apart == 1 || apart == 11);
    return apart == 0 || isFifth ? Verdict::Related : Verdict::Wrong;
}

} // namespace

// The real program on music whose truth is known.
TEST_F(AnalysisTest, isRightAboutMostOfTheDemoMusic)
{
    QString error;
    const std::string music = DemoMusic::make(folder.filePath(u"caches"_s), &error);
    ASSERT_FALSE(music.empty()) << error.toStdString();
    const Analyser real(KX_ANALYSIS);
    ASSERT_TRUE(real.isInstalled());
    std::map<Verdict, int> tempos, keys;
    for (const DemoTrack &track : DemoMusic::tracks()) {
        const SoundAnalysis heard = real.analyse(music + '/' + track.fileName().toStdString(), {});
        EXPECT_EQ(heard.problem, QString()) << track.title;
        const MusicalKey truth = TagValues::key(QString::fromUtf8(track.key)).value_or(MusicalKey());
        ++tempos[ofTempo(heard.bpm, track.bpm)];
        ++keys[ofKey(heard.key, truth)];
        if (qEnvironmentVariableIsSet("KX_TEST_TABLE"))
            printf("%-24s %6.1f %6.1f %d   %-4s %-4s %d\n", track.title, track.bpm, heard.bpm.value_or(0),
                int(ofTempo(heard.bpm, track.bpm)), track.key, heard.key ? qPrintable(heard.key->name()) : "-",
                int(ofKey(heard.key, truth)));
    }
    const int count = int(DemoMusic::tracks().size());
    for (const auto &[what, verdicts] : { std::pair("tempo", tempos), std::pair("key", keys) }) {
        const auto of
            = [&, &found = verdicts](Verdict verdict) { return found.contains(verdict) ? found.at(verdict) : 0; };
        printf("%s of %d: exact %d, related %d, wrong %d, none %d\n", what, count, of(Verdict::Exact),
            of(Verdict::Related), of(Verdict::Wrong), of(Verdict::None));
    }
    EXPECT_GE(tempos[Verdict::Exact], count * 8 / 10);
    EXPECT_GE(keys[Verdict::Exact], count * 6 / 10);
}

TEST_F(AnalysisTest, answersForWhateverItIsGiven)
{
    makeTune(file("caf\xe9 \n.flac"), 1); // a name need not be text
    makeMusic(file("short.wav"), {}, AudioFormat::Wav);
    writeBytes(file("text.mp3"), "no music");
    const std::string whole = readBytes(file("caf\xe9 \n.flac"));
    writeBytes(file("cut.flac"), whole.substr(0, whole.size() * 3 / 4));
    const Analyser real(KX_ANALYSIS);
    const SoundAnalysis tune = real.analyse(file("caf\xe9 \n.flac"), {});
    EXPECT_EQ(tune.problem, QString());
    EXPECT_TRUE(tune.bpm && tune.key);
    EXPECT_TRUE(real.analyse(file("short.wav"), {}).problem.contains(u"too short"_s));
    for (const char *name : { "text.mp3", "not there.mp3", "." })
        EXPECT_TRUE(real.analyse(file(name), {}).problem.contains(u"cannot be read"_s)) << name;
    EXPECT_EQ(real.analyse(file("cut.flac"), {}).problem, QString()) << "most of it is music, too";
    fs::remove(file("caf\xe9 \n.flac")); // which the folder would not
}

#endif
