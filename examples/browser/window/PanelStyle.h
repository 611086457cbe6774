#pragma once

#include <QProxyStyle>

/// Qt's Fusion style with menus, tool bars, status bar, check boxes and tips as flat panels in the colours of the
/// current theme. A style sheet for the application could say the same, but then each widget is dressed by its rules,
/// which took a fifth of the time until the window stood there.
class PanelStyle : public QProxyStyle
{
public:
    PanelStyle();

    int pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const override;
    int styleHint(
        StyleHint hint, const QStyleOption *option, const QWidget *widget, QStyleHintReturn *returnData) const override;
    QSize sizeFromContents(
        ContentsType type, const QStyleOption *option, const QSize &size, const QWidget *widget) const override;
    void drawPrimitive(
        PrimitiveElement element, const QStyleOption *option, QPainter *painter, const QWidget *widget) const override;
    void drawControl(
        ControlElement element, const QStyleOption *option, QPainter *painter, const QWidget *widget) const override;
};
