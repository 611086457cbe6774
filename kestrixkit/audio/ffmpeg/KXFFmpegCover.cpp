#include <kestrixkit/audio/ffmpeg/KXFFmpegLibraries_p.h>

#include <QFile>

extern "C" {
#include <libavformat/avformat.h>
}

namespace {

struct CoverCloser
{
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};

}

QByteArray KXFFmpegLibraries::cover(const QString &path, qint64 mostBytes) const
{
    AVDictionary *options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    AVFormatContext *opened = nullptr;
    const QByteArray address = "file:" + QFile::encodeName(path);
    const int status = avformat_open_input(&opened, address.constData(), nullptr, &options);
    av_dict_free(&options);
    const std::unique_ptr<AVFormatContext, CoverCloser> context(status == 0 ? opened : nullptr);
    const AVPacket *picture = nullptr;
    for (unsigned i = 0; context && i < context->nb_streams; ++i) {
        const AVStream &stream = *context->streams[i];
        if (!(stream.disposition & AV_DISPOSITION_ATTACHED_PIC) || stream.attached_pic.size <= 0)
            continue;
        const AVDictionaryEntry *kind = av_dict_get(stream.metadata, "comment", nullptr, 0);
        const bool isFront = kind && qstrcmp(kind->value, "Cover (front)") == 0; // as the demuxers name it
        if (!picture || isFront)
            picture = &stream.attached_pic;
        if (isFront)
            break;
    }
    if (!picture || picture->size > mostBytes)
        return {};
    return QByteArray(reinterpret_cast<const char *>(picture->data), picture->size);
}
