// The example host: brings a folder of music into a library and shows it, or answers questions about it as JSON.

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSocketNotifier>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXFileManager.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include "Analytics.h"
#include "BrowserStyle.h"
#include "BrowserWindow.h"
#include "DemoMusic.h"
#include "FileCommands.h"
#include "PlaceNavigator.h"
#include "Presets.h"
#include "Report.h"
#include "SearchCommand.h"
#include "Settings.h"
#include "TrackTableView.h"
#include "WhatIfCommand.h"
#include "shop/ShopPane.h"
#include "shop/ShopPlace.h"
#include "shop/ShopTableModel.h"

using namespace Qt::StringLiterals;

namespace {

enum ExitStatus { Done = 0, Failed = 1, WrongInput = 2 };

/// Ends the program with one line on standard error.
struct Ending
{
    ExitStatus status;
    QString line;
};

struct Arguments
{
    std::string music; ///< empty: none was named
    QString store;
    QString screenshot;
    std::optional<KXCatalogueServers> catalogue; ///< of the shop
    KXPredicate query;
    bool hasQuery = false;
    bool report = false;
    std::optional<QString> search;
    QString explainedPreset;
    std::string explainedFile; ///< empty: nothing is to be explained
    QString whatIfPreset;
    bool whatIf = false;
    [[nodiscard]] bool needsWindow() const
    {
        return !report && !hasQuery && !whatIf && !search && explainedFile.empty();
    }
};

std::atomic<bool> interrupted = false;
int interruptPipe[2] = { -1, -1 };

extern "C" void interrupt(int)
{
    interrupted = true;
    [[maybe_unused]] const auto written = write(interruptPipe[1], "", 1);
}

// The first interrupt asks for an orderly end; a second one ends the program at once.
void catchInterrupts()
{
    if (pipe2(interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    struct sigaction action = {};
    action.sa_handler = interrupt;
    action.sa_flags = int(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool wasGiven(int argc, char **argv, const char *option)
{
    for (int i = 1; i < argc; ++i) {
        const size_t length = std::strlen(option);
        if (std::strncmp(argv[i], option, length) == 0 && (argv[i][length] == '\0' || argv[i][length] == '='))
            return true;
    }
    return false;
}

bool hasDisplay()
{
    for (const char *name : { "QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY" }) {
        if (!qEnvironmentVariableIsEmpty(name))
            return true;
    }
    return false;
}

// The bytes of an option's value: a folder's name need not be text.
std::string rawValue(int argc, char **argv, const std::string &option)
{
    std::string value;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == option && i + 1 < argc)
            value = argv[++i];
        else if (argument.compare(0, option.size() + 1, option + '=') == 0)
            value = argument.substr(option.size() + 1);
    }
    return value;
}

// The bytes of an argument that stands by itself.
std::string rawArgument(int argc, char **argv, const QString &argument)
{
    int at = argc - 1;
    while (at > 0 && QString::fromLocal8Bit(argv[at]) != argument)
        --at;
    return argv[at];
}

void checkMusicFolder(const std::string &music)
{
    const QString shown = displayPath(music);
    std::error_code error;
    const auto status = std::filesystem::status(music, error);
    if (!std::filesystem::exists(status))
        throw Ending { WrongInput, u"%1: no such folder"_s.arg(shown) };
    if (!std::filesystem::is_directory(status))
        throw Ending { WrongInput, u"%1: not a folder"_s.arg(shown) };
    if (access(music.c_str(), R_OK | X_OK) != 0)
        throw Ending { WrongInput, u"%1: cannot be read"_s.arg(shown) };
}

void checkWritableFile(const QString &file)
{
    const QFileInfo info(file);
    const QFileInfo folder(info.absolutePath());
    if (info.isDir())
        throw Ending { WrongInput, u"%1: is a folder"_s.arg(file) };
    if (!folder.isDir())
        throw Ending { WrongInput, u"%1: no such folder"_s.arg(folder.filePath()) };
    if (info.exists() ? !info.isWritable() : !folder.isWritable())
        throw Ending { WrongInput, u"%1: cannot be written"_s.arg(file) };
}

Arguments readArguments(int argc, char **argv)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Brings a folder of music into a library and shows it.\n"
                                     "Without a folder, a few synthesised loops are made and used."_s);
    const QCommandLineOption music(u"music"_s, u"The folder of music to import."_s, u"DIR"_s);
    const QCommandLineOption store(
        u"store"_s, u"The library's file; without it, library.db in the application's support folder."_s, u"FILE"_s);
    const QCommandLineOption report(
        u"report"_s, u"No window: import, print tracks, skipped files, genres and presets as JSON."_s);
    const QCommandLineOption explain(u"explain"_s,
        u"No window: import, print why the track of a file (the argument that follows) is in a preset or not, as JSON. For instance: Tempo/124 to 128"_s,
        u"PRESET"_s);
    const QCommandLineOption query(u"query"_s,
        u"No window: import, print the number of tracks that match as JSON. For instance: bpm >= 120 AND ANY genres.name == \"House\""_s,
        u"FORMAT"_s);
    const QCommandLineOption whatIf(u"what-if"_s,
        u"No window: import, print how many tracks a preset would have with each value added, and with it excluded, as JSON. For instance: Tempo/124 to 128"_s,
        u"PRESET"_s);
    const QCommandLineOption search(u"search"_s,
        u"No window: import, print what a search for the text finds, with counts by group, as JSON."_s, u"TEXT"_s);
    const QCommandLineOption screenshot(
        u"screenshot"_s, u"Import, draw the window into a PNG file and exit."_s, u"FILE"_s);
    const QCommandLineOption catalogue(u"catalogue"_s,
        u"A shop's catalogue in PostgreSQL, a place beside those of the library, which is opened. For instance: postgresql://shop.example/music"_s,
        u"URL"_s);
    parser.addOptions({ music, store, report, query, explain, whatIf, search, screenshot, catalogue });
    parser.addPositionalArgument(u"FILE"_s, u"With --explain: a music file of the library."_s, u"[FILE]"_s);
    parser.addHelpOption();
    if (!parser.parse(QCoreApplication::arguments()))
        throw Ending { WrongInput, parser.errorText() };
    if (parser.isSet(u"help"_s)) {
        std::fputs(qPrintable(parser.helpText()), stdout);
        throw Ending { Done, {} };
    }
    const QStringList files = parser.positionalArguments();
    if (parser.isSet(explain) && files.isEmpty())
        throw Ending { WrongInput, u"--explain: a preset and a file are needed"_s };
    if (files.size() > parser.isSet(explain))
        throw Ending { WrongInput, u"unexpected argument: %1"_s.arg(files.constLast()) };
    if (parser.isSet(report) + parser.isSet(query) + parser.isSet(explain) + parser.isSet(whatIf) + parser.isSet(search)
            + parser.isSet(screenshot)
        > 1)
        throw Ending { WrongInput,
            u"--report, --query, --explain, --what-if, --search and --screenshot exclude each other"_s };

    Arguments arguments;
    arguments.report = parser.isSet(report);
    arguments.whatIf = parser.isSet(whatIf);
    arguments.whatIfPreset = parser.value(whatIf);
    if (parser.isSet(search))
        arguments.search = parser.value(search);
    if (parser.isSet(explain)) {
        std::error_code error;
        const std::string named = rawArgument(argc, argv, files.constFirst());
        arguments.explainedPreset = parser.value(explain);
        arguments.explainedFile = std::filesystem::canonical(named, error).native();
        if (error) // gone, but its track may still be known
            arguments.explainedFile = std::filesystem::absolute(named).lexically_normal().native();
    }
    if (parser.isSet(music)) {
        arguments.music = rawValue(argc, argv, "--music");
        checkMusicFolder(arguments.music);
    }
    if (parser.isSet(query)) {
        KXError error;
        arguments.hasQuery = true;
        arguments.query = KXPredicate::predicateWithText(parser.value(query), &error);
        if (error || !arguments.query)
            throw Ending { WrongInput,
                u"--query: %1"_s.arg(error ? error.localizedDescription() : u"empty predicate"_s) };
        try {
            arguments.query = arguments.query.predicateWithSubstitutionVariables({});
        } catch (const KXException &exception) {
            throw Ending { WrongInput, u"--query: %1"_s.arg(exception.reason()) };
        }
        if (const QString unknown = Report::unknownName(arguments.query); !unknown.isEmpty())
            throw Ending { WrongInput, u"--query: tracks have no “%1”"_s.arg(unknown) };
    }
    if (parser.isSet(catalogue)) {
        KXError error;
        arguments.catalogue = KXCatalogueServers::fromText(parser.value(catalogue), &error);
        if (!arguments.catalogue)
            throw Ending { WrongInput, u"--catalogue: %1"_s.arg(error.localizedDescription()) };
    }
    if (parser.isSet(screenshot)) {
        arguments.screenshot = parser.value(screenshot);
        checkWritableFile(arguments.screenshot);
    }
    if (parser.isSet(store)) {
        arguments.store = QDir::cleanPath(QFileInfo(parser.value(store)).absoluteFilePath());
        checkWritableFile(arguments.store);
    }
    return arguments;
}

KXPersistentStoreCoordinator::Ref openLibrary(const QString &file)
{
    // What is wrong is said once, below, and not by the framework's log as well.
    const int level = KXKestrixKitLogLevel.exchange(0);
    KXError error;
    const auto coordinator = Library::open(file, &error);
    KXKestrixKitLogLevel = level;
    if (!coordinator) {
        const QString reason = error.localizedDescription();
        throw Ending { WrongInput, reason.contains(file) ? reason : u"%1: %2"_s.arg(file, reason) };
    }
    return coordinator;
}

// The folder to import: the one that was named; else the demo music, unless the library already holds other music.
std::string musicFolder(
    const Arguments &arguments, const KXPersistentStoreCoordinator::Ref &coordinator, QString *error)
{
    if (!arguments.music.empty())
        return arguments.music;
    const QString caches = KXFileManager::cachesFolderPath();
    const QString tracks(Track::entityName);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const QString below = QString::fromLatin1(urlOfPath(QFile::encodeName(caches).toStdString()).toEncoded());
    const auto inCaches = KXPredicate::predicateWithFormat("location BEGINSWITH %@", below);
    if (context->countForEntity(tracks) > 0 && context->countForEntity(tracks, inCaches) == 0)
        return {};
    return DemoMusic::make(caches, error);
}

ImportResult importNow(const KXPersistentStoreCoordinator::Ref &coordinator, const std::string &folder)
{
    ImportResult result;
    if (!folder.empty()) {
        KXOperationQueue queue;
        queue.addBlock([&] {
            const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            result = Importer(context, folder).run([] { return interrupted.load(); });
        });
        queue.waitUntilAllOperationsAreFinished();
    }
    if (result.error)
        throw Ending { Failed, u"import failed: %1"_s.arg(result.error.localizedDescription()) };
    if (result.cancelled)
        throw Ending { Failed, u"interrupted"_s };
    return result;
}

QJsonObject explanation(KXManagedObjectContext &context, const Arguments &arguments)
{
    const KXRef<KXFilterSetPreset> preset = Presets::find(context, arguments.explainedPreset);
    if (!preset)
        throw Ending { WrongInput, u"--explain: there is no preset “%1”"_s.arg(arguments.explainedPreset) };
    const auto ofFile = KXPredicate::predicateWithFormat("location == %@", urlOfPath(arguments.explainedFile));
    const KXRef<Track> track = Track::findFirstUsingPredicate(ofFile, context);
    if (!track)
        throw Ending { WrongInput, u"%1: no track of the library"_s.arg(displayPath(arguments.explainedFile)) };
    return Presets::explain(*preset, *track);
}

QJsonObject whatIf(KXManagedObjectContext &context, const Arguments &arguments, KXError *error)
{
    const KXRef<KXFilterSetPreset> preset = Presets::find(context, arguments.whatIfPreset);
    if (!preset)
        throw Ending { WrongInput, u"--what-if: there is no preset “%1”"_s.arg(arguments.whatIfPreset) };
    if (const KXRef<KXFilterSet> set = preset->filterSet(); !set || set->isMissing())
        throw Ending { WrongInput, u"--what-if: the preset “%1” has lost its filters"_s.arg(arguments.whatIfPreset) };
    return WhatIfCommand::answer(*preset, error);
}

void printAnswer(const Arguments &arguments, const KXPersistentStoreCoordinator::Ref &coordinator)
{
    QString problem;
    const std::string folder = musicFolder(arguments, coordinator, &problem);
    if (!problem.isEmpty())
        throw Ending { Failed, problem };
    const ImportResult result = importNow(coordinator, folder);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    KXError error;
    if (!arguments.hasQuery && !Presets::install(*context, &error))
        throw Ending { Failed, error.localizedDescription() };
    const QJsonObject answer = arguments.report ? Report::ofLibrary(*context, result, folder, arguments.store)
        : arguments.hasQuery                    ? Report::ofQuery(*context, arguments.query, &error)
        : arguments.whatIf                      ? whatIf(*context, arguments, &error)
        : arguments.search                      ? SearchCommand::answer(context, *arguments.search, &error)
                                                : explanation(*context, arguments);
    if (error)
        throw Ending { error.code() == KXStoreErrorCode::NotComparable ? WrongInput : Failed,
            error.localizedDescription() };
    const QByteArray json
        = QJsonDocument(answer).toJson(arguments.report ? QJsonDocument::Indented : QJsonDocument::Compact).trimmed()
        + '\n';
    if (std::fwrite(json.constData(), 1, size_t(json.size()), stdout) != size_t(json.size())
        || std::fflush(stdout) != 0)
        throw Ending { Failed, u"standard output cannot be written"_s };
}

/// Opens the shop once the window shows where the last session ended.
void openShop(BrowserWindow &window, const KXCatalogueServers &servers)
{
    window.shop()->setServers(servers);
    QObject::connect(window.places(), &PlaceNavigator::placeDidChange, window.shop(), &ShopPlace::visit,
        Qt::ConnectionType(Qt::QueuedConnection | Qt::SingleShotConnection));
}

void runWindow(QApplication &application, Arguments arguments, const KXPersistentStoreCoordinator::Ref &coordinator)
{
    BrowserStyle::apply(application);
    BrowserWindow window(coordinator);
    QSocketNotifier notifier(interruptPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &application, [] { QCoreApplication::exit(Failed); });
    QString problem;
    std::vector<std::string> more; // that are looked through after the first
    if (arguments.music.empty()) {
        more = Settings::musicFolders();
        if (!more.empty()) {
            arguments.music = more.front();
            more.erase(more.begin());
        }
    }
    const auto draw = [&] {
        if (problem.isEmpty() && !window.grab().save(arguments.screenshot, "PNG"))
            problem = u"%1: cannot be written"_s.arg(arguments.screenshot);
        QCoreApplication::exit(problem.isEmpty() ? Done : Failed);
    };
    if (arguments.catalogue)
        openShop(window, *arguments.catalogue);
    if (!arguments.screenshot.isEmpty() && arguments.catalogue) {
        QObject::connect(window.shop(), &ShopPlace::opened, window.shop(), [&] {
            // Whichever comes last, the count or the page.
            const ShopPane *const pane = window.shop()->pane();
            const auto drawOnce = [pane, draw] {
                const bool isCounted = !pane->countText().isEmpty() && !pane->countText().startsWith(u"≈"_s);
                if (!pane->model()->isLoading() && (isCounted || !pane->problem().isEmpty()))
                    draw();
            };
            QObject::connect(pane, &ShopPane::answered, window.shop(), drawOnce, Qt::QueuedConnection);
            QObject::connect(pane->model(), &ShopTableModel::pageCame, window.shop(), drawOnce, Qt::QueuedConnection);
        });
    } else if (!arguments.screenshot.isEmpty()) {
        QObject::connect(
            &window, &BrowserWindow::importFinished, &window,
            [&](const QString &error) {
                problem = error;
                window.table()->doItemsLayout(); // which it would do later this turn
                draw();
            },
            Qt::QueuedConnection);
    }
    window.show();
    Analytics::start();
    Analytics::windowWasOpened();
    window.importMusic([arguments, coordinator](QString *error) { return musicFolder(arguments, coordinator, error); });
    window.files()->import(more);
    if (QApplication::exec() != Done)
        throw Ending { Failed, interrupted ? u"interrupted"_s : problem };
}

void run(int argc, char **argv, QCoreApplication &application)
{
    Arguments arguments = readArguments(argc, argv);
    if (arguments.store.isEmpty()) {
        const QString folder = KXFileManager::applicationSupportFolderPath();
        if (folder.isEmpty())
            throw Ending { WrongInput, u"the application's support folder cannot be made"_s };
        arguments.store = QDir(folder).filePath(u"library.db"_s);
    }
    Library::registerEntities();
    const auto coordinator = openLibrary(arguments.store);
    catchInterrupts();
    if (arguments.needsWindow())
        runWindow(static_cast<QApplication &>(application), arguments, coordinator);
    else
        printAnswer(arguments, coordinator);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication::setOrganizationDomain(u"kestrix.com"_s);
    QCoreApplication::setApplicationName(u"browser"_s);
    // Questions are answered on machines without a display too.
    const bool windowless = wasGiven(argc, argv, "--report") || wasGiven(argc, argv, "--query")
        || wasGiven(argc, argv, "--explain") || wasGiven(argc, argv, "--what-if") || wasGiven(argc, argv, "--search")
        || wasGiven(argc, argv, "--help");
    if (!windowless && !hasDisplay()) {
        if (!wasGiven(argc, argv, "--screenshot")) {
            std::fputs(
                "browser: there is no display for the window; --screenshot, --report, --query and --search need none\n",
                stderr);
            return WrongInput;
        }
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    const std::unique_ptr<QCoreApplication> application(
        windowless ? new QCoreApplication(argc, argv) : new QApplication(argc, argv));
    try {
        run(argc, argv, *application);
    } catch (const Ending &ending) {
        if (!ending.line.isEmpty())
            std::fprintf(stderr, "browser: %s\n", ending.line.simplified().toUtf8().constData());
        return ending.status;
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "browser: %s\n", exception.what());
        return Failed;
    }
    return Done;
}
