// The built browser, started the way users start it.

#include <csignal>

#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <demo/DemoMusic.h>
#include <filters/Presets.h>
#include <library/Library.h>

#include "MusicFiles.h"
#include "support/KXTestProcess.h"

using namespace Qt::StringLiterals;

namespace {

struct Answer
{
    int status = -1;
    QByteArray output;
    QByteArray errors;

    [[nodiscard]] QJsonObject json() const { return QJsonDocument::fromJson(output).object(); }
};

QProcessEnvironment quiet()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"QT_LOGGING_RULES"_s, u"*.warning=false"_s); // the platform plugin's
    environment.insert(u"XDG_RUNTIME_DIR"_s, QDir::tempPath());
    return environment;
}

Answer browser(const QStringList &arguments)
{
    QProcess process;
    startWithFork(process);
    process.setProcessEnvironment(quiet());
    process.start(QStringLiteral(KX_BROWSER), arguments);
    Answer answer;
    if (process.waitForFinished(300'000) && process.exitStatus() == QProcess::NormalExit)
        answer.status = process.exitCode();
    answer.output = process.readAllStandardOutput();
    answer.errors = process.readAllStandardError();
    return answer;
}

// Everything below a folder with its contents, to see that nothing was written.
QMap<QString, QByteArray> contents(const QString &folder)
{
    QMap<QString, QByteArray> files;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder.toStdString()))
        files.insert(QString::fromStdString(entry.path()),
            entry.is_regular_file() ? QByteArray::fromStdString(readBytes(entry.path())) : QByteArray());
    return files;
}

} // namespace

TEST(Browser, reportsItsCrateTheSameTwiceAndCountsLikeALoop)
{
    const QTemporaryDir folder;
    const QString store = folder.filePath(u"library.db"_s);
    const Answer first = browser({ u"--report"_s, u"--store"_s, store });
    ASSERT_EQ(first.status, 0) << first.errors.toStdString();
    EXPECT_EQ(first.errors, QByteArray());
    // The same again, but for the moment that dates are counted from.
    const auto timeless
        = [](QByteArray output) { return QString::fromUtf8(output).remove(QRegularExpression(u"DATE\\([^)]*\\)"_s)); };
    EXPECT_EQ(timeless(browser({ u"--report"_s, u"--store"_s, store }).output), timeless(first.output));

    int house = 0, fastHouse = 0;
    for (const DemoTrack &track : DemoMusic::tracks()) {
        const bool isHouse = QString::fromUtf8(track.genres).split(u';').contains(u"House"_s);
        house += isHouse;
        fastHouse += isHouse && track.bpm >= 124;
    }
    const QJsonObject report = first.json();
    EXPECT_EQ(report.value(u"tracks"_s).toInt(), int(DemoMusic::tracks().size()));
    EXPECT_TRUE(report.value(u"skipped"_s).isArray());
    EXPECT_EQ(report.value(u"genres"_s).toObject().value(u"House"_s).toInt(), house);
    EXPECT_EQ(report.value(u"store"_s).toString(), store);

    const Answer query
        = browser({ u"--store"_s, store, u"--query"_s, u"bpm >= 124 AND ANY genres.name == \"House\""_s });
    ASSERT_EQ(query.status, 0) << query.errors.toStdString();
    EXPECT_EQ(query.json(), (QJsonObject { { u"count"_s, fastHouse } }));
    EXPECT_GT(fastHouse, 0);

    // Every preset's count is what its predicate counts, and its explanations agree with it.
    const QJsonArray presets = report.value(u"presets"_s).toArray();
    ASSERT_GT(presets.size(), 20);
    int filled = 0;
    for (qsizetype i = 0; i < presets.size(); i += 4) {
        const QJsonObject preset = presets[i].toObject();
        const Answer recount = browser({ u"--store"_s, store, u"--query"_s, preset.value(u"predicate"_s).toString() });
        EXPECT_EQ(recount.json().value(u"count"_s), preset.value(u"count"_s))
            << preset.value(u"path"_s).toString().toStdString();
        filled += preset.value(u"count"_s).toInt() > 0;
    }
    EXPECT_GT(filled, 5);
}

TEST(Browser, explainsWhyATrackIsInAPreset)
{
    const QTemporaryDir folder;
    const QString music = folder.filePath(u"music"_s), store = folder.filePath(u"s.db"_s);
    makeMusic(u"%1/a's \"b\".flac"_s.arg(music).toStdString(), { { "GENRE", "House; Techno" }, { "BPM", "127" } });
    const auto explained = [&](const QStringList &presetAndFile) {
        return browser(QStringList { u"--music"_s, music, u"--store"_s, store, u"--explain"_s } + presetAndFile);
    };
    const QString file = u"%1/../music/a's \"b\".flac"_s.arg(music);
    const QJsonObject in = explained({ u"Tempo/124 to 128"_s, file }).json();
    EXPECT_EQ(in.value(u"matches"_s), true);
    EXPECT_EQ(in.value(u"letInBy"_s), QJsonArray { u">= 124 AND < 128"_s });
    EXPECT_EQ(in.value(u"filters"_s)[0].toObject().value(u"values"_s), (QJsonObject { { u"bpm"_s, 127 } }));

    const QJsonObject out = explained({ u"Without/No House, 128 and More"_s, file }).json();
    EXPECT_EQ(out.value(u"matches"_s), false);
    EXPECT_EQ(out.value(u"keptOutBy"_s), (QJsonArray { u"NOT House"_s, u">= 128"_s }));
    EXPECT_EQ(out.value(u"filters"_s)[0].toObject().value(u"conditions"_s)[0].toObject(),
        (QJsonObject { { u"predicate"_s, u"OR(ALL genres.name != \"House\")"_s }, { u"matches"_s, false },
            { u"matching"_s, QJsonArray() } }));

    for (const QStringList &mistake : QList<QStringList> { { u"Tempo/124 to 128"_s }, { u"Tempo"_s, file },
             { u"Nowhere"_s, file }, { u"Genres/House"_s, music }, { u"Genres/House"_s, file, file } }) {
        const Answer answer = explained(mistake);
        EXPECT_EQ(answer.status, 2) << mistake.join(u' ').toStdString();
        EXPECT_EQ(answer.errors.trimmed().count('\n'), 0);
    }
}

TEST(Browser, saysWhatEveryValueWouldMakeOfAPreset)
{
    const QTemporaryDir folder;
    const QString store = folder.filePath(u"library.db"_s);
    Library::registerEntities();
    for (const QString &preset : { u"Tempo/124 to 128"_s, u"Without/No Deep House"_s, u"Keys/Around 8"_s }) {
        const Answer answer = browser({ u"--store"_s, store, u"--what-if"_s, preset });
        ASSERT_EQ(answer.status, 0) << answer.errors.toStdString();
        const QJsonObject json = answer.json();
        EXPECT_EQ(json.value(u"preset"_s), preset);
        KXError error;
        const auto coordinator = Library::open(store, &error);
        ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        EXPECT_EQ(json.value(u"count"_s).toInt(),
            Track::countOfUsingPredicate(Presets::predicate(Presets::find(*context, preset)->filterSet()), *context));
        int differing = 0;
        QStringList queries;
        for (const QJsonValue &facet : json.value(u"facets"_s).toArray()) {
            for (const QJsonValue &value : facet[u"values"_s].toArray()) {
                for (const auto &[count, query] :
                    { std::pair(u"added"_s, u"addedQuery"_s), std::pair(u"excluded"_s, u"excludedQuery"_s) }) {
                    queries.append(value[query].toString());
                    const auto predicate = KXPredicate::predicateWithText(queries.last(), &error);
                    ASSERT_EQ(value[count].toInt(-1), Track::countOfUsingPredicate(predicate, *context))
                        << queries.last().toStdString();
                    differing += value[count] != json.value(u"count"_s);
                }
            }
        }
        EXPECT_GT(queries.size(), 100);
        EXPECT_GT(differing, 50);
        const QString query = queries[queries.size() / 3];
        EXPECT_EQ(browser({ u"--store"_s, store, u"--query"_s, query }).json().value(u"count"_s).toInt(),
            Track::countOfUsingPredicate(KXPredicate::predicateWithText(query), *context));
    }
    for (const QStringList &mistake :
        QList<QStringList> { { u"Nowhere"_s }, { u"Tempo"_s }, { u"Tempo"_s, u"--report"_s } })
        EXPECT_EQ(browser(QStringList { u"--store"_s, store, u"--what-if"_s } + mistake).status, 2);
}

TEST(Browser, searchesWhatItImported)
{
    const QTemporaryDir folder;
    const QString music = folder.filePath(u"music"_s), store = folder.filePath(u"s.db"_s);
    makeMusic(u"%1/a.flac"_s.arg(music).toStdString(),
        { { "TITLE", "Élan Vital" }, { "ARTIST", "Jay-Z" }, { "GENRE", "House" }, { "COMMENT", "8A banger" } });
    makeMusic(u"%1/b.flac"_s.arg(music).toStdString(),
        { { "TITLE", "Antarctica" }, { "ARTIST", "Elan" }, { "ALBUM", "Don't" }, { "GENRE", "House" } });
    const auto groups = [&](const QString &text) {
        const Answer answer = browser({ u"--music"_s, music, u"--store"_s, store, u"--search"_s, text });
        EXPECT_EQ(answer.status, 0) << answer.errors.toStdString();
        EXPECT_EQ(answer.json().value(u"text"_s), text);
        QString found;
        for (const QJsonValue &group : answer.json().value(u"groups"_s).toArray()) {
            if (group[u"count"_s].toInt() == 0)
                continue;
            found += group[u"name"_s].toString() + u':';
            for (const QJsonValue &title : group[u"first"_s].toArray())
                found += u' ' + title.toString();
            found += u';';
        }
        return found;
    };
    EXPECT_EQ(groups(u"ELAN"_s), u"Tracks: Antarctica Élan Vital;Artists: Elan;"_s);
    EXPECT_EQ(groups(u"jay hous 8a"_s), u"Tracks: Élan Vital;"_s);
    EXPECT_EQ(groups(u"dont"_s), u"Tracks: Antarctica;Albums: Don't;"_s);
    EXPECT_EQ(groups(u"tarct"_s), u"Tracks: Antarctica;"_s);
    EXPECT_EQ(groups(u"  "_s), QString());
    EXPECT_FALSE(QFile::exists(store + u"-search-library"_s));
}

TEST(Browser, importsAFolderAndSaysWhatItSkipped)
{
    const QTemporaryDir folder;
    makeMusic(folder.filePath(u"music/a.flac"_s).toStdString(),
        { { "TITLE", "A" }, { "GENRE", "House" }, { "BPM", "fast" } });
    writeBytes(folder.filePath(u"music/b.mp3"_s).toStdString(), "text");
    writeBytes(folder.filePath(u"music/c.txt"_s).toStdString(), "text");
    const Answer answer = browser(
        { u"--music"_s, folder.filePath(u"music"_s), u"--store"_s, folder.filePath(u"s.db"_s), u"--report"_s });
    ASSERT_EQ(answer.status, 0) << answer.errors.toStdString();
    EXPECT_EQ(answer.json().value(u"tracks"_s).toInt(), 1);
    const QJsonObject skipped = answer.json().value(u"skipped"_s).toArray().at(0).toObject();
    EXPECT_EQ(skipped.value(u"file"_s).toString(), u"b.mp3"_s);
    EXPECT_FALSE(skipped.value(u"reason"_s).toString().isEmpty());
    EXPECT_EQ(answer.json().value(u"notes"_s).toArray().at(0).toObject().value(u"file"_s).toString(), u"a.flac"_s);
}

TEST(Browser, wrongInputIsSaidInOneLineAndNothingIsWritten)
{
    const QTemporaryDir folder;
    const auto path = [&](const char *name) { return folder.filePath(QString::fromUtf8(name)); };
    makeMusic(path("music/a.flac").toStdString());
    writeBytes(path("no store.db").toStdString(), std::string(5000, 'x'));
    writeBytes(path("plain").toStdString(), "a file");
    const QString music = path("music"), store = path("fresh.db");
    const auto before = contents(folder.path());

    const QList<QStringList> mistakes {
        { u"--music"_s, path("absent"), u"--store"_s, store, u"--report"_s },
        { u"--music"_s, path("plain"), u"--store"_s, store, u"--report"_s },
        { u"--music="_s, u"--store"_s, store, u"--report"_s },
        { u"--music"_s, music, u"--store"_s, music, u"--report"_s },
        { u"--music"_s, music, u"--store"_s, path("no store.db"), u"--report"_s },
        { u"--music"_s, music, u"--store"_s, path("absent/x.db"), u"--report"_s },
        { u"--music"_s, music, u"--store"_s, path("plain/x.db"), u"--report"_s },
        { u"--music"_s, music, u"--store"_s, u"/proc/x.db"_s, u"--report"_s },
        { u"--music"_s, music, u"--store"_s, store, u"--query"_s, u"bpm >="_s },
        { u"--music"_s, music, u"--store"_s, store, u"--query"_s, QString() },
        { u"--music"_s, music, u"--store"_s, store, u"--query"_s, u"tempo > 3"_s },
        { u"--music"_s, music, u"--store"_s, store, u"--query"_s, u"genres.size > 3"_s },
        { u"--music"_s, music, u"--store"_s, store, u"--query"_s, u"bpm > $LOW"_s },
        { u"--music"_s, music, u"--store"_s, store, u"--screenshot"_s, path("absent/x.png") },
        { u"--music"_s, music, u"--store"_s, store, u"--screenshot"_s, music },
        { u"--store"_s, store, u"--report"_s, u"--query"_s, u"bpm > 1"_s },
        { u"--store"_s, store, u"--report"_s, u"--nonsense"_s },
        { u"--store"_s, store, u"--report"_s, u"surplus"_s },
        { u"--report"_s, u"--store"_s },
        { u"--store"_s, store, u"--report"_s, u"--report-start"_s },
    };
    for (const QStringList &arguments : mistakes) {
        SCOPED_TRACE(arguments.join(u' ').toStdString());
        const Answer answer = browser(arguments);
        EXPECT_EQ(answer.status, 2);
        EXPECT_EQ(answer.output, QByteArray());
        EXPECT_EQ(answer.errors.trimmed().count('\n'), 0) << answer.errors.toStdString();
        EXPECT_FALSE(answer.errors.trimmed().isEmpty());
        ASSERT_TRUE(contents(folder.path()) == before);
    }
}

TEST(Browser, drawsItsWindowIntoAFile)
{
    const QTemporaryDir folder;
    const QString picture = folder.filePath(u"window.png"_s);
    const Answer answer = browser({ u"--store"_s, folder.filePath(u"s.db"_s), u"--screenshot"_s, picture });
    ASSERT_EQ(answer.status, 0) << answer.errors.toStdString();
    const QImage image(picture);
    ASSERT_GT(image.width(), 800);
    std::set<QRgb> colours;
    for (int y = 0; y < image.height(); y += 2) {
        for (int x = 0; x < image.width(); x += 2)
            colours.insert(image.pixel(x, y));
    }
    EXPECT_GT(colours.size(), 200U) << "an empty window";
}

TEST(Browser, tellsWhenItWasDrawnAndWhenItWasCounted)
{
    const QTemporaryDir folder;
    const QString music = folder.filePath(u"music"_s), store = folder.filePath(u"s.db"_s);
    makeMusic((music + u"/0.wav"_s).toStdString(), {}, AudioFormat::Wav);
    ASSERT_EQ(browser({ u"--music"_s, music, u"--store"_s, store, u"--report"_s }).status, 0); // presets are there
    QProcess process;
    startWithFork(process);
    process.setProcessEnvironment(quiet());
    QElapsedTimer clock;
    clock.start();
    process.start(QStringLiteral(KX_BROWSER), { u"--music"_s, music, u"--store"_s, store, u"--report-start"_s });
    QByteArray output;
    while (output.count('\n') < 2 && process.waitForReadyRead(300'000))
        output += process.readAllStandardOutput();
    const auto most = double(clock.elapsed() + 20); // two ticks of the kernel's clock
    process.terminate();
    ASSERT_TRUE(process.waitForFinished(300'000));
    EXPECT_EQ(process.exitCode(), 1); // interrupted
    output += process.readAllStandardOutput();
    const QList<QByteArray> lines = output.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 2) << output.toStdString();
    const QJsonObject shown = QJsonDocument::fromJson(lines[0]).object();
    const QJsonObject counted = QJsonDocument::fromJson(lines[1]).object();
    EXPECT_GT(shown.value(u"shown"_s).toDouble(), 0);
    EXPECT_GE(counted.value(u"counted"_s).toDouble(), shown.value(u"shown"_s).toDouble());
    EXPECT_LE(counted.value(u"counted"_s).toDouble(), most);
    EXPECT_GT(counted.value(u"counts"_s).toInt(), 10) << "those of the presets that a library begins with";
}

TEST(Browser, anInterruptedImportEndsCleanlyAndGoesOnNextTime)
{
    const QTemporaryDir folder;
    const QString music = folder.filePath(u"music"_s);
    constexpr int files = 6000;
    makeMusic((music + u"/0.wav"_s).toStdString(), {}, AudioFormat::Wav);
    for (int i = 1; i < files; ++i)
        std::filesystem::create_hard_link(
            (music + u"/0.wav"_s).toStdString(), (music + u"/%1.wav"_s.arg(i)).toStdString());
    const QStringList arguments { u"--music"_s, music, u"--store"_s, folder.filePath(u"s.db"_s), u"--report"_s };
    QProcess process;
    startWithFork(process);
    process.setProcessEnvironment(quiet());
    process.start(QStringLiteral(KX_BROWSER), arguments);
    // Once the first save made the log grow the import is under way.
    const QString log = folder.filePath(u"s.db-wal"_s);
    while (process.state() != QProcess::NotRunning && QFileInfo(log).size() < 500'000)
        process.waitForFinished(2);
    if (process.state() != QProcess::NotRunning)
        ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished(300'000));
    ASSERT_EQ(process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(process.exitCode(), 1);
    EXPECT_EQ(process.readAllStandardOutput(), QByteArray());
    EXPECT_EQ(process.readAllStandardError(), "browser: interrupted\n");

    const Answer rest = browser(arguments);
    ASSERT_EQ(rest.status, 0) << rest.errors.toStdString();
    EXPECT_EQ(rest.json().value(u"tracks"_s).toInt(), files);
}
