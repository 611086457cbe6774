#pragma once

#include <memory>

#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/navigation/KXLayeredView.h>
#include <kestrixkit/navigation/KXNavigationStackController.h>

class KXLayerArrangement;

/// Points of a covered layer that stay visible, and of one that peeks out.
inline constexpr float KXLayeredNavigationStackedViewWidth = 25.0F;
inline constexpr float KXLayeredNavigationPeekingViewWidth = 300.0F;

/// Posted with the controller as sender when a push, pop or drop is done, at the end of its animation.
inline constexpr QLatin1StringView KXLayeredNavigationControllerDidPushViewController {
    "KXLayeredNavigationControllerDidPushViewController"
};
inline constexpr QLatin1StringView KXLayeredNavigationControllerDidPopToViewController {
    "KXLayeredNavigationControllerDidPopToViewController"
};
inline constexpr QLatin1StringView KXLayeredNavigationControllerDidDropViewController {
    "KXLayeredNavigationControllerDidDropViewController"
};
/// The dynamic property under which a view controller carries the layered navigation controller that it is pushed on.
inline constexpr QLatin1StringView KXLayeredNavigationControllerKey { "KXLayeredNavigationControllerKey" };

/// What the view controller of a layer may want to know; a mix-in.
class KX_UI_EXPORT KXLayeredNavigationContent
{
public:
    virtual ~KXLayeredNavigationContent();
    virtual void layeredViewWasPushed() { }
    virtual void layeredViewWasRevealed() { }
    virtual void childLayerViewControllerWasPushed() { }
    virtual void layeredViewDidBeginPeeking() { }
    virtual void layeredViewDidFinishPeeking() { }
};

/// Shows a stack of view controllers as sheets that overlap: each covers those below it but for a strip at the side
/// where reading begins. A pointer that rests on a strip makes it peek out wider, and a press on its header goes back
/// to it.
///
/// Pushing lays the covered layers out a strip apart; layoutLayers(), and with it a resize or the end of a peek, also
/// keeps the distance that the item below the topmost asks for. Controllers may push, pop and drop whenever they are
/// told something. The frontmost layer has the keyboard; of a covered one only the header does. Main thread.
class KX_UI_EXPORT KXLayeredNavigationController : public KXNavigationStackController, public KXLayeredViewDelegate
{
    Q_OBJECT
public:
    static constexpr double PeekDelay = 0.3; ///< seconds

    explicit KXLayeredNavigationController(KXViewController *root = nullptr, QObject *parent = nullptr);
    ~KXLayeredNavigationController() override;

    /// That the controller is pushed on; nullptr for none.
    [[nodiscard]] static KXLayeredNavigationController *layeredNavigationController(const KXViewController *controller);
    /// The controller in the layer above; nullptr for the topmost.
    [[nodiscard]] static KXViewController *childViewController(const KXViewController *controller);

    [[nodiscard]] QList<KXViewController *> layeredViewControllers() const { return viewControllers(); }
    /// While the animation of a push runs.
    [[nodiscard]] bool isPushing() const { return m_pushing; }
    /// nullptr while none peeks out.
    [[nodiscard]] KXViewController *peekingViewController() const { return m_peeking; }
    /// nullptr for one that is not pushed here.
    [[nodiscard]] KXLayeredView *layeredViewForViewController(const KXViewController *controller) const;
    /// nullptr for a layer that is none of this stack.
    [[nodiscard]] KXViewController *viewControllerForLayeredView(const KXLayeredView *layer) const;

    void pushViewController(KXViewController *controller, bool animated) override;
    /// Removes the layers above; the topmost one is revealed, too. Nothing where there is only one layer.
    void popToViewController(KXViewController *controller, bool animated) override;
    /// Takes one layer out; those above it move by a strip, and nothing else is laid out.
    void dropViewController(KXViewController *controller, bool animated);
    void dropVisibleViewController();
    void removeAllViewControllers() override;
    /// The layout at rest.
    void layoutLayers();

    void beginPeekingAtLayeredView(KXLayeredView *layer) override;
    void endPeekingAtLayeredView(KXLayeredView *layer) override;
    void shouldPopToLayeredView(KXLayeredView *layer) override;
    void shouldRevealLayeredView(KXLayeredView *layer) override;
    void shouldDropLayeredView(KXLayeredView *layer) override;

    void viewWillAppear() override;
    void viewDidAppear() override;
    void viewWillDisappear() override;
    void viewDidDisappear() override;

protected:
    void loadView() override;
    void controllerDidEnd(KXViewController *controller, qsizetype index) override;

private:
    struct Leaving
    {
        QPointer<KXLayeredView> layer;
        QPointer<KXViewController> controller;
    };

    [[nodiscard]] QSize bounds() const;
    /// In the order of the stack.
    [[nodiscard]] QList<KXLayeredView *> layers() const;
    [[nodiscard]] bool isOn(const QPointer<KXViewController> &controller) const;
    bool settle();
    void layOut(const KXLayeredView *peeking, bool animated);
    void adjustClipping(bool onlyGrow);
    void leave(const QList<QPointer<KXViewController>> &controllers, bool animated);
    void removeLeaving();
    void beginPeeking(KXLayeredView *layer);
    void endPeeking();
    bool forgetPeeking();
    void focusDidMove(QWidget *from, QWidget *to);
    void didPush(const QPointer<KXViewController> &controller);
    void didPopTo(const QPointer<KXViewController> &controller);
    void didDrop();
    void tellAll(void (KXViewController::*message)());

    QHash<const KXViewController *, QPointer<KXLayeredView>> m_layers;
    QList<Leaving> m_leaving;
    QPointer<KXViewController> m_peeking;
    bool m_pushing = false;
    QList<QPointer<KXViewController>> m_toldOfAppearance; // and not yet that they did
    KXDelayedCall m_peekCall { this }; // of both beginning and ending
    std::unique_ptr<KXLayerArrangement> m_arrangement;
};
