#include <kestrixkit/theme/controls/KXThemeableView.h>

#include <QKeyEvent>
#include <QPainter>

#include <kestrixkit/theme/KXPixelThickLine.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

KXThemeableView::KXThemeableView(QWidget *parent)
    : KXThemed<QWidget>(parent)
{
}

void KXThemeableView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    if (m_backgroundGradient.style() != Qt::NoBrush)
        painter.fillRect(rect(), m_backgroundGradient);
    if (m_drawBackgroundBlock)
        m_drawBackgroundBlock(painter, rect());
    // The rectangle's own y would put the line half a point above the widget.
    const QRectF lines = QRectF(rect()).translated(0, 1);
    const auto line = [&](const QColor &colour, bool horizontal, bool flip) {
        if (colour.isValid()) {
            KXPixelThickLine { .rect = horizontal ? lines : QRectF(rect()), .horizontal = horizontal, .flip = flip }
                .draw(painter, colour);
        }
    };
    line(m_topBorderColor, true, false);
    line(m_bottomBorderColor, true, true);
    line(m_leftBorderColor, false, false);
    line(m_rightBorderColor, false, true);
}

KXThemeableControl::KXThemeableControl(QWidget *parent)
    : KXThemeableView(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_Hover);
}

void KXThemeableControl::paintEvent(QPaintEvent *event)
{
    KXThemeableView::paintEvent(event);
    if (hasFocus()) {
        QPainter painter(this);
        KXControlPainter::focusRing(painter, rect(), palette(), 0);
    }
}

void KXThemeableControl::mousePressEvent(QMouseEvent *event) { event->accept(); }

void KXThemeableControl::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
}

void KXThemeableControl::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space)
        Q_EMIT clicked();
    else
        KXThemeableView::keyPressEvent(event);
}
