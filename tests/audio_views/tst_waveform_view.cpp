// The waveform as a layer beside its player, and as a widget under mouse, wheel and keys.

#include <thread>

#include <QApplication>
#include <QEventLoop>
#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/views/KXAudioPlayerWaveformView.h>
#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>

#include <support/AudioFiles.h>

using namespace Qt::StringLiterals;

struct WaveformItem : KXAudioPlayerItem
{
    QUrl url;
    QUrl audioFileURL() const override { return url; }
};

/// A player that is where it is told to be.
struct WaveformPlayer : KXAudioPlayer
{
    double length = 0, time = 0;
    double duration() const override { return length; }
    double currentTime() const override { return time; }
    void setTime(double seconds) override { time = seconds; }
    void playItem(const KXAudioPlayerItemPointer &item) override { storeCurrentItem(item); }
};

struct WaveformManager : KXAudioPlayerManager
{
    using KXAudioPlayerManager::setAudioPlayer;
};

class Waveform : public ::testing::Test
{
protected:
    Waveform()
    {
        manager->setAudioPlayer(player);
        KXAudioPlayerManager::setSharedInstance(manager);
        player->playItem(item);
    }
    ~Waveform() override
    {
        KXAudioPlayerManager::setSharedInstance(nullptr);
        KXThemeManager::sharedManager().setTheme(nullptr);
    }
    std::shared_ptr<const KXWaveformPyramid> load(int seconds, int channels = 2, int rate = 8000)
    {
        item->url = QUrl::fromLocalFile(writeSound(
            makeSound(size_t(seconds * rate), channels, rate), { "view", "wav", "wav", "pcm_s16le" }, m_dir.path()));
        player->length = seconds;
        return std::make_shared<KXWaveformPyramid>(*KXWaveformPyramid::read(item->url));
    }
    static QImage picture(QWidget &view)
    {
        QImage image(view.size(), QImage::Format_ARGB32);
        image.fill(Qt::transparent);
        view.render(&image);
        return image;
    }

    QTemporaryDir m_dir;
    const std::shared_ptr<WaveformItem> item = std::make_shared<WaveformItem>();
    const std::shared_ptr<WaveformPlayer> player = std::make_shared<WaveformPlayer>();
    const std::shared_ptr<WaveformManager> manager = std::make_shared<WaveformManager>();
};

TEST_F(Waveform, layersLieWhereThePlayerIs)
{
    KXAudioPlayerWaveformLayer layer(item);
    EXPECT_EQ(layer.playerItem(), item);
    EXPECT_EQ(layer.bgLayer().name, u"bgLayer"_s);
    EXPECT_EQ(layer.fgLayer().name, u"fgLayer"_s);
    EXPECT_EQ(layer.maskLayer().name, u"maskLayer"_s);
    EXPECT_EQ(layer.playerHeadLayer().name, u"playHeaderLayer"_s);
    EXPECT_EQ(layer.playerHeadLayer().bounds.width(), 1);
    EXPECT_EQ(layer.playerHeadLayer().shadow.offset, QSizeF(-1, 0));
    EXPECT_EQ(layer.playerHeadLayer().shadow.blurRadius, 8);
    EXPECT_EQ(layer.maskLayer().backgroundColour.alpha(), 255);
    layer.setBounds({ 200, 40 });
    struct Case
    {
        double length, time, mask, head;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN(), infinite = std::numeric_limits<double>::infinity();
    // Without duration, at the start, within the first point, in the middle, at the end and beyond it.
    for (const Case &each : { Case { 0, 0, -1, -1 }, { 0, 5, -1, -1 }, { nan, 5, -1, -1 }, { infinite, 5, -1, -1 },
             { -3, 1, -1, -1 }, { 100, 0, -1, -1 }, { 100, 0.25, -0.5, -1 }, { 100, 50, 99, 98 },
             { 100, 100, 199, 198 }, { 100, 101, 199, 198 } }) {
        player->length = each.length;
        player->time = each.time;
        layer.display();
        EXPECT_EQ(layer.maskLayer().bounds, QSizeF(each.mask, 40)) << each.length << " " << each.time;
        EXPECT_EQ(layer.playerHeadLayer().frame(), QRectF(each.head, 0, 2, 40)) << each.length << " " << each.time;
    }
    layer.setBounds({ 300, 33 });
    EXPECT_EQ(layer.fgLayer().frame(), QRectF(0, 0, 300, 33));
    EXPECT_EQ(layer.bgLayer().frame(), QRectF(0, 0, 300, 33));

    // No player, no manager.
    for (const bool hasManager : { true, false }) {
        manager->setAudioPlayer(nullptr);
        if (!hasManager)
            KXAudioPlayerManager::setSharedInstance(nullptr);
        layer.display();
        EXPECT_EQ(layer.maskLayer().bounds.width(), -1);
        EXPECT_EQ(layer.timeAtPoint(10), 0);
    }
}

TEST_F(Waveform, pointsAreTimes)
{
    KXAudioPlayerWaveformLayer layer(item);
    EXPECT_EQ(layer.timeAtPoint(10), 0); // neither bounds nor duration
    layer.setBounds({ 30, 40 });
    EXPECT_EQ(layer.timeAtPoint(10), 0);
    player->length = 0.7;
    const std::pair<double, double> times[] = { { -5, 0 }, { 0, 0 }, { 15, 0.35 }, { 30, 0.7 }, { 31, 0.7 },
        { std::numeric_limits<double>::quiet_NaN(), 0 } };
    for (const auto &[x, time] : times)
        EXPECT_DOUBLE_EQ(layer.timeAtPoint(x), time) << x;
    layer.setVisibleTimes(0.2, 0.1);
    EXPECT_DOUBLE_EQ(layer.timeAtPoint(-1), 0.2);
    EXPECT_DOUBLE_EQ(layer.timeAtPoint(15), 0.25);
    EXPECT_DOUBLE_EQ(layer.timeAtPoint(99), 0.3);
    layer.setBounds({});
    EXPECT_DOUBLE_EQ(layer.timeAtPoint(1), 0.3);
}

TEST_F(Waveform, theMaskClipsWhatWasPlayed)
{
    KXAudioPlayerWaveformLayer layer(item);
    QImage red(1, 1, QImage::Format_RGB32), blue = red;
    red.fill(Qt::red);
    blue.fill(Qt::blue);
    layer.setContents(blue, red);
    player->length = 10;
    player->time = 5;
    layer.setBounds({ 101, 7 });
    QImage image(101, 7, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    layer.paint(painter);
    painter.end();
    EXPECT_EQ(image.pixelColor(20, 3), QColor(Qt::red));
    EXPECT_EQ(image.pixelColor(80, 6), QColor(Qt::blue));
    player->length = 0;
    layer.display();
    painter.begin(&image);
    layer.paint(painter);
    painter.end();
    EXPECT_EQ(image.pixelColor(20, 3), QColor(Qt::blue));
}

TEST_F(Waveform, seeksAndZoomsUnderThePointer)
{
    const auto pyramid = load(100);
    KXThemeManager::sharedManager().setTheme(std::make_shared<KXDarkTheme>());
    KXAudioPlayerWaveformView view;
    view.setPlayerItem(item);
    view.resize(200, 50);
    EXPECT_EQ(picture(view).pixelColor(150, 2), picture(view).pixelColor(150, 25)); // nothing yet
    view.setPyramid(pyramid);
    view.show();
    QSignalSpy sought(&view, &KXAudioPlayerWaveformView::sought);
    QTest::mouseClick(&view, Qt::LeftButton, {}, { 50, 20 });
    EXPECT_DOUBLE_EQ(player->time, 25);
    const QImage before = picture(view);
    EXPECT_NE(before.pixelColor(150, 2), before.pixelColor(150, 25));
    EXPECT_NE(before.pixelColor(20, 25), before.pixelColor(150, 25));
    QTest::keyClick(&view, Qt::Key_Right);
    EXPECT_DOUBLE_EQ(player->time, 30);
    QTest::keyClick(&view, Qt::Key_Left, Qt::ShiftModifier);
    EXPECT_DOUBLE_EQ(player->time, 29);
    QTest::keyClick(&view, Qt::Key_End);
    EXPECT_DOUBLE_EQ(player->time, 100);
    for (const Qt::Key key : { Qt::Key_Plus, Qt::Key_Minus, Qt::Key_0 })
        QTest::keyClick(&view, key);
    EXPECT_EQ(sought.size(), 4) << "each time that it was led elsewhere, and no other";

    double hovered = 0;
    QObject::connect(&view, &KXAudioPlayerWaveformView::hovered, [&](double time) { hovered = time; });
    const auto wheel = [&](int notches, double x) {
        QWheelEvent event(
            { x, 10 }, view.mapToGlobal(QPointF(x, 10)), {}, { 0, 120 * notches }, {}, {}, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&view, &event);
    };
    // What lies under the pointer stays there, at any zoom.
    for (const double x : { 0.0, 70.0, 199.0 }) {
        view.showAll();
        for (int i = 0; i < 60; ++i) {
            const double there = view.layer().timeAtPoint(x);
            wheel(1, x);
            EXPECT_NEAR(view.layer().timeAtPoint(x), there, 1e-6);
        }
        EXPECT_GE(view.layer().visibleLength(), 0.02);
        wheel(-200, x);
        EXPECT_DOUBLE_EQ(view.layer().visibleLength(), 100);
    }
    view.zoom(0.001, 100);
    EXPECT_NEAR(view.layer().visibleLength(), 0.1, 1e-9);
    QTest::mouseMove(&view, { 100, 10 });
    QTest::mouseClick(&view, Qt::LeftButton, {}, { 100, 20 });
    EXPECT_NEAR(player->time, 50, 0.001);
    EXPECT_NEAR(hovered, 50, 0.001);

    // Another item is played: this one leaves it alone.
    player->playItem(std::make_shared<WaveformItem>());
    QTest::mouseClick(&view, Qt::LeftButton, {}, { 10, 20 });
    EXPECT_NEAR(player->time, 50, 0.001);
}

TEST_F(Waveform, followsThePlayerWhileItIsShownAndLetsTheProcessSleepElse)
{
    class Timers : public QObject
    {
    public:
        Timers() { qApp->installEventFilter(this); }
        bool eventFilter(QObject *, QEvent *event) override
        {
            count += event->type() == QEvent::Timer;
            return false;
        }
        int count = 0;
    };
    const auto pyramid = load(100);
    KXAudioPlayerWaveformView view;
    view.setPlayerItem(item);
    view.setPyramid(pyramid);
    view.resize(200, 50);
    const auto head = [&] { return view.layer().playerHeadLayer().position.x(); };
    const auto sleeps = [] {
        const Timers timers;
        QEventLoop loop;
        std::thread end([&loop] {
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
        loop.exec();
        end.join();
        return timers.count == 0;
    };
    EXPECT_TRUE(sleeps());
    for (const double time : { 50.0, 80.0 }) { // shown, and shown again
        view.show();
        player->time = time;
        EXPECT_TRUE(QTest::qWaitFor([&] { return std::abs(head() - 2 * time) < 3; }));
        view.hide();
        QCoreApplication::processEvents();
        EXPECT_TRUE(sleeps());
    }
}

TEST_F(Waveform, guessesAreReplacedByWhatIsDecoded)
{
    const auto pyramid = load(20, 12);
    KXAudioPlayerWaveformView view;
    view.setPlayerItem(item);
    view.setPyramid(pyramid);
    view.resize(300, 60);
    view.show();
    view.setStemGains({ 1, 0, 0.5F });
    const QImage guess = picture(view);
    EXPECT_TRUE(view.isEstimate());
    EXPECT_LT(view.layer().fgLayer().opacity, 1);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !view.isEstimate(); }, 60'000));
    EXPECT_EQ(view.layer().fgLayer().opacity, 1);
    EXPECT_NE(picture(view), guess);

    // In the middle of it the file goes, and then the view.
    QFile::remove(item->url.toLocalFile());
    view.setStemGains({ 0.3F });
    picture(view);
    QTest::qWait(100);
    EXPECT_TRUE(view.isEstimate());
    auto *gone = new KXAudioPlayerWaveformView;
    gone->resize(100, 20);
    gone->setPlayerItem(item);
    gone->setPyramid(pyramid);
    gone->setStemGains({ 0.3F });
    picture(*gone);
    delete gone;
    QCoreApplication::processEvents();
}
