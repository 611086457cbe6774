#include "ffmpeg/FFmpegModule.h"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

using namespace Qt::StringLiterals;

namespace {

struct EncoderFormat
{
    const char *muxer;
    const char *encoder;
    int bitRate; // bits a second; 0 where nothing is lost
};

const EncoderFormat &encoderFormat(AudioFormat format)
{
    static constexpr EncoderFormat formats[] = {
        { "wav", "pcm_s16le", 0 },
        { "aiff", "pcm_s16be", 0 },
        { "flac", "flac", 0 },
        { "mp3", "libmp3lame", 192000 },
        { "ipod", "aac", 160000 },
        { "ogg", "libvorbis", 160000 },
        { "opus", "libopus", 128000 },
    };
    return formats[size_t(format)];
}

/// One encoding: the muxer, the encoder and the converter to the encoder's sample format.
class Encoding
{
public:
    Encoding(const AudioBuffer &sound, AudioFormat format)
        : m_sound(sound)
        , m_format(encoderFormat(format))
    {
    }

    ~Encoding()
    {
        av_packet_free(&m_packet);
        av_frame_free(&m_frame);
        swr_free(&m_converter);
        avcodec_free_context(&m_encoder);
        if (m_file)
            avio_closep(&m_file->pb);
        avformat_free_context(m_file);
    }

    /// 0, or the error number of the first step that failed.
    int run(const std::string &path)
    {
        int error = open(path);
        for (size_t at = 0; error >= 0 && at < m_sound.frames();) {
            const int count = int(std::min<size_t>(m_chunk, m_sound.frames() - at));
            error = encode(at, count);
            at += size_t(count);
        }
        if (error >= 0)
            error = avcodec_send_frame(m_encoder, nullptr);
        if (error >= 0)
            error = writePackets();
        if (error >= 0)
            error = av_write_trailer(m_file);
        if (m_file && m_file->pb) {
            const int closed = avio_closep(&m_file->pb); // tells of a full disk
            error = error < 0 ? error : closed;
        }
        return error;
    }

private:
    int open(const std::string &path)
    {
        const std::string url = "file:" + path;
        const AVCodec *codec = avcodec_find_encoder_by_name(m_format.encoder);
        int error = codec ? avformat_alloc_output_context2(&m_file, nullptr, m_format.muxer, url.c_str())
                          : AVERROR_ENCODER_NOT_FOUND;
        if (error < 0)
            return error;
        m_file->flags |= AVFMT_FLAG_BITEXACT; // no times, versions or random serial numbers
        AVStream *stream = avformat_new_stream(m_file, nullptr);
        m_encoder = avcodec_alloc_context3(codec);
        m_frame = av_frame_alloc();
        m_packet = av_packet_alloc();
        if (!stream || !m_encoder || !m_frame || !m_packet)
            return AVERROR(ENOMEM);

        m_encoder->sample_rate = m_sound.sampleRate;
        m_encoder->time_base = { 1, m_sound.sampleRate };
        m_encoder->sample_fmt = codec->sample_fmts[0];
        m_encoder->bit_rate = m_format.bitRate;
        m_encoder->flags |= AV_CODEC_FLAG_BITEXACT;
        if (m_file->oformat->flags & AVFMT_GLOBALHEADER)
            m_encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        av_channel_layout_default(&m_encoder->ch_layout, int(m_sound.channels.size()));
        if ((error = avcodec_open2(m_encoder, codec, nullptr)) < 0)
            return error;
        m_chunk = m_encoder->frame_size > 0 ? size_t(m_encoder->frame_size) : 4096;
        stream->time_base = m_encoder->time_base;
        if ((error = avcodec_parameters_from_context(stream->codecpar, m_encoder)) < 0)
            return error;

        error = swr_alloc_set_opts2(&m_converter, &m_encoder->ch_layout, m_encoder->sample_fmt, m_sound.sampleRate,
            &m_encoder->ch_layout, AV_SAMPLE_FMT_FLTP, m_sound.sampleRate, 0, nullptr);
        if (error < 0 || (error = swr_init(m_converter)) < 0)
            return error;
        if ((error = avio_open(&m_file->pb, url.c_str(), AVIO_FLAG_WRITE)) < 0)
            return error;
        return avformat_write_header(m_file, nullptr);
    }

    int encode(size_t at, int count)
    {
        av_frame_unref(m_frame);
        m_frame->nb_samples = count;
        m_frame->format = m_encoder->sample_fmt;
        m_frame->sample_rate = m_sound.sampleRate;
        m_frame->pts = int64_t(at);
        int error = av_channel_layout_copy(&m_frame->ch_layout, &m_encoder->ch_layout);
        if (error < 0 || (error = av_frame_get_buffer(m_frame, 0)) < 0)
            return error;
        std::vector<const uint8_t *> input;
        for (const std::vector<float> &channel : m_sound.channels)
            input.push_back(reinterpret_cast<const uint8_t *>(channel.data() + at));
        error = swr_convert(m_converter, m_frame->extended_data, count, input.data(), count);
        if (error < 0 || (error = avcodec_send_frame(m_encoder, m_frame)) < 0)
            return error;
        return writePackets();
    }

    int writePackets()
    {
        for (;;) {
            const int error = avcodec_receive_packet(m_encoder, m_packet);
            if (error == AVERROR(EAGAIN) || error == AVERROR_EOF)
                return 0;
            if (error < 0)
                return error;
            m_packet->stream_index = 0;
            av_packet_rescale_ts(m_packet, m_encoder->time_base, m_file->streams[0]->time_base);
            if (const int written = av_interleaved_write_frame(m_file, m_packet); written < 0)
                return written;
        }
    }

    const AudioBuffer &m_sound;
    const EncoderFormat &m_format;
    AVFormatContext *m_file = nullptr;
    AVCodecContext *m_encoder = nullptr;
    SwrContext *m_converter = nullptr;
    AVFrame *m_frame = nullptr;
    AVPacket *m_packet = nullptr;
    size_t m_chunk = 0; // frames that the encoder takes at a time
};

} // namespace

void browserEncode(const AudioBuffer &sound, AudioFormat format, const std::string &path, QString &failure)
{
    av_log_set_level(AV_LOG_QUIET);
    const int error = Encoding(sound, format).run(path);
    if (error >= 0)
        return;
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    failure = u"cannot write audio: %1"_s.arg(QString::fromLocal8Bit(text));
}
