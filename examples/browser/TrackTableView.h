#pragma once

#include <kestrixkit/util/views/KXTableView.h>

#include "TrackTableModel.h"

/// The table of tracks: ratings as stars, keys as coloured plates.
class TrackTableView : public KXTableView
{
    Q_OBJECT
public:
    explicit TrackTableView(QWidget *parent = nullptr);

protected:
    void sortRows(const QList<KXSortDescriptor> &descriptors) override;
    void drawCell(QPainter &painter, const KXTableCell &cell) const override;
};
