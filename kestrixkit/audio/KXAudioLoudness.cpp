#include <kestrixkit/audio/KXAudioLoudness_p.h>

#include <limits>

#include <ebur128.h>

struct KXAudioLoudness::State
{
    explicit State(quint32 sides, double sampleRate)
        : meter(ebur128_init(sides, static_cast<unsigned long>(sampleRate), EBUR128_MODE_I))
    {
        if (meter && sides == 1)
            ebur128_set_channel(meter, 0, EBUR128_DUAL_MONO);
    }
    ~State() { ebur128_destroy(&meter); }
    Q_DISABLE_COPY_MOVE(State)

    ebur128_state *meter; // null for rates that cannot be measured
};

KXAudioLoudness::KXAudioLoudness(quint32 channels, double sampleRate)
    : m_channels(channels)
    , m_state(std::make_unique<State>(std::min(2U, channels), sampleRate))
{
}

KXAudioLoudness::~KXAudioLoudness() = default;

void KXAudioLoudness::add(const float *const *channels, int frames)
{
    if (!m_state->meter)
        return;
    if (m_channels == 1) {
        ebur128_add_frames_float(m_state->meter, channels[0], size_t(frames));
        return;
    }
    m_interleaved.assign(size_t(frames) * 2, 0);
    for (quint32 c = 0; c < m_channels; ++c) {
        for (int i = 0; i < frames; ++i)
            m_interleaved[size_t(i) * 2 + c % 2] += channels[c][i];
    }
    ebur128_add_frames_float(m_state->meter, m_interleaved.data(), size_t(frames));
}

double KXAudioLoudness::lufs() const
{
    double loudness = 0;
    const bool isMeasured = m_state->meter && ebur128_loudness_global(m_state->meter, &loudness) == EBUR128_SUCCESS;
    return isMeasured ? loudness : std::numeric_limits<double>::quiet_NaN();
}
