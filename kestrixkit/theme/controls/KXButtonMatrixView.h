#pragma once

#include <optional>

#include <QVariant>

#include <kestrixkit/theme/controls/KXThemed.h>

class KXThemeableButton;

/// One choice of a button matrix.
struct KXButtonMatrixItem
{
    QString title;
    QVariant value;
};

/// A grid of toggle buttons, of which one is selected or none.
///
/// Keyboard: it is one stop of the Tab key; the arrow keys go from button to button as they lie, Home and End to the
/// first and the last; Space and Return press. Main thread.
class KX_UI_EXPORT KXButtonMatrixView : public KXThemed<QWidget>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
public:
    explicit KXButtonMatrixView(QWidget *parent = nullptr);

    [[nodiscard]] const QList<KXButtonMatrixItem> &items() const { return m_items; }
    /// Makes the buttons anew, none of them selected. No columns count as one.
    void setItems(const QList<KXButtonMatrixItem> &items, int columns);
    [[nodiscard]] int columns() const { return m_columns; }
    /// Of every button, in points; by their titles unless set. Buttons grow where font or titles need it, all alike and
    /// by half their width at most.
    void setButtonSize(const QSize &size);
    /// Of the buttons, and of the selected one.
    void setButtonStyleNames(const QString &name, const QString &selected);

    [[nodiscard]] const QList<KXThemeableButton *> &buttons() const { return m_buttons; }
    /// -1 for none.
    [[nodiscard]] int selectedIndex() const { return m_selected; }
    [[nodiscard]] std::optional<KXButtonMatrixItem> selectedItem() const;
    /// Without selectionDidChange().
    void setSelectedIndex(int index);
    void deselectAll() { setSelectedIndex(-1); }
    /// Puts the focus on the selected button, or on the first one.
    void focusSelection();

Q_SIGNALS:
    /// By the user.
    void selectionDidChange();

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void press(int index);
    void setCurrent(int index);
    [[nodiscard]] int neighbour(int index, int key) const;

    QList<KXButtonMatrixItem> m_items;
    QList<KXThemeableButton *> m_buttons;
    QSize m_buttonSize;
    QString m_buttonStyleName;
    QString m_selectedStyleName;
    int m_columns = 1;
    int m_selected = -1;
};
