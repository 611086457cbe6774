#pragma once

#include <QPersistentModelIndex>

#include <QPointer>
#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "TrackTableModel.h"

/// The table of tracks: ratings as stars, keys as coloured plates, waveforms, and a mark on what is played.
class TrackTableView : public KXTableView
{
    Q_OBJECT
public:
    explicit TrackTableView(QWidget *parent = nullptr);

    /// Where the column of waveforms takes them from; nothing is drawn there without. It outlives the table.
    void setWaveforms(KXWaveformLibrary *waveforms);
    /// The track that is played; invalid: none.
    void setPlayingIndex(const QModelIndex &index);

protected:
    void sortRows(const QList<KXSortDescriptor> &descriptors) override;
    void drawCell(QPainter &painter, const KXTableCell &cell) const override;

private:
    QPointer<KXWaveformLibrary> m_waveforms;
    QPersistentModelIndex m_playing;
};
