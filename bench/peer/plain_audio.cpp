#include "peer/plain_audio.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

namespace plain {

namespace {

int check(int status)
{
    if (status < 0) {
        std::fprintf(stderr, "peer: status %d\n", status);
        std::exit(1);
    }
    return status;
}

}

struct AudioDecoder::Libraries
{
    AVFormatContext *file = nullptr;
    AVCodecContext *codec = nullptr;
    SwrContext *converter = nullptr;
    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    int stream = 0;
    int channels = 0;
    int offset = 0; // frames of `frame` that were delivered
    bool flushed = false;

    ~Libraries()
    {
        swr_free(&converter);
        avcodec_free_context(&codec);
        avformat_close_input(&file);
        av_packet_free(&packet);
        av_frame_free(&frame);
    }
};

AudioDecoder::AudioDecoder(const std::string &path)
    : m_(std::make_unique<Libraries>())
{
    check(avformat_open_input(&m_->file, path.c_str(), nullptr, nullptr));
    check(avformat_find_stream_info(m_->file, nullptr));
    const AVCodec *codec = nullptr;
    m_->stream = check(av_find_best_stream(m_->file, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0));
    m_->codec = avcodec_alloc_context3(codec);
    const AVStream *stream = m_->file->streams[m_->stream];
    check(avcodec_parameters_to_context(m_->codec, stream->codecpar));
    m_->codec->pkt_timebase = stream->time_base;
    m_->codec->thread_count = 1;
    check(avcodec_open2(m_->codec, codec, nullptr));
    m_->channels = m_->codec->ch_layout.nb_channels;
    if (m_->codec->sample_fmt != AV_SAMPLE_FMT_FLTP) {
        check(swr_alloc_set_opts2(&m_->converter, &m_->codec->ch_layout, AV_SAMPLE_FMT_FLTP, m_->codec->sample_rate,
            &m_->codec->ch_layout, m_->codec->sample_fmt, m_->codec->sample_rate, 0, nullptr));
        check(swr_init(m_->converter));
    }
}

AudioDecoder::~AudioDecoder() = default;

int AudioDecoder::channels() const { return m_->channels; }

bool AudioDecoder::nextFrame()
{
    m_->offset = 0;
    for (;;) {
        const int status = avcodec_receive_frame(m_->codec, m_->frame);
        if (status == 0)
            return true;
        if (status == AVERROR_EOF || m_->flushed) {
            av_frame_unref(m_->frame);
            return false;
        }
        int got = 0;
        while ((got = av_read_frame(m_->file, m_->packet)) >= 0 && m_->packet->stream_index != m_->stream)
            av_packet_unref(m_->packet);
        m_->flushed = got < 0;
        avcodec_send_packet(m_->codec, got < 0 ? nullptr : m_->packet);
        av_packet_unref(m_->packet);
    }
}

int AudioDecoder::read(float *const *channels, int frames)
{
    int done = 0;
    while (done < frames) {
        const int left = m_->frame->nb_samples - m_->offset;
        if (left == 0) {
            if (!nextFrame())
                break;
            continue;
        }
        const int count = std::min(left, frames - done);
        if (!m_->converter) {
            for (int c = 0; c < m_->channels; ++c)
                std::memcpy(channels[c] + done,
                    reinterpret_cast<const float *>(m_->frame->extended_data[c]) + m_->offset,
                    size_t(count) * sizeof(float));
        } else {
            const auto format = AVSampleFormat(m_->frame->format);
            const bool planar = av_sample_fmt_is_planar(format);
            const size_t skip
                = size_t(m_->offset) * size_t(av_get_bytes_per_sample(format)) * size_t(planar ? 1 : m_->channels);
            uint8_t *to[64];
            const uint8_t *from[64];
            for (int c = 0; c < m_->channels; ++c) {
                to[c] = reinterpret_cast<uint8_t *>(channels[c] + done);
                from[c] = m_->frame->extended_data[planar ? c : 0] + skip;
            }
            check(swr_convert(m_->converter, to, count, from, count));
        }
        m_->offset += count;
        done += count;
    }
    return done;
}

void mix(float *left, float *right, const float *const *channels, const float *gains, int count, int frames, float gain)
{
    std::memset(left, 0, size_t(frames) * sizeof(float));
    std::memset(right, 0, size_t(frames) * sizeof(float));
    for (int c = 0; c < count; ++c) {
        float *__restrict side = c % 2 ? right : left;
        const float *__restrict channel = channels[c];
        const float here = gains[c];
        for (int i = 0; i < frames; ++i)
            side[i] += channel[i] * here;
    }
    for (int i = 0; i < frames; ++i) {
        left[i] *= gain;
        right[i] *= gain;
    }
}

uint64_t xorSum(std::span<const uint64_t> words)
{
    uint64_t sum = 0;
    for (const uint64_t word : words)
        sum ^= word;
    return sum;
}

}
