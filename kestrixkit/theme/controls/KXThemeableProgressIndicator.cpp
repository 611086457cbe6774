#include <kestrixkit/theme/controls/KXThemeableProgressIndicator.h>

#include <cmath>

#include <QPainter>

#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

constexpr int barHeight = 8;

}

KXThemeableProgressIndicator::KXThemeableProgressIndicator(QWidget *parent)
    : KXThemed<QProgressBar>(parent)
{
    setTextVisible(false);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    m_wandering.setStartValue(0.0);
    m_wandering.setEndValue(1.0);
    m_wandering.setDuration(1600);
    m_wandering.setLoopCount(-1);
    connect(&m_wandering, &QVariantAnimation::valueChanged, this, [this] {
        if (minimum() == maximum())
            update();
    });
}

QSize KXThemeableProgressIndicator::sizeHint() const
{
    return isThemed() ? QSize(QProgressBar::sizeHint().width(), barHeight) : QProgressBar::sizeHint();
}

void KXThemeableProgressIndicator::showEvent(QShowEvent *event)
{
    QProgressBar::showEvent(event);
    m_wandering.start();
}

void KXThemeableProgressIndicator::hideEvent(QHideEvent *event)
{
    QProgressBar::hideEvent(event);
    m_wandering.stop();
}

void KXThemeableProgressIndicator::paintEvent(QPaintEvent *event)
{
    if (!isThemed()) {
        QProgressBar::paintEvent(event);
        return;
    }
    QPainter painter(this);
    QRectF bar(0, (height() - barHeight) / 2.0, width(), barHeight);
    const qreal radius = barHeight / 2.0;
    KXControlPainter::plate(painter, bar,
        KXControlPainter::firstOf({ m_backgroundColor, palette().color(QPalette::Mid) }), m_borderColor, radius);
    bar.adjust(1, 1, -1, -1);
    QRectF filled = bar;
    if (minimum() == maximum()) {
        const qreal piece = bar.width() / 4;
        const qreal at = (1 - std::cos(m_wandering.currentValue().toDouble() * 2 * M_PI)) / 2;
        filled = QRectF(bar.left() + at * (bar.width() - piece), bar.top(), piece, bar.height());
    } else {
        const qreal part = qBound(0.0, double(value() - minimum()) / (maximum() - minimum()), 1.0);
        if (part <= 0)
            return;
        filled.setWidth(qMax(bar.height(), bar.width() * part));
        if (isRightToLeft())
            filled.moveRight(bar.right());
    }
    painter.setOpacity(isEnabled() ? 1 : 0.4);
    KXControlPainter::plate(painter, filled,
        KXControlPainter::firstOf({ m_fillGradient, QBrush(palette().color(QPalette::Highlight)) }), {}, radius - 1);
}
