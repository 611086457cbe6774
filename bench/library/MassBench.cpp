#include "library/MassBench.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <kestrixkit/foundation/KXUndoManager.h>
#include <library/BulkEdits.h>
#include <table/TrackTableView.h>

#include "BenchProgram.h"
#include "library/LibraryWindow.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int massRemoved = 100'000;
constexpr int massFiles = 20'000;
constexpr int massFilesAFolder = 20; // an album each

struct MassRun
{
    double seconds = 0, longestPause = 0;
    bool isRight = false;
};

/// Removed, or brought back.
template <bool undone> MassRun removeMany()
{
    LibraryWindow library;
    BrowserWindow &window = library.window();
    auto *const bulk = window.findChild<BulkEdits *>();
    const int before = window.model()->rowCount();
    const QModelIndex first = window.model()->index(0, 0), last = window.model()->index(massRemoved - 1, 0);
    window.table()->selectionModel()->select(
        { first, last }, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    bool isDone = false;
    QObject::connect(&bulk->editor(), &KXBatchEditor::finished, [&isDone](const KXBatchOutcome &) { isDone = true; });
    QTest::qWait(500); // the summary of what is selected is an affair of its own
    library.watch();
    bulk->remove();
    library.waitUntil(isDone);
    if (undone) {
        QTest::qWait(500);
        isDone = false;
        library.watch();
        window.context()->undoManager()->undo();
        library.waitUntil(isDone);
    }
    return { library.seconds(), library.longestPause(),
        window.model()->rowCount() == before - (undone ? 0 : massRemoved) };
}

/// Silence of a length of its own, so that no two files are the same.
void writeTone(const QString &path, int number)
{
    QByteArray samples(2 * (400 + number % 100), '\0');
    for (qsizetype i = 0; i + 1 < samples.size(); i += 2)
        qToLittleEndian<qint16>(qint16((i * (number + 17)) % 20'011), samples.data() + i);
    QByteArray header = QByteArray::fromHex("524946460000000057415645666d742010000000010001"
                                            "0044ac000088580100020010006461746100000000");
    qToLittleEndian<quint32>(quint32(samples.size() + 36), header.data() + 4);
    qToLittleEndian<quint32>(quint32(samples.size()), header.data() + 40);
    QFile file(path);
    if (!file.open(QFile::WriteOnly) || file.write(header + samples) < 0)
        std::exit(1);
}

void importOnce(BrowserWindow &window, LibraryWindow &library, const QString &folder)
{
    bool isDone = false;
    const auto connection = QObject::connect(&window, &BrowserWindow::importFinished, [&] { isDone = true; });
    window.importMusic([folder](QString *) { return ImportTask(QFile::encodeName(folder).toStdString()); });
    library.waitUntil(isDone);
    QObject::disconnect(connection);
}

MassRun rescan()
{
    QTemporaryDir folder;
    for (int i = 0; i < massFiles; ++i) {
        const QString album = folder.filePath(u"Album %1"_s.arg(i / massFilesAFolder));
        if (i % massFilesAFolder == 0)
            QDir().mkpath(album);
        writeTone(album + u"/%1.wav"_s.arg(i), i);
    }
    LibraryWindow library;
    BrowserWindow &window = library.window();
    const int before = window.model()->rowCount();
    library.watch();
    importOnce(window, library, folder.path());
    QTest::qWait(2'000);
    std::fprintf(stderr, "first import: %.0f ms, longest pause %.0f ms\n", library.seconds() * 1e3 - 2'000,
        library.longestPause() * 1e3);
    const bool isRight = window.model()->rowCount() == before + massFiles;
    library.watch();
    importOnce(window, library, folder.path());
    return { library.seconds(), library.longestPause(), isRight };
}

template <MassRun run()> void massWhole(benchmark::State &state)
{
    const MassRun done = run();
    if (!done.isRight)
        return state.SkipWithError("wrong tracks");
    std::fprintf(stderr, "longest pause %.0f ms\n", done.longestPause * 1e3);
    BenchProgram::report(state, done.seconds * 1e3);
}

template <MassRun run()> void massPause(benchmark::State &state)
{
    const MassRun done = run();
    if (!done.isRight)
        return state.SkipWithError("wrong tracks");
    BenchProgram::report(state, done.longestPause * 1e3);
}

}

void MassBench::add()
{
    BenchProgram::add("library.remove-many/ours", massWhole<removeMany<false>>);
    BenchProgram::add("library.remove-many-pause/ours", massPause<removeMany<false>>);
    BenchProgram::add("library.remove-many-undo/ours", massWhole<removeMany<true>>);
    BenchProgram::add("library.remove-many-undo-pause/ours", massPause<removeMany<true>>);
    BenchProgram::add("library.rescan/ours", massWhole<rescan>);
    BenchProgram::add("library.rescan-pause/ours", massPause<rescan>);
}
