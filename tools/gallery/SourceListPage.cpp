#include "SourceListPage.h"

#include <QDragMoveEvent>
#include <QHBoxLayout>
#include <QMimeData>
#include <QStandardItemModel>

#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

using namespace Qt::StringLiterals;

namespace gallery {

namespace {

/// As while a row is dragged over it.
class DraggedOver : public KXSourceListView, private KXSourceListViewDelegate
{
public:
    DraggedOver() { setDelegate(this); }
    ~DraggedOver() override { setDelegate(nullptr); }

    QModelIndex target;
    int child = -1;

protected:
    void showEvent(QShowEvent *event) override
    {
        KXSourceListView::showEvent(event);
        const QMimeData data;
        QDragMoveEvent move({ 10, 10 }, Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
        dragMoveEvent(&move);
    }

private:
    KXSourceListDropTarget validateDrop(KXSourceListView &, const KXSourceListDrop &) override
    {
        return { Qt::MoveAction, target, child };
    }
};

constexpr int imageRole = Qt::UserRole + 1;

/// Whose images are those of the theme at hand.
class Sources : public QStandardItemModel
{
public:
    using QStandardItemModel::QStandardItemModel;
    QVariant data(const QModelIndex &index, int role) const override
    {
        QVariant value = QStandardItemModel::data(index, role);
        if (role != KXSourceListView::CellRole)
            return value;
        auto cell = value.value<KXSourceListCell>();
        const QString image = index.data(imageRole).toString();
        cell.image = KXThemeManager::sharedManager().valueForKeyPath(image).value<QIcon>();
        return QVariant::fromValue(cell);
    }
};

QStandardItem *item(const KXSourceListCell &cell, const QString &image = KXFilterPresetIcon)
{
    auto *made = new QStandardItem(cell.title);
    made->setData(QVariant::fromValue(cell), KXSourceListView::CellRole);
    made->setData(cell.isGroup, KXSourceListView::GroupRole);
    made->setData(cell.isGroup ? QString() : image, imageRole);
    return made;
}

QStandardItemModel *sources(const Texts &text, QObject *parent)
{
    const auto cell = [&](const char *title, qint64 count) {
        KXSourceListCell made;
        made.title = text(title);
        made.count = count;
        made.isEditable = true;
        return made;
    };
    auto *model = new Sources(parent);
    KXSourceListCell heading = cell("Presets", 0);
    heading.isGroup = true;
    model->appendRow(item(heading));
    auto *folder = item(cell("Night drive", 130), KXFilterPresetFolderIcon);
    model->appendRow(folder);
    folder->appendRow(item(cell("House and its many neighbours", 128)));
    folder->appendRow(item(cell("Techno", 2)));
    KXSourceListCell busy = cell("Added this week", 0);
    busy.inProgress = true;
    model->appendRow(item(busy));
    KXSourceListCell unavailable = cell("Store charts", 12);
    unavailable.isEnabled = false;
    model->appendRow(item(unavailable));
    model->appendRow(item(cell("All tracks", 31'000)));
    return model;
}

}

QWidget *sourceListPage(const Texts &text)
{
    auto *page = new KXThemeableView;
    auto *row = new QHBoxLayout(page);
    row->setContentsMargins(16, 16, 16, 16);
    const auto add = [&](KXSourceListView *view, const char *name, bool filled) {
        view->setAccessibleName(text(name));
        view->setPlaceholderText(text("No presets yet"));
        view->setFixedSize(220, 240);
        if (filled) {
            view->setModel(sources(text, view));
            view->expandAll();
        }
        row->addWidget(view);
        return view;
    };
    auto *focused = add(new KXSourceListView, "Sources", true);
    focused->setCurrentIndex(focused->model()->index(0, 0, focused->model()->index(1, 0)));
    focused->setProperty(focusProperty, true);
    auto *between = new DraggedOver;
    add(between, "Dragged between", true)->setCurrentIndex(between->model()->index(4, 0));
    between->target = between->model()->index(1, 0);
    between->child = 1;
    auto *onto = new DraggedOver;
    add(onto, "Dragged onto", true);
    onto->target = onto->model()->index(1, 0);
    add(new KXSourceListView, "Empty", false);
    return page;
}

}
