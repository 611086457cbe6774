#include <kestrixkit/audio/KXAudioResampler_p.h>

#include <cmath>

namespace {

constexpr int resamplerPiece = 1024; // frames given out at a time
constexpr int resamplerSlack = 256; // what the filter may give out beyond the ratio

}

KXAudioResampler::KXAudioResampler(double fromRate, double toRate)
{
    const KXFFmpeg *const libraries = fromRate >= 1 && toRate >= 1 ? KXFFmpeg::shared() : nullptr;
    m_converter = libraries ? libraries->rateConverter(int(fromRate), int(toRate)) : nullptr;
    if (!m_converter)
        return;
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
    if (!m_converter)
        return;
    if (!m_converter->reset()) {
        m_converter.reset();
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
    const float *const in[] = { m_in[0].data(), m_in[1].data() };
    float *const out[] = { m_out[0].data() + m_ready, m_out[1].data() + m_ready };
    const int converted = m_converter->convert(out, int(m_out[0].size()) - m_ready, in, PullFrames);
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
