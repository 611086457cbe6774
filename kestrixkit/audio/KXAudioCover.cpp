#include <kestrixkit/audio/KXAudioCover.h>

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>

#include <kestrixkit/audio/KXFFmpeg_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 coverMostBytes = 32 << 20; // of the picture as it is stored
constexpr qint64 coverMostPixels = 16 << 20; // which take four bytes each

QByteArray coverInTags(const QString &path)
{
    const KXFFmpeg *const libraries = KXFFmpeg::shared();
    return libraries ? libraries->cover(path, coverMostBytes) : QByteArray();
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
