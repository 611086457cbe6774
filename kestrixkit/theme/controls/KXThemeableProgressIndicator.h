#pragma once

#include <QBrush>
#include <QProgressBar>
#include <QVariantAnimation>

#include <kestrixkit/theme/controls/KXThemed.h>

/// A bar that fills up from where text begins. With minimum and maximum both 0 the end is not known, and a short piece
/// wanders through the bar while it is shown. Main thread.
class KX_UI_EXPORT KXThemeableProgressIndicator : public KXThemed<QProgressBar>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QColor backgroundColor MEMBER m_backgroundColor)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor)
    Q_PROPERTY(QBrush fillGradient MEMBER m_fillGradient)
public:
    explicit KXThemeableProgressIndicator(QWidget *parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QColor m_backgroundColor, m_borderColor;
    QBrush m_fillGradient;
    QVariantAnimation m_wandering;
};
