#include <kestrixkit/theme/controls/KXThemeableSplitView.h>

#include <QKeyEvent>
#include <QPainter>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

class KXSplitHandle : public QSplitterHandle
{
public:
    KXSplitHandle(Qt::Orientation orientation, KXThemeableSplitView *view)
        : QSplitterHandle(orientation, view)
        , m_view(view)
    {
        setFocusPolicy(Qt::TabFocus);
        setAttribute(Qt::WA_Hover);
        setAccessibleName(KXLocalizedString("Divider"));
    }

protected:
    void paintEvent(QPaintEvent *event) override
    {
        const QColor colour = m_view->dividerColour();
        if (!colour.isValid()) {
            QSplitterHandle::paintEvent(event);
            return;
        }
        QPainter painter(this);
        const QRect line
            = orientation() == Qt::Horizontal ? QRect(width() / 2, 0, 1, height()) : QRect(0, height() / 2, width(), 1);
        painter.fillRect(line, colour);
        if (hasFocus())
            painter.fillRect(rect(), KXControlPainter::focusRingColour(palette()));
    }

    void keyPressEvent(QKeyEvent *event) override
    {
        constexpr int step = 10;
        const bool beside = orientation() == Qt::Horizontal;
        int by = 0;
        if (event->key() == (beside ? Qt::Key_Right : Qt::Key_Down))
            by = step;
        else if (event->key() == (beside ? Qt::Key_Left : Qt::Key_Up))
            by = -step;
        else
            return QSplitterHandle::keyPressEvent(event);
        int position = (beside ? x() : y()) + by;
        if (beside && isRightToLeft())
            position = m_view->contentsRect().width() - position - width(); // splitters count from where text begins
        m_view->move(m_view->indexOf(this), position);
    }

private:
    KXThemeableSplitView *m_view;
};

KXThemeableSplitView::KXThemeableSplitView(Qt::Orientation orientation, QWidget *parent)
    : KXThemed<QSplitter>(orientation, parent)
{
    KXInstallControlAccessibility();
    setHandleWidth(5);
}

void KXThemeableSplitView::setDividerColour(const QColor &colour)
{
    m_dividerColour = colour;
    for (int i = 0; i < count(); ++i)
        handle(i)->update();
}

QSplitterHandle *KXThemeableSplitView::createHandle() { return new KXSplitHandle(orientation(), this); }
