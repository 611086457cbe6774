#pragma once

#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/navigation/KXNavigationBarButton.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

class KXMenu;
class KXNavigationBar;

/// What a navigation bar asks for.
class KX_UI_EXPORT KXNavigationBarDelegate
{
public:
    virtual ~KXNavigationBarDelegate();
    /// The user picked the item.
    virtual void shouldPopToItem(KXNavigationBar &bar, KXNavigationItem *item) = 0;
};

/// A row of breadcrumbs, from the root to where one is. What does not fit between these two is in a menu behind the
/// root, the deepest first.
///
/// The background is the theme's drawing routine "navigationBarBackgroundDrawBlock", where it has one. Keyboard: Tab
/// and the arrow keys go from button to button, Space presses. Main thread.
class KX_UI_EXPORT KXNavigationBar : public KXThemeableView
{
    Q_OBJECT
public:
    static constexpr int Height = 25; ///< points
    static constexpr int OverflowMenuOffset = 7; ///< points from the overflow button to its menu

    explicit KXNavigationBar(QWidget *parent = nullptr);

    [[nodiscard]] KXNavigationBarDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXNavigationBarDelegate *delegate) { m_delegate.set(delegate); }

    /// One that ends leaves the bar.
    [[nodiscard]] const QList<KXNavigationItem *> &items() const { return m_items; }
    /// Buttons of items that stay are kept; null items are left out.
    void setItems(const QList<KXNavigationItem *> &items, bool animated);

    /// One for each item.
    [[nodiscard]] const QList<KXNavigationBarButton *> &allButtons() const { return m_allButtons; }
    /// Those that are laid out: all but the overflowed ones, with the overflow button behind the first where there are
    /// any.
    [[nodiscard]] const QList<QWidget *> &buttons() const { return m_buttons; }
    [[nodiscard]] const QList<KXNavigationBarButton *> &overflowedButtons() const { return m_overflowedButtons; }
    [[nodiscard]] KXThemeableButton *overflowButton() const { return m_overflowButton; }

    /// Asks the delegate to go to the item of a breadcrumb, or of an entry of the menu (QAction).
    void popToItem(const QObject *sender);
    /// Filled with what is overflowed, whenever it opens.
    [[nodiscard]] KXMenu *overflowMenu() const { return m_overflowMenu; }
    void showOverflowMenu();

    [[nodiscard]] QSize sizeHint() const override { return { 200, Height }; }
    [[nodiscard]] QSize minimumSizeHint() const override { return { 0, Height }; }

protected:
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void lookUpBackground();
    [[nodiscard]] KXNavigationBarButton *makeButton(KXNavigationItem *item);
    void overflow();
    void layOut(bool animated);
    [[nodiscard]] QList<int> widths() const;
    void moveFocus(const QWidget *from, int step);

    KXWeakDelegate<KXNavigationBarDelegate> m_delegate;
    QList<KXNavigationItem *> m_items;
    QList<KXNavigationBarButton *> m_allButtons;
    QList<KXNavigationBarButton *> m_overflowedButtons;
    QList<QWidget *> m_buttons;
    KXThemeableButton *m_overflowButton;
    KXMenu *m_overflowMenu;
    KXAnimationGroup m_slide;
    KXNotificationToken m_themeChanges;
};
