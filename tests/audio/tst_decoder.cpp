// The decoder on a back end that does as it is told.

#include <condition_variable>
#include <thread>

#include <QTest>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXCoreAudioFileDecoder.h>

#include <support/KXTestLog.h>

using namespace Qt::StringLiterals;

namespace {

/// What the fake file does, shared by test and back end.
struct FakeFile
{
    std::map<std::string, int> failures; // by step
    qint64 length = 10'000;
    qint64 promised = 10'000;
    bool exact = true;
    int lastStatus = 0; // beside the last frames, instead of 0
    std::atomic<qint64> available = std::numeric_limits<qint64>::max(); // less: grows
    std::atomic<int> pendingReads = 0;
};

class FakeBackend : public KXAudioFileBackend
{
public:
    explicit FakeBackend(std::shared_ptr<FakeFile> file)
        : m_file(std::move(file))
    {
    }
    int step(const char *name) const { return m_file->failures.contains(name) ? m_file->failures[name] : 0; }
    KXAudioFileStatus open(const QUrl &, const KXAudioFileOptions &) override { return step("open"); }
    KXAudioFileStatus dataFormat(KXStreamFormat *format) override
    {
        *format = KXPlanarFloatFormat(8000, 1);
        return step("format");
    }
    KXAudioFileStatus lengthInFrames(qint64 *frames) override
    {
        *frames = m_file->promised;
        return step("length");
    }
    KXAudioFileStatus setClientFormat(const KXStreamFormat &format) override
    {
        return format.mChannelsPerFrame == 1 ? step("client") : -50;
    }
    KXAudioFileStatus seek(qint64 frame) override
    {
        if (const int status = step("seek"))
            return status;
        m_position = frame;
        return 0;
    }
    KXAudioFileStatus read(float *const *channels, quint32 frames, quint32 *done) override
    {
        *done
            = quint32(std::clamp<qint64>(std::min<qint64>(m_file->length, m_file->available) - m_position, 0, frames));
        for (quint32 i = 0; i < *done; ++i)
            channels[0][i] = float(m_position + i);
        m_position += *done;
        if (*done == 0 && m_position < m_file->length) {
            ++m_file->pendingReads;
            return KXAudioFileInvalidFileError;
        }
        return m_position >= m_file->length ? m_file->lastStatus : 0;
    }
    [[nodiscard]] bool lengthIsExact() const override { return m_file->exact; }

private:
    const std::shared_ptr<FakeFile> m_file;
    qint64 m_position = 0;
};

/// Takes as many chunks as it is allowed to, and notes what happens.
class Taker : public KXCoreAudioFileDecoderDelegate
{
public:
    KXStreamFormat outputDescriptionFor(KXCoreAudioFileDecoder &, const KXStreamFormat &format) override
    {
        return format;
    }
    void willStartDecoding(KXCoreAudioFileDecoder &decoder) override
    {
        if (cancelAtStart)
            decoder.setState(KXCoreAudioFileDecoderStateCancelled);
    }
    void willSeekToFrame(KXCoreAudioFileDecoder &, qint64 frame) override { note("seek " + std::to_string(frame)); }
    bool didDecodeAudioData(KXCoreAudioFileDecoder &, const KXAudioBufferList &data, quint32 frames) override
    {
        isHeld.wait(true);
        const bool room = allowed-- > 0;
        const int first = int(static_cast<const float *>(data.mBuffers[0].mData)[0]);
        note((room ? "took " : "refused ") + std::to_string(first) + "+" + std::to_string(frames));
        return room;
    }
    [[nodiscard]] std::vector<std::string> notes() const
    {
        const std::lock_guard lock(m_mutex);
        return m_notes;
    }
    bool cancelAtStart = false;
    std::atomic<int> allowed = 1000;
    std::atomic<bool> isHeld = false;

private:
    void note(const std::string &text)
    {
        const std::lock_guard lock(m_mutex);
        m_notes.push_back(text);
    }
    mutable std::mutex m_mutex;
    std::vector<std::string> m_notes;
};

class Decoder : public ::testing::Test
{
protected:
    Decoder()
    {
        KXAudioFile::setBackendFactory([file = file](const QUrl &) { return std::make_unique<FakeBackend>(file); });
        decoder->setDelegate(taker);
    }
    ~Decoder() override
    {
        decoder->setState(KXCoreAudioFileDecoderStateCancelled);
        decoder->waitUntilDone();
        KXAudioFile::setBackendFactory({});
    }
    bool waitForState(KXCoreAudioFileDecoderState state)
    {
        return QTest::qWaitFor([&] { return decoder->state() == state; }, 60'000);
    }

    std::shared_ptr<FakeFile> file = std::make_shared<FakeFile>();
    std::shared_ptr<Taker> taker = std::make_shared<Taker>();
    std::shared_ptr<KXCoreAudioFileDecoder> decoder = std::make_shared<KXCoreAudioFileDecoder>(QUrl(u"fake:file"_s));
    using Notes = std::vector<std::string>;
};

}

TEST_F(Decoder, namesTheStepThatFailed)
{
    const std::pair<const char *, const char *> steps[] = { { "open", "Failed to open file (-7)" },
        { "format", "Failed to read file data format property (-7)" },
        { "length", "Failed to read frames property (-7)" }, { "client", "Failed to set client data format (-7)" } };
    for (const auto &[step, text] : steps) {
        file->failures = { { step, -7 } };
        KXTestLog log;
        KXError error;
        const auto failing = std::make_shared<KXCoreAudioFileDecoder>(QUrl(u"fake:file"_s));
        failing->setDelegate(taker);
        EXPECT_FALSE(failing->decode(&error));
        EXPECT_EQ(error.domain(), KXKestrixKitErrorDomain);
        EXPECT_EQ(error.code(), 1001);
        EXPECT_EQ(error.localizedDescription(), QString::fromLatin1(text));
        EXPECT_TRUE(error.userInfo().contains(KXErrorStackTraceKey));
        EXPECT_EQ(log.lines(), QStringList { u"kestrix.audio: "_s + QString::fromLatin1(text) });
    }
    file->failures.clear();
    KXTestLog log;
    const auto alone = std::make_shared<KXCoreAudioFileDecoder>(QUrl(u"fake:file"_s));
    EXPECT_FALSE(alone->decode()); // nobody says in what format
    EXPECT_TRUE(log.contains(u"Failed to set client data format (-50)"_s));
    EXPECT_EQ(taker->notes(), Notes {});
}

TEST_F(Decoder, deliversTheFileInChunksAndCorrectsItsLength)
{
    for (const qint64 promised : { 9'000, 10'000, 12'000 }) {
        file->promised = promised;
        file->exact = promised == 10'000;
        file->lastStatus = -39; // an error beside frames does not matter, without frames it is the end
        decoder = std::make_shared<KXCoreAudioFileDecoder>(QUrl(u"fake:file"_s));
        taker = std::make_shared<Taker>();
        decoder->setDelegate(taker);
        ASSERT_TRUE(decoder->decode());
        EXPECT_EQ(
            decoder->totalFramesIsFinal(), file->exact || decoder->state() == KXCoreAudioFileDecoderStateFinished);
        ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
        EXPECT_EQ(taker->notes(), (Notes { "took 0+4096", "took 4096+4096", "took 8192+1808" }));
        EXPECT_EQ(decoder->totalFrames(), 10'000);
        EXPECT_TRUE(decoder->totalFramesIsFinal());
        decoder->setState(KXCoreAudioFileDecoderStateRunning);
        EXPECT_EQ(decoder->state(), KXCoreAudioFileDecoderStateFinished);
        decoder->waitUntilDone();
    }
    file->length = 0;
    decoder = std::make_shared<KXCoreAudioFileDecoder>(QUrl(u"fake:file"_s));
    taker = std::make_shared<Taker>();
    decoder->setDelegate(taker);
    ASSERT_TRUE(decoder->decode());
    EXPECT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    EXPECT_EQ(taker->notes(), Notes {});
}

TEST_F(Decoder, waitsForRoomAndOffersTheSameChunkAgain)
{
    taker->allowed = 1;
    ASSERT_TRUE(decoder->decode());
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateWaiting));
    decoder->wakeFromRenderThread();
    ASSERT_TRUE(QTest::qWaitFor([&] { return taker->notes().size() == 3; }, 60'000));
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateWaiting));
    taker->allowed = 1000;
    decoder->setState(KXCoreAudioFileDecoderStateRunning);
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    EXPECT_EQ(taker->notes(),
        (Notes { "took 0+4096", "refused 4096+4096", "refused 4096+4096", "took 4096+4096", "took 8192+1808" }));
}

TEST_F(Decoder, whoLooksForTheLengthTakesNobodysWaking)
{
    file->exact = false;
    decoder = std::make_shared<KXCoreAudioFileDecoder>(QUrl::fromLocalFile(u"/fake"_s));
    decoder->setDelegate(taker);
    taker->allowed = 1;
    taker->isHeld = true;
    ASSERT_TRUE(decoder->decode());
    std::thread looking([&] { decoder->findExactLength(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // it has been waiting first
    taker->isHeld = false;
    taker->isHeld.notify_all();
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateWaiting));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    taker->allowed = 1000;
    decoder->wakeFromRenderThread();
    EXPECT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    decoder->setState(KXCoreAudioFileDecoderStateCancelled);
    looking.join();
}

TEST_F(Decoder, aLengthThatIsNotKnownIsNoneUntilTheEnd)
{
    file->exact = false;
    file->promised = 0;
    taker->allowed = 2;
    ASSERT_TRUE(decoder->decode());
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateWaiting));
    EXPECT_EQ(decoder->totalFrames(), 0);
    EXPECT_EQ(decoder->delegate(), taker);
    taker->allowed = 1000;
    decoder->setState(KXCoreAudioFileDecoderStateRunning);
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    EXPECT_EQ(decoder->totalFrames(), 10'000);
}

TEST_F(Decoder, aSeekDropsTheChunkThatWaits)
{
    taker->allowed = 1;
    ASSERT_TRUE(decoder->decode());
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateWaiting));
    taker->allowed = 1000;
    decoder->setSeekToFrame(7000);
    decoder->setState(KXCoreAudioFileDecoderStateRunning);
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    EXPECT_EQ(taker->notes(), (Notes { "took 0+4096", "refused 4096+4096", "seek 7000", "took 7000+3000" }));
    EXPECT_EQ(decoder->renderedFrames(), 7000);
    EXPECT_EQ(decoder->seekToFrame(), -1);
    decoder->setSeekToFrame(5); // too late: shown, never carried out
    decoder->setState(KXCoreAudioFileDecoderStateRunning);
    decoder->waitUntilDone();
    EXPECT_EQ(decoder->seekToFrame(), 5);
}

TEST_F(Decoder, aSeekThatFailsIsLoggedAndDecodingGoesOn)
{
    file->failures = { { "seek", -1 } };
    taker->allowed = 1;
    KXTestLog log;
    ASSERT_TRUE(decoder->decode());
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateWaiting));
    taker->allowed = 1000;
    decoder->setSeekToFrame(100);
    decoder->setState(KXCoreAudioFileDecoderStateRunning);
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    EXPECT_TRUE(log.contains(u"Failed to seek to frame 100"_s));
    EXPECT_EQ(decoder->renderedFrames(), 100);
    EXPECT_EQ(decoder->totalFrames(), 100 + 10'000 - 8192); // what is delivered from there, so that playing ends
}

TEST_F(Decoder, cancellingIsFinal)
{
    taker->allowed = 1;
    ASSERT_TRUE(decoder->decode());
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateWaiting));
    const Notes before = taker->notes();
    decoder->setState(KXCoreAudioFileDecoderStateCancelled);
    decoder->waitUntilDone();
    for (const auto state :
        { KXCoreAudioFileDecoderStateRunning, KXCoreAudioFileDecoderStateWaiting, KXCoreAudioFileDecoderStateFinished })
        decoder->setState(state);
    decoder->wakeFromRenderThread();
    EXPECT_EQ(decoder->state(), KXCoreAudioFileDecoderStateCancelled);
    EXPECT_EQ(taker->notes(), before);

    taker->cancelAtStart = true;
    const auto other = std::make_shared<KXCoreAudioFileDecoder>(QUrl(u"fake:file"_s));
    other->setDelegate(taker);
    EXPECT_TRUE(other->decode());
    other->waitUntilDone();
    EXPECT_EQ(taker->notes(), before);
}

TEST_F(Decoder, triesAgainWhileTheFileGrows)
{
    file->available = 5000;
    KXTestLog log;
    ASSERT_TRUE(decoder->decode());
    ASSERT_TRUE(QTest::qWaitFor([&] { return file->pendingReads > 3; }, 60'000));
    EXPECT_EQ(log.lines(), QStringList { u"kestrix.audio: Read status 1685348671"_s }); // once, not each time
    file->available = 20'000;
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    EXPECT_EQ(taker->notes(), (Notes { "took 0+4096", "took 4096+904", "took 5000+4096", "took 9096+904" }));

    // Cancelled while it waits for data, and again after its delegate has gone.
    file->available = 10;
    for (const bool cancel : { true, false }) {
        const auto other = std::make_shared<KXCoreAudioFileDecoder>(QUrl(u"fake:file"_s));
        other->setDelegate(taker);
        ASSERT_TRUE(other->decode());
        ASSERT_TRUE(QTest::qWaitFor([&] { return file->pendingReads > 6; }, 60'000));
        if (cancel)
            other->setState(KXCoreAudioFileDecoderStateCancelled);
        else
            taker.reset();
        file->available = cancel ? 10 : 20'000;
        other->waitUntilDone();
    }
}

TEST_F(Decoder, aPassCountsOnlyWhereNoSeekCameBetween)
{
    file->exact = false;
    ASSERT_TRUE(decoder->decode());
    ASSERT_TRUE(waitForState(KXCoreAudioFileDecoderStateFinished));
    EXPECT_FALSE(decoder->advanceRenderedFrames(0, 512));
    EXPECT_EQ(decoder->renderedFrames(), 512);
    EXPECT_FALSE(decoder->advanceRenderedFrames(0, 9'999'999));
    EXPECT_EQ(decoder->renderedFrames(), 512);
    EXPECT_TRUE(decoder->advanceRenderedFrames(512, 20'000));
    EXPECT_EQ(decoder->renderedFrames(), 10'000);
    EXPECT_TRUE(decoder->advanceRenderedFrames(10'000, 0));
}
