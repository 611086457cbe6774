#include "Pages.h"

#include <cmath>

#include <QPainter>
#include <QVBoxLayout>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/audio/views/KXAudioPlayerWaveformLayer.h>

namespace gallery {

namespace {

/// A player that is where it is told to be.
struct StandingPlayer : KXAudioPlayer
{
    double duration() const override { return 100; }
    double currentTime() const override { return time; }
    double time = 0;
};

struct StandingManager : KXAudioPlayerManager
{
    explicit StandingManager(double time)
    {
        const auto player = std::make_shared<StandingPlayer>();
        player->time = time;
        setAudioPlayer(player);
    }
};

/// A waveform at a moment of its item.
struct Strip : QWidget
{
    Strip(double seconds, bool isEstimate)
        : time(seconds)
        , estimate(isEstimate)
    {
        setFixedSize(360, 56);
    }
    void paintEvent(QPaintEvent *) override
    {
        KXWaveformColumns columns;
        for (int i = 0; i < 120; ++i) {
            const auto level = float(0.15 + 0.7 * std::abs(std::sin(i * 0.09) * std::cos(i * 0.83)));
            columns.push_back({ -level, level * 0.9F, level * 0.45F });
        }
        const auto former = KXAudioPlayerManager::sharedInstance();
        KXAudioPlayerManager::setSharedInstance(std::make_shared<StandingManager>(time));
        KXAudioPlayerWaveformLayer layer;
        const QSize pixels = size() * devicePixelRatioF();
        layer.setContents(
            KXAudioPlayerWaveformLayer::waveformImage(columns, pixels, palette().color(QPalette::PlaceholderText)),
            KXAudioPlayerWaveformLayer::waveformImage(columns, pixels, palette().color(QPalette::Highlight)));
        layer.setEstimate(estimate);
        layer.setBounds(size());
        QPainter painter(this);
        layer.paint(painter);
        KXAudioPlayerManager::setSharedInstance(former);
    }
    const double time;
    const bool estimate;
};

}

QWidget *waveformPage(const Texts &text)
{
    auto *page = new QWidget;
    auto *layout = new QVBoxLayout(page);
    for (const auto &[name, time, isEstimate] :
        { std::tuple("Not played", 0.0, false), std::tuple("Half played", 50.0, false),
            std::tuple("Played", 100.0, false), std::tuple("Estimate", 30.0, true) }) {
        auto *strip = new Strip(time, isEstimate);
        strip->setAccessibleName(text(name));
        layout->addWidget(strip);
    }
    return page;
}

}
