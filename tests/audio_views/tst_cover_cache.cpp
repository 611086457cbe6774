// Covers that are read while a view scrolls.

#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/audio/views/KXAudioCoverCache.h>

#include <support/AudioFiles.h>

using namespace Qt::StringLiterals;

TEST(CoverCache, readsInTheBackgroundWhatIsAskedForLast)
{
    QTemporaryDir folder;
    const auto file = [&](const QString &name) {
        const QDir album(folder.filePath(name));
        EXPECT_TRUE(QDir().mkpath(album.path()));
        const QString path = album.filePath(u"track.wav"_s);
        writePlainWave(makeSound(100), path);
        return QUrl::fromLocalFile(path);
    };
    const QUrl pictured = file(u"pictured"_s), bare = file(u"bare"_s);
    QImage picture(300, 200, QImage::Format_RGB32);
    picture.fill(Qt::red);
    ASSERT_TRUE(picture.save(folder.filePath(u"pictured/cover.png"_s)));

    KXAudioCoverCache cache({ 32, 32 });
    QList<QUrl> read;
    QObject::connect(&cache, &KXAudioCoverCache::didRead, [&](const QUrl &url) { read += url; });
    EXPECT_TRUE(cache.cover(pictured).isNull());
    EXPECT_TRUE(cache.cover(pictured).isNull()); // painted once more meanwhile
    EXPECT_TRUE(cache.cover(bare).isNull());
    ASSERT_TRUE(QTest::qWaitFor([&] { return read.size() == 2; }));
    const QIcon cover = cache.cover(pictured);
    EXPECT_EQ(cover.availableSizes(), (QList<QSize> { { 32, 21 } }));
    EXPECT_EQ(cover.pixmap(32).toImage().pixelColor(5, 5), QColor(Qt::red));
    EXPECT_TRUE(cache.cover(bare).isNull());
    QTest::qWait(50);
    EXPECT_EQ(read.size(), 2); // that there is none is known

    // A long list is scrolled through: what is seen at the end comes first, what was passed long ago not at all.
    cache.clear();
    read.clear();
    QList<QUrl> many;
    for (int i = 0; i < 1000; ++i)
        (void)cache.cover(many.emplaceBack(QUrl::fromLocalFile(folder.filePath(u"none/%1.mp3"_s.arg(i)))));
    ASSERT_TRUE(QTest::qWaitFor([&] { return read.size() == KXAudioCoverCache::MostWaiting + 1; }));
    EXPECT_EQ(read[1], many.last());
    EXPECT_FALSE(read.contains(many[500]));

    // Whoever hears of it ends the cache, with more to come.
    auto doomed = std::make_unique<KXAudioCoverCache>(QSize(32, 32));
    QObject::connect(doomed.get(), &KXAudioCoverCache::didRead, [&] { doomed.reset(); });
    (void)doomed->cover(pictured);
    (void)doomed->cover(bare);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !doomed; }));
}
