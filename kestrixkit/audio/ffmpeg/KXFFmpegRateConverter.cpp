#include <kestrixkit/audio/ffmpeg/KXFFmpegLibraries_p.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace {

class RateConverter : public KXRateConverter
{
public:
    explicit RateConverter(SwrContext *context)
        : m_context(context)
    {
    }
    ~RateConverter() override { swr_free(&m_context); }
    Q_DISABLE_COPY_MOVE(RateConverter)

    bool reset() override { return swr_init(m_context) >= 0; }
    int convert(float *const *out, int room, const float *const *in, int frames) noexcept override
    {
        uint8_t *to[] = { reinterpret_cast<uint8_t *>(out[0]), reinterpret_cast<uint8_t *>(out[1]) };
        const uint8_t *from[] = { reinterpret_cast<const uint8_t *>(in[0]), reinterpret_cast<const uint8_t *>(in[1]) };
        return swr_convert(m_context, to, room, from, frames);
    }

private:
    SwrContext *m_context;
};

}

std::unique_ptr<KXRateConverter> KXFFmpegLibraries::rateConverter(int from, int to) const
{
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    SwrContext *context = nullptr;
    if (swr_alloc_set_opts2(&context, &stereo, AV_SAMPLE_FMT_FLTP, to, &stereo, AV_SAMPLE_FMT_FLTP, from, 0, nullptr)
        < 0)
        return nullptr;
    return std::make_unique<RateConverter>(context);
}
