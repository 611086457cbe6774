#include <kestrixkit/theme/controls/KXBadge.h>

#include <cmath>

#include <QApplication>
#include <QLocale>
#include <QPainter>
#include <QStyleOptionButton>

#include <kestrixkit/foundation/KXClock.h>
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

std::function<QString(qint64)> &badgeFormat()
{
    static std::function<QString(qint64)> format;
    return format;
}

}

QString KXBadgeCell::textForCount(qint64 count)
{
    if (count >= 1 && badgeFormat())
        return badgeFormat()(count);
    return count < 1 ? QString() : count > 999 ? u"999+"_s : QString::number(count);
}

void KXBadgeCell::setTextFormat(std::function<QString(qint64 count)> format) { badgeFormat() = std::move(format); }

QString KXBadgeCell::shortText(qint64 count)
{
    const QLocale locale = KXClock::locale();
    if (count < 1'000)
        return count < 1 ? QString() : locale.toString(count);
    const bool isMany = count >= 1'000'000;
    const double number = double(count) / (isMany ? 1e6 : 1e3);
    // Rounded down: a badge promises nothing that is not there.
    const QString digits = number < 10 ? locale.toString(std::floor(number * 10) / 10, 'f', 1)
                                       : locale.toString(std::floor(number), 'f', 0);
    return digits + (isMany ? u'M' : u'k');
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
