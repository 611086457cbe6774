#pragma once

#include <QTableView>

#include <kestrixkit/theme/controls/KXThemed.h>

/// A table with striped rows to the bottom of the view. The first selection colour holds while the table has the focus,
/// the second otherwise. Text is in the colours of the palette, which a style may set too. Main thread.
class KX_UI_EXPORT KXThemeableTableView : public KXThemed<QTableView>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QList<QColor> alternatingRowBackgroundColors MEMBER m_alternatingRowBackgroundColors)
    Q_PROPERTY(QColor highlightSelectionColor MEMBER m_highlightSelectionColor)
    Q_PROPERTY(QColor highlightSelectionAlternateColor MEMBER m_highlightSelectionAlternateColor)
public:
    explicit KXThemeableTableView(QWidget *parent = nullptr);

    /// What an item is painted on: by its row, its selection and whether the table has the focus.
    [[nodiscard]] QColor rowColour(int row, bool selected) const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void setNeedsDisplay() override;

private:
    QList<QColor> m_alternatingRowBackgroundColors;
    QColor m_highlightSelectionColor, m_highlightSelectionAlternateColor;
};
