#pragma once

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QSizeF>
#include <QString>

#include <kestrixkit/audio/KXAudioPlayer.h>
#include <kestrixkit/audio/KXWaveformPyramid.h>
#include <kestrixkit/theme/KXThemeValues.h>

class QBrush;
class QMouseEvent;
class QPainter;

/// A part of a waveform layer: where it lies, and what is drawn there. Coordinates grow to the right and downwards.
struct KXWaveformSublayer
{
    QString name;
    QPointF position; ///< of the anchor
    QSizeF bounds; ///< a width below zero: nothing of it shows
    QPointF anchorPoint; ///< 0 to 1 of the bounds: 0, 0 is the top left
    double opacity = 1;
    QColor backgroundColour;
    KXShadow shadow;
    double shadowOpacity = 0;
    QImage contents; ///< stretched over the bounds

    [[nodiscard]] QRectF frame() const
    {
        return { position.x() - anchorPoint.x() * bounds.width(), position.y() - anchorPoint.y() * bounds.height(),
            bounds.width(), bounds.height() };
    }
};

/// Shows the waveform of the item that is previewed, the part that was played in another look, and a head where the
/// player is; turns places into times. Follows the player of the shared KXAudioPlayerManager, whichever that is;
/// without manager, player or duration nothing is played yet.
///
/// It needs no widget: whoever shows it gives it bounds, calls display() as time passes and paints it. The whole item
/// is in view unless a stretch of it is. Where the images come from, and what a click does, is the host's.
///
/// Threads: the main thread.
class KX_UI_EXPORT KXAudioPlayerWaveformLayer
{
public:
    explicit KXAudioPlayerWaveformLayer(KXAudioPlayerItemPointer item = {});
    virtual ~KXAudioPlayerWaveformLayer();
    Q_DISABLE_COPY_MOVE(KXAudioPlayerWaveformLayer)

    [[nodiscard]] KXAudioPlayerItemPointer playerItem() const { return m_playerItem; }
    /// Background (not played), foreground (played), the mask of the foreground and the head.
    [[nodiscard]] const KXWaveformSublayer &bgLayer() const { return m_bgLayer; }
    [[nodiscard]] const KXWaveformSublayer &fgLayer() const { return m_fgLayer; }
    [[nodiscard]] const KXWaveformSublayer &maskLayer() const { return m_maskLayer; }
    [[nodiscard]] const KXWaveformSublayer &playerHeadLayer() const { return m_playerHeadLayer; }

    /// The waveform layers go along, then display().
    void setBounds(const QSizeF &bounds);
    [[nodiscard]] QSizeF bounds() const { return m_bounds; }

    /// The stretch in view, in seconds: all of the item when its length is 0, as at first. display() afterwards.
    void setVisibleTimes(double start, double length);
    [[nodiscard]] double visibleStart() const { return m_visibleLength > 0 ? m_visibleStart : 0; }
    [[nodiscard]] double visibleLength() const { return m_visibleLength > 0 ? m_visibleLength : duration(); }

    /// The looks of what is not played and of what is.
    void setContents(const QImage &background, const QImage &foreground);
    /// Whether the images are a guess: they are shown fainter.
    void setEstimate(bool isEstimate);

    /// For a subclass: nothing here. A click's release, in the layer's coordinates.
    virtual void loadWaveformImage();
    virtual void mouseUp(QMouseEvent *event);

    /// Seconds; at or left of 0 the start of what is in view, at or beyond the right edge its end. 0 without a
    /// duration.
    [[nodiscard]] double timeAtPoint(double x) const;
    /// Moves mask and head to where the player is.
    void display();
    /// Whether a sublayer follows the scale of the screen that it is shown on: always.
    [[nodiscard]] bool shouldInheritContentsScale(const KXWaveformSublayer &layer, double newScale) const;

    /// With the theme's colours of now.
    void paint(QPainter &painter) const;

    /// A picture of columns, each as wide as the next, from -1 at the bottom to 1 at the top; RMS shows as a fuller
    /// core. Transparent where nothing is.
    [[nodiscard]] static QImage waveformImage(
        const KXWaveformColumns &columns, const QSize &pixels, const QBrush &brush);

private:
    void setupLayers();
    [[nodiscard]] static double duration();

    const KXAudioPlayerItemPointer m_playerItem;
    QSizeF m_bounds;
    double m_visibleStart = 0;
    double m_visibleLength = 0;
    KXWaveformSublayer m_bgLayer, m_fgLayer, m_maskLayer, m_playerHeadLayer;
};
