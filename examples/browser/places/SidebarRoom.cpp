#include "places/SidebarRoom.h"

#include <algorithm>
#include <numeric>

#include <QEvent>
#include <QLayout>
#include <QScrollBar>

#include <kestrixkit/source_list/KXSourceListView.h>

namespace {

constexpr int freeRoom = 30; // below the last row, for drops and the context menu
constexpr int leastRows = 60; // of the rows of an empty list, which says so

/// Of the heights that are wanted, as much as there is room for: whoever wants less than an equal share gets it, and
/// the others share the rest. What is over goes to the last.
QList<int> sharedHeights(const QList<int> &wanted, int room)
{
    QList<qsizetype> order(wanted.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) { return wanted[a] < wanted[b]; });
    QList<int> heights(wanted.size());
    for (qsizetype i = 0; i < order.size(); ++i) {
        heights[order[i]] = std::min(wanted[order[i]], room / int(order.size() - i));
        room -= heights[order[i]];
    }
    heights.last() += room;
    return heights;
}

}

SidebarRoom::SidebarRoom(QSplitter *splitter, const QList<KXSourceListView *> &lists)
    : QObject(splitter)
    , m_splitter(splitter)
    , m_lists(lists)
{
    splitter->installEventFilter(this);
    connect(splitter, &QSplitter::splitterMoved, this, [this] { m_isUsers = true; });
    for (KXSourceListView *list : lists) {
        const auto rowsChanged = [this, list](const QModelIndex &parent) {
            if (!parent.isValid() || list->isExpanded(parent)) // others are nowhere to be seen
                shareSoon(false);
        };
        const auto rowsOpened = [this] { shareSoon(true); };
        connect(list->model(), &QAbstractItemModel::rowsInserted, this, rowsChanged);
        connect(list->model(), &QAbstractItemModel::rowsRemoved, this, rowsChanged);
        connect(list->model(), &QAbstractItemModel::modelReset, this, [this] { shareSoon(false); });
        connect(list, &QTreeView::expanded, this, rowsOpened);
        connect(list, &QTreeView::collapsed, this, rowsOpened);
        connect(list->verticalScrollBar(), &QScrollBar::rangeChanged, this, rowsOpened); // also by several at once
    }
}

std::optional<QList<int>> SidebarRoom::chosen() const
{
    return m_isUsers ? std::optional(m_splitter->sizes()) : std::nullopt;
}

void SidebarRoom::choose(const QList<int> &heights)
{
    m_isUsers = true;
    m_splitter->setSizes(heights);
}

bool SidebarRoom::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Resize || event->type() == QEvent::Show)
        shareSoon(false);
    return QObject::eventFilter(watched, event);
}

void SidebarRoom::shareSoon(bool onlyUnused)
{
    if (m_isUsers)
        return;
    m_onlyUnused = m_onlyUnused && onlyUnused;
    m_soon.start(0, [this] { share(); });
}

int SidebarRoom::wanted(qsizetype index) const
{
    const QLayout *const pane = m_splitter->widget(int(index))->layout();
    const int head = pane ? pane->itemAt(0)->sizeHint().height() : 0;
    return head + std::max(m_lists[index]->contentHeight(), leastRows - freeRoom) + freeRoom;
}

void SidebarRoom::share()
{
    const bool onlyUnused = std::exchange(m_onlyUnused, true);
    if (m_isUsers || !m_splitter->isVisible())
        return;
    QList<int> heights = m_splitter->sizes(), missing;
    int room = m_splitter->height() - m_splitter->handleWidth() * int(m_lists.size() - 1);
    for (qsizetype i = 0; i < m_lists.size(); ++i) {
        const int all = wanted(i);
        heights[i] = onlyUnused ? std::min(heights[i], all) : 0;
        missing.append(all - heights[i]);
        room -= heights[i];
    }
    const QList<int> more = sharedHeights(missing, room);
    for (qsizetype i = 0; i < m_lists.size(); ++i)
        heights[i] += more[i];
    m_splitter->setSizes(heights);
}
