#include <kestrixkit/audio/KXPlaybackSession_p.h>

#include <cmath>
#include <thread>

#include <kestrixkit/foundation/KXLog.h>

namespace {

constexpr qint64 playbackMostBufferBytes = 16 << 20;

/// Adds a channel to one side. Apart, so that the compiler makes vector code of it.
void playbackMix(float *__restrict side, const float *__restrict channel, int frames, float gain) noexcept
{
    for (int i = 0; i < frames; ++i)
        side[i] += channel[i] * gain;
}

void playbackMixRamp(float *__restrict side, const float *__restrict channel, const float *__restrict ramp, int frames,
    float from, float to, float pan) noexcept
{
    for (int i = 0; i < frames; ++i)
        side[i] += channel[i] * (from + (to - from) * ramp[i]) * pan;
}

void playbackApplyRamp(
    float *left, float *right, int frames, qint64 firstFrame, float gain, const KXGainRamp *ramp) noexcept
{
    const bool isOver
        = !ramp || firstFrame + frames <= ramp->startFrame || firstFrame >= ramp->startFrame + ramp->frames;
    const float same = ramp ? gain * float(ramp->gainAt(firstFrame)) : gain;
    for (int i = 0; i < frames; ++i) {
        const float here = isOver ? same : gain * float(ramp->gainAt(firstFrame + i));
        left[i] *= here;
        right[i] *= here;
    }
}

}

KXPlaybackSession::KXPlaybackSession(const QUrl &url, const KXPlaybackOptions &options)
    : m_decoder(std::make_shared<KXCoreAudioFileDecoder>(url))
    , m_bufferSeconds(options.bufferSeconds)
{
    KXAudioFileOptions file;
    file.secondsPerCall = options.secondsPerCall;
    file.mayLeadTo = options.mayLeadTo;
    m_decoder->setFileOptions(file);
    m_decoder->setStaysAtEnd(options.staysAtEnd);
}

KXPlaybackSession::~KXPlaybackSession() { cancel(); }

bool KXPlaybackSession::start(const std::function<bool(const KXStreamFormat &)> &willStart, KXError *error)
{
    return open(willStart, error) && m_decoder->runInBackground(error);
}

bool KXPlaybackSession::open(const std::function<bool(const KXStreamFormat &)> &willStart, KXError *error)
{
    m_decoder->setDelegate(weak_from_this());
    m_willStart = &willStart;
    const bool opened = m_decoder->open(error);
    m_willStart = nullptr;
    return opened;
}

bool KXPlaybackSession::prepareBuffer(const KXStreamFormat &format)
{
    const quint32 channels = format.mChannelsPerFrame;
    const double second = channels * double(format.mBytesPerFrame) * format.mSampleRate;
    const auto bytes
        = qint64(std::max(second * KXPlaybackOptions().bufferSeconds, // many channels get no more than that
            std::min(second * m_bufferSeconds, double(playbackMostBufferBytes))));
    // At low rates this may be less than a chunk, which would then never find room.
    const qint64 header = 96 + 16 * (qint64(channels) - 1);
    const qint64 chunk = header + qint64(channels) * format.mBytesPerFrame * KXCoreAudioFileDecoder::ChunkFrames;
    constexpr qint64 most = qint64(1) << 30;
    if (bytes > most || !m_ring.init(qint32(bytes)) || (m_ring.length() < chunk && !m_ring.init(qint32(2 * chunk))))
        return false;
    m_format = format;
    m_inputCount = int(channels);
    m_inputs = std::make_unique<Input[]>(channels);
    for (int i = 0; i < m_inputCount; ++i)
        m_inputs[size_t(i)].pan = i % 2 == 0 ? -1.0F : 1.0F;
    const auto length = std::max(1, int(std::lround(format.mSampleRate * RampSeconds)));
    for (int i = 1; i <= length; ++i)
        m_gainRamp.push_back(float(0.5 - 0.5 * std::cos(M_PI * i / length)));
    return true;
}

bool KXPlaybackSession::setInputGain(qint64 input, float gain)
{
    if (input < 0 || input >= m_inputCount || !std::isfinite(gain))
        return false;
    m_inputs[size_t(input)].gain.store(gain, std::memory_order_relaxed);
    return true;
}

bool KXPlaybackSession::setInputPan(qint64 input, float pan)
{
    if (input < 0 || input >= m_inputCount)
        return false;
    m_inputs[size_t(input)].pan.store(std::clamp(pan, -1.0F, 1.0F), std::memory_order_relaxed);
    return true;
}

void KXPlaybackSession::setRamp(const KXGainRamp &ramp) { m_ramp = &m_ramps.emplace_back(ramp); }

void KXPlaybackSession::setNextRamp(const KXGainRamp &ramp) { m_nextRamp = &m_ramps.emplace_back(ramp); }

void KXPlaybackSession::correctNextRamp(const KXGainRamp &ramp)
{
    if (const KXGainRamp *former = m_nextRamp)
        m_nextRamp.compare_exchange_strong(former, &m_ramps.emplace_back(ramp));
}

void KXPlaybackSession::seekToFrame(qint64 frame)
{
    m_decoder->setSeekToFrame(frame);
    m_decoder->setState(KXCoreAudioFileDecoderStateRunning);
}

bool KXPlaybackSession::takeFinished()
{
    const bool hasFinished = m_isFinished.exchange(false);
    if (!hasFinished || !m_inputs)
        return hasFinished;
    // In this order: a seek sets the position before it counts as carried out.
    return m_decoder->seekToFrame() < 0 && m_decoder->totalFramesIsFinal()
        && m_decoder->renderedFrames() >= m_decoder->totalFrames();
}

KXStreamFormat KXPlaybackSession::outputDescriptionFor(KXCoreAudioFileDecoder &, const KXStreamFormat &fileFormat)
{
    return KXPlanarFloatFormat(fileFormat.mSampleRate, fileFormat.mChannelsPerFrame);
}

void KXPlaybackSession::willStartDecoding(KXCoreAudioFileDecoder &decoder)
{
    if (!m_willStart || !(*m_willStart)(decoder.outputDescription()))
        cancel();
}

void KXPlaybackSession::willSeekToFrame(KXCoreAudioFileDecoder &, qint64)
{
    while (m_consumer.test_and_set(std::memory_order_acquire))
        std::this_thread::yield(); // a render pass takes microseconds
    m_ring.clear();
    m_consumer.clear(std::memory_order_release);
}

bool KXPlaybackSession::didDecodeAudioData(
    KXCoreAudioFileDecoder &decoder, const KXAudioBufferList &data, quint32 frames)
{
    return decoder.state() != KXCoreAudioFileDecoderStateCancelled
        && m_ring.copyAudioBufferList(data, nullptr, frames, m_format);
}

int KXPlaybackSession::render(float *left, float *right, int frames) noexcept
{
    std::fill_n(left, frames, 0.0F);
    std::fill_n(right, frames, 0.0F);
    int delivered = 0;
    if (!m_inputs) {
        m_isFinished = true; // the item could not be opened: there is nothing to wait for
    } else if (!m_consumer.test_and_set(std::memory_order_acquire)) {
        // Until the token is given back the ring holds nothing older than the last seek carried out: a seek empties
        // it first, sets the position then, and fills it last.
        const qint64 before = m_decoder->renderedFrames();
        delivered = mix(left, right, std::min(frames, MostFramesPerPass));
        const qint64 first = delivered > 0 ? m_decoder->renderedFrames() : before;
        applyGain(left, right, delivered, first);
        if (m_decoder->advanceRenderedFrames(first, delivered))
            m_isFinished = true;
        m_consumer.clear(std::memory_order_release);
    }
    m_framesLastPass.store(delivered, std::memory_order_relaxed);
    m_decoder->wakeFromRenderThread();
    return delivered;
}

void KXPlaybackSession::mixInput(Input &input, const float *channel, float *left, float *right, int frames) noexcept
{
    const float pan = input.pan.load(std::memory_order_relaxed);
    const float onLeft = std::min(1.0F, 1.0F - pan), onRight = std::min(1.0F, 1.0F + pan);
    for (int at = 0; at < frames;) {
        const bool isRamping = input.rampAt < m_gainRamp.size();
        if (const float wanted = input.gain.load(std::memory_order_relaxed); !isRamping && wanted != input.to) {
            input.from = m_isHeard ? input.to : wanted;
            input.to = wanted;
            input.rampAt = m_isHeard ? 0 : SIZE_MAX;
            continue;
        }
        const int count
            = isRamping ? int(std::min(size_t(frames - at), m_gainRamp.size() - input.rampAt)) : frames - at;
        for (const auto &[side, part] : { std::pair(left, onLeft), std::pair(right, onRight) }) {
            if (part == 0 || (!isRamping && input.to == 0))
                continue;
            if (isRamping)
                playbackMixRamp(
                    side + at, channel + at, m_gainRamp.data() + input.rampAt, count, input.from, input.to, part);
            else
                playbackMix(side + at, channel + at, count, input.to * part);
        }
        if (isRamping)
            input.rampAt += size_t(count);
        at += count;
    }
}

int KXPlaybackSession::mix(float *left, float *right, int frames) noexcept
{
    int done = 0;
    while (done < frames) {
        const KXAudioBufferList *list = m_ring.nextBufferList();
        if (!list)
            break;
        const int count = std::min(frames - done, int(list->mBuffers[0].mDataByteSize / sizeof(float)));
        const auto buffers = list->buffers();
        for (int i = 0; i < m_inputCount; ++i) {
            const auto *channel = static_cast<const float *>(buffers[size_t(i)].mData);
            mixInput(m_inputs[size_t(i)], channel, left + done, right + done, count);
        }
        m_ring.consumeNextBufferListPartial(quint32(count), m_format);
        m_isHeard = true;
        done += count;
    }
    return done;
}

void KXPlaybackSession::applyGain(float *left, float *right, int frames, qint64 firstFrame) noexcept
{
    const float gain = m_gain.load(std::memory_order_relaxed);
    const KXGainRamp *next = m_nextRamp.load(std::memory_order_acquire);
    const int before = next ? int(std::clamp<qint64>(next->startFrame - firstFrame, 0, frames)) : frames;
    playbackApplyRamp(left, right, before, firstFrame, gain, m_ramp.load(std::memory_order_acquire));
    if (before == frames)
        return;
    const KXGainRamp *replaced = next;
    if (m_nextRamp.compare_exchange_strong(replaced, nullptr))
        m_ramp = next;
    playbackApplyRamp(left + before, right + before, frames - before, firstFrame + before, gain, next);
}
