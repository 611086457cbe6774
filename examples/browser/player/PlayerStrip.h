#pragma once

#include <QUrl>
#include <QWidget>

#include <kestrixkit/foundation/KXOperationQueue.h>

class KXAudioPlayerWaveformView;
class KXWaveformLibrary;
class Preview;
class QLabel;
class QPushButton;
class QSlider;
class QVBoxLayout;

/// What is previewed, to see and to lead: cover, title, waveform, time and time left, volume, the tracks beside it;
/// below that the stems of a file that has some, each with mute, solo and gain. Hidden until something is played.
class PlayerStrip : public QWidget
{
    Q_OBJECT
public:
    /// Both must outlive it.
    PlayerStrip(Preview *preview, KXWaveformLibrary *waveforms, QWidget *parent = nullptr);

    [[nodiscard]] KXAudioPlayerWaveformView *waveform() const { return m_waveform; }

private:
    void follow();
    void showWaveform();
    void showCover();
    void showTimes();
    void buildStems();
    void showStems();

    Preview *const m_preview;
    KXWaveformLibrary *const m_library;
    KXAudioPlayerWaveformView *m_waveform;
    QLabel *m_cover; // hidden where there is none
    QLabel *m_title;
    QLabel *m_elapsed;
    QLabel *m_remaining;
    QPushButton *m_shuffle;
    QSlider *m_volume;
    QVBoxLayout *m_stemRows;
    struct StemRow
    {
        QWidget *row;
        QPushButton *mute, *solo;
        QSlider *gain;
    };
    QList<StemRow> m_stems;
    QUrl m_file; // that the waveform is of
    KXOperationQueue m_covers; // that reads them; ends before all else
    std::weak_ptr<void> m_item; // the player's, when it was looked at last
};
