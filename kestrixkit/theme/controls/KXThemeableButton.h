#pragma once

#include <QPushButton>

#include <kestrixkit/theme/controls/KXThemeableButtonCell.h>

/// A push button whose looks are its cell's. Until a style is applied it has the toolkit's own looks. Main thread.
class KX_UI_EXPORT KXThemeableButton : public QPushButton
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QObject *cell READ cell)
    KX_CONTROL_WITH_CELL(KXThemeableButtonCell)
public:
    explicit KXThemeableButton(QWidget *parent = nullptr);
    explicit KXThemeableButton(const QString &text, QWidget *parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    /// With a cell of a derived class; the button owns it.
    KXThemeableButton(KXThemeableButtonCell *cell, QWidget *parent);
    void paintEvent(QPaintEvent *event) override;
    /// With the focus it is pressed by the space bar, whatever else its window has that for.
    bool event(QEvent *event) override;
};
