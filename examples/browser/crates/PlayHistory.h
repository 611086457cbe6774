#pragma once

#include <QObject>

#include <kestrixkit/foundation/KXDelayedCall.h>

class CrateEditor;
class Preview;
class TrackTableModel;

/// Notes what was played: each track that was heard for a while goes behind those that were played on that day.
class PlayHistory : public QObject
{
    Q_OBJECT
public:
    /// All of them outlive this.
    PlayHistory(Preview *preview, TrackTableModel *model, CrateEditor *editor, QObject *parent = nullptr);

    /// How long a track has to play without a break, in seconds.
    void setPlayedAfter(double seconds) { m_playedAfter = seconds; }

private:
    void follow();

    Preview *const m_preview;
    TrackTableModel *const m_model;
    CrateEditor *const m_editor;
    double m_playedAfter = 10;
    qint64 m_heard = 0; // the track that plays; 0 while nothing does
    KXDelayedCall m_note { this };
};
