#include "ffmpeg/FFmpegModule.h"

#include <memory>

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

void collectTags(AVDictionary *dictionary, QMap<QByteArray, QByteArray> &tags)
{
    const AVDictionaryEntry *entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)))
        tags.insert(QByteArray(entry->key).toUpper(), entry->value);
}

/// Whether there are packets of at least a hundredth of a second: a header alone is no music.
bool hasSound(AVFormatContext *context, int index)
{
    AVPacket *packet = av_packet_alloc();
    double seconds = 0;
    while (seconds < 0.01 && av_read_frame(context, packet) >= 0) {
        if (packet->stream_index == index)
            seconds += double(packet->duration) * av_q2d(context->streams[index]->time_base);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    return seconds >= 0.01;
}

std::optional<AudioProbe> probed(const std::string &path)
{
    av_log_set_level(AV_LOG_QUIET);
    // Only formats of music files: others are recognised in nearly anything, text files for instance.
    AVDictionary *options = nullptr;
    av_dict_set(&options, "format_whitelist",
        "aac,aiff,ape,asf,au,caf,flac,matroska,webm,mov,mp4,m4a,mp3,mpc,mpc8,ogg,tta,wav,w64,wv", 0);
    AVFormatContext *context = nullptr;
    const int opened = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, &options);
    av_dict_free(&options);
    if (opened < 0)
        return std::nullopt;
    const std::unique_ptr<AVFormatContext, void (*)(AVFormatContext *)> closer(
        context, [](AVFormatContext *c) { avformat_close_input(&c); });
    if (avformat_find_stream_info(context, nullptr) < 0)
        return std::nullopt;
    const int index = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (index < 0)
        return std::nullopt;

    const AVStream *stream = context->streams[index];
    AudioProbe probe;
    probe.sampleRate = stream->codecpar->sample_rate;
    probe.channels = stream->codecpar->ch_layout.nb_channels;
    if (probe.sampleRate <= 0 || probe.channels <= 0 || !hasSound(context, index))
        return std::nullopt;
    if (context->duration > 0)
        probe.duration = double(context->duration) / AV_TIME_BASE;
    if (context->bit_rate > 0)
        probe.bitrate = int(context->bit_rate / 1000);
    collectTags(context->metadata, probe.tags);
    collectTags(stream->metadata, probe.tags);
    return probe;
}

} // namespace

void browserProbe(const std::string &path, std::optional<AudioProbe> &probe) { probe = probed(path); }
