#include <kestrixkit/audio/KXPortAudioOutput.h>

#include <chrono>
#include <thread>

#include <kestrixkit/audio/KXAudioResampler_p.h>
#include <kestrixkit/audio/KXPortAudioLibrary_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int portAudioWatchMilliseconds = 250;
constexpr int portAudioIdleTurns = 4; // a second without a pass
constexpr auto portAudioRefresh = std::chrono::seconds(5); // looking for devices takes long

std::atomic<int> portAudioStreams = 0; // open or being torn down

/// PortAudio knows the devices that were there when it was initialised. Looks again when there were none, or when asked
/// to.
PaError portAudioInitialise(bool again = false)
{
    if (!KXPortAudioLibrary::shared())
        return paNotInitialized;
    static bool initialised = false;
    static std::chrono::steady_clock::time_point looked;
    const auto now = std::chrono::steady_clock::now();
    const bool missing = initialised && (again || KXPortAudio().getDefaultOutputDevice() == paNoDevice);
    if (missing && portAudioStreams == 0 && now - looked > portAudioRefresh) {
        KXPortAudio().terminate();
        initialised = false;
    }
    if (initialised)
        return paNoError;
    looked = now;
    KXPortAudio().quietenProbing();
    const PaError error = KXPortAudio().initialize();
    initialised = error == paNoError;
    return error;
}

QString portAudioIdentifier(const PaDeviceInfo &info)
{
    const PaHostApiInfo *api = KXPortAudio().getHostApiInfo(info.hostApi);
    return u"%1 (%2)"_s.arg(QString::fromUtf8(info.name), api ? QString::fromUtf8(api->name) : QString());
}

}

/// What the render thread sees of the output.
struct KXPortAudioOutput::Stream
{
    PaStream *stream = nullptr;
    std::atomic<KXAudioRenderSource *> source = nullptr;
    std::shared_ptr<KXAudioRenderSource> keptSource; // while the device may still be in it
    std::atomic<unsigned> passes = 0;
    bool isJACK = false;
    std::atomic<bool> ended = false; // although nobody stopped it
    std::unique_ptr<KXAudioResampler> resampler; // null where the device has the source's rate

    static int render(const void *, void *output, unsigned long frames, const PaStreamCallbackTimeInfo *,
        PaStreamCallbackFlags, void *self)
    {
        auto *stream = static_cast<Stream *>(self);
        auto *const *sides = static_cast<float *const *>(output);
        if (KXAudioRenderSource *source = stream->source.load(std::memory_order_acquire)) {
            if (stream->resampler)
                stream->resampler->render(*source, sides[0], sides[1], int(frames));
            else
                source->render(sides[0], sides[1], int(frames));
        } else {
            std::fill_n(sides[0], frames, 0.0F);
            std::fill_n(sides[1], frames, 0.0F);
        }
        stream->passes.fetch_add(1, std::memory_order_relaxed);
        return paContinue;
    }
};

KXPortAudioOutput::KXPortAudioOutput()
{
    m_watchdog.setInterval(portAudioWatchMilliseconds);
    QObject::connect(&m_watchdog, &QTimer::timeout, &m_watchdog, [this] { watch(); });
}

KXPortAudioOutput::~KXPortAudioOutput() { KXPortAudioOutput::close(); }

KXAudioOutput::Status KXPortAudioOutput::prepare()
{
    if (const PaError error = portAudioInitialise())
        return error;
    return deviceIndex() == paNoDevice ? Status(paDeviceUnavailable) : 0;
}

QList<KXAudioDevice> KXPortAudioOutput::devices()
{
    QList<KXAudioDevice> devices;
    if (portAudioInitialise(true) != paNoError)
        return devices;
    for (PaDeviceIndex i = 0; i < KXPortAudio().getDeviceCount(); ++i) {
        const PaDeviceInfo *info = KXPortAudio().getDeviceInfo(i);
        if (info && info->maxOutputChannels >= 2)
            devices.append({ portAudioIdentifier(*info), QString::fromUtf8(info->name), info->defaultSampleRate,
                i == KXPortAudio().getDefaultOutputDevice() });
    }
    return devices;
}

int KXPortAudioOutput::deviceIndex() const
{
    if (m_device.isEmpty())
        return KXPortAudio().getDefaultOutputDevice();
    for (PaDeviceIndex i = 0; i < KXPortAudio().getDeviceCount(); ++i) {
        const PaDeviceInfo *info = KXPortAudio().getDeviceInfo(i);
        if (info && info->maxOutputChannels >= 2 && portAudioIdentifier(*info) == m_device)
            return i;
    }
    return paNoDevice;
}

KXAudioOutput::Status KXPortAudioOutput::setDevice(const QString &identifier)
{
    if (m_device == identifier)
        return 0;
    m_device = identifier;
    if (!isOpen())
        return 0;
    const bool wasRunning = m_isRunning;
    const double rate = sampleRate();
    const Status status = open(rate);
    if (status != 0) {
        setSampleRate(rate); // as after a loss: it is tried again when it is started
        if (wasRunning)
            announceLost(u"the device cannot be opened"_s);
        return status;
    }
    return wasRunning ? start() : 0;
}

KXAudioOutput::Status KXPortAudioOutput::open(double sampleRate)
{
    close();
    if (const Status status = prepare())
        return status;
    const PaDeviceIndex device = deviceIndex();
    const PaDeviceInfo *info = KXPortAudio().getDeviceInfo(device);
    if (!info)
        return paDeviceUnavailable;
    PaStreamParameters parameters = {};
    parameters.device = device;
    parameters.channelCount = 2;
    parameters.sampleFormat = paFloat32 | paNonInterleaved;
    parameters.suggestedLatency = info->defaultLowOutputLatency;
    auto stream = std::make_unique<Stream>();
    const auto openAt = [&](double rate) {
        return KXPortAudio().openStream(
            &stream->stream, nullptr, &parameters, rate, FramesPerPass, paNoFlag, &Stream::render, stream.get());
    };
    PaError error = openAt(sampleRate);
    if (error == paInvalidSampleRate) {
        stream->resampler = std::make_unique<KXAudioResampler>(sampleRate, info->defaultSampleRate);
        if (stream->resampler->isValid())
            error = openAt(info->defaultSampleRate);
    }
    if (error != paNoError)
        return error;
    const PaHostApiInfo *api = KXPortAudio().getHostApiInfo(info->hostApi);
    stream->isJACK = api && api->type == paJACK;
    KXPortAudio().setStreamFinishedCallback(
        stream->stream, [](void *self) { static_cast<Stream *>(self)->ended = true; });
    ++portAudioStreams;
    m_stream = std::move(stream);
    setSampleRate(sampleRate);
    return 0;
}

void KXPortAudioOutput::close()
{
    const bool wasWatched = m_isRunning;
    stop();
    if (m_stream && m_stream->isJACK && !wasWatched && startStream(nullptr) != paNoError) {
        abandon();
    } else if (m_stream) {
        KXPortAudio().closeStream(m_stream->stream);
        m_stream.reset();
        --portAudioStreams;
    }
    KXAudioOutput::close();
}

PaError KXPortAudioOutput::startStream(std::shared_ptr<KXAudioRenderSource> source)
{
    m_stream->source.store(source.get(), std::memory_order_release);
    m_stream->keptSource = std::move(source);
    m_stream->ended = false;
    if (m_stream->resampler)
        m_stream->resampler->reset();
    return KXPortAudio().startStream(m_stream->stream);
}

KXAudioOutput::Status KXPortAudioOutput::start()
{
    if (m_isRunning)
        return 0;
    if (!isOpen())
        return paBadStreamPtr;
    Status status = m_stream ? startStream(sharedSource()) : Status(paBadStreamPtr);
    if (status != 0) { // lost, while it played or stood still, and perhaps back by now
        const double rate = sampleRate();
        if (m_stream && m_stream->isJACK)
            abandon();
        status = open(rate);
        if (status == 0)
            status = startStream(sharedSource());
        setSampleRate(rate); // to be tried again
    }
    if (status != 0)
        return status;
    m_isRunning = true;
    m_passesSeen = m_stream->passes;
    m_idleTurns = 0;
    m_watchdog.start();
    return 0;
}

void KXPortAudioOutput::stop()
{
    if (!m_isRunning)
        return;
    m_isRunning = false;
    m_watchdog.stop();
    // A device that has gone quiet may never answer.
    if (m_stream->passes == m_passesSeen && m_idleTurns > 0)
        lose({});
    else
        KXPortAudio().abortStream(m_stream->stream);
}

void KXPortAudioOutput::watch()
{
    const unsigned passes = m_stream->passes;
    m_idleTurns = passes == std::exchange(m_passesSeen, passes) ? m_idleTurns + 1 : 0;
    if (m_stream->ended)
        lose(u"the device ended the stream"_s);
    else if (m_idleTurns >= portAudioIdleTurns)
        lose(u"the device asks for no more sound"_s);
}

void KXPortAudioOutput::lose(const QString &reason)
{
    m_isRunning = false;
    m_watchdog.stop();
    abandon();
    if (!reason.isEmpty())
        announceLost(reason);
}

/// Leaves the stream to a thread that nobody waits for: closing it may never return. Its source stays alive there.
void KXPortAudioOutput::abandon()
{
    m_stream->source.store(nullptr, std::memory_order_release);
    if (m_stream->isJACK) {
        // PortAudio ends the process when it cannot take its ports back from a server that is gone.
        (void)m_stream.release();
        return;
    }
    std::thread([stream = std::move(m_stream)] {
        KXPortAudio().abortStream(stream->stream);
        KXPortAudio().closeStream(stream->stream);
        --portAudioStreams;
    }).detach();
}
