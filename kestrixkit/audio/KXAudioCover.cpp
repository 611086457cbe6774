#include <kestrixkit/audio/KXAudioCover.h>

#include <memory>

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>

extern "C" {
#include <libavformat/avformat.h>
}

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 coverMostBytes = 32 << 20; // of the picture as it is stored
constexpr qint64 coverMostPixels = 16 << 20; // which take four bytes each

struct CoverCloser
{
    void operator()(AVFormatContext *context) const { avformat_close_input(&context); }
};

/// The picture as it is stored in the tags; empty where there is none.
QByteArray coverInTags(const QString &path)
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
    if (!picture || picture->size > coverMostBytes)
        return {};
    return QByteArray(reinterpret_cast<const char *>(picture->data), picture->size);
}

QImage coverRead(QIODevice *device, QSize most)
{
    QImageReader reader(device);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (!size.isValid() || qint64(size.width()) * size.height() > coverMostPixels)
        return {};
    if (size.width() > most.width() || size.height() > most.height())
        reader.setScaledSize(size.scaled(most, Qt::KeepAspectRatio).expandedTo(QSize(1, 1)));
    return reader.read();
}

}

QImage KXAudioCover::imageOfFile(const QUrl &file, QSize most)
{
    const QFileInfo info(file.toLocalFile());
    if (!file.isLocalFile() || !info.isFile() || most.isEmpty()) // reading a pipe could wait for ever
        return {};
    if (QByteArray bytes = coverInTags(info.filePath()); !bytes.isEmpty()) {
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::ReadOnly);
        if (QImage image = coverRead(&buffer, most); !image.isNull())
            return image;
    }
    const QDir folder = info.dir();
    for (const auto name : { "cover"_L1, "folder"_L1, "Cover"_L1, "Folder"_L1 }) {
        for (const auto suffix : { ".jpg"_L1, ".png"_L1, ".jpeg"_L1 }) {
            QFile beside(folder.filePath(name + suffix));
            if (!QFileInfo(beside).isFile() || beside.size() > coverMostBytes || !beside.open(QIODevice::ReadOnly))
                continue;
            if (QImage image = coverRead(&beside, most); !image.isNull())
                return image;
        }
    }
    return {};
}
