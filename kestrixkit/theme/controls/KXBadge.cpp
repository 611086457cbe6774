#include <kestrixkit/theme/controls/KXBadge.h>

#include <QApplication>
#include <QPainter>
#include <QStyleOptionButton>

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>

using namespace Qt::StringLiterals;

namespace {

QFont badgeFont(const QFont &font)
{
    QFont small(font);
    small.setPixelSize(10);
    small.setBold(true);
    return small;
}

constexpr int badgeHeight = 16;

}

QString KXBadgeCell::textForCount(qint64 count)
{
    return count < 1 ? QString() : count > 999 ? u"999+"_s : QString::number(count);
}

QSize KXBadgeCell::sizeForCount(qint64 count, const QFont &font)
{
    if (count < 1)
        return {};
    const int text = QFontMetrics(badgeFont(font)).horizontalAdvance(textForCount(count));
    return { qMax(text + 12, 22), badgeHeight };
}

void KXBadgeCell::paint(QPainter &painter, const QRect &rect, qint64 count, bool enabled, const QPalette &palette) const
{
    const QSize size = sizeForCount(count, painter.font());
    if (size.isEmpty())
        return;
    QStyleOptionButton option;
    option.direction = painter.layoutDirection();
    option.rect = QStyle::visualRect(option.direction, rect,
        QRect(QPoint(rect.right() + 1 - size.width(), rect.center().y() + 1 - size.height() / 2), size));
    option.palette = palette;
    option.state.setFlag(QStyle::State_Enabled, enabled);
    painter.save();
    paintBezel(painter, option);
    painter.setFont(badgeFont(painter.font()));
    painter.setLayoutDirection(Qt::LeftToRight); // or the plus would go before the number
    KXControlPainter::text(painter, option.rect, Qt::AlignCenter, textForCount(count), textColour(option));
    painter.restore();
}

QImage KXBadgeCell::image(qint64 count, const QColor &background, const QColor &text, qreal devicePixelRatio)
{
    const QSize size(sizeForCount(count, QApplication::font()).width(), 14);
    if (count < 1)
        return {};
    QImage image(size * devicePixelRatio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setFont(badgeFont(QApplication::font()));
    const QRectF rect(QPointF(), size);
    KXControlPainter::plate(painter, rect, background, {}, 7);
    KXControlPainter::text(painter, rect, Qt::AlignCenter, textForCount(count), text);
    return image;
}

KXBadge::KXBadge(QWidget *parent)
    : QWidget(parent)
    , m_cell(new KXBadgeCell(this))
{
    KXInstallControlAccessibility();
    m_cell->setProperty("cornerRadius", badgeHeight / 2.0);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    hide();
}

void KXBadge::setCount(qint64 count)
{
    m_count = count;
    if (count >= 1 && isWindow())
        setAttribute(Qt::WA_WState_ExplicitShowHide, false); // not a window of its own: shown by its parent
    else
        setVisible(count >= 1);
    updateGeometry();
    update();
    KXAccessibleValueChanged(this);
}

QSize KXBadge::sizeHint() const { return KXBadgeCell::sizeForCount(m_count, font()); }

void KXBadge::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setLayoutDirection(layoutDirection());
    m_cell->paint(painter, rect(), m_count, isEnabled(), palette());
}
