#include <kestrixkit/audio/KXAudioResampler_p.h>

#include <cmath>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace {

constexpr int resamplerPiece = 1024; // frames given out at a time
constexpr int resamplerSlack = 256; // what the filter may give out beyond the ratio

}

void KXAudioResampler::Deleter::operator()(SwrContext *context) const { swr_free(&context); }

KXAudioResampler::KXAudioResampler(double fromRate, double toRate)
{
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    SwrContext *context = nullptr;
    if (!(fromRate >= 1) || !(toRate >= 1)
        || swr_alloc_set_opts2(&context, &stereo, AV_SAMPLE_FMT_FLTP, int(toRate), &stereo, AV_SAMPLE_FMT_FLTP,
               int(fromRate), 0, nullptr)
            < 0)
        return;
    m_context.reset(context);
    const auto most = size_t(resamplerPiece + std::ceil(PullFrames * toRate / fromRate) + resamplerSlack);
    for (std::vector<float> &side : m_in)
        side.resize(PullFrames);
    for (std::vector<float> &side : m_out)
        side.resize(most);
    reset();
}

KXAudioResampler::~KXAudioResampler() = default;

void KXAudioResampler::reset()
{
    if (!m_context)
        return;
    if (swr_init(m_context.get()) < 0) {
        m_context.reset();
        return;
    }
    for (std::vector<float> &side : m_in)
        std::fill(side.begin(), side.end(), 0.0F);
    // Silence makes the library's own buffers as large as they get.
    for (int i = 0; i < 64; ++i) {
        m_ready = 0;
        pull(nullptr);
    }
    m_ready = m_heard = 0;
}

void KXAudioResampler::pull(KXAudioRenderSource *source) noexcept
{
    const int got = source ? source->render(m_in[0].data(), m_in[1].data(), PullFrames) : 0;
    const uint8_t *in[]
        = { reinterpret_cast<const uint8_t *>(m_in[0].data()), reinterpret_cast<const uint8_t *>(m_in[1].data()) };
    uint8_t *out[] = { reinterpret_cast<uint8_t *>(m_out[0].data() + m_ready),
        reinterpret_cast<uint8_t *>(m_out[1].data() + m_ready) };
    const int converted = swr_convert(m_context.get(), out, int(m_out[0].size()) - m_ready, in, PullFrames);
    m_ready += std::max(0, converted);
    if (got > 0)
        m_heard = m_ready;
}

int KXAudioResampler::render(KXAudioRenderSource &source, float *left, float *right, int frames) noexcept
{
    bool isHeard = false;
    for (int done = 0; done < frames;) {
        const int count = std::min(frames - done, resamplerPiece);
        // At the least rates several pulls may give out nothing.
        for (int pulls = 0; m_ready < count && pulls < 100'000; ++pulls)
            pull(&source);
        isHeard = isHeard || m_heard > 0;
        float *const sides[] = { left, right };
        for (int side = 0; side < 2; ++side) {
            float *const out = m_out[side].data();
            std::copy_n(out, count, sides[side] + done);
            std::copy(out + count, out + std::max(count, m_ready), out);
        }
        m_ready = std::max(0, m_ready - count);
        m_heard = std::max(0, m_heard - count);
        done += count;
    }
    return isHeard ? frames : 0;
}
