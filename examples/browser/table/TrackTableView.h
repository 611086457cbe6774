#pragma once

#include <QPersistentModelIndex>

#include <QPointer>
#include <kestrixkit/audio/KXWaveformLibrary.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "table/TrackTableModel.h"

/// The table of tracks: ratings as stars, keys as coloured plates, waveforms, and a mark on what is played.
class TrackTableView : public KXTableView
{
    Q_OBJECT
public:
    explicit TrackTableView(QWidget *parent = nullptr);

    /// Where the column of waveforms takes them from; nothing is drawn there without. It outlives the table.
    void setWaveforms(KXWaveformLibrary *waveforms);
    /// What is shown next is in an order of its own, or in that of the table, which is the one that it had before. To
    /// be said before the model is told what to show.
    void setPlaceOrder(const std::optional<KXSortDescriptor> &order);
    /// Whether the order is that of what is shown.
    [[nodiscard]] bool isInPlaceOrder() const { return m_placeOrder && sortDescriptors() == QList { *m_placeOrder }; }
    /// Back to it.
    void sortInPlaceOrder();

    /// Of the letters and of the plate that stand for a key, on a row of that colour.
    [[nodiscard]] static std::pair<QColor, QColor> plateColours(const QColor &colour, const QColor &row);

    /// The track that is played; invalid: none.
    void setPlayingIndex(const QModelIndex &index);

protected:
    void sortRows(const QList<KXSortDescriptor> &descriptors) override;
    void drawCell(QPainter &painter, const KXTableCell &cell) const override;

private:
    QPointer<KXWaveformLibrary> m_waveforms;
    QPersistentModelIndex m_playing;
    std::optional<KXSortDescriptor> m_placeOrder;
    QList<KXSortDescriptor> m_ownOrder; // to return to
};
