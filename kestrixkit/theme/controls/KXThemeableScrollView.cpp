#include <kestrixkit/theme/controls/KXThemeableScrollView.h>

#include <QEvent>
#include <QPainter>

#include <kestrixkit/theme/controls/KXThemeableScroller.h>

KXThemeableScrollView::KXThemeableScrollView(QWidget *parent)
    : KXThemed<QScrollArea>(parent)
{
    setFrameStyle(int(QFrame::Box) | int(QFrame::Plain));
    setLineWidth(1);
    setVerticalScrollBar(new KXThemeableScroller(Qt::Vertical));
    setHorizontalScrollBar(new KXThemeableScroller(Qt::Horizontal));
}

void KXThemeableScrollView::setScrollerStyleName(const QString &name)
{
    for (QScrollBar *const bar : { verticalScrollBar(), horizontalScrollBar() }) {
        if (auto *const scroller = qobject_cast<KXThemeableScroller *>(bar))
            scroller->setThemeStyleName(name);
    }
}

bool KXThemeableScrollView::event(QEvent *event)
{
    if (event->type() != QEvent::Paint || !m_borderColor.isValid())
        return QScrollArea::event(event);
    QPainter painter(this);
    painter.setPen(QPen(m_borderColor, 1));
    painter.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
    return true;
}
