#include <kestrixkit/audio/views/KXAudioPlayerWaveformLayer.h>

#include <cmath>

#include <QPainter>

#include <kestrixkit/audio/KXAudioPlayerManager.h>
#include <kestrixkit/theme/KXThemeManager.h>

using namespace Qt::StringLiterals;

namespace {

constexpr double waveformHeadWidth = 2;
constexpr double waveformShadowRadius = 8;
constexpr double waveformEstimateOpacity = 0.55;
constexpr double waveformPeakOpacity = 0.55; // of what lies outside of the RMS

std::shared_ptr<KXAudioPlayer> waveformPlayer()
{
    const auto manager = KXAudioPlayerManager::sharedInstance();
    return manager ? manager->audioPlayer() : nullptr;
}

}

KXAudioPlayerWaveformLayer::KXAudioPlayerWaveformLayer(KXAudioPlayerItemPointer item)
    : m_playerItem(std::move(item))
{
    setupLayers();
}

KXAudioPlayerWaveformLayer::~KXAudioPlayerWaveformLayer() = default;

void KXAudioPlayerWaveformLayer::setupLayers()
{
    m_bgLayer.name = u"bgLayer"_s;
    m_fgLayer.name = u"fgLayer"_s;
    m_maskLayer.name = u"maskLayer"_s;
    m_maskLayer.backgroundColour = Qt::black; // what a mask covers shows
    m_playerHeadLayer.name = u"playHeaderLayer"_s;
    m_playerHeadLayer.bounds = { 1, 0 };
    m_playerHeadLayer.shadow = { {}, { -1, 0 }, waveformShadowRadius };
    m_playerHeadLayer.shadowOpacity = 1;
    if (const auto &theme = KXThemeManager::sharedManager().theme()) {
        m_playerHeadLayer.backgroundColour = theme->playerHeadColour();
        m_playerHeadLayer.shadow.colour = theme->playerHeaderShadowColour();
    }
}

void KXAudioPlayerWaveformLayer::loadWaveformImage() { }

void KXAudioPlayerWaveformLayer::mouseUp(QMouseEvent *) { }

bool KXAudioPlayerWaveformLayer::shouldInheritContentsScale(const KXWaveformSublayer &, double) const { return true; }

double KXAudioPlayerWaveformLayer::duration()
{
    const auto player = waveformPlayer();
    const double seconds = player ? player->duration() : 0;
    return seconds > 0 && std::isfinite(seconds) ? seconds : 0;
}

void KXAudioPlayerWaveformLayer::setBounds(const QSizeF &bounds)
{
    m_bounds = m_bgLayer.bounds = m_fgLayer.bounds = bounds;
    display();
}

void KXAudioPlayerWaveformLayer::setVisibleTimes(double start, double length)
{
    m_visibleStart = std::max(0.0, start);
    m_visibleLength = std::max(0.0, length);
}

void KXAudioPlayerWaveformLayer::setContents(const QImage &background, const QImage &foreground)
{
    m_bgLayer.contents = background;
    m_fgLayer.contents = foreground;
}

void KXAudioPlayerWaveformLayer::setEstimate(bool isEstimate)
{
    m_bgLayer.opacity = m_fgLayer.opacity = isEstimate ? waveformEstimateOpacity : 1;
}

double KXAudioPlayerWaveformLayer::timeAtPoint(double x) const
{
    if (!(duration() > 0))
        return 0;
    if (!(x > 0))
        return visibleStart();
    if (x >= m_fgLayer.bounds.width())
        return std::min(visibleStart() + visibleLength(), duration());
    return visibleStart() + x / m_fgLayer.bounds.width() * visibleLength();
}

void KXAudioPlayerWaveformLayer::display()
{
    const auto player = waveformPlayer();
    const double fraction = player && duration() > 0
        ? std::clamp((player->currentTime() - visibleStart()) / visibleLength(), 0.0, 1.0)
        : 0;
    m_maskLayer.bounds = { fraction * m_fgLayer.bounds.width() - 1, m_fgLayer.bounds.height() };
    // A rectangle of a width below zero ends where it begins.
    const double right = std::max(0.0, m_maskLayer.frame().x() + m_maskLayer.bounds.width());
    m_playerHeadLayer.position = { right - 1, 0 };
    m_playerHeadLayer.bounds = { waveformHeadWidth, m_fgLayer.bounds.height() };
}

void KXAudioPlayerWaveformLayer::paint(QPainter &painter) const
{
    const auto &theme = KXThemeManager::sharedManager().theme();
    painter.save();
    const QRectF all({}, m_bounds);
    painter.setClipRect(all, Qt::IntersectClip);
    if (theme && theme->playerWaveformBackgroundColour().isValid())
        painter.fillRect(all, theme->playerWaveformBackgroundColour());
    painter.setOpacity(m_bgLayer.opacity);
    const QRectF played({}, QSizeF(std::max(0.0, m_maskLayer.bounds.width()), m_maskLayer.bounds.height()));
    if (!m_bgLayer.contents.isNull()) {
        painter.save();
        painter.setClipRect(all.adjusted(played.width(), 0, 0, 0), Qt::IntersectClip);
        painter.drawImage(m_bgLayer.frame(), m_bgLayer.contents);
        painter.restore();
    }
    if (!m_fgLayer.contents.isNull()) {
        painter.save();
        painter.setClipRect(played, Qt::IntersectClip);
        painter.drawImage(m_fgLayer.frame(), m_fgLayer.contents);
        painter.restore();
    }
    painter.setOpacity(m_playerHeadLayer.opacity);
    const QRectF head = m_playerHeadLayer.frame();
    const QColor shadow = theme ? theme->playerHeaderShadowColour() : m_playerHeadLayer.shadow.colour;
    if (shadow.isValid()) {
        const KXShadow &soft = m_playerHeadLayer.shadow;
        QLinearGradient fall(head.left() + soft.offset.width() - soft.blurRadius, 0, head.left(), 0);
        QColor none = shadow;
        none.setAlpha(0);
        fall.setColorAt(0, none);
        fall.setColorAt(1, shadow);
        painter.fillRect(QRectF(head.left() - soft.blurRadius, 0, soft.blurRadius, head.height()), fall);
    }
    QColor colour = theme ? theme->playerHeadColour() : m_playerHeadLayer.backgroundColour;
    painter.fillRect(head, colour.isValid() ? colour : painter.pen().color());
    painter.restore();
}

QImage KXAudioPlayerWaveformLayer::waveformImage(
    const KXWaveformColumns &columns, const QSize &pixels, const QBrush &brush)
{
    if (pixels.isEmpty())
        return {};
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return image;
    image.fill(Qt::transparent);
    QPainter painter(&image);
    const double middle = pixels.height() / 2.0;
    const auto fill = [&](double left, double right, double least, double greatest) {
        const double top = middle - std::clamp(greatest, -1.0, 1.0) * middle;
        const double bottom = middle - std::clamp(least, -1.0, 1.0) * middle;
        // Silence is a line, not nothing.
        painter.fillRect(
            QRectF(left, std::min(top, pixels.height() - 1.0), right - left, std::max(1.0, bottom - top)), brush);
    };
    const auto count = qint64(columns.size());
    for (qint64 i = 0; i < count; ++i) {
        const auto left = double(i * pixels.width() / count), right = double((i + 1) * pixels.width() / count);
        if (right <= left)
            continue;
        const KXWaveformColumn &column = columns[size_t(i)];
        painter.setOpacity(waveformPeakOpacity);
        fill(left, right, double(column.least), double(column.greatest));
        painter.setOpacity(1);
        fill(left, right, std::max(double(column.least), -double(column.rms)),
            std::min(double(column.greatest), double(column.rms)));
    }
    return image;
}
