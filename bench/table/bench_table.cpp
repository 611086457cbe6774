// The browser's table over a million tracks: opening it, and drawing it wherever one scrolls to.

#include <ctime>
#include <malloc.h>

#include <QApplication>
#include <QDir>
#include <QHeaderView>
#include <QScrollBar>
#include <QStyleFactory>

#include <BrowserStyle.h>
#include <Library.h>
#include <TrackTableView.h>

#include "BenchProgram.h"
#include "peer/plain_table.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr QSize windowSize(1440, 860);
constexpr int frames = 200;

QString browserStore()
{
    const QString folder = qEnvironmentVariable("KX_BENCH_DATA", u"bench-data"_s);
    QDir().mkpath(folder);
    return folder + u"/browser.db"_s;
}

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
    return KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
}

void prepare()
{
    if (QFile::exists(browserStore()))
        return;
    const QString making = browserStore() + u".making"_s;
    QFile::remove(making);
    {
        const auto context = openBrowserStore(making);
        BenchLibrary::Source source;
        const QDateTime begin(QDate(2020, 1, 1), QTime(12, 0), Qt::UTC);
        for (int i = 0; i < BenchLibrary::Rows; ++i) {
            const PlainTrack plain = source.next();
            const KXRef<Track> track = Track::createInContext(*context);
            track->setLocation(QUrl(u"file:///music/%1.mp3"_s.arg(i)));
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
    return BenchProgram::run(argc, argv, prepare);
}
