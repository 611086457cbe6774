#pragma once

#include <kestrixkit/theme/controls/KXThemed.h>

/// The looks of a control apart from the control: what its styles set, and the painting. Table rows paint with a cell
/// where a widget each would be too many.
///
/// A cell that belongs to a widget has it as parent: keys that the cell does not know are then the widget's, and the
/// widget is painted again when the looks may have changed. Main thread.
class KX_UI_EXPORT KXThemeableCell : public KXThemed<QObject>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
public:
    explicit KXThemeableCell(QObject *control = nullptr);

protected:
    bool setThemeValue(const QString &keyPath, const QVariant &value) override;
    void setNeedsDisplay() override;
};

/// What a control with a cell adds to its base: the cell, and the style name, which is the cell's.
#define KX_CONTROL_WITH_CELL(Cell)                                                                                     \
public:                                                                                                                \
    [[nodiscard]] Cell *cell() const { return m_cell; }                                                                \
    [[nodiscard]] QString themeStyleName() const { return m_cell->themeStyleName(); }                                  \
    void setThemeStyleName(const QString &name) { m_cell->setThemeStyleName(name); }                                   \
    void applyTheme() { m_cell->applyTheme(); }                                                                        \
                                                                                                                       \
private:                                                                                                               \
    Cell *m_cell;
