// The example host: brings a folder of music into a library and shows it, or answers questions about it as JSON.

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>

#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QDir>
#include <QJsonDocument>
#include <QSocketNotifier>
#include <QStatusBar>
#include <QTimer>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXFileManager.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include "command_line/CommandLine.h"
#include "command_line/Report.h"
#include "command_line/SearchCommand.h"
#include "command_line/WhatIfCommand.h"
#include "demo/DemoMusic.h"
#include "filters/Presets.h"
#include "import/FileCommands.h"
#include "places/PlaceNavigator.h"
#include "places/SourceColumn.h"
#include "shop/ShopPane.h"
#include "shop/ShopPlace.h"
#include "shop/ShopTableModel.h"
#include "table/TrackTableView.h"
#include "window/Analytics.h"
#include "window/BrowserLanguage.h"
#include "window/BrowserStyle.h"
#include "window/BrowserWindow.h"
#include "window/FirstPicture.h"
#include "window/Settings.h"
#include "window/StartReport.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

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

bool hasDisplay()
{
    for (const char *name : { "QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY" }) {
        if (!qEnvironmentVariableIsEmpty(name))
            return true;
    }
    return false;
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
    const CommandLine &arguments, const KXPersistentStoreCoordinator::Ref &coordinator, QString *error)
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

QJsonObject explanation(KXManagedObjectContext &context, const CommandLine &arguments)
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

QJsonObject whatIf(KXManagedObjectContext &context, const CommandLine &arguments, KXError *error)
{
    const KXRef<KXFilterSetPreset> preset = Presets::find(context, arguments.whatIfPreset);
    if (!preset)
        throw Ending { WrongInput, u"--what-if: there is no preset “%1”"_s.arg(arguments.whatIfPreset) };
    if (const KXRef<KXFilterSet> set = preset->filterSet(); !set || set->isMissing())
        throw Ending { WrongInput, u"--what-if: the preset “%1” has lost its filters"_s.arg(arguments.whatIfPreset) };
    return WhatIfCommand::answer(*preset, error);
}

void printAnswer(const CommandLine &arguments, const KXPersistentStoreCoordinator::Ref &coordinator)
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

void runWindow(QApplication &application, CommandLine arguments, const KXPersistentStoreCoordinator::Ref &coordinator)
{
    BrowserLanguage::install();
    BrowserStyle::apply(application);
    BrowserWindow window(coordinator);
    std::optional<StartReport> startReport;
    if (arguments.reportsStart)
        startReport.emplace(window);
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
                window.sources()->finishCounting();
                window.table()->doItemsLayout(); // which it would do later this turn
                draw();
            },
            Qt::QueuedConnection);
    }
    window.show();
    Analytics::start();
    Analytics::windowWasOpened();
    // What an import ends with counts everything; the tracks are to be seen before that.
    FirstPicture::then(window.statusBar(), [&window, arguments, coordinator, more] {
        window.importMusic(
            [arguments, coordinator](QString *error) { return musicFolder(arguments, coordinator, error); });
        window.files()->import(more);
        QTimer::singleShot(2s, &window, &KXAudioFile::prepare); // before somebody plays something
    });
    if (QApplication::exec() != Done)
        throw Ending { Failed, interrupted ? u"interrupted"_s : problem };
}

void run(int argc, char **argv, QCoreApplication &application)
{
    CommandLine arguments = CommandLine::read(argc, argv);
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
    const bool windowless = CommandLine::wasGiven(argc, argv, "--report")
        || CommandLine::wasGiven(argc, argv, "--query") || CommandLine::wasGiven(argc, argv, "--explain")
        || CommandLine::wasGiven(argc, argv, "--what-if") || CommandLine::wasGiven(argc, argv, "--search")
        || CommandLine::wasGiven(argc, argv, "--help");
    if (!windowless && !hasDisplay()) {
        if (!CommandLine::wasGiven(argc, argv, "--screenshot")) {
            std::fputs(
                "browser: there is no display for the window; --screenshot, --report, --query and --search need none\n",
                stderr);
            return WrongInput;
        }
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    if (windowless) {
        // Programs read the answers: they are the same in every language.
        qputenv("LC_ALL", "C.UTF-8");
        qunsetenv("LANGUAGE");
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
