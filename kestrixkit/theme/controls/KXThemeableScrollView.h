#pragma once

#include <QScrollArea>

#include <kestrixkit/theme/controls/KXThemed.h>

/// A scroll area with a line around it and this library's scrollers, which take the style name given for them. Main
/// thread.
class KX_UI_EXPORT KXThemeableScrollView : public KXThemed<QScrollArea>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QColor borderColor MEMBER m_borderColor)
public:
    explicit KXThemeableScrollView(QWidget *parent = nullptr);

    void setScrollerStyleName(const QString &name);

protected:
    bool event(QEvent *event) override;

private:
    QColor m_borderColor;
};
