// How long the browser's window does not answer while a library of 300,000 tracks is counted by 500 presets, 10,000
// tracks come from another thread, a waveform is drawn and 50,000 results are grouped: one after the other, in the real
// window, with a pulse on the main thread. Started by hand it says of each what it took.

#include <cstdio>
#include <thread>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QStandardPaths>
#include <QTimer>

#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/audio/views/KXAudioPlayerWaveformView.h>
#include <kestrixkit/counts/KXLiveCounts.h>

#include <places/SourceColumn.h>
#include <player/PlayerStrip.h>
#include <search/SearchPopover.h>
#include <support/AudioFiles.h>
#include <window/BrowserStyle.h>
#include <window/BrowserWindow.h>

#include "BenchProgram.h"
#include "peer/hand_rules.h"
#include "start/StartLibrary.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int mergedTracks = 10'000;
constexpr int groupedResults = 50'000;
constexpr int groups = 5;
constexpr qint64 longGap = 8'000'000; // ns
constexpr int afterwards = 300; // ms: what a step leaves for later turns belongs to it
constexpr int mostPatience = 120'000; // ms

QString stallSound() { return StartLibrary::folder() + u"/stall.wav"_s; }

/// How long the main thread's loop does not come round.
class Pulse
{
public:
    Pulse()
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.callOnTimeout([this] { beat(); });
        m_clock.start();
        m_timer.start(1);
    }
    /// Lets the loop run until this holds, and a little longer. False where it never does.
    bool until(const char *what, const std::function<bool()> &holds)
    {
        const qint64 longestBefore = std::exchange(m_longest, 0);
        QEventLoop loop;
        QTimer patience, rest;
        bool held = false;
        patience.setSingleShot(true);
        rest.setSingleShot(true);
        QObject::connect(&patience, &QTimer::timeout, &loop, &QEventLoop::quit);
        QObject::connect(&rest, &QTimer::timeout, &loop, &QEventLoop::quit);
        m_onBeat = [&] {
            if (!held && (held = holds()))
                rest.start(afterwards);
        };
        patience.start(mostPatience);
        loop.exec();
        m_onBeat = nullptr;
        std::fprintf(stderr, "%s: at most %.1f ms\n", what, double(m_longest) * 1e-6);
        m_longest = std::max(m_longest, longestBefore);
        return held;
    }
    [[nodiscard]] double longest() const { return double(m_longest) * 1e-6; }
    /// Of all beats, how many of a thousand came late.
    [[nodiscard]] double latePerMille() const { return 1000.0 * double(m_late) / double(m_beats); }

private:
    void beat()
    {
        const qint64 gap = m_clock.nsecsElapsed();
        m_clock.start();
        m_longest = std::max(m_longest, gap);
        m_late += gap > longGap;
        ++m_beats;
        if (m_onBeat)
            m_onBeat();
    }

    QTimer m_timer;
    QElapsedTimer m_clock;
    std::function<void()> m_onBeat;
    qint64 m_longest = 0, m_late = 0, m_beats = 0;
};

bool count(Pulse &pulse, BrowserWindow &window)
{
    KXLiveCounts *counts = nullptr;
    QObject::connect(window.sources(), &SourceColumn::countingDidBegin, &window,
        [&counts](KXLiveCounts &begun) { counts = &begun; });
    return pulse.until("counting", [&] {
        if (!counts || counts->identifiers().size() < hand::Rules)
            return false;
        const QStringList all = counts->identifiers();
        return std::all_of(
            all.begin(), all.end(), [&](const QString &each) { return counts->count(each).has_value(); });
    });
}

bool merge(Pulse &pulse, BrowserWindow &window)
{
    const int before = window.model()->rowCount();
    std::thread other([coordinator = window.context()->persistentStoreCoordinator()] {
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        context->setUndoManager(nullptr);
        BenchLibrary::Source source(77);
        for (int i = 0; i < mergedTracks; ++i) {
            const PlainTrack plain = source.next();
            const KXRef<Track> track = Track::createInContext(*context);
            track->setLocation(QUrl(u"file:///new/%1.flac"_s.arg(i)));
            track->setFileSize(i);
            track->setFileModified(i);
            track->setTitle(plain.title);
            track->setArtistText(plain.artist);
            track->setBpm(plain.bpm);
            track->setYear(int(plain.year));
            track->setAdded(QDateTime(QDate(2027, 1, 1), QTime(), Qt::UTC).addSecs(i));
        }
        if (!context->save())
            qFatal("not saved");
    });
    const bool came = pulse.until("merging", [&] { return window.model()->rowCount() == before + mergedTracks; });
    other.join();
    return came;
}

/// Made, and drawn in the strip of what is played.
bool drawWaveform(Pulse &pulse, BrowserWindow &window)
{
    auto *const waveforms = window.findChild<KXWaveformLibrary *>();
    KXAudioPlayerWaveformView *const view = window.strip()->waveform();
    const QUrl file = QUrl::fromLocalFile(stallSound());
    window.strip()->show();
    std::shared_ptr<const KXWaveformPyramid> pyramid = waveforms->pyramid(file);
    if (pyramid)
        return false; // it is to be made now
    return pulse.until("drawing a waveform", [&] {
        if (!pyramid && (pyramid = waveforms->pyramid(file)))
            view->setPyramid(pyramid);
        return pyramid != nullptr;
    });
}

bool group(Pulse &pulse, BrowserWindow &window)
{
    window.search()->show();
    if (!pulse.until("opening the search", [&] { return window.search()->popover()->isShown(); }))
        return false;
    KXSearchViewController &results = *window.search()->controller();
    QVariantList found;
    for (int row = 0; row < groupedResults; ++row)
        found.append(QVariant::fromValue(window.model()->list().objectID(row)));
    if (!pulse.until("finding", [] { return true; }))
        return false;
    bool isDone = false;
    QTimer::singleShot(0, &window, [&] {
        QList<KXSearchResultsGrouping::Ref> all;
        for (int i = 0; i < groups; ++i) {
            all.append(std::make_shared<KXSearchResultsGrouping>());
            all.last()->name = u"Group %1"_s.arg(i);
        }
        for (int row = 0; row < groupedResults; ++row)
            all[row % groups]->items.append(found[row]);
        results.setAllResults(all);
        results.processResults(all);
        results.showAllResultsForGrouping(all.first());
        isDone = true;
    });
    return pulse.until("grouping",
        [&] { return isDone && results.resultsContent()->arrangedObjects().size() >= groupedResults / groups; });
}

void stall(benchmark::State &state, bool isShare)
{
    QStandardPaths::setTestModeEnabled(true);
    Library::registerEntities();
    KXError error;
    const auto coordinator = Library::open(BenchLibrary::scratchCopy(StartLibrary::path()), &error);
    if (!coordinator)
        return state.SkipWithError(error.localizedDescription().toUtf8().constData());
    BrowserStyle::apply(*qApp);
    BrowserWindow window(coordinator);
    window.show();
    QCoreApplication::processEvents(); // the first picture, which is the start's business
    Pulse pulse;
    if (!count(pulse, window) || !merge(pulse, window) || !drawWaveform(pulse, window) || !group(pulse, window))
        return state.SkipWithError("not everything came");
    window.search()->close();
    BenchProgram::report(state, isShare ? pulse.latePerMille() : pulse.longest());
}

void prepareStall()
{
    StartLibrary::prepare();
    if (!QFile::exists(stallSound()))
        writeSound(makeSound(size_t(44'100) * 180), { "stall", "wav", "wav", "pcm_s16le" }, StartLibrary::folder());
}

}

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    BenchProgram::add("window.stall/ours", [](benchmark::State &state) { stall(state, false); });
    BenchProgram::add("window.stall-share/ours", [](benchmark::State &state) { stall(state, true); });
    return BenchProgram::run(argc, argv, prepareStall);
}
