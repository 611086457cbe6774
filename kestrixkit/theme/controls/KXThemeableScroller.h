#pragma once

#include <QScrollBar>

#include <kestrixkit/theme/controls/KXThemed.h>

/// A scroll bar: a slot with a round knob, which grows lighter under the mouse. Views outside of this library take one
/// by QAbstractScrollArea::setVerticalScrollBar(). Main thread.
class KX_UI_EXPORT KXThemeableScroller : public KXThemed<QScrollBar>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor)
    Q_PROPERTY(QColor knobColor MEMBER m_knobColor)
    Q_PROPERTY(QColor knobSlotColor MEMBER m_knobSlotColor)
public:
    explicit KXThemeableScroller(Qt::Orientation orientation, QWidget *parent = nullptr);
    /// One that wears KXScrollerStyles, as tables and outlines have them.
    [[nodiscard]] static KXThemeableScroller *ofView(Qt::Orientation orientation);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QColor m_borderColor, m_knobColor, m_knobSlotColor;
};
