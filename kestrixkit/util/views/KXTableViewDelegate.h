#pragma once

#include <QVariantList>

#include <kestrixkit/foundation/KXGlobal.h>

class KXTableView;
class QMimeData;

/// What a table asks whoever owns it. Each has an answer unless overridden. Main thread.
class KX_UI_EXPORT KXTableViewDelegate
{
public:
    virtual ~KXTableViewDelegate();

    /// The list of columns to store in place of this one.
    [[nodiscard]] virtual QVariantList willSaveColumnPresets(KXTableView *table, const QVariantList &presets);
    /// The list of columns to lay the table out by in place of the stored one.
    [[nodiscard]] virtual QVariantList willLoadColumnPresets(KXTableView *table, const QVariantList &presets);

    /// Whether the row heads a group: such rows are never selected one by one.
    [[nodiscard]] virtual bool isGroupRow(KXTableView *table, int row);
    /// Whether the user may select the row.
    [[nodiscard]] virtual bool shouldSelectRow(KXTableView *table, int row);

    // Dragging rows, where the table does that.

    /// For a drag of the rows, what the model has made of them: may add to it.
    virtual void willDragRows(KXTableView *table, QMimeData &data);
    /// What would come of dropping the data in front of the row, or behind the last one where it is their number.
    [[nodiscard]] virtual Qt::DropAction validateRowDrop(
        KXTableView *table, const QMimeData &data, Qt::DropActions allowed, int row);
    /// Carries it out; false where nothing was done.
    virtual bool acceptRowDrop(KXTableView *table, const QMimeData &data, Qt::DropAction action, int row);
};
