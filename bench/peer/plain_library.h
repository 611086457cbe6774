/// The peers of the benchmarks of the presets library, filled by plain SQL from the rows of the same store. They keep
/// of each preset what is shown: title, icon and whether it is a folder. The library's is a QTreeView over a
/// QStandardItemModel, the bar's a row of QToolButtons with QMenus.
#pragma once

#include <QIcon>
#include <QList>
#include <QMenu>
#include <QStandardItemModel>
#include <QToolButton>

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

    struct Row
    {
        qint64 key = 0, parent = 0;
        QString title;
        bool isFolder = false;
    };
    /// All of them, those of a level by position. Ends the process where they cannot be read.
    [[nodiscard]] QList<Row> rows();

private:
    sqlite3 *m_database = nullptr;
    QList<QStandardItem *> m_presets;
};

/// A button for each preset of the top level, in a row; those that do not fit are hidden, and in the menu at the end.
/// Folders have menus, filled when they open.
class PresetButtons : public QWidget
{
public:
    PresetButtons(PresetRows &rows, const QIcon &folderIcon, const QIcon &presetIcon);

    [[nodiscard]] const QList<QToolButton *> &buttons() const { return m_buttons; }
    [[nodiscard]] QMenu &overflow() { return m_overflow; }

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void add(QMenu &menu, const PresetRows::Row &row);
    void fill(QMenu &menu, qint64 folder);

    const QIcon m_folderIcon, m_presetIcon;
    QList<PresetRows::Row> m_rows;
    QHash<qint64, QList<qsizetype>> m_levels; // places in the rows, by parent
    QList<QToolButton *> m_buttons;
    QToolButton m_more;
    QMenu m_overflow;
};

}
