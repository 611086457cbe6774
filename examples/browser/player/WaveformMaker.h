#pragma once

#include <QObject>

class KXWaveformLibrary;
class QAction;
class TrackTableModel;

/// Has the waveforms of all tracks in the list made, a few at a time, behind whatever else is asked for. One action
/// starts it, tells how far it is, and pauses it.
class WaveformMaker : public QObject
{
    Q_OBJECT
public:
    /// Both must outlive it.
    WaveformMaker(TrackTableModel *model, KXWaveformLibrary *waveforms, QObject *parent = nullptr);

    /// On while it works.
    [[nodiscard]] QAction *action() const { return m_action; }

private:
    void run(bool on);
    void goOn();

    TrackTableModel *const m_model;
    KXWaveformLibrary *const m_waveforms;
    QAction *const m_action;
    int m_next = 0; // row
};
