// Moving filters in the bar.

#include <QDrag>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QStyle>

#include <kestrixkit/filter_ui/editors/KXFilterBar.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/toolkit/KXPasteboard.h>

namespace {

constexpr int barIndicatorInset = 3; // in points, above and below
constexpr int barIndicatorWidth = 2;

}

QMimeData *KXFilterBar::mimeDataForFilterView(const KXFilterBarFilterView &view) const
{
    for (qsizetype i = 0; i < m_views.size(); ++i) {
        if (m_views[i] == &view)
            return KXPasteboard::mimeDataWithItems(KXFilterBarFilterViewPasteboardType, { qulonglong(i) });
    }
    return nullptr;
}

void KXFilterBar::startDrag(KXFilterBarFilterView *view, const QPoint &place)
{
    QMimeData *const data = mimeDataForFilterView(*view);
    if (!data)
        return;
    auto *const drag = new QDrag(this);
    drag->setMimeData(data);
    drag->setPixmap(view->grab());
    drag->setHotSpot(place);
    const QPointer<KXFilterBar> alive(this);
    m_dragged = view;
    m_isDragging = true;
    drag->exec(Qt::MoveAction); // everything else goes on meanwhile
    if (!alive)
        return;
    m_isDragging = false;
    setDropPosition({});
}

/// -1 where the data is not of a view of this bar that is still there.
qsizetype KXFilterBar::draggedIndex(const QMimeData *data) const
{
    if (m_isDragging)
        return m_views.indexOf(m_dragged);
    const QVariantList items = KXPasteboard::itemsOfMimeData(data, KXFilterBarFilterViewPasteboardType);
    bool isNumber = false;
    const qulonglong index = items.size() == 1 ? items.first().toULongLong(&isNumber) : 0;
    return isNumber && index < qulonglong(m_views.size()) ? qsizetype(index) : -1;
}

KXFilterBarDropPosition KXFilterBar::dropPositionAt(const QPoint &place) const
{
    const KXFilterBarFilterView *const view = viewAround(childAt(place));
    return view ? KXFilterBarDropPosition::before(m_views.indexOf(view)) : KXFilterBarDropPosition::end();
}

void KXFilterBar::setDropPosition(KXFilterBarDropPosition position)
{
    if (position == m_dropPosition)
        return;
    m_dropPosition = position;
    showIndicator();
}

void KXFilterBar::showIndicator()
{
    const std::optional<qsizetype> index = m_dropPosition.index();
    if (m_dropPosition.isNone() || m_views.isEmpty() || (index && *index >= m_views.size())) {
        m_indicator->hide();
        return;
    }
    const QRect view
        = QStyle::visualRect(layoutDirection(), rect(), m_views[index.value_or(m_views.size() - 1)]->geometry());
    const int left = index ? qMax(0, view.left() - 1) : view.right() + 1 - barIndicatorWidth;
    const QRect bar(left, view.top() + barIndicatorInset, barIndicatorWidth, view.height() - 2 * barIndicatorInset);
    m_indicator->setGeometry(QStyle::visualRect(layoutDirection(), rect(), bar));
    m_indicator->raise();
    m_indicator->show();
}

void KXFilterBar::dragEnterEvent(QDragEnterEvent *event) { dragMoveEvent(event); }

void KXFilterBar::dragMoveEvent(QDragMoveEvent *event)
{
    // Places of another bar mean nothing here.
    const bool isOurs = !event->source() || event->source() == this;
    if (!isOurs || !event->mimeData()->hasFormat(KXFilterBarFilterViewPasteboardType)
        || !(event->possibleActions() & Qt::MoveAction)) {
        setDropPosition({});
        event->ignore();
        return;
    }
    setDropPosition(dropPositionAt(event->position().toPoint()));
    event->setDropAction(Qt::MoveAction);
    event->accept();
}

void KXFilterBar::dragLeaveEvent(QDragLeaveEvent *) { setDropPosition({}); }

void KXFilterBar::dropEvent(QDropEvent *event)
{
    const KXFilterBarDropPosition position = std::exchange(m_dropPosition, {});
    showIndicator();
    if (!moveFilterView(draggedIndex(event->mimeData()), position)) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::MoveAction);
    event->accept();
}

bool KXFilterBar::moveFilterView(qsizetype dragged, KXFilterBarDropPosition position)
{
    const QList<qsizetype> order = KXFilterBarLayout::orderAfterDrop(m_views.size(), dragged, position);
    KXManagedObjectContext *const borrowed = m_set ? m_set->managedObjectContext() : nullptr;
    if (order.isEmpty() || !borrowed)
        return false;
    const KXManagedObjectContext::Ref context = borrowed->shared_from_this();
    QList<KXFilterBarFilterView *> views;
    for (const qsizetype index : order)
        views.append(m_views[index]);
    m_views = views;
    const QList<KXRef<KXFilter>> moved = filters();
    const QPointer<KXFilterBar> alive(this);
    {
        const KXUndoRegistrationOff unrecorded(context->undoManager());
        for (qsizetype i = 0; i < moved.size(); ++i)
            moved[i]->setPosition(i);
        context->save();
    }
    if (alive) {
        restoreTabOrder();
        arrange();
        Q_EMIT filtersChanged();
    }
    return true;
}
