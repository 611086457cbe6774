// Pictures in tags and beside files, whole and broken.

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioCover.h>

#include <support/AudioFiles.h>

using namespace Qt::StringLiterals;

namespace {

constexpr QSize coverSize(64, 64);

QByteArray coverPicture(QSize size, Qt::GlobalColor colour, const char *format = "PNG")
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, format);
    return bytes;
}

/// Four bytes of a number, of so many bits each.
QByteArray coverNumber(qsizetype number, int bits)
{
    QByteArray bytes;
    for (int i = 3; i >= 0; --i)
        bytes.append(char((number >> (i * bits)) & ((1 << bits) - 1)));
    return bytes;
}

/// An MP3 with pictures of these kinds (3 is the front cover) in an ID3v2.3 tag.
QUrl coverFile(const QString &folder, const QList<std::pair<char, QByteArray>> &pictures)
{
    QByteArray frames;
    for (const auto &[kind, picture] : pictures) {
        const QByteArray content = QByteArray("\0image/png\0", 11) + kind + QByteArray(1, '\0') + picture;
        frames += "APIC" + coverNumber(content.size(), 8) + QByteArray(2, '\0') + content;
    }
    const QString path = writeSound(makeSound(20'000), { "a", "mp3", "mp3", "libmp3lame", 128'000 }, folder);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadWrite));
    const QByteArray sound = file.readAll();
    file.resize(0);
    file.write(QByteArray("ID3\x03\0\0", 6) + coverNumber(frames.size(), 7) + frames + sound);
    return QUrl::fromLocalFile(path);
}

}

TEST(Cover, isTheFrontOneOfTheTagsOrLiesBesideTheFile)
{
    const QTemporaryDir folder;
    const QByteArray red = coverPicture({ 200, 100 }, Qt::red), blue = coverPicture({ 30, 40 }, Qt::blue);
    const QImage front
        = KXAudioCover::imageOfFile(coverFile(folder.path(), { { '\x04', blue }, { '\x03', red } }), coverSize);
    EXPECT_EQ(front.size(), QSize(64, 32)) << "scaled down, in shape";
    EXPECT_EQ(front.pixelColor(5, 5), QColor(Qt::red));
    const QImage back = KXAudioCover::imageOfFile(coverFile(folder.path(), { { '\x04', blue } }), coverSize);
    EXPECT_EQ(back.size(), QSize(30, 40)) << "not scaled up";

    const QUrl bare = coverFile(folder.path(), {});
    EXPECT_TRUE(KXAudioCover::imageOfFile(bare, coverSize).isNull());
    QFile beside(folder.filePath(u"folder.png"_s));
    ASSERT_TRUE(beside.open(QIODevice::WriteOnly) && beside.write(blue) > 0 && beside.flush());
    EXPECT_EQ(KXAudioCover::imageOfFile(bare, coverSize).pixelColor(5, 5), QColor(Qt::blue));
    EXPECT_TRUE(KXAudioCover::imageOfFile(bare, {}).isNull());
    EXPECT_TRUE(KXAudioCover::imageOfFile(QUrl(u"http://localhost/a.mp3"_s), coverSize).isNull());
    EXPECT_TRUE(KXAudioCover::imageOfFile(QUrl::fromLocalFile(folder.path()), coverSize).isNull());
}

TEST(Cover, whatIsBrokenOrTooLargeIsNone)
{
    const QTemporaryDir folder;
    QByteArray bomb = coverPicture({ 8, 8 }, Qt::green, "BMP");
    bomb.replace(18, 8, QByteArray("\x60\xea\0\0\x60\xea\0\0", 8)); // 60,000 by 60,000
    const QByteArray whole = coverPicture({ 80, 80 }, Qt::red);
    for (const QByteArray &picture : { bomb, QByteArray("no picture"), QByteArray(), whole.first(40) }) {
        const QUrl file = coverFile(folder.path(), { { '\x03', picture } });
        EXPECT_TRUE(KXAudioCover::imageOfFile(file, coverSize).isNull());
    }
    // A tag that ends before its picture does.
    const QUrl file = coverFile(folder.path(), { { '\x03', whole } });
    ASSERT_TRUE(QFile::resize(file.toLocalFile(), 60));
    EXPECT_TRUE(KXAudioCover::imageOfFile(file, coverSize).isNull());
}
