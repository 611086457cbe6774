#include <kestrixkit/audio/KXWaveformPass_p.h>

#include <thread>

#include <kestrixkit/foundation/KXLog.h>

namespace {

constexpr size_t waveformPassBytes = 128 * 1024; // of all channels: stays in the cache between decoding and measuring
constexpr auto waveformPassPatience = std::chrono::milliseconds(20); // between two looks at a file that grows
constexpr double waveformPassGrowthSeconds = 3;

}

bool KXWaveformPass::open(const QUrl &url, std::shared_ptr<std::atomic<bool>> cancelled, KXError *error)
{
    m_cancelled = cancelled ? std::move(cancelled) : std::make_shared<std::atomic<bool>>(false);
    KXAudioFileOptions options;
    options.cancelled = m_cancelled;
    options.growthSeconds = waveformPassGrowthSeconds;
    KXError failure;
    if (m_file.openForReading(url, options, &m_format, &m_frames, &failure)
        && m_file.useFormat(KXPlanarFloatFormat(m_format.mSampleRate, m_format.mChannelsPerFrame), &failure))
        return true;
    return !*m_cancelled && KXSetError(error, failure);
}

bool KXWaveformPass::fail(KXAudioFileStatus status, KXError *error)
{
    if (*m_cancelled)
        return false;
    KXLogError(audio, "Failed to read file (%i)", status);
    return KXSetError(error,
        KXError(KXKestrixKitErrorDomain, KXAudioFileErrorCode,
            KXStringWithFormat(KXLocalizedString("Failed to read file (%i)"), status)));
}

bool KXWaveformPass::seek(qint64 frame, KXError *error)
{
    const KXAudioFileStatus status = m_file.seek(frame);
    return status == KXAudioFileNoError || fail(status, error);
}

bool KXWaveformPass::run(qint64 frames, const std::function<void(const float *const *, int)> &take, KXError *error)
{
    const size_t channels = m_format.mChannelsPerFrame;
    const size_t chunk = std::max<size_t>(256, waveformPassBytes / sizeof(float) / channels);
    std::vector<float> samples(channels * chunk);
    std::vector<float *> pointers;
    for (size_t c = 0; c < channels; ++c)
        pointers.push_back(samples.data() + c * chunk);
    while (frames > 0 && !*m_cancelled) {
        quint32 got = 0;
        const KXAudioFileStatus status
            = m_file.read(pointers.data(), quint32(std::min<qint64>(qint64(chunk), frames)), &got);
        if (status == KXAudioFileInvalidFileError) {
            std::this_thread::sleep_for(waveformPassPatience);
            continue;
        }
        if (status != KXAudioFileNoError)
            return fail(status, error);
        if (got == 0)
            break;
        take(pointers.data(), int(got));
        frames -= got;
    }
    return !*m_cancelled;
}
