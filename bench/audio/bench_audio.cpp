// The audio engine beside the plain ways to the same results. CPU time where one thread works, wall time where several
// do.

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <thread>

#include <malloc.h>
#include <pthread.h>

#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>
#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>
#include <kestrixkit/audio/KXPlaybackSession_p.h>
#include <kestrixkit/audio/KXWaveformGenerator.h>
#include <kestrixkit/audio/KXWaveformPyramid.h>
#include <kestrixkit/audio/views/KXAudioPlayerWaveformView.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include <support/AudioFiles.h>

#include "BenchProgram.h"
#include "peer/plain_audio.h"
#include "peer/plain_rings.h"

using namespace Qt::StringLiterals;
using namespace std::string_literals;

namespace {

constexpr quint32 chunkFrames = 4096;
constexpr QSize pictureSize(1800, 200);

double seconds(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}
double cpuSeconds() { return seconds(CLOCK_THREAD_CPUTIME_ID); }
double wallSeconds() { return seconds(CLOCK_MONOTONIC); }

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + qsizetype(values.size() / 2), values.end());
    return values[values.size() / 2];
}

/// Of what takes so short that a slice of the processor given to another program would be most of it.
double fastest(const std::vector<double> &values) { return *std::min_element(values.begin(), values.end()); }

// Ten minutes of stereo in each format, and what a stem picture is drawn of

QString folder()
{
    const QString path = qEnvironmentVariable("KX_BENCH_DATA", QDir::tempPath()) + u"/audio"_s;
    QDir().mkpath(path);
    return path;
}
QString track(const char *format) { return folder() + u"/track."_s + QLatin1StringView(format); }
QUrl trackUrl(const char *format) { return QUrl::fromLocalFile(track(format)); }
QString longPath() { return folder() + u"/long.wav"_s; } // ten hours
QString manyPath() { return folder() + u"/many.wav"_s; } // 32 channels
QString columnsPath() { return folder() + u"/columns.wav"_s; }

void prepare()
{
    const AudioRecipe recipes[] = { { "track", "wav", "wav", "pcm_s16le" }, { "track", "flac", "flac", "flac" },
        { "track", "mp3", "mp3", "libmp3lame", 320000 }, { "track", "m4a", "ipod", "aac", 256000 },
        { "track", "ogg", "ogg", "libvorbis", 192000 } };
    const auto isThere = [](const AudioRecipe &recipe) { return QFile::exists(track(recipe.extension)); };
    if (!std::all_of(std::begin(recipes), std::end(recipes), isThere)) {
        const AudioSamples sound = makeSound(600 * 44'100);
        for (const AudioRecipe &recipe : recipes)
            QFile::rename(writeSound(sound, recipe, QDir::tempPath()), track(recipe.extension));
    }
    const AudioRecipe plain { "many", "wav", "wav", "pcm_s16le" };
    if (!QFile::exists(manyPath()))
        writeSound(makeSound(600 * 8000, 32, 8000), plain, folder());
    if (!QFile::exists(longPath()))
        writeSound(makeSound(36'000 * 2000, 2, 2000), { "long", "wav", "wav", "pcm_u8" }, folder());
    if (!QFile::exists(columnsPath()))
        writeSound(makeSound(4000, 8), { "columns", "wav", "wav", "pcm_f32le" }, folder());
}

struct Planar
{
    explicit Planar(size_t channels, size_t frames = chunkFrames)
        : samples(channels, std::vector<float>(frames))
    {
        for (std::vector<float> &channel : samples)
            pointers.push_back(channel.data());
    }
    std::vector<std::vector<float>> samples;
    std::vector<float *> pointers;
};

// Decoding and pictures

void decodeOurs(benchmark::State &state, const char *format)
{
    const double start = cpuSeconds();
    KXAudioFile file;
    if (file.open(trackUrl(format)) != KXAudioFileNoError)
        return state.SkipWithError("not opened");
    Planar chunk(2);
    qint64 frames = 0;
    for (quint32 got = 1; got > 0; frames += got) {
        if (file.read(chunk.pointers.data(), chunkFrames, &got) != KXAudioFileNoError)
            return state.SkipWithError("not read");
        benchmark::ClobberMemory();
    }
    if (std::abs(frames - 600 * 44'100) > 4000)
        return state.SkipWithError("not all of it");
    BenchProgram::report(state, (cpuSeconds() - start) * 1e3);
}

void decodePeer(benchmark::State &state, const char *format)
{
    const double start = cpuSeconds();
    plain::AudioDecoder file(track(format).toStdString());
    Planar chunk(2);
    qint64 frames = 0;
    for (int got = 1; got > 0; frames += got) {
        got = file.read(chunk.pointers.data(), chunkFrames);
        benchmark::ClobberMemory();
    }
    if (std::abs(frames - 600 * 44'100) > 4000)
        return state.SkipWithError("not all of it");
    BenchProgram::report(state, (cpuSeconds() - start) * 1e3);
}

void waveform(benchmark::State &state, const char *format)
{
    const double start = seconds(CLOCK_PROCESS_CPUTIME_ID);
    KXWaveformGenerator generator(trackUrl(format), pictureSize, Qt::black);
    generator.main();
    if (generator.waveformImages().size() != 2 || generator.waveformPaths()[0].elementCount() < 1750)
        return state.SkipWithError("not drawn");
    BenchProgram::report(state, (seconds(CLOCK_PROCESS_CPUTIME_ID) - start) * 1e3);
}

void pyramid(benchmark::State &state, bool measuresLoudness)
{
    const double start = measuresLoudness ? wallSeconds() : cpuSeconds(); // which is a second thread's work
    KXWaveformReading reading;
    reading.measuresLoudness = measuresLoudness;
    const auto pyramid = KXWaveformPyramid::read(trackUrl("flac"), reading);
    if (!pyramid || pyramid->frames() != 600 * 44'100)
        return state.SkipWithError("not read");
    BenchProgram::report(state, ((measuresLoudness ? wallSeconds() : cpuSeconds()) - start) * 1e3);
}

void pyramidBytes(benchmark::State &state)
{
    qsizetype most = 0;
    for (const QString &path : { track("flac"), longPath(), manyPath() }) {
        const auto pyramid = KXWaveformPyramid::read(QUrl::fromLocalFile(path));
        if (!pyramid)
            return state.SkipWithError("not read");
        most = std::max(most, pyramid->toBytes().size());
    }
    BenchProgram::report(state, double(most));
}

void pyramidReload(benchmark::State &state)
{
    const QString path = folder() + u"/pyramid"_s;
    QFile out(path);
    const auto made = KXWaveformPyramid::read(trackUrl("flac"));
    if (!made || !out.open(QIODevice::WriteOnly) || out.write(made->toBytes()) < 0)
        return state.SkipWithError("not written");
    out.close();
    std::vector<double> times;
    for (int i = 0; i < 100; ++i) {
        const double start = wallSeconds();
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return state.SkipWithError("not opened");
        const auto pyramid = KXWaveformPyramid::fromBytes(file.readAll());
        if (!pyramid || pyramid->columnsOfChannels({}, 0, pyramid->frames(), 200).size() != 200)
            return state.SkipWithError("not read");
        times.push_back(wallSeconds() - start);
    }
    BenchProgram::report(state, median(times) * 1e3);
}

void process(benchmark::State &state, const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setStandardErrorFile(QProcess::nullDevice());
    const double start = wallSeconds();
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        return state.SkipWithError("the program failed");
    BenchProgram::report(state, (wallSeconds() - start) * 1e3);
}

void pictureOurs(benchmark::State &state, const char *format)
{
    process(state, QStringLiteral(KX_KXTOOL),
        { u"audio"_s, u"waveform"_s, track(format), folder() + u"/ours.png"_s, u"--size"_s, u"1800x200"_s });
}

void picturePeer(benchmark::State &state, const char *format)
{
    process(state, u"ffmpeg"_s,
        { u"-v"_s, u"error"_s, u"-y"_s, u"-i"_s, track(format), u"-lavfi"_s, u"showwavespic=s=1800x200"_s,
            u"-frames:v"_s, u"1"_s, folder() + u"/peer.png"_s });
}

/// CPU seconds of the operation's thread, which is the main one's neighbour.
double drawColumns(bool partly)
{
    struct Timed : KXWaveformGenerator
    {
        using KXWaveformGenerator::KXWaveformGenerator;
        void main() override
        {
            const double start = cpuSeconds();
            KXWaveformGenerator::main();
            seconds = cpuSeconds() - start;
        }
        std::atomic<double> seconds = 0;
    };
    const auto generator = std::make_shared<Timed>(QUrl::fromLocalFile(columnsPath()), QSizeF(4000, 200), Qt::black);
    QList<QImage> shown; // the newest ones, as a view has them
    int calls = 0;
    const auto show = [&](const QList<QImage> &images) {
        shown = images;
        ++calls;
    };
    if (partly)
        generator->setProgressBlock(show);
    QEventLoop loop;
    generator->setSuccessBlock([&](const QList<QImage> &images) {
        show(images);
        loop.quit();
    });
    KXOperationQueue queue;
    queue.addOperation(generator);
    loop.exec();
    if (calls != (partly ? 27 : 1) || shown.size() != 8)
        std::exit(1);
    generator->waitUntilFinished();
    return generator->seconds;
}

void partialPictures(benchmark::State &state)
{
    drawColumns(true);
    std::vector<double> times;
    for (int i = 0; i < 9; ++i) {
        const double without = drawColumns(false);
        times.push_back(drawColumns(true) - without);
    }
    BenchProgram::report(state, median(times) * 1e3);
}

void finalPictures(benchmark::State &state)
{
    std::vector<double> times;
    for (int i = 0; i < 10; ++i) {
        KXWaveformGenerator generator(QUrl::fromLocalFile(columnsPath()), QSizeF(4000, 200), Qt::black);
        if (!generator.generateWaveformPaths())
            return state.SkipWithError("not read");
        const double start = cpuSeconds();
        benchmark::DoNotOptimize(generator.generateWaveformImages());
        times.push_back(cpuSeconds() - start);
    }
    BenchProgram::report(state, median(times) * 1e3);
}

void bandwidth(benchmark::State &state, bool ours)
{
    std::vector<float> samples(size_t(256) << 18);
    std::minstd_rand random(3);
    for (float &sample : samples)
        sample = float(random()) * -1e-9F;
    std::vector<double> times;
    for (int round = 0; round < 7; ++round) {
        const double start = cpuSeconds();
        if (ours)
            benchmark::DoNotOptimize(maxV(samples.data(), samples.size()));
        else
            benchmark::DoNotOptimize(
                plain::xorSum({ reinterpret_cast<const uint64_t *>(samples.data()), samples.size() / 2 }));
        times.push_back(cpuSeconds() - start);
    }
    BenchProgram::report(state, double(samples.size() * sizeof(float)) / median(times) * 1e-9);
}

// The ring

constexpr quint32 ringChannels = 4;
constexpr int ringBytes = 512 * 1024;

/// Our ring with the interface of the peers: one block is a buffer a channel.
class OurRing
{
public:
    explicit OurRing(quint32 frames)
        : m_frames(frames)
        , m_source(KXAllocateABL(m_format, frames))
        , m_destination(KXAllocateABL(m_format, frames))
    {
        if (!m_ring.init(ringBytes))
            std::exit(1);
        for (KXAudioBuffer &buffer : m_source->buffers())
            std::fill_n(static_cast<float *>(buffer.mData), frames, 0.5F);
    }
    bool write() { return m_ring.copyAudioBufferList(*m_source, nullptr, m_frames, m_format); }
    bool read()
    {
        quint32 frames = m_frames;
        m_ring.dequeueBufferListFrames(&frames, m_destination.get(), nullptr, m_format);
        return frames > 0;
    }

private:
    const KXStreamFormat m_format = KXPlanarFloatFormat(44'100, ringChannels);
    const quint32 m_frames;
    KXCircularBuffer m_ring;
    const KXAudioBufferListPointer m_source, m_destination;
};

/// Keeps this thread, and those it starts, to one processor.
void pin(int core)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

/// Gigabytes a second from one thread to another, in blocks of 4096 frames.
template <typename Ring> void throughput(benchmark::State &state)
{
    constexpr int blocks = 20'000;
    Ring ring(chunkFrames);
    std::atomic<bool> isReady = false;
    std::thread producer([&] {
        pin(1);
        isReady = true;
        for (int i = 0; i < blocks;)
            i += ring.write();
    });
    pin(0);
    while (!isReady) { }
    const double start = wallSeconds();
    for (int i = 0; i < blocks;) {
        i += ring.read();
        benchmark::ClobberMemory();
    }
    const double took = wallSeconds() - start;
    producer.join();
    BenchProgram::report(state, double(blocks) * chunkFrames * ringChannels * sizeof(float) / took * 1e-9);
}

/// Nanoseconds for 32 frames into the ring and out of it again.
template <typename Ring> void overhead(benchmark::State &state)
{
    constexpr int blocks = 2'000'000;
    Ring ring(32);
    const double start = cpuSeconds();
    for (int i = 0; i < blocks; ++i) {
        if (!ring.write() || !ring.read())
            return state.SkipWithError("the ring is full or empty");
        benchmark::ClobberMemory();
    }
    BenchProgram::report(state, (cpuSeconds() - start) * 1e9 / blocks);
}

// Playing

constexpr int passFrames = 512;
constexpr int passChannels = 32;
constexpr int passRounds = 2'000; // of a chunk each

void renderOurs(benchmark::State &state)
{
    const KXStreamFormat format = KXPlanarFloatFormat(44'100, passChannels);
    const auto session = std::make_shared<KXPlaybackSession>(QUrl());
    if (!session->prepareBuffer(format))
        return state.SkipWithError("no ring");
    session->decoder()->setTotalFrames(qint64(1) << 60);
    session->setVolume(0.9F);
    const KXAudioBufferListPointer chunk(KXAllocateABL(format, chunkFrames));
    float left[passFrames], right[passFrames];
    double time = 0;
    for (int round = 0; round < passRounds; ++round) {
        if (!session->didDecodeAudioData(*session->decoder(), *chunk, chunkFrames))
            return state.SkipWithError("the ring is full");
        const double start = cpuSeconds();
        for (quint32 at = 0; at < chunkFrames; at += passFrames) {
            if (session->render(left, right, passFrames) != passFrames)
                return state.SkipWithError("the ring is empty");
            benchmark::ClobberMemory();
        }
        time += cpuSeconds() - start;
    }
    BenchProgram::report(state, time * 1e6 / (passRounds * double(chunkFrames / passFrames)));
}

void renderPeer(benchmark::State &state)
{
    const Planar source(passChannels);
    Planar chunk(passChannels);
    const std::vector<float> gains(passChannels, 1);
    const float *slices[passChannels];
    float left[passFrames], right[passFrames];
    double time = 0;
    for (int round = 0; round < passRounds; ++round) {
        chunk.samples = source.samples;
        const double start = cpuSeconds();
        for (quint32 at = 0; at < chunkFrames; at += passFrames) {
            for (size_t c = 0; c < passChannels; ++c)
                slices[c] = chunk.pointers[c] + at;
            plain::mix(left, right, slices, gains.data(), passChannels, passFrames, 0.729F);
            benchmark::ClobberMemory();
        }
        time += cpuSeconds() - start;
    }
    BenchProgram::report(state, time * 1e6 / (passRounds * double(chunkFrames / passFrames)));
}

// The player before goes meanwhile, and the processor does something else, as it does before a user presses a key.
constexpr auto firstFramePause = std::chrono::milliseconds(5);

struct BenchItem : KXAudioPlayerItem
{
    explicit BenchItem(const QUrl &address)
        : url(address)
    {
    }
    QUrl audioFileURL() const override { return url; }
    const QUrl url;
};

void firstFrameOurs(benchmark::State &state, const char *format)
{
    const auto item = std::make_shared<BenchItem>(trackUrl(format));
    const auto output = std::make_shared<KXHandCrankedAudioOutput>();
    std::vector<double> times;
    for (int i = 0; i < 50; ++i) {
        KXBasicAudioPlayer player(output);
        player.setVolume(1);
        float left[64], right[64];
        std::this_thread::sleep_for(firstFramePause);
        const double start = wallSeconds();
        player.playItem(item);
        while (player.state() == KXAudioPlayerStateLoading)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (player.state() != KXAudioPlayerStatePlaying)
            return state.SkipWithError("not played");
        for (bool isHeard = false; !isHeard;) {
            const int got = output->crank(left, right, 64);
            isHeard = std::any_of(left, left + got, [](float sample) { return sample != 0; });
            std::this_thread::yield();
        }
        times.push_back(wallSeconds() - start);
    }
    BenchProgram::report(state, fastest(times) * 1e3);
}

void firstFramePeer(benchmark::State &state, const char *format)
{
    std::vector<double> times;
    Planar chunk(2);
    for (int i = 0; i < 50; ++i) {
        std::this_thread::sleep_for(firstFramePause);
        const double start = wallSeconds();
        plain::AudioDecoder file(track(format).toStdString());
        if (file.read(chunk.pointers.data(), int(chunkFrames)) != int(chunkFrames))
            return state.SkipWithError("not read");
        times.push_back(wallSeconds() - start);
    }
    BenchProgram::report(state, fastest(times) * 1e3);
}

/// Until the sound of the new place is heard; nothing of the old one comes after it.
void seek(benchmark::State &state, const char *format)
{
    constexpr qint64 places = 50, step = 500'000;
    KXAudioFile reference;
    if (reference.open(trackUrl(format)) != KXAudioFileNoError)
        return state.SkipWithError("not opened");
    const auto output = std::make_shared<KXHandCrankedAudioOutput>();
    KXMultiTrackAudioPlayer player(output);
    player.setVolume(1);
    player.playItem(std::make_shared<BenchItem>(trackUrl(format)));
    Planar wanted(2), heard(2);
    std::vector<double> times;
    for (qint64 i = 1; i <= places; ++i) {
        const qint64 frame = i * 37 % places * step + 1234;
        quint32 got = 0;
        if (reference.seek(frame) != KXAudioFileNoError
            || reference.read(wanted.pointers.data(), passFrames, &got) != KXAudioFileNoError || got == 0)
            return state.SkipWithError("not read");
        std::this_thread::sleep_for(firstFramePause);
        (void)output->crank(heard.pointers[0], heard.pointers[1], passFrames);
        const double start = wallSeconds();
        player.seekToFrame(frame);
        while (player.isSeeking()) // until then the old sound goes on
            std::this_thread::yield();
        int frames = 0;
        while ((frames = output->crank(heard.pointers[0], heard.pointers[1], int(got))) == 0)
            std::this_thread::yield();
        times.push_back(wallSeconds() - start);
        for (int k = 0; k < frames; ++k) {
            if (std::abs(heard.samples[0][size_t(k)] - wanted.samples[0][size_t(k)]) > 1e-3F)
                return state.SkipWithError("stale");
        }
    }
    BenchProgram::report(state, median(times) * 1e3);
}

/// From a mute to the picture that shows it.
void wavesFollow(benchmark::State &state)
{
    const QString path = folder() + u"/stems.wav"_s;
    if (!QFile::exists(path))
        writeSound(makeSound(300 * 8000, 8, 8000), { "stems", "wav", "wav", "pcm_s16le" }, folder());
    auto pyramid = KXWaveformPyramid::read(QUrl::fromLocalFile(path));
    if (!pyramid)
        return state.SkipWithError("not read");
    KXAudioPlayerWaveformView view;
    view.resize(1200, 60);
    view.setPlayerItem(std::make_shared<BenchItem>(QUrl::fromLocalFile(path)));
    view.setPyramid(std::make_shared<KXWaveformPyramid>(std::move(*pyramid)));
    view.show();
    QCoreApplication::processEvents();
    std::vector<double> times;
    for (int i = 0; i < 100; ++i) {
        const double start = wallSeconds();
        view.setStemGains({ i % 2 ? 1.0F : 0.0F, 1, i % 3 ? 1.0F : 0.0F, 1 });
        view.repaint();
        times.push_back(wallSeconds() - start);
        if (view.isEstimate())
            return state.SkipWithError("an estimate");
    }
    BenchProgram::report(state, median(times) * 1e3);
}

/// What drawing a file of ten hours takes above having it open, whole and in parts.
void longMemory(benchmark::State &state)
{
    const auto kilobytes = [](QByteArrayView key) {
        QFile status(u"/proc/self/status"_s);
        (void)status.open(QIODevice::ReadOnly);
        const QByteArray text = status.readAll();
        return text.mid(text.indexOf(key) + key.size()).simplified().split(' ').first().toLongLong();
    };
    const QUrl url = QUrl::fromLocalFile(longPath());
    KXAudioFile file;
    Planar chunk(2);
    quint32 got = 0;
    if (file.open(url) != KXAudioFileNoError
        || file.read(chunk.pointers.data(), chunkFrames, &got) != KXAudioFileNoError)
        return state.SkipWithError("not opened");
    malloc_trim(0);
    const qint64 before = kilobytes("VmRSS:");
    const auto pyramid = KXWaveformPyramid::read(url);
    if (!pyramid)
        return state.SkipWithError("not read");
    KXAudioPlayerWaveformView view;
    view.resize(1200, 60);
    view.setPlayerItem(std::make_shared<BenchItem>(url));
    view.setPyramid(std::make_shared<KXWaveformPyramid>(*pyramid));
    view.show();
    for (int i = 0; i < 40; ++i) { // into the file, until single samples are seen
        view.repaint();
        QTest::qWait(10);
        view.zoom(0.6, 700);
    }
    BenchProgram::report(state, double(kilobytes("VmHWM:") - before) / 1024);
}

using ForFormat = void (*)(benchmark::State &, const char *);

void addForFormats(
    const std::string &figure, ForFormat ours, ForFormat peer, std::initializer_list<const char *> formats)
{
    for (const char *format : formats) {
        for (const auto &[side, function] : { std::pair("/ours/", ours), std::pair("/peer/", peer) })
            BenchProgram::add((figure + side + format).c_str(),
                [function = function, format](benchmark::State &state) { function(state, format); });
    }
}

}

int main(int argc, char **argv)
{
    using BenchProgram::add;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Widgets only where they are measured.
    const bool showsWidgets = std::any_of(argv, argv + argc, [](const char *argument) {
        return std::strstr(argument, "waves-follow") || std::strstr(argument, "long-memory");
    });
    std::unique_ptr<QCoreApplication> application;
    if (showsWidgets)
        application = std::make_unique<QApplication>(argc, argv);
    add("audio.ring-jack/ours", throughput<OurRing>);
    add("audio.ring-jack/peer", throughput<plain::JackRing>);
    add("audio.ring-boost/ours", throughput<OurRing>);
    add("audio.ring-boost/peer", throughput<plain::BoostRing>);
    add("audio.ring-overhead/ours", overhead<OurRing>);
    add("audio.ring-overhead/peer", overhead<plain::JackRing>);
    addForFormats("audio.decode", decodeOurs, decodePeer, { "wav", "flac", "mp3", "m4a" });
    addForFormats("audio.waveform-decode", waveform, decodeOurs, { "wav", "flac", "mp3" });
    addForFormats("audio.waveform-showwavespic", pictureOurs, picturePeer, { "wav", "flac", "mp3" });
    for (const auto &[figure, measuresLoudness] :
        { std::pair("audio.pyramid-time", false), std::pair("audio.loudness-time", true) }) {
        add((figure + "/ours"s).c_str(), [loud = measuresLoudness](benchmark::State &state) { pyramid(state, loud); });
        add((figure + "/peer"s).c_str(), [](benchmark::State &state) { decodeOurs(state, "flac"); });
    }
    add("audio.pyramid-bytes/ours", pyramidBytes);
    add("audio.pyramid-reload/ours", pyramidReload);
    add("audio.peak-bandwidth/ours", [](benchmark::State &state) { bandwidth(state, true); });
    add("audio.peak-bandwidth/peer", [](benchmark::State &state) { bandwidth(state, false); });
    add("audio.render-pass/ours", renderOurs);
    add("audio.render-pass/peer", renderPeer);
    for (const char *format : { "wav", "flac", "mp3" })
        add(("audio.seek/ours/"s + format).c_str(), [format](benchmark::State &state) { seek(state, format); });
    add("audio.waves-follow/ours", wavesFollow);
    add("audio.long-memory/ours", longMemory);
    addForFormats("audio.first-frame", firstFrameOurs, firstFramePeer, { "wav", "flac", "mp3", "ogg" });
    add("audio.partial-pictures/ours", partialPictures);
    add("audio.partial-pictures/peer", finalPictures);
    return BenchProgram::run(argc, argv, prepare);
}
