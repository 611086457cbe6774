#include <kestrixkit/theme/controls/KXThemeableSpinningProgressIndicator.h>

#include <QPainter>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

namespace {

constexpr int spokes = 12;

}

KXThemeableSpinningProgressIndicator::KXThemeableSpinningProgressIndicator(QWidget *parent)
    : KXThemed<QWidget>(parent)
{
    KXInstallControlAccessibility();
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_turning.setStartValue(0);
    m_turning.setEndValue(spokes);
    m_turning.setDuration(1000);
    m_turning.setLoopCount(-1);
    connect(&m_turning, &QVariantAnimation::valueChanged, this, [this] { update(); });
}

void KXThemeableSpinningProgressIndicator::startAnimation()
{
    m_isAnimating = true;
    run();
}

void KXThemeableSpinningProgressIndicator::stopAnimation()
{
    m_isAnimating = false;
    run();
}

void KXThemeableSpinningProgressIndicator::run()
{
    if (m_isAnimating && isVisible())
        m_turning.start();
    else
        m_turning.stop();
    update();
}

void KXThemeableSpinningProgressIndicator::showEvent(QShowEvent *) { run(); }
void KXThemeableSpinningProgressIndicator::hideEvent(QHideEvent *) { m_turning.stop(); }

void KXThemeableSpinningProgressIndicator::paintEvent(QPaintEvent *)
{
    if (!m_isAnimating && !m_displayedWhenStopped)
        return;
    const QColor colour = KXControlPainter::firstOf({ m_color, palette().color(QPalette::WindowText) });
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(QRectF(rect()).center());
    const qreal radius = qMin(width(), height()) / 2.0 - 1;
    const int lit = m_turning.currentValue().toInt() % spokes;
    for (int i = 0; i < spokes; ++i) {
        const int age = (lit - i + spokes) % spokes;
        painter.setOpacity(m_isAnimating ? 1 - age * 0.075 : 0.4);
        painter.setPen(QPen(colour, radius / 4.5, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(0, -radius * 0.5), QPointF(0, -radius * 0.92));
        painter.rotate(360.0 / spokes);
    }
}
