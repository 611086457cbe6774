#include <kestrixkit/navigation/KXInspectorOutlineView.h>

#include <QMouseEvent>
#include <QScrollBar>

#include <kestrixkit/theme/KXThemeStyleNames.h>

KXInspectorOutlineView::KXInspectorOutlineView(QWidget *parent)
    : KXThemeableOutlineView(parent)
{
    setUniformRowHeights(false);
    setRootIsDecorated(false);
    setIndentation(0);
    setVerticalScrollMode(ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setEditTriggers(NoEditTriggers);
    setExpandsOnDoubleClick(false);
    setTabKeyNavigation(false);
    verticalScrollBar()->setSingleStep(20);
}

void KXInspectorOutlineView::toggle(const QModelIndex &header)
{
    if (header.isValid() && !header.parent().isValid() && (header.flags() & Qt::ItemIsSelectable))
        setExpanded(header, !isExpanded(header));
}

void KXInspectorOutlineView::mousePressEvent(QMouseEvent *event)
{
    KXThemeableOutlineView::mousePressEvent(event);
    if (event->button() == Qt::LeftButton)
        toggle(indexAt(event->position().toPoint()));
}

void KXInspectorOutlineView::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        toggle(currentIndex());
        return;
    default:
        KXThemeableOutlineView::keyPressEvent(event);
    }
}

void KXInspectorOutlineView::resizeEvent(QResizeEvent *event)
{
    KXThemeableOutlineView::resizeEvent(event);
    if (event->size().width() != event->oldSize().width())
        Q_EMIT widthDidChange();
}
