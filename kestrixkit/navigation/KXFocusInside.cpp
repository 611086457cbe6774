#include <kestrixkit/navigation/KXFocusInside_p.h>

#include <QApplication>

bool KXHasFocusInside(const QWidget *view)
{
    const QWidget *const focus = QApplication::focusWidget();
    return view && focus && (focus == view || view->isAncestorOf(focus));
}

void KXFocusInside(QWidget *view)
{
    if (!view || KXHasFocusInside(view))
        return;
    const auto takes = [view](const QWidget *widget, Qt::FocusPolicy policy) {
        return (widget->focusPolicy() & policy) && widget->isEnabled() && (widget == view || widget->isVisibleTo(view));
    };
    QWidget *taker = takes(view, Qt::StrongFocus) ? view : nullptr;
    for (QWidget *next = view->nextInFocusChain(); !taker && next && next != view; next = next->nextInFocusChain()) {
        if (view->isAncestorOf(next) && takes(next, Qt::TabFocus))
            taker = next;
    }
    (taker ? taker : view)->setFocus(Qt::OtherFocusReason);
}
