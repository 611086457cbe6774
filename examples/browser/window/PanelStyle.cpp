#include "window/PanelStyle.h"

#include <QCheckBox>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QStyleOption>

#include <kestrixkit/theme/KXStandardTheme.h>

#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int indicatorSide = 16;
constexpr QMargins menuBarItemPadding(10, 4, 10, 4);
constexpr int menuItemPadding = 5; // above and below
constexpr int separatorHeight = 9;

void panelRound(QPainter &painter, const QRect &rect, double radius, const QBrush &fill, const QPen &pen = Qt::NoPen)
{
    const double half = pen.style() == Qt::NoPen ? 0 : 0.5;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(fill);
    painter.setPen(pen);
    painter.drawRoundedRect(QRectF(rect).adjusted(half, half, -half, -half), radius, radius);
    painter.restore();
}

/// What is chosen in a menu: a tick, or a dot where it is one of several.
void panelMark(QPainter &painter, const QRect &rect, const QColor &colour, bool isOneOf)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF centre = QRectF(rect).center();
    if (isOneOf) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour);
        painter.drawEllipse(centre, 3, 3);
    } else {
        painter.setPen(QPen(colour, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        const QPointF tick[] { centre + QPointF(-4, 0), centre + QPointF(-1, 3), centre + QPointF(4, -3) };
        painter.drawPolyline(tick, 3);
    }
    painter.restore();
}

void panelFrame(QPainter &painter, const QRect &rect, const QColor &fill, const QColor &line)
{
    painter.fillRect(rect, line);
    painter.fillRect(rect.adjusted(1, 1, -1, -1), fill);
}

}

PanelStyle::PanelStyle()
    : QProxyStyle(u"Fusion"_s)
{
}

int PanelStyle::pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const
{
    switch (metric) {
    case PM_MenuBarPanelWidth:
        return 0;
    case PM_MenuBarHMargin:
        return 8;
    case PM_MenuBarVMargin:
        return 2;
    case PM_MenuPanelWidth:
        return 1;
    case PM_MenuHMargin:
    case PM_MenuVMargin:
        return 4;
    case PM_ToolBarFrameWidth:
        return 14;
    case PM_ToolBarItemMargin:
        return 0;
    case PM_ToolBarItemSpacing:
        return 6;
    case PM_ToolTipLabelFrameWidth:
        return 4;
    case PM_IndicatorWidth:
    case PM_IndicatorHeight:
        if (qobject_cast<const QCheckBox *>(widget))
            return indicatorSide;
        break;
    default:
        break;
    }
    return QProxyStyle::pixelMetric(metric, option, widget);
}

int PanelStyle::styleHint(
    StyleHint hint, const QStyleOption *option, const QWidget *widget, QStyleHintReturn *returnData) const
{
    return hint == SH_ToolTipLabel_Opacity ? 255 : QProxyStyle::styleHint(hint, option, widget, returnData);
}

QSize PanelStyle::sizeFromContents(
    ContentsType type, const QStyleOption *option, const QSize &size, const QWidget *widget) const
{
    if (type == CT_MenuBarItem)
        return size.isEmpty() ? size : size.grownBy(menuBarItemPadding);
    QSize found = QProxyStyle::sizeFromContents(type, option, size, widget);
    if (const auto *const item = qstyleoption_cast<const QStyleOptionMenuItem *>(option); item && type == CT_MenuItem)
        found.setHeight(item->menuItemType == QStyleOptionMenuItem::Separator && item->text.isEmpty()
                ? separatorHeight
                : std::max(found.height(), item->fontMetrics.height() + 2 * menuItemPadding));
    return found;
}

void PanelStyle::drawPrimitive(
    PrimitiveElement element, const QStyleOption *option, QPainter *painter, const QWidget *widget) const
{
    const KXThemeColours &c = BrowserStyle::colours();
    switch (element) {
    case PE_PanelMenuBar:
    case PE_FrameStatusBarItem:
        return;
    case PE_PanelMenu:
    case PE_FrameMenu:
        if (element == PE_PanelMenu)
            panelFrame(*painter, option->rect, c.panel, c.border);
        return;
    case PE_PanelTipLabel:
        panelFrame(*painter, option->rect, c.panel, c.border);
        return;
    case PE_PanelStatusBar:
        painter->fillRect(option->rect, c.panel);
        painter->fillRect(QRect(option->rect.topLeft(), QSize(option->rect.width(), 1)), c.line);
        return;
    case PE_IndicatorRadioButton:
    case PE_IndicatorCheckBox:
        if (qobject_cast<const QMenu *>(widget)) {
            if (option->state & State_On)
                panelMark(
                    *painter, option->rect, option->palette.color(QPalette::Text), element == PE_IndicatorRadioButton);
            return;
        }
        if (element == PE_IndicatorCheckBox && qobject_cast<const QCheckBox *>(widget)) {
            const bool isOn = option->state & State_On;
            panelRound(*painter, option->rect, 3, isOn ? c.accent : c.controlPressed, isOn ? c.accent : c.knob);
            static const QIcon check(u":/kestrixkit/icons/check.svg"_s);
            if (isOn)
                check.paint(painter, option->rect.adjusted(1, 1, -1, -1));
            return;
        }
        break;
    default:
        break;
    }
    QProxyStyle::drawPrimitive(element, option, painter, widget);
}

void PanelStyle::drawControl(
    ControlElement element, const QStyleOption *option, QPainter *painter, const QWidget *widget) const
{
    const KXThemeColours &c = BrowserStyle::colours();
    const auto *const item = qstyleoption_cast<const QStyleOptionMenuItem *>(option);
    switch (element) {
    case CE_MenuBarEmptyArea:
    case CE_MenuEmptyArea:
        painter->fillRect(option->rect, c.panel);
        return;
    case CE_MenuBarItem:
        if (item) {
            painter->fillRect(option->rect, c.panel);
            if (option->state & (State_Selected | State_Sunken))
                panelRound(*painter, option->rect, 4, c.controlPressed);
            int flags = Qt::AlignCenter | Qt::TextShowMnemonic | Qt::TextDontClip | Qt::TextSingleLine;
            if (!proxy()->styleHint(SH_UnderlineShortcut, option, widget))
                flags |= Qt::TextHideMnemonic;
            proxy()->drawItemText(painter, option->rect, flags, option->palette, option->state & State_Enabled,
                item->text, QPalette::WindowText);
            return;
        }
        break;
    case CE_MenuItem:
        if (item && item->menuItemType == QStyleOptionMenuItem::Separator && item->text.isEmpty()) {
            painter->fillRect(
                QRect(option->rect.left() + 8, option->rect.center().y(), option->rect.width() - 16, 1), c.line);
            return;
        }
        if (item && option->state & State_Selected && option->state & State_Enabled) {
            panelRound(*painter, option->rect, 3, c.selection);
            QStyleOptionMenuItem chosen(*item);
            chosen.state &= ~State_Selected;
            for (const auto role : { QPalette::Text, QPalette::WindowText, QPalette::ButtonText })
                chosen.palette.setColor(role, c.selectedText);
            QProxyStyle::drawControl(element, &chosen, painter, widget);
            return;
        }
        break;
    case CE_ToolBar: {
        painter->fillRect(option->rect, c.panel);
        const auto *const bar = qstyleoption_cast<const QStyleOptionToolBar *>(option);
        if (!bar || bar->toolBarArea != Qt::BottomToolBarArea)
            painter->fillRect(QRect(option->rect.left(), option->rect.bottom(), option->rect.width(), 1), c.line);
        return;
    }
    default:
        break;
    }
    QProxyStyle::drawControl(element, option, painter, widget);
}
