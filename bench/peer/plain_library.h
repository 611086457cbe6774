/// The peer of the benchmarks of the presets library: a QTreeView over a QStandardItemModel, filled by plain SQL from
/// the rows of the same store. It keeps of each preset what a row shows: title, icon and whether it is a folder.
#pragma once

#include <QIcon>
#include <QList>
#include <QStandardItemModel>

struct sqlite3;

namespace plain {

/// The table as the store has it, opened read-only with a cache of 32 MiB.
class PresetRows
{
public:
    explicit PresetRows(const QString &storePath);
    ~PresetRows();

    /// Fills the model, folders before what is in them. Ends the process where the rows cannot be read.
    void fill(QStandardItemModel &model, const QIcon &folderIcon, const QIcon &presetIcon);
    /// Those made that are no folders.
    [[nodiscard]] const QList<QStandardItem *> &presets() const { return m_presets; }

private:
    sqlite3 *m_database = nullptr;
    QList<QStandardItem *> m_presets;
};

}
