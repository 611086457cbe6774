// The guide's pages about sound.

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/audio/KXClockAudioOutput.h>
#include <kestrixkit/audio/KXWaveformGenerator.h>
#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include <support/AudioFiles.h>

using namespace Qt::StringLiterals;

namespace {

//! [item]
struct PreviewItem : KXAudioPlayerItem
{
    QUrl url;
    QUrl audioFileURL() const override { return url; } // a local file, or a stream over http
};
//! [item]

}

TEST(GuideAudio, playsAndDraws)
{
    const QTemporaryDir folder;
    const QUrl file = QUrl::fromLocalFile(writePlainWave(makeSound(8000, 2, 8000), folder.filePath(u"loop.wav"_s)));
    const auto output = std::make_shared<KXClockAudioOutput>(); // of a machine without sound
    //! [player]
    KXBasicAudioPlayer player(output); // without an output of your own: the default device
    player.setVolume(0.8F); // 0 at first
    const auto item = std::make_shared<PreviewItem>();
    item->url = file;
    player.playItem(item); // opened on a thread of its own
    //! [player]
    QStringList states;
    //! [player-state]
    QObject::connect(&player, &KXAudioPlayer::stateChanged, [&] {
        if (player.state() == KXAudioPlayerStatePlaying)
            states << u"playing, %1 seconds long"_s.arg(player.duration());
    });
    //! [player-state]
    EXPECT_TRUE(QTest::qWaitFor([&] { return player.state() == KXAudioPlayerStatePlaying; }, 60'000));
    player.stop();

    QList<QImage> pictures;
    //! [waveform]
    KXOperationQueue queue;
    const auto generator = std::make_shared<KXWaveformGenerator>(file, QSizeF(300, 60), QColor(Qt::white));
    generator->setSumAllChannels(true);
    generator->setSuccessBlock([&](const QList<QImage> &images) { pictures = images; }); // on the main thread
    queue.addOperation(generator);
    //! [waveform]
    EXPECT_TRUE(QTest::qWaitFor([&] { return !pictures.isEmpty(); }, 60'000));
    EXPECT_EQ(pictures.first().size(), QSize(300, 60));
    const QString path = folder.filePath(u"waveforms"_s);
    //! [waveform-library]
    KXWaveformLibrary waveforms(path); // made once for each file, and kept
    const KXWaveformColumns *columns = waveforms.overview(file); // null until ready() says so
    //! [waveform-library]
    EXPECT_TRUE(columns || QTest::qWaitFor([&] { return waveforms.overview(file) != nullptr; }, 60'000));
}
