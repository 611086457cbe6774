#include "AudioFiles.h"

#include <cmath>
#include <memory>
#include <random>
#include <stdexcept>

#include <QDataStream>
#include <QFile>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

int audioCheck(int status, const char *step)
{
    if (status >= 0)
        return status;
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(status, text, sizeof text);
    throw std::runtime_error(std::string(step) + ": " + text);
}

struct AudioFreed
{
    void operator()(AVCodecContext *context) const { avcodec_free_context(&context); }
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
    void operator()(AVPacket *packet) const { av_packet_free(&packet); }
    void operator()(SwrContext *context) const { swr_free(&context); }
    void operator()(AVFormatContext *context) const
    {
        avio_closep(&context->pb);
        avformat_free_context(context);
    }
};

class AudioWriter
{
public:
    AudioWriter(const AudioSamples &sound, const AudioRecipe &recipe, const std::string &path)
    {
        const int channels = int(sound.channels.size());
        const AVCodec *codec = avcodec_find_encoder_by_name(recipe.encoder);
        if (!codec)
            throw std::runtime_error(std::string("no encoder ") + recipe.encoder);
        AVFormatContext *file = nullptr;
        audioCheck(avformat_alloc_output_context2(&file, nullptr, recipe.muxer, path.c_str()), "container");
        m_file.reset(file);
        file->flags |= AVFMT_FLAG_BITEXACT;
        AVStream *stream = avformat_new_stream(file, nullptr);
        m_encoder.reset(avcodec_alloc_context3(codec));
        m_encoder->sample_rate = sound.rate;
        m_encoder->time_base = { 1, sound.rate };
        m_encoder->sample_fmt = codec->sample_fmts[0];
        m_encoder->bit_rate = recipe.bitRate;
        m_encoder->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
        if (file->oformat->flags & AVFMT_GLOBALHEADER)
            m_encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        av_channel_layout_default(&m_encoder->ch_layout, channels);
        for (const auto &[key, value] : recipe.options) {
            if (av_opt_set(m_encoder.get(), key, value, AV_OPT_SEARCH_CHILDREN) < 0
                && av_opt_set(file, key, value, AV_OPT_SEARCH_CHILDREN) < 0)
                throw std::runtime_error(std::string("no option ") + key);
        }
        if (recipe.options.empty() || m_encoder->global_quality == 0)
            m_encoder->flags &= ~AV_CODEC_FLAG_QSCALE;
        else
            m_encoder->flags |= AV_CODEC_FLAG_QSCALE;
        audioCheck(avcodec_open2(m_encoder.get(), codec, nullptr), "encoder");
        audioCheck(avcodec_parameters_from_context(stream->codecpar, m_encoder.get()), "parameters");
        stream->time_base = m_encoder->time_base;

        SwrContext *converter = nullptr;
        AVChannelLayout &layout = m_encoder->ch_layout;
        audioCheck(swr_alloc_set_opts2(&converter, &layout, m_encoder->sample_fmt, sound.rate, &layout,
                       AV_SAMPLE_FMT_FLTP, sound.rate, 0, nullptr),
            "converter");
        m_converter.reset(converter);
        audioCheck(swr_init(converter), "converter");
        audioCheck(avio_open(&file->pb, path.c_str(), AVIO_FLAG_WRITE), "file");
        audioCheck(avformat_write_header(file, nullptr), "header");

        const size_t chunk = m_encoder->frame_size > 0 ? size_t(m_encoder->frame_size) : 4096;
        for (size_t at = 0; at < sound.frames(); at += chunk)
            encode(sound, at, int(std::min(chunk, sound.frames() - at)));
        audioCheck(avcodec_send_frame(m_encoder.get(), nullptr), "flush");
        writePackets();
        audioCheck(av_write_trailer(file), "trailer");
    }

private:
    void encode(const AudioSamples &sound, size_t at, int count)
    {
        AVFrame *frame = m_frame.get();
        av_frame_unref(frame);
        frame->nb_samples = count;
        frame->format = m_encoder->sample_fmt;
        frame->sample_rate = sound.rate;
        frame->pts = int64_t(at);
        audioCheck(av_channel_layout_copy(&frame->ch_layout, &m_encoder->ch_layout), "layout");
        audioCheck(av_frame_get_buffer(frame, 0), "buffer");
        std::vector<const uint8_t *> input;
        for (const std::vector<float> &channel : sound.channels)
            input.push_back(reinterpret_cast<const uint8_t *>(channel.data() + at));
        audioCheck(swr_convert(m_converter.get(), frame->extended_data, count, input.data(), count), "convert");
        audioCheck(avcodec_send_frame(m_encoder.get(), frame), "encode");
        writePackets();
    }

    void writePackets()
    {
        while (avcodec_receive_packet(m_encoder.get(), m_packet.get()) >= 0) {
            m_packet->stream_index = 0;
            av_packet_rescale_ts(m_packet.get(), m_encoder->time_base, m_file->streams[0]->time_base);
            audioCheck(av_interleaved_write_frame(m_file.get(), m_packet.get()), "write");
        }
    }

    std::unique_ptr<AVFormatContext, AudioFreed> m_file;
    std::unique_ptr<AVCodecContext, AudioFreed> m_encoder;
    std::unique_ptr<SwrContext, AudioFreed> m_converter;
    std::unique_ptr<AVFrame, AudioFreed> m_frame { av_frame_alloc() };
    std::unique_ptr<AVPacket, AudioFreed> m_packet { av_packet_alloc() };
};

}

AudioSamples makeSound(size_t frames, int channels, int rate)
{
    AudioSamples sound { rate, {} };
    std::minstd_rand random(17);
    std::uniform_real_distribution<float> noise(-0.1F, 0.1F);
    for (int c = 0; c < channels; ++c) {
        std::vector<float> &samples = sound.channels.emplace_back(frames);
        double phase = c;
        for (size_t i = 0; i < frames; ++i) {
            phase += (100 + 40 * c + 2000.0 * double(i) / double(frames + 1)) * 6.283185307 / rate;
            samples[i] = 0.5F * float(std::sin(phase)) + noise(random);
        }
    }
    return sound;
}

QString writeSound(const AudioSamples &sound, const AudioRecipe &recipe, const QString &dir)
{
    av_log_set_level(AV_LOG_QUIET);
    const QString path = dir + QLatin1Char('/') + QLatin1StringView(recipe.name) + QLatin1Char('.')
        + QLatin1StringView(recipe.extension);
    AudioWriter(sound, recipe, "file:" + path.toStdString());
    return path;
}

QString writePlainWave(const AudioSamples &sound, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw std::runtime_error("not written");
    QDataStream out(&file);
    out.setByteOrder(QDataStream::LittleEndian);
    const auto channels = quint32(sound.channels.size());
    const auto bytes = quint32(sound.frames() * channels * 2);
    out.writeRawData("RIFF", 4);
    out << (36 + bytes);
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(channels) << quint32(sound.rate) << quint32(sound.rate) * channels * 2
        << quint16(channels * 2) << quint16(16);
    out.writeRawData("data", 4);
    out << bytes;
    for (size_t i = 0; i < sound.frames(); ++i) {
        for (const std::vector<float> &channel : sound.channels)
            out << qint16(channel[i] * 32'767);
    }
    return path;
}
