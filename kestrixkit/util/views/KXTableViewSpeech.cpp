// What assistive technology hears of a table beyond what QTableView tells.

#include <kestrixkit/util/views/KXTableView.h>

#include <QAccessible>

namespace {

QStringList speechOfRow(const QAbstractItemModel &model, int row)
{
    QStringList texts;
    for (int column = 0; column < model.columnCount(); ++column) {
        const QModelIndex cell = model.index(row, column);
        const QString spoken = cell.data(Qt::AccessibleTextRole).toString();
        texts.append(spoken.isEmpty() ? cell.data().toString() : spoken);
    }
    return texts;
}

}

void KXTableView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    KXThemeableTableView::currentChanged(current, previous);
    m_spokenRow = current.isValid() && QAccessible::isActive() ? speechOfRow(*model(), current.row()) : QStringList();
}

/// Cells of the row where the keyboard is that say something else now are told of, each once: a model tells of whole
/// rows, and nobody is told on the bus of a table's changed data.
void KXTableView::dataChanged(const QModelIndex &topLeft, const QModelIndex &bottomRight, const QList<int> &roles)
{
    KXThemeableTableView::dataChanged(topLeft, bottomRight, roles);
    const int row = currentIndex().row();
    if (row < topLeft.row() || row > bottomRight.row() || !QAccessible::isActive())
        return;
    const QStringList before = std::exchange(m_spokenRow, speechOfRow(*model(), row));
    QAccessibleInterface *const table = hasFocus() ? QAccessible::queryAccessibleInterface(this) : nullptr;
    if (!table || !table->tableInterface() || before.size() != m_spokenRow.size())
        return;
    for (int column = 0; column < before.size(); ++column) {
        if (before[column] == m_spokenRow[column] || isColumnHidden(column))
            continue;
        QAccessibleEvent event(table->tableInterface()->cellAt(row, column), QAccessible::NameChanged);
        QAccessible::updateAccessibility(&event);
    }
}
