#pragma once

#include <QBrush>

#include <kestrixkit/theme/KXThemeValues.h>
#include <kestrixkit/theme/controls/KXThemed.h>

/// A plain area: a background, lines along its edges, one pixel of the device thick, and whatever lies in it.
/// Subclasses add properties, which are then keys of their styles. Main thread.
class KX_UI_EXPORT KXThemeableView : public KXThemed<QWidget>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QBrush backgroundGradient MEMBER m_backgroundGradient)
    Q_PROPERTY(QColor topBorderColor MEMBER m_topBorderColor)
    Q_PROPERTY(QColor bottomBorderColor MEMBER m_bottomBorderColor)
    Q_PROPERTY(QColor leftBorderColor MEMBER m_leftBorderColor)
    Q_PROPERTY(QColor rightBorderColor MEMBER m_rightBorderColor)
    Q_PROPERTY(KXDrawBlock drawBackgroundBlock READ drawBackgroundBlock WRITE setDrawBackgroundBlock)
public:
    explicit KXThemeableView(QWidget *parent = nullptr);

    [[nodiscard]] KXDrawBlock drawBackgroundBlock() const { return m_drawBackgroundBlock; }
    void setDrawBackgroundBlock(const KXDrawBlock &block) { m_drawBackgroundBlock = block; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QBrush m_backgroundGradient;
    QColor m_topBorderColor, m_bottomBorderColor, m_leftBorderColor, m_rightBorderColor;
    KXDrawBlock m_drawBackgroundBlock;
};

/// An area that the user operates: takes the focus and shows it, and is clicked by mouse or Space. Main thread.
class KX_UI_EXPORT KXThemeableControl : public KXThemeableView
{
    Q_OBJECT
public:
    explicit KXThemeableControl(QWidget *parent = nullptr);

Q_SIGNALS:
    void clicked();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
};
