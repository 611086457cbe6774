// kxtool audio render FILE OUT.wav: a player on an output that is cranked as fast as the decoder can fill it.

#include <thread>

#include <QCommandLineParser>
#include <QEventLoop>
#include <QSaveFile>
#include <QTimer>
#include <QtEndian>

#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/audio/KXCoreAudioFileDecoder.h>
#include <kestrixkit/audio/KXHandCrankedAudioOutput.h>
#include <kestrixkit/audio/KXMultiTrackAudioPlayer.h>

#include "AudioCommands.h"

using namespace Qt::StringLiterals;

namespace {

struct RenderItem : KXAudioPlayerItem
{
    explicit RenderItem(const QUrl &address)
        : url(address)
    {
    }
    QUrl audioFileURL() const override { return url; }
    const QUrl url;
};

/// Writes stereo floats as a WAV file, which shows up under its name when it is complete.
class WaveWriter
{
public:
    explicit WaveWriter(const QString &path)
        : m_file(path)
    {
        if (!m_file.open(QIODevice::WriteOnly))
            fail();
        m_file.write(QByteArray(headerBytes, '\0'));
    }

    void write(const float *left, const float *right, qint64 frames)
    {
        m_frames += frames;
        if (m_frames > mostFrames)
            throw Ending { Failed, u"%1: longer than a WAV file can be"_s.arg(m_file.fileName()) };
        QByteArray bytes(frames * frameBytes, Qt::Uninitialized);
        for (qint64 i = 0; i < frames; ++i) {
            qToLittleEndian(left[i], bytes.data() + i * frameBytes);
            qToLittleEndian(right[i], bytes.data() + i * frameBytes + 4);
        }
        if (m_file.write(bytes) != bytes.size())
            fail();
    }

    void finish(quint32 rate)
    {
        const auto dataBytes = quint32(m_frames * frameBytes);
        QByteArray header;
        const auto add = [&](auto number) {
            char bytes[sizeof number];
            qToLittleEndian(number, bytes);
            header.append(bytes, sizeof number);
        };
        header.append("RIFF");
        add(quint32(headerBytes - 8 + dataBytes));
        header.append("WAVEfmt ");
        add(quint32(16));
        add(quint16(3)); // floats
        add(quint16(2)); // channels
        add(rate);
        add(rate * frameBytes);
        add(quint16(frameBytes));
        add(quint16(32)); // bits
        header.append("fact");
        add(quint32(4));
        add(quint32(m_frames));
        header.append("data");
        add(dataBytes);
        if (!m_file.seek(0) || m_file.write(header) != headerBytes || !m_file.commit())
            fail();
    }

private:
    [[noreturn]] void fail() { throw Ending { Failed, u"%1: %2"_s.arg(m_file.fileName(), m_file.errorString()) }; }

    static constexpr int headerBytes = 56;
    static constexpr int frameBytes = 8;
    static constexpr qint64 mostFrames = (0xFFFFFFFF - headerBytes) / frameBytes;
    QSaveFile m_file;
    qint64 m_frames = 0;
};

/// Runs the event loop until the condition holds, asking for it again and again.
template <typename Condition> void runUntil(Condition condition)
{
    QEventLoop loop;
    QTimer timer;
    std::exception_ptr failure;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        try {
            if (condition())
                loop.quit();
        } catch (...) {
            failure = std::current_exception();
            loop.quit();
        }
    });
    timer.start(0);
    loop.exec();
    if (failure)
        std::rethrow_exception(failure);
}

/// Goes to a time. A file so short that it lies in the player's buffer as a whole cannot be positioned any more: then
/// the answer is how many frames are to be left out.
qint64 seek(KXAudioPlayer &player, double seconds, double rate)
{
    player.setTime(seconds);
    const auto *multiTrack = qobject_cast<KXMultiTrackAudioPlayer *>(&player);
    bool isTooLate = false;
    runUntil([&] {
        isTooLate = multiTrack && multiTrack->currentFileDecoder()->state() == KXCoreAudioFileDecoderStateFinished;
        return isTooLate || !player.isSeeking();
    });
    return isTooLate && player.isSeeking() ? qint64(player.currentTime() * rate) : 0;
}

} // namespace

ExitStatus renderAudio(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions({ { u"player"_s, {}, u"player"_s, u"basic"_s }, { u"volume"_s, {}, u"V"_s },
        { u"mute"_s, {}, u"channels"_s }, { u"seek"_s, {}, u"seconds"_s }, { u"duration"_s, {}, u"seconds"_s } });
    const QStringList files = positionalArguments(parser, arguments, 2);
    const QString kind = parser.value(u"player"_s);
    const double volume = numberOption(parser, u"volume"_s, 1);
    const double from = numberOption(parser, u"seek"_s, 0);
    const double duration = numberOption(parser, u"duration"_s, 1e12);
    const QStringList muted = parser.value(u"mute"_s).split(u',', Qt::SkipEmptyParts);
    if (kind != u"basic"_s && kind != u"multitrack"_s)
        throw Ending { WrongInput, u"--player takes basic or multitrack"_s };
    if (volume > 1)
        throw Ending { WrongInput, u"--volume takes a number from 0 to 1"_s };
    if (!muted.isEmpty() && kind != u"multitrack"_s)
        throw Ending { WrongInput, u"--mute needs --player multitrack"_s };

    const auto output = std::make_shared<KXHandCrankedAudioOutput>();
    std::unique_ptr<KXAudioPlayer> player;
    KXMultiTrackAudioPlayer *multiTrack = nullptr;
    if (kind == u"multitrack"_s)
        player.reset(multiTrack = new KXMultiTrackAudioPlayer(output));
    else
        player = std::make_unique<KXBasicAudioPlayer>(output);
    player->setVolume(float(volume));
    player->playItem(std::make_shared<RenderItem>(audioUrl(files.at(0))));
    runUntil([&] { return player->state() != KXAudioPlayerStateLoading; });
    if (player->state() == KXAudioPlayerStateStopped)
        throw Ending { WrongInput, u"%1 cannot be played"_s.arg(files.at(0)) };
    for (const QString &text : muted) {
        bool isNumber = false;
        const int channel = text.trimmed().toInt(&isNumber);
        if (!isNumber || channel < 0 || channel >= multiTrack->numberOfChannels())
            throw Ending { WrongInput,
                u"--mute: there is no channel %1 (of %2)"_s.arg(text).arg(multiTrack->numberOfChannels()) };
        multiTrack->muteChannel(channel);
    }
    const double rate = output->sampleRate();
    qint64 left = from > 0 ? seek(*player, from, rate) : 0;
    qint64 wanted = qint64(std::min(duration * rate, 1e15));

    WaveWriter writer(files.at(1));
    constexpr int pass = 2048;
    float sides[2][pass];
    runUntil([&] {
        for (int got = 1; got > 0 && wanted > 0;) {
            got = output->crank(sides[0], sides[1], int(std::min<qint64>(pass, left + wanted)));
            const int skipped = int(std::min<qint64>(left, got));
            writer.write(sides[0] + skipped, sides[1] + skipped, got - skipped);
            left -= skipped;
            wanted -= got - skipped;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100)); // the decoder fills the buffer meanwhile
        return wanted <= 0 || player->state() != KXAudioPlayerStatePlaying;
    });
    if (player->state() == KXAudioPlayerStateStopped)
        throw Ending { Failed, u"%1 broke off"_s.arg(files.at(0)) };
    writer.finish(quint32(rate));
    return Done;
}
