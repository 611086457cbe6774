#pragma once

#include <QLineEdit>

#include <kestrixkit/theme/controls/KXThemeableTextFieldCell.h>

/// A line of text to show or to edit. As a label it has no frame, takes no focus and is named by its text. Main thread.
class KX_UI_EXPORT KXThemeableTextField : public QLineEdit
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QObject *cell READ cell)
    Q_PROPERTY(bool label READ isLabel WRITE setLabel)
    Q_PROPERTY(bool highlighted READ isHighlighted WRITE setHighlighted)
    KX_CONTROL_WITH_CELL(KXThemeableTextFieldCell)
public:
    explicit KXThemeableTextField(QWidget *parent = nullptr);
    explicit KXThemeableTextField(const QString &text, QWidget *parent = nullptr);

    [[nodiscard]] bool isLabel() const { return m_isLabel; }
    void setLabel(bool label);
    /// Lies in a row that is drawn selected.
    [[nodiscard]] bool isHighlighted() const { return m_isHighlighted; }
    void setHighlighted(bool highlighted);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    class FieldCell;
    void takeEditingColours();

    bool m_isLabel = false;
    bool m_isHighlighted = false;
};
