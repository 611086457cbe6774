#pragma once

#include <QTimer>
#include <QUrl>
#include <QWidget>

#include <kestrixkit/audio/views/KXAudioPlayerWaveformLayer.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

/// A waveform to listen by: shows where the shared player is, and leads it elsewhere.
///
/// A click or drag seeks, the arrow keys by five seconds (with Shift by one), Home and End to either end; the wheel
/// zooms at the pointer, + and - at the head, 0 shows all of it again. What is closer than the stored cells show is
/// decoded on another thread; until then, and where stems make it a guess, it is drawn as far as it is known.
class KX_UI_EXPORT KXAudioPlayerWaveformView : public QWidget
{
    Q_OBJECT
public:
    explicit KXAudioPlayerWaveformView(QWidget *parent = nullptr);
    ~KXAudioPlayerWaveformView() override;

    /// What is played; shows nothing until its waveform comes.
    void setPlayerItem(const KXAudioPlayerItemPointer &item);
    /// Its waveform; null: none.
    void setPyramid(std::shared_ptr<const KXWaveformPyramid> pyramid);
    /// The stems' gains, as they are heard, missing ones 1; `areNearly` where they do not tell all of what is heard,
    /// and the waveform can only be a guess.
    void setStemGains(std::vector<float> gains, bool areNearly = false);
    [[nodiscard]] const std::vector<float> &stemGains() const { return m_gains; }
    [[nodiscard]] bool stemGainsAreNearly() const { return m_gainsAreNearly; }

    [[nodiscard]] const KXAudioPlayerWaveformLayer &layer() const { return *m_layer; }
    /// Whether what is shown is a guess.
    [[nodiscard]] bool isEstimate() const { return m_isEstimate; }
    /// Makes the stretch around x that many times as long; below 1 it comes closer.
    void zoom(double factor, double x);
    void showAll();

    [[nodiscard]] QSize sizeHint() const override;

Q_SIGNALS:
    /// The pointer is at this time of the item, -1 when it is not over it.
    void hovered(double seconds);
    /// The user has led the player elsewhere.
    void sought();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool event(QEvent *event) override;

private:
    void follow();
    void seekTo(double x);
    void changeWaveform();
    void draw();
    void decodeWindow(qint64 from, qint64 to, int columns);
    void showColumns(const KXWaveformColumns &columns, bool isEstimate);

    std::unique_ptr<KXAudioPlayerWaveformLayer> m_layer;
    std::shared_ptr<const KXWaveformPyramid> m_pyramid;
    std::vector<float> m_gains;
    bool m_gainsAreNearly = false;
    QUrl m_url;
    bool m_isStale = true; // the pictures are of another stretch, size or theme
    bool m_isEstimate = false;
    double m_hovered = -1;
    double m_shownHead = 0;
    QTimer m_clock; // while it is shown
    std::shared_ptr<std::atomic<bool>> m_decoding; // set to end it; null while nothing is decoded
    KXNotificationToken m_theme;
    KXOperationQueue m_decoder; // last: its thread ends before all else goes
};
