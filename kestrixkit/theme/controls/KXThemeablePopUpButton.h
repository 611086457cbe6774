#pragma once

#include <QComboBox>

#include <kestrixkit/theme/controls/KXThemeablePopUpButtonCell.h>

/// A button that shows one choice and pops up the others. Its looks are its cell's, once a style is applied. Main
/// thread.
class KX_UI_EXPORT KXThemeablePopUpButton : public QComboBox
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QObject *cell READ cell)
    KX_CONTROL_WITH_CELL(KXThemeablePopUpButtonCell)
public:
    explicit KXThemeablePopUpButton(QWidget *parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;
    void showPopup() override;
    void hidePopup() override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool m_open = false;
};
