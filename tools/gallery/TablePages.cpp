// The table with column presets: sorted, with rows selected, a column hidden, texts that do not fit.

#include <QHeaderView>
#include <QStandardItemModel>
#include <QVBoxLayout>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTableHeaderCell.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

namespace gallery {

QWidget *tablePage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(16, 16, 16, 16);
    auto *model = new QStandardItemModel(page);
    model->setHorizontalHeaderLabels({ text("Title"), text("Artist"), text("Comment"), text("Tempo"), text("Added") });
    const char *const titles[] { "Night drive", "Low tide", "A title that goes on and on", "Paper city", "Slow orbit" };
    for (int row = 0; row < 5; ++row) {
        QList<QStandardItem *> items { new QStandardItem(text(titles[row])), new QStandardItem(text("Example artist")),
            new QStandardItem(text("Plays well after something slow")),
            new QStandardItem(QString::number(118.5 + row, 'f', 1)), new QStandardItem(text("Yesterday")) };
        for (const int right : { 3, 4 })
            items[right]->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        QIcon icon(u":/kestrixkit/icons/library.svg"_s);
        icon.setIsMask(true);
        if (row == 0)
            items[0]->setIcon(icon);
        for (QStandardItem *item : items)
            item->setEnabled(row != 3);
        model->appendRow(items);
    }

    auto *table = new KXTableView;
    table->setAccessibleName(text("Tracks"));
    table->setThemeStyleName(KXTableStyles);
    static_cast<KXThemeableTableHeaderView *>(table->horizontalHeader())->setThemeStyleName(KXTableHeaderStyles);
    table->setTableColumns({ { u"title"_s, 150, false, { u"title"_s } }, { u"artist"_s, 140 }, { u"comment"_s, 120 },
        { u"tempo"_s, 80, false, { u"tempo"_s } }, { u"added"_s, 90, true } });
    table->setModel(model);
    table->setSortDescriptors({ { u"tempo"_s } });
    table->setFixedSize(560, 220);
    table->selectionModel()->select(model->index(1, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    table->selectionModel()->setCurrentIndex(
        model->index(2, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    table->setProperty(focusProperty, true);
    layout->addWidget(table);
    return page;
}

} // namespace gallery
