// Where servers may lead: not from the public net into this machine or its own network.

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXFFmpeg_p.h>

#include <support/AudioFiles.h>
#include <support/HttpServer.h>
#include <support/KXTestLog.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray musicBytes(int frames = 5000)
{
    const QTemporaryDir dir;
    QFile file(writeSound(makeSound(frames), { "music", "wav", "wav", "pcm_s16le" }, dir.path()));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

}

class StreamAddress : public ::testing::Test
{
protected:
    /// From here on the server counts as one of a private network, others as public.
    void makePrivate(const HttpServer &server)
    {
        KXFFmpeg::shared()->setPrivateRule(
            [port = server.url().port()](const QUrl &url) { return url.port() == port; });
    }
    void SetUp() override
    {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "Qt asks servers on threads of its own, whose handing over is not instrumented";
#endif
    }
    void TearDown() override
    {
        KXFFmpeg::shared()->setPrivateRule({});
        KXAudioFile::setFollowsPrivateRedirects(false);
    }
    static KXAudioFileStatus open(const HttpServer &server, const KXAudioFileOptions &options = {})
    {
        KXAudioFile file;
        const KXAudioFileStatus status = file.open(server.url(), options);
        qint64 frames = 0;
        if (status == 0) {
            EXPECT_EQ(file.lengthInFrames(&frames), 0);
            EXPECT_EQ(frames, 5000);
        }
        return status;
    }

    const QByteArray music = musicBytes();
};

TEST(PrivateAddress, isKnown)
{
    for (const auto &text : { "127.0.0.1", "127.9.9.9", "0.0.0.0", "10.1.2.3", "172.16.0.1", "172.31.255.255",
             "192.168.1.1", "169.254.169.254", "100.64.0.1", "224.0.0.251", "255.255.255.255", "::1", "::", "fe80::1",
             "fc00::1", "fd12:3456::1", "ff02::fb", "::ffff:127.0.0.1", "::ffff:192.168.0.1", "fec0::1" })
        EXPECT_TRUE(KXFFmpeg::shared()->isPrivate(QString::fromLatin1(text))) << text;
    for (const auto &text : { "8.8.8.8", "172.32.0.1", "172.15.0.1", "100.128.0.1", "192.169.0.1", "11.0.0.1",
             "2001:4860:4860::8888", "64:ff9b::808:808", "::ffff:8.8.8.8" })
        EXPECT_FALSE(KXFFmpeg::shared()->isPrivate(QString::fromLatin1(text))) << text;
}

TEST_F(StreamAddress, publicServersDoNotLeadInside)
{
    HttpServer inside(music, HttpServer::Normal);
    HttpServer direct(inside.url().toEncoded(), HttpServer::Redirect);
    HttpServer indirect(direct.url().toEncoded(), HttpServer::Redirect);
    HttpServer elsewhere("file:///etc/hostname", HttpServer::Redirect);
    makePrivate(inside);
    KXTestLog log;
    EXPECT_EQ(open(direct), KXAudioFileForbiddenError);
    EXPECT_EQ(open(indirect), KXAudioFileForbiddenError);
    EXPECT_EQ(open(elsewhere), KXAudioFileForbiddenError);
    EXPECT_EQ(inside.requests(), 0); // it was not even asked
    EXPECT_TRUE(log.contains(u"127.0.0.1 leads to 127.0.0.1, in a private network"_s));

    // One that answers differently when it is asked again.
    HttpServer fickle(inside.url().toEncoded(), HttpServer::RedirectLater);
    EXPECT_EQ(open(fickle), KXAudioFileForbiddenError);

    KXAudioFile::setFollowsPrivateRedirects(true);
    EXPECT_EQ(open(indirect), 0);
}

// What is behind a seek is asked for anew, and the answer may lead away from what was found when the file was opened.
TEST_F(StreamAddress, seeksDoNotLeadInside)
{
    constexpr int frames = 2'000'000; // far more than is read ahead
    const QByteArray much = musicBytes(frames);
    for (const HttpServer::Mode mode : { HttpServer::Normal, HttpServer::RedirectSeeks }) {
        HttpServer inside(much, HttpServer::Normal);
        HttpServer server(much, mode, inside.url().toEncoded());
        makePrivate(inside);
        KXTestLog log;
        KXAudioFile file;
        ASSERT_EQ(file.open(server.url(), {}), 0);
        std::vector<float> samples(1000);
        float *const channels[] { samples.data(), samples.data() };
        quint32 read = 0;
        EXPECT_EQ(file.read(channels, 1000, &read), 0);
        EXPECT_EQ(read, 1000U);
        const KXAudioFileStatus sought = file.seek(frames - 2000);
        const KXAudioFileStatus status = sought ? sought : file.read(channels, 1000, &read);
        const bool isLedAstray = mode == HttpServer::RedirectSeeks;
        EXPECT_EQ(status, isLedAstray ? KXAudioFileForbiddenError : KXAudioFileNoError);
        EXPECT_EQ(read, isLedAstray ? 0U : 1000U);
        EXPECT_EQ(log.contains(u"127.0.0.1 leads to 127.0.0.1 after all"_s), isLedAstray);
    }
}

TEST_F(StreamAddress, otherRedirectsAreFollowed)
{
    HttpServer end(music, HttpServer::Normal);
    HttpServer direct(end.url().toEncoded(), HttpServer::Redirect);
    HttpServer indirect(direct.url().toEncoded(), HttpServer::Redirect);
    HttpServer other({}, HttpServer::NotFound);
    makePrivate(other); // all of the above are public
    EXPECT_EQ(open(end), 0);
    EXPECT_EQ(open(indirect), 0);
    EXPECT_LT(open(other), 0);
    makePrivate(indirect); // which may lead anywhere, as it is our own
    EXPECT_EQ(open(indirect), 0);
    KXFFmpeg::shared()->setPrivateRule({}); // and so is loopback
    EXPECT_EQ(open(indirect), 0);
}

TEST_F(StreamAddress, leadsNoFurtherThanItMay)
{
    HttpServer end(music, HttpServer::Normal);
    HttpServer direct(end.url().toEncoded(), HttpServer::Redirect);
    HttpServer indirect(direct.url().toEncoded(), HttpServer::Redirect);
    const auto onlyTo = [](const std::vector<const HttpServer *> &servers) {
        QList<int> ports;
        for (const HttpServer *server : servers)
            ports.append(server->url().port());
        KXAudioFileOptions options;
        options.mayLeadTo = [ports](const QUrl &url) { return ports.contains(url.port()); };
        return options;
    };
    // On loopback, which may lead anywhere else, and where a host allows everything else, too.
    for (const bool followsAll : { false, true }) {
        KXAudioFile::setFollowsPrivateRedirects(followsAll);
        EXPECT_EQ(open(end, onlyTo({})), 0);
        const int asked = end.requests();
        EXPECT_EQ(open(direct, onlyTo({})), KXAudioFileForbiddenError);
        EXPECT_EQ(open(indirect, onlyTo({ &direct })), KXAudioFileForbiddenError);
        EXPECT_EQ(end.requests(), asked) << "it was asked all the same";
        EXPECT_EQ(open(indirect, onlyTo({ &direct, &end })), 0);
        HttpServer fickle(end.url().toEncoded(), HttpServer::RedirectLater);
        EXPECT_EQ(open(fickle, onlyTo({})), KXAudioFileForbiddenError);
    }
    KXAudioFile::setFollowsPrivateRedirects(false);
    makePrivate(end);
    EXPECT_EQ(open(direct, onlyTo({ &end })), KXAudioFileForbiddenError) << "a private network stays one";
}

TEST_F(StreamAddress, endsWhateverServersDo)
{
    HttpServer inside(music, HttpServer::Normal);
    makePrivate(inside);
    HttpServer circle("/music", HttpServer::Redirect); // itself
    EXPECT_EQ(open(circle), KXAudioFileConnectionError);
    HttpServer missing({}, HttpServer::NotFound);
    EXPECT_LT(open(missing), 0);
    KXAudioFileOptions options;
    options.secondsPerCall = 0.2;
    HttpServer silent({}, HttpServer::Stall);
    EXPECT_EQ(open(silent, options), KXAudioFileInterruptedError);
    options.secondsPerCall = 3600;
    options.cancelled = std::make_shared<std::atomic<bool>>(false);
    std::thread canceller([&] {
        while (silent.requests() < 2)
            std::this_thread::yield();
        *options.cancelled = true;
    });
    EXPECT_EQ(open(silent, options), KXAudioFileInterruptedError);
    canceller.join();
    const QUrl gone = [] { return HttpServer({}, HttpServer::Normal).url(); }();
    EXPECT_EQ(KXAudioFile().open(gone), KXAudioFileConnectionError);
}
