#pragma once

#include <QColor>
#include <QVariantAnimation>

#include <kestrixkit/theme/controls/KXThemed.h>

/// Twelve spokes that light up in turn while something lasts; paints nothing while it stands still, unless told to.
/// Main thread.
class KX_UI_EXPORT KXThemeableSpinningProgressIndicator : public KXThemed<QWidget>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QColor color MEMBER m_color)
    Q_PROPERTY(bool displayedWhenStopped MEMBER m_displayedWhenStopped)
public:
    explicit KXThemeableSpinningProgressIndicator(QWidget *parent = nullptr);

    void startAnimation();
    void stopAnimation();
    [[nodiscard]] bool isAnimating() const { return m_isAnimating; }

    [[nodiscard]] QSize sizeHint() const override { return { 18, 18 }; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void run();

    QColor m_color;
    bool m_displayedWhenStopped = false;
    bool m_isAnimating = false;
    QVariantAnimation m_turning; // runs only while there is something to see
};
