#include <kestrixkit/audio/KXAudioLoudness_p.h>

#include <cmath>
#include <limits>

#include <ebur128.h>

namespace {

constexpr float loudnessMostSample = 1e6F; // beyond, and what is no number, is damage

}

struct KXAudioLoudness::State
{
    explicit State(quint32 sides, double sampleRate)
        : meter(ebur128_init(sides, static_cast<unsigned long>(sampleRate), EBUR128_MODE_I))
    {
        if (meter && sides == 1)
            ebur128_set_channel(meter, 0, EBUR128_DUAL_MONO);
    }
    ~State()
    {
        if (meter)
            ebur128_destroy(&meter);
    }
    Q_DISABLE_COPY_MOVE(State)

    ebur128_state *meter; // null for rates that cannot be measured
};

KXAudioLoudness::KXAudioLoudness(quint32 channels, double sampleRate)
    : m_channels(channels)
    , m_sides(std::min(2U, channels))
    , m_state(std::make_unique<State>(quint32(m_sides), sampleRate))
    , m_thread([this] { run(); })
{
}

KXAudioLoudness::~KXAudioLoudness()
{
    {
        const std::lock_guard lock(m_mutex);
        m_ends = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void KXAudioLoudness::add(const float *const *channels, int frames)
{
    m_interleaved.assign(size_t(frames) * m_sides, 0);
    for (quint32 c = 0; c < m_channels; ++c) {
        for (size_t i = 0; i < size_t(frames); ++i)
            m_interleaved[i * m_sides + c % m_sides]
                += std::abs(channels[c][i]) <= loudnessMostSample ? channels[c][i] : 0;
    }
    hand();
}

/// Waits for the block before.
void KXAudioLoudness::hand()
{
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_isMeasuring; });
        std::swap(m_interleaved, m_handed);
        m_isMeasuring = true;
    }
    m_changed.notify_all();
}

void KXAudioLoudness::run()
{
    for (;;) {
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_isMeasuring || m_ends; });
            if (m_ends)
                return;
        }
        if (m_state->meter)
            ebur128_add_frames_float(m_state->meter, m_handed.data(), m_handed.size() / m_sides);
        {
            const std::lock_guard lock(m_mutex);
            m_isMeasuring = false;
        }
        m_changed.notify_all();
    }
}

double KXAudioLoudness::lufs()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_isMeasuring; });
    double loudness = 0;
    const bool isMeasured = m_state->meter && ebur128_loudness_global(m_state->meter, &loudness) == EBUR128_SUCCESS;
    return isMeasured ? loudness : std::numeric_limits<double>::quiet_NaN();
}
