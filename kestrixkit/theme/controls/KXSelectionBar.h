#pragma once

#include <QWidget>

#include <kestrixkit/foundation/KXNotificationCenter.h>

/// The strip above a list that says what is selected and carries buttons for it: the theme's selection bar gradient
/// with its grain, a border along top and bottom and a line of light below the top. Without theme it is a plain window.
/// Main thread.
class KX_UI_EXPORT KXSelectionBar : public QWidget
{
    Q_OBJECT
public:
    explicit KXSelectionBar(QWidget *parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    KXNotificationToken m_theme;
};
