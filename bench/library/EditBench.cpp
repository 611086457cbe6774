#include "library/EditBench.h"

#include <chrono>

#include <QTest>

#include <library/BulkEdits.h>
#include <table/TrackTableView.h>

#include "BenchProgram.h"
#include "library/CrateBench.h"
#include "library/LibraryWindow.h"
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
    LibraryWindow library;
    EditRun run;
    auto *const bulk = library.window().findChild<BulkEdits *>();
    bool isDone = false;
    QObject::connect(&bulk->editor(), &KXBatchEditor::finished, [&](const KXBatchOutcome &outcome) {
        run.changed = outcome.changed;
        isDone = true;
    });
    library.window().table()->selectAll();
    QTest::qWait(500); // the summary of what is selected is an affair of its own
    library.watch();
    bulk->edit([] { return TrackFields::Properties { { u"rating"_s, 4 } }; }, u"Rate"_s);
    library.waitUntil(isDone);
    run.seconds = library.seconds();
    run.longestPause = library.longestPause();
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
