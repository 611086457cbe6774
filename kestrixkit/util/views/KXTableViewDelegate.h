#pragma once

#include <QVariantList>

#include <kestrixkit/foundation/KXGlobal.h>

class KXTableView;

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
};
