#pragma once

#include <kestrixkit/navigation/KXNavigationBar.h>
#include <kestrixkit/navigation/KXNavigationStackController.h>

/// The dynamic property under which a view controller carries the navigation controller that it is pushed on.
inline constexpr QLatin1StringView KXNavigationControllerKey { "KXNavigationControllerKey" };

/// Shows one of a stack of view controllers below a bar of breadcrumbs, which is there while the stack has two or more.
///
/// Its view comes from the interface file "KXNavigationController" or a host's own. Controllers are told when they
/// appear while this one is in a window, or appears itself; they are always told when they disappear. They may push and
/// pop while they are told: that is carried out once they return. Main thread.
class KX_UI_EXPORT KXNavigationController : public KXNavigationStackController, private KXNavigationBarDelegate
{
    Q_OBJECT
    Q_PROPERTY(int navigationBarVerticalLayoutConstraint READ navigationBarVerticalLayoutConstraint WRITE
            setNavigationBarVerticalLayoutConstraint)
public:
    /// The first push loads the view. A subclass with an interface file of its own passes no root, and pushes it later.
    explicit KXNavigationController(KXViewController *root = nullptr, QObject *parent = nullptr);
    ~KXNavigationController() override;

    /// That the controller is pushed on; nullptr for none.
    [[nodiscard]] static KXNavigationController *navigationController(const KXViewController *controller);

    /// Nothing for one that is on the stack already.
    void pushViewController(KXViewController *controller, bool animated) override;
    /// Gives the keyboard to what is shown then.
    void popToViewController(KXViewController *controller, bool animated) override;
    void removeAllViewControllers() override;
    /// To the one before; nothing at the root.
    void back();
    /// To the root.
    void popToTopViewController();
    /// Whether there is a way back.
    [[nodiscard]] bool shouldShowBackArrowForCurrentItem(const KXNavigationItem *item) const;
    /// What a host's recogniser of gestures calls: goes back.
    void didEndNavigateBackGesture() { back(); }

    /// Outlets; nullptr before the view is loaded.
    [[nodiscard]] KXNavigationBar *navigationBar() const { return m_bar; }
    [[nodiscard]] QWidget *contentContainerView() const { return m_container; }
    /// Where the bar's top lies: 0 while it is shown, minus its height while it is hidden.
    [[nodiscard]] int navigationBarVerticalLayoutConstraint() const { return m_barOffset; }
    void setNavigationBarVerticalLayoutConstraint(int offset);

    void viewWillAppear() override;
    void viewDidAppear() override;
    void viewWillDisappear() override;
    void viewDidDisappear() override;

protected:
    void loadView() override;
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;
    void controllerDidEnd(KXViewController *controller, qsizetype index) override;

private:
    void shouldPopToItem(KXNavigationBar &bar, KXNavigationItem *item) override;
    void showVisible();
    void exchangeShown();
    void updateBar(bool animated);
    void placeBar();
    void embed(QWidget *view);

    QPointer<KXNavigationBar> m_bar;
    QPointer<QWidget> m_barHolder; // cuts it off while it slides
    QPointer<QWidget> m_container;
    QPointer<KXViewController> m_shown;
    QPointer<KXViewController> m_toldOfAppearance; // before it appears
    bool m_isShowing = false;
    int m_barOffset = -KXNavigationBar::Height;
    KXAnimationGroup m_slide;
};
