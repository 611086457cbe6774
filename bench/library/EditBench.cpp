#include "library/EditBench.h"

#include <chrono>

#include <QApplication>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>

#include <library/BulkEdits.h>
#include <places/SourceColumn.h>
#include <table/TrackTableView.h>
#include <window/BrowserWindow.h>

#include "BenchProgram.h"
#include "library/CrateBench.h"
#include "peer/plain_crates.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int editedTracks = 300'000;

double editSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// What the window sees of the edit.
struct EditRun
{
    double seconds = 0, longestPause = 0;
    qint64 changed = 0;
};

EditRun editAll()
{
    QStandardPaths::setTestModeEnabled(true);
    Library::registerEntities();
    KXError error;
    const auto coordinator = Library::open(BenchLibrary::scratchCopy(CrateBench::path()), &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    BrowserWindow window(coordinator);
    window.show();
    window.sources()->musicDidChange(); // all counts are there, and followed
    QTest::qWait(1'000);
    EditRun run;
    double last = editSeconds();
    QTimer pulse;
    QObject::connect(&pulse, &QTimer::timeout, [&] {
        const double now = editSeconds();
        run.longestPause = std::max(run.longestPause, now - last);
        last = now;
    });
    auto *const bulk = window.findChild<BulkEdits *>();
    bool isDone = false;
    QObject::connect(&bulk->editor(), &KXBatchEditor::finished, [&](const KXBatchOutcome &outcome) {
        run.changed = outcome.changed;
        isDone = true;
    });
    window.table()->selectAll();
    QTest::qWait(500); // the summary of what is selected is an affair of its own
    pulse.start(1);
    const double start = last = editSeconds();
    bulk->edit([] { return TrackFields::Properties { { u"rating"_s, 4 } }; }, u"Rate"_s);
    while (!isDone)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    run.seconds = editSeconds() - start;
    return run;
}

void editOurs(benchmark::State &state)
{
    const EditRun run = editAll();
    if (run.changed != editedTracks)
        return state.SkipWithError("wrong edit");
    BenchProgram::report(state, run.seconds * 1e3);
}

void editPause(benchmark::State &state)
{
    const EditRun run = editAll();
    if (run.changed != editedTracks)
        return state.SkipWithError("wrong edit");
    BenchProgram::report(state, run.longestPause * 1e3);
}

void editPeer(benchmark::State &state)
{
    plain::Crates tracks(BenchLibrary::scratchCopy(CrateBench::path()));
    const double start = editSeconds();
    const qint64 changed = tracks.rateAll(4);
    const double seconds = editSeconds() - start;
    if (changed != editedTracks)
        return state.SkipWithError("wrong edit");
    BenchProgram::report(state, seconds * 1e3);
}

}

void EditBench::add()
{
    BenchProgram::add("library.edit-all/ours", editOurs);
    BenchProgram::add("library.edit-all/peer", editPeer);
    BenchProgram::add("library.edit-all-pause/ours", editPause);
}
