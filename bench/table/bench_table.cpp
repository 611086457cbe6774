// The browser's table over a million tracks: opening it, and drawing it wherever one scrolls to.

#include <ctime>
#include <malloc.h>

#include <QApplication>
#include <QDir>
#include <QHeaderView>
#include <QScrollBar>
#include <QStyleFactory>
#include <QTest>

#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/audio/KXWaveformStore_p.h>

#include <support/AudioFiles.h>

#include <library/Library.h>
#include <table/TrackTableView.h>
#include <window/BrowserStyle.h>

#include "BenchProgram.h"
#include "peer/plain_table.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr QSize windowSize(1440, 860);
constexpr int frames = 200;

QString dataFolder()
{
    const QString folder = QDir(qEnvironmentVariable("KX_BENCH_DATA", u"bench-data"_s)).absolutePath();
    QDir().mkpath(folder);
    return folder;
}
QString browserStore() { return dataFolder() + u"/browser-music.db"_s; }
QString wavesPath() { return browserStore() + u".waves"_s; }

/// The files of the rows in turn.
constexpr int musicFiles = 4000;
QUrl musicFile(int row) { return QUrl::fromLocalFile(dataFolder() + u"/music/%1.wav"_s.arg(row % musicFiles)); }

/// CPU time of the process: the drawing is one thread's work, and the machine has other things to do.
double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

KXManagedObjectContext::Ref openBrowserStore(const QString &path)
{
    Library::registerEntities();
    KXError error;
    const auto coordinator = Library::open(path, &error);
    if (!coordinator)
        qFatal("%s", qPrintable(error.localizedDescription()));
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(nullptr); // which the peers have none of
    return context;
}

/// Small files under many names, with their waveforms.
void prepareMusic()
{
    QDir().mkpath(dataFolder() + u"/music"_s);
    const QString first
        = writeSound(makeSound(8000 * 20, 2, 8000), { "0", "wav", "wav", "pcm_s16le" }, dataFolder() + u"/music"_s);
    const auto fingerprint = KXAudioFingerprint::ofFile(musicFile(0));
    auto pyramid = KXWaveformPyramid::read(musicFile(0));
    if (!pyramid || fingerprint.isEmpty())
        qFatal("no waveform");
    pyramid->setFingerprint(fingerprint);
    KXWaveformStore store(wavesPath());
    store.setPyramid(*pyramid);
    for (int i = 0; i < musicFiles; ++i) {
        const QString path = musicFile(i).toLocalFile();
        if (i > 0)
            QFile::copy(first, path);
        store.setFingerprint(path, KXWaveformStore::Stamp::of(path), fingerprint);
    }
}

void prepare()
{
    if (QFile::exists(browserStore()))
        return;
    prepareMusic();
    const QString making = browserStore() + u".making"_s;
    QFile::remove(making);
    {
        const auto context = openBrowserStore(making);
        BenchLibrary::Source source;
        const QDateTime begin(QDate(2020, 1, 1), QTime(12, 0), Qt::UTC);
        for (int i = 0; i < BenchLibrary::Rows; ++i) {
            const PlainTrack plain = source.next();
            const KXRef<Track> track = Track::createInContext(*context);
            track->setLocation(musicFile(i));
            track->setFileSize(1);
            track->setFileModified(1);
            track->setTitle(plain.title);
            track->setArtistText(plain.artist);
            track->setAlbumText(plain.album);
            track->setGenreText(plain.genre);
            track->setLabelText(plain.artist.section(u' ', 0, 0) + u" Records"_s);
            track->setComment(plain.comment);
            track->setBpm(plain.bpm);
            track->setKeyOrder(2 + i % 24);
            track->setYear(int(plain.year));
            track->setRating(int(plain.rating));
            track->setDuration(plain.duration);
            track->setAdded(begin.addSecs(qint64(plain.energy * 86'400 * 2000)));
            if (i % 50'000 == 49'999 && !context->save())
                qFatal("not saved");
        }
    }
    QFile::rename(making, browserStore());
}

/// Until the view was painted for the first time.
void showAndPaint(QAbstractScrollArea &view)
{
    class Painted : public QObject
    {
    public:
        bool eventFilter(QObject *, QEvent *event) override
        {
            isPainted = isPainted || event->type() == QEvent::Paint;
            return false;
        }
        bool isPainted = false;
    } painted;
    view.viewport()->installEventFilter(&painted);
    view.resize(windowSize);
    view.show();
    while (!painted.isPainted)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    view.viewport()->removeEventFilter(&painted);
}

const QStringList headers { u"Title"_s, u"Artist"_s, u"Album"_s, u"Genre"_s, u"BPM"_s, u"Key"_s, u"Rating"_s,
    u"Length"_s, u"Label"_s, u"Year"_s, u"Added"_s, u"Comment"_s };
const QList<int> widths { 220, 170, 162, 130, 62, 92, 98, 76, 108, 58, 106, 136 };

void openOurs(benchmark::State &state)
{
    BrowserStyle::apply(*qApp);
    const auto context = openBrowserStore(browserStore());
    (void)context->countForEntity(u"Genre"_s); // the connection is open, as the peer's is
    for (auto _ : state) {
        malloc_trim(0);
        const double start = cpuSeconds();
        auto model = std::make_unique<TrackTableModel>(context);
        auto view = std::make_unique<TrackTableView>();
        view->setModel(model.get());
        showAndPaint(*view);
        state.SetIterationTime(cpuSeconds() - start);
        if (model->rowCount() != BenchLibrary::Rows || model->index(0, 0).data().toString().isEmpty())
            state.SkipWithError("not all rows");
    }
}

void openPeer(benchmark::State &state)
{
    plain::FirstScreen screen(browserStore());
    for (auto _ : state) {
        malloc_trim(0);
        const double start = cpuSeconds();
        screen.read(windowSize.height() / BrowserStyle::rowHeight);
        plain::ConstantTexts nothing(headers, headers, 0);
        QTableView view;
        view.setModel(&nothing);
        plain::arrange(view, widths, BrowserStyle::rowHeight);
        showAndPaint(view);
        state.SetIterationTime(cpuSeconds() - start);
    }
    if (screen.count != BenchLibrary::Rows || screen.keys.empty())
        state.SkipWithError("not all rows");
}

void drawFrames(benchmark::State &state, QAbstractScrollArea &view)
{
    showAndPaint(view);
    std::mt19937 random(11);
    const auto frame = [&] {
        view.verticalScrollBar()->setValue(int(random() % uint(view.verticalScrollBar()->maximum())));
        view.viewport()->repaint();
    };
    for (int i = 0; i < 10; ++i)
        frame();
    for (auto _ : state) {
        malloc_trim(0);
        const double start = cpuSeconds();
        for (int i = 0; i < frames; ++i)
            frame();
        state.SetIterationTime(cpuSeconds() - start);
    }
}

void frameOurs(benchmark::State &state)
{
    BrowserStyle::apply(*qApp);
    const auto context = openBrowserStore(browserStore());
    TrackTableModel model(context);
    TrackTableView view;
    view.setModel(&model);
    drawFrames(state, view);
}

/// What drawing takes from the thread that draws, while waveforms that come into sight are looked up beside it.
void frameWaves(benchmark::State &state, bool shown)
{
    BrowserStyle::apply(*qApp);
    const auto context = openBrowserStore(browserStore());
    TrackTableModel model(context);
    KXWaveformLibrary waveforms(wavesPath());
    TrackTableView view;
    view.setModel(&model);
    view.setWaveforms(&waveforms);
    view.horizontalHeader()->moveSection(view.horizontalHeader()->visualIndex(TrackTableModel::Waveform), 1);
    view.setColumnHidden(TrackTableModel::Waveform, !shown);
    showAndPaint(view);
    std::mt19937 random(11);
    double time = 0;
    const auto seconds = [] {
        timespec now {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
    };
    for (int i = 0; i < frames; ++i) {
        // A page further each time, from a place that was not seen lately.
        if (i % 20 == 0)
            view.verticalScrollBar()->setValue(int(random() % uint(view.verticalScrollBar()->maximum())));
        const double start = seconds();
        view.verticalScrollBar()->setValue(view.verticalScrollBar()->value() + 3);
        view.viewport()->repaint();
        time += seconds() - start;
        QTest::qWait(15); // as frames come; what was looked up meanwhile is told
    }
    for (auto _ : state)
        state.SetIterationTime(time);
    if (shown && !waveforms.overview(musicFile(0))
        && !QTest::qWaitFor([&] { return waveforms.overview(musicFile(0)); }))
        state.SkipWithError("no waveforms");
}

void framePeer(benchmark::State &state)
{
    plain::ConstantTexts rows(headers,
        { u"Velvet Machine 524288"_s, u"Ocean 10240"_s, u"Amber North 40960"_s, u"Drum & Bass"_s, u"124.0"_s,
            u"11A · F#m"_s, u"★★★★"_s, u"6:31"_s, u"Static Records"_s, u"1998"_s, u"24/06/2022"_s,
            u"Bought in 2011, plays well after Nova"_s },
        BenchLibrary::Rows);
    QTableView view;
    view.setModel(&rows);
    plain::arrange(view, widths, BrowserStyle::rowHeight);
    drawFrames(state, view);
}

}

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    BenchProgram::add("table.open/ours", openOurs);
    BenchProgram::add("table.open/peer", openPeer);
    BenchProgram::add("table.frame/ours", frameOurs);
    BenchProgram::add("table.frame/peer", framePeer);
    BenchProgram::add("table.frame-waves/ours", [](benchmark::State &state) { frameWaves(state, true); });
    BenchProgram::add("table.frame-waves/peer", [](benchmark::State &state) { frameWaves(state, false); });
    return BenchProgram::run(argc, argv, prepare);
}
