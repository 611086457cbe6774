#pragma once

#include <QBrush>

#include <kestrixkit/theme/controls/KXThemed.h>

class QPainterPath;

/// What lies around a popover's content: a plate with round corners and an arrow on one of its edges. The margins that
/// the content keeps are the frame's contentsMargins(). Main thread.
class KX_UI_EXPORT KXPopoverFrame : public KXThemed<QWidget>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QBrush backgroundGradient MEMBER m_backgroundGradient)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor)
public:
    static constexpr int arrowLength = 10; ///< from plate to tip
    static constexpr int arrowWidth = 20;

    explicit KXPopoverFrame(QWidget *parent = nullptr, Qt::WindowFlags flags = {});

    /// The edge that the arrow stands on, and the tip's place along it in the frame's coordinates; kept clear of
    /// corners.
    void setArrow(Qt::Edge edge, int position);
    [[nodiscard]] Qt::Edge arrowEdge() const { return m_edge; }
    /// Where the arrow points.
    [[nodiscard]] QPoint tip() const;
    /// Plate and arrow in one.
    [[nodiscard]] QPainterPath outline() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    Qt::Edge m_edge = Qt::TopEdge;
    int m_position = 0;
    QBrush m_backgroundGradient;
    QColor m_borderColor;
};
