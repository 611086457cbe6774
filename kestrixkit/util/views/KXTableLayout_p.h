#pragma once

#include <QList>
#include <QVariantList>

/// The columns of a table from first to last, as values: how a layout becomes a list in the user's settings, and how
/// such a list is carried out, whatever it holds.
struct KXTableLayout
{
    struct Column
    {
        QString identifier;
        double width = 0; ///< in points; kept while the column is hidden
        bool hidden = false;
        int number = 0; ///< of the model's column
    };
    QList<Column> columns;

    [[nodiscard]] QVariantList presets() const;
    [[nodiscard]] static QVariantMap preset(const Column &column, qsizetype position);

    /// Entry by entry, each moving its column within what the ones before it have left. Columns that no entry names are
    /// hidden: they came with a newer version. False, and nothing changes, where no entry names any of the columns.
    bool apply(const QVariantList &presets);
};
