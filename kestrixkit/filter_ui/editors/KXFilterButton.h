#pragma once

#include <memory>

#include <QPointer>

#include <kestrixkit/theme/controls/KXThemeableButton.h>

class KXMenu;

/// The looks of a filter's button: room for the switch at its beginning and for the menu's arrow at its end. What is
/// switched off is paler. Main thread.
class KX_UI_EXPORT KXFilterButtonCell : public KXThemeableButtonCell
{
    Q_OBJECT
public:
    using KXThemeableButtonCell::KXThemeableButtonCell;

    static constexpr int switchWidth = 26; ///< in points
    static constexpr int arrowWidth = 22;
    static constexpr int imageWidth = 18; ///< of a sign before the text, the gap behind it included
    static constexpr int longestText = 280; ///< what is longer is cut

    [[nodiscard]] QSize sizeHint(const QStyleOptionButton &option) const override;
    void setFilterEnabled(bool enabled) { m_filterEnabled = enabled; }

protected:
    void paintInterior(QPainter &painter, const QStyleOptionButton &option, const QRect &rect) const override;

private:
    bool m_filterEnabled = true;
};

/// The button of one filter: a click on it edits the filter, the switch at its beginning turns it on and off, the arrow
/// at its end opens a menu, and so does the secondary mouse button.
///
/// Keyboard: Space and Return click, Alt+Down and the menu key open the menu; the switch is a stop of its own. Main
/// thread.
class KX_UI_EXPORT KXFilterButton : public KXThemeableButton
{
    Q_OBJECT
public:
    explicit KXFilterButton(QWidget *parent = nullptr);
    ~KXFilterButton() override;

    [[nodiscard]] bool isFilterEnabled() const;
    /// Without enabledSwitchClicked().
    void setFilterEnabled(bool enabled);
    /// The text, which may hold anything.
    void setFilterText(const QString &text);
    [[nodiscard]] const QString &filterText() const { return m_text; }
    /// What the filter is about, for those who hear what is shown.
    void setFilterName(const QString &name);

    [[nodiscard]] QAbstractButton *enabledSwitch() const { return m_switch; }
    /// Null where none was given.
    [[nodiscard]] KXMenu *filterMenu() const;
    void setFilterMenu(std::unique_ptr<KXMenu> menu);
    void showFilterMenu();

    // With and without theme by the cell, which has room for the switch.

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

Q_SIGNALS:
    /// The user wants the filter the other way. The switch shows what it is told by setFilterEnabled().
    void enabledSwitchClicked();

protected:
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void placeSwitch();
    [[nodiscard]] bool isOnArrow(const QPoint &place) const;
    void describe();

    KXFilterButtonCell *m_filterCell;
    QAbstractButton *m_switch;
    QPointer<KXMenu> m_menu;
    QString m_text;
    QString m_name;
};
