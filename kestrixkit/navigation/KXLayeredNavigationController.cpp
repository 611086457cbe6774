#include <kestrixkit/navigation/KXLayeredNavigationController.h>

#include <QApplication>

#include <kestrixkit/navigation/KXAssociation_p.h>
#include <kestrixkit/navigation/KXFocusInside_p.h>
#include <kestrixkit/navigation/KXLayerArrangement_p.h>
#include <kestrixkit/navigation/KXLayerContainer_p.h>

using namespace Qt::StringLiterals;

KXLayeredNavigationContent::~KXLayeredNavigationContent() = default;

namespace {

void tellLayerContent(KXViewController *controller, void (KXLayeredNavigationContent::*message)())
{
    if (auto *const content = dynamic_cast<KXLayeredNavigationContent *>(controller))
        (content->*message)();
}

}

KXLayeredNavigationController::KXLayeredNavigationController(KXViewController *root, QObject *parent)
    : KXNavigationStackController(KXLayeredNavigationControllerKey, parent)
    , m_arrangement(std::make_unique<KXLayerArrangement>())
{
    connect(qApp, &QApplication::focusChanged, this, &KXLayeredNavigationController::focusDidMove);
    if (root)
        KXLayeredNavigationController::pushViewController(root, false);
}

KXLayeredNavigationController::~KXLayeredNavigationController()
{
    disconnect(qApp, nullptr, this, nullptr); // the keyboard leaves with the view
    if (!isViewLoaded())
        return;
    static_cast<KXLayerContainer *>(view())->forget();
    for (KXLayeredView *layer : view()->findChildren<KXLayeredView *>(Qt::FindDirectChildrenOnly))
        layer->releaseContentView();
}

void KXLayeredNavigationController::loadView()
{
    setView(new KXLayerContainer([this] { layoutLayers(); }));
    m_layers.clear(); // these ended with an earlier view
    for (KXViewController *controller : viewControllers()) {
        auto *const layer = new KXLayeredView(
            KXLayeredNavigationItem::layeredNavigationItem(controller), this, KXViewController::view());
        layer->setDelegate(this);
        layer->setContentView(controller->view());
        m_layers.insert(controller, layer);
    }
}

KXLayeredNavigationController *KXLayeredNavigationController::layeredNavigationController(
    const KXViewController *controller)
{
    return KXAssociated<KXLayeredNavigationController>(controller, KXLayeredNavigationControllerKey);
}

KXViewController *KXLayeredNavigationController::childViewController(const KXViewController *controller)
{
    const auto *const stack = layeredNavigationController(controller);
    const QList<KXViewController *> all = stack ? stack->viewControllers() : QList<KXViewController *>();
    const qsizetype index = all.indexOf(controller);
    return index < 0 ? nullptr : all.value(index + 1);
}

KXLayeredView *KXLayeredNavigationController::layeredViewForViewController(const KXViewController *controller) const
{
    return m_layers.value(controller);
}

KXViewController *KXLayeredNavigationController::viewControllerForLayeredView(const KXLayeredView *layer) const
{
    for (KXViewController *controller : viewControllers()) {
        if (layer && m_layers.value(controller) == layer)
            return controller;
    }
    return nullptr;
}

QList<KXLayeredView *> KXLayeredNavigationController::layers() const
{
    QList<KXLayeredView *> layers;
    for (KXViewController *controller : viewControllers()) {
        if (KXLayeredView *const layer = m_layers.value(controller))
            layers.append(layer);
    }
    return layers;
}

QSize KXLayeredNavigationController::bounds() const
{
    return isViewLoaded() ? const_cast<KXLayeredNavigationController *>(this)->view()->size() : QSize();
}

bool KXLayeredNavigationController::isOn(const QPointer<KXViewController> &controller) const
{
    return controller && m_layers.value(controller) && viewControllers().contains(controller);
}

// Laying out

void KXLayeredNavigationController::layOut(const KXLayeredView *peeking, bool animated)
{
    m_arrangement->layOut(layers(), bounds(), peeking, animated);
}

void KXLayeredNavigationController::adjustClipping(bool onlyGrow)
{
    KXLayerArrangement::adjustClipping(layers(), onlyGrow);
}

void KXLayeredNavigationController::layoutLayers()
{
    const QPointer<KXLayeredNavigationController> alive(this);
    if (!settle() || !isViewLoaded())
        return;
    forgetPeeking();
    if (!alive)
        return;
    layOut(nullptr, false);
    for (KXLayeredView *layer : layers())
        layer->placeFrame();
    adjustClipping(false);
}

// Pushing

/// Brings what runs to its end, which is told; false when this has gone over it.
bool KXLayeredNavigationController::settle()
{
    const QPointer<KXLayeredNavigationController> alive(this);
    while (alive && m_arrangement->animation().isRunning()) // its end may begin another
        m_arrangement->animation().finish();
    return bool(alive);
}

void KXLayeredNavigationController::pushViewController(KXViewController *controller, bool animated)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    const QPointer<KXViewController> pushed(controller);
    (void)view();
    if (!admits(controller) || !settle() || !pushed || !admits(pushed))
        return;
    m_peekCall.cancel();
    forgetPeeking();
    if (!alive || !pushed || !admits(pushed))
        return;
    const QPointer<KXViewController> previous(visibleViewController());
    const bool hadFocus = previous && KXHasFocusInside(m_layers.value(previous));
    auto *const layer = new KXLayeredView(KXLayeredNavigationItem::layeredNavigationItem(pushed), this, view());
    layer->setDelegate(this);
    layer->setTargetFrame({ 0, 0, bounds().width(), bounds().height() });
    append(pushed);
    m_layers.insert(pushed, layer);
    const bool inWindow = isInWindow();
    if (inWindow)
        pushed->viewWillAppear();
    if (!alive || !pushed || m_layers.value(pushed) != layer)
        return; // it was popped again
    layer->setContentView(pushed->view());
    m_arrangement->stackUp(layers(), bounds(), animated);
    if (animated) // from the far side
        layer->setFrame(layer->targetFrame().translated(bounds().width() - layer->targetFrame().x(), 0));
    adjustClipping(true);
    layer->show();
    layer->raise();
    if (inWindow)
        pushed->viewDidAppear();
    if (alive && hadFocus && isOn(pushed))
        KXFocusInside(pushed->view());
    if (alive && animated && settle()) { // one may have been pushed above it meanwhile
        m_pushing = true;
        m_arrangement->animation().start([this, pushed] { didPush(pushed); });
    } else if (alive) {
        didPush(pushed);
    }
    if (previous)
        tellLayerContent(previous, &KXLayeredNavigationContent::childLayerViewControllerWasPushed);
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXLayeredNavigationController::didPush(const QPointer<KXViewController> &controller)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    m_pushing = false;
    adjustClipping(false);
    if (controller)
        tellLayerContent(controller, &KXLayeredNavigationContent::layeredViewWasPushed);
    if (alive)
        KXNotificationCenter::defaultCenter().post(QString(KXLayeredNavigationControllerDidPushViewController), this);
}

// Popping

void KXLayeredNavigationController::popToViewController(KXViewController *controller, bool animated)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    const QPointer<KXViewController> target(controller);
    const auto mayPop = [&] { return alive && viewControllers().size() > 1 && isOn(target); };
    if (!mayPop())
        return;
    m_peekCall.cancel();
    if (!settle() || !mayPop())
        return;
    const bool wasPeeking = forgetPeeking();
    if (!mayPop())
        return;
    const qsizetype index = viewControllers().indexOf(target);
    const auto removed = takeFrom(index + 1, viewControllers().size());
    bool hadFocus = false;
    for (const auto &gone : removed)
        hadFocus |= KXHasFocusInside(m_layers.value(gone));
    leave(removed, animated);
    if (!alive)
        return;
    if (!isOn(target)) { // has been taken away as well
        removeLeaving();
        return;
    }
    KXLayeredView *const layer = m_layers.value(target);
    const KXLayeredView *const below = index > 0 ? layers().value(index - 1) : nullptr;
    if (wasPeeking)
        layOut(nullptr, animated);
    else if (const int apart = KXLayerArrangement::distance(below, 0); apart > 0 && target == visibleViewController()) {
        const int x = below->targetFrame().x() + apart;
        m_arrangement->move(layer, { x, 0, std::max(0, bounds().width() - x), bounds().height() }, animated);
    }
    layer->setPeeking(false);
    adjustClipping(false);
    if (hadFocus)
        KXFocusInside(target->view());
    if (!alive)
        return;
    if (animated)
        m_arrangement->animation().start([this, target] { didPopTo(target); });
    else
        didPopTo(target);
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXLayeredNavigationController::didPopTo(const QPointer<KXViewController> &controller)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    removeLeaving();
    if (alive)
        adjustClipping(false);
    if (controller)
        tellLayerContent(controller, &KXLayeredNavigationContent::layeredViewWasRevealed);
    if (alive)
        KXNotificationCenter::defaultCenter().post(QString(KXLayeredNavigationControllerDidPopToViewController), this);
}

/// Their layers slide down, out of sight.
void KXLayeredNavigationController::leave(const QList<QPointer<KXViewController>> &controllers, bool animated)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    for (const QPointer<KXViewController> &controller : controllers) {
        const QPointer<KXLayeredView> layer = m_layers.take(controller);
        m_leaving.append({ layer, controller });
        if (layer) {
            layer->setPopped(true);
            layer->updateRole();
            m_arrangement->move(layer, layer->frame().translated(0, bounds().height()), animated);
        }
    }
    for (auto controller = controllers.crbegin(); alive && controller != controllers.crend(); ++controller) {
        if (*controller)
            (*controller)->viewWillDisappear();
    }
}

void KXLayeredNavigationController::removeLeaving()
{
    for (const auto &[layer, controller] : std::exchange(m_leaving, {})) {
        if (layer) {
            layer->releaseContentView();
            layer->hide();
            layer->deleteLater(); // it may be what has asked for it
        }
        if (controller && !controller->navigationStack())
            controller->viewDidDisappear();
    }
}

void KXLayeredNavigationController::dropViewController(KXViewController *controller, bool animated)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    const QPointer<KXViewController> dropped(controller);
    m_peekCall.cancel();
    if (!isOn(dropped) || !settle() || !isOn(dropped))
        return;
    const qsizetype index = viewControllers().indexOf(dropped);
    const bool hadFocus = KXHasFocusInside(m_layers.value(dropped));
    const bool wasPeeking = m_peeking == dropped;
    if (wasPeeking)
        m_peeking = nullptr;
    leave(takeFrom(index, 1), animated);
    if (!alive)
        return;
    const QList<KXLayeredView *> all = layers();
    m_arrangement->closeUp(all.mid(index), animated);
    if (!all.isEmpty())
        all.constLast()->setPeeking(true);
    adjustClipping(true);
    if (hadFocus && visibleViewController())
        KXFocusInside(visibleViewController()->view());
    if (!alive)
        return;
    if (wasPeeking && !all.isEmpty()) // its room closes once the pointer has had time to move on
        m_peekCall.start(PeekDelay, [this] { layoutLayers(); });
    if (animated)
        m_arrangement->animation().start([this] { didDrop(); });
    else
        didDrop();
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXLayeredNavigationController::didDrop()
{
    const QPointer<KXLayeredNavigationController> alive(this);
    removeLeaving();
    if (!alive)
        return;
    adjustClipping(false);
    KXNotificationCenter::defaultCenter().post(QString(KXLayeredNavigationControllerDidDropViewController), this);
}

void KXLayeredNavigationController::dropVisibleViewController() { dropViewController(visibleViewController(), true); }

void KXLayeredNavigationController::removeAllViewControllers()
{
    const QPointer<KXLayeredNavigationController> alive(this);
    m_peekCall.cancel();
    if (!settle())
        return;
    m_peeking = nullptr;
    leave(takeFrom(0, viewControllers().size()), false);
    if (alive)
        removeLeaving();
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXLayeredNavigationController::controllerDidEnd(KXViewController *controller, qsizetype)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    if (const QPointer<KXLayeredView> layer = m_layers.take(controller)) {
        layer->hide();
        layer->deleteLater();
    }
    if (!settle())
        return;
    m_pushing = false;
    layoutLayers();
    if (alive)
        Q_EMIT viewControllersDidChange();
}

// Peeking

void KXLayeredNavigationController::beginPeekingAtLayeredView(KXLayeredView *layer)
{
    if (m_pushing || !layer)
        return;
    m_peekCall.start(PeekDelay, [this, layer = QPointer(layer)] { beginPeeking(layer); });
}

void KXLayeredNavigationController::endPeekingAtLayeredView(KXLayeredView *layer)
{
    if (m_pushing || !layer)
        return;
    m_peekCall.start(PeekDelay, [this] { endPeeking(); });
}

void KXLayeredNavigationController::beginPeeking(KXLayeredView *layer)
{
    const QPointer<KXLayeredNavigationController> alive(this);
    const QPointer<KXViewController> controller(viewControllerForLayeredView(layer));
    if (!controller || controller == visibleViewController() || !settle() || !isOn(controller))
        return;
    if (m_peeking != controller)
        forgetPeeking();
    if (!alive || !isOn(controller) || controller == visibleViewController())
        return;
    m_peeking = controller;
    m_layers.value(controller)->setPeeking(true);
    layOut(m_layers.value(controller), true);
    adjustClipping(true);
    m_arrangement->animation().start([this] { adjustClipping(false); });
    if (alive && controller)
        tellLayerContent(controller, &KXLayeredNavigationContent::layeredViewDidBeginPeeking);
}

void KXLayeredNavigationController::endPeeking()
{
    const QPointer<KXLayeredNavigationController> alive(this);
    if (!settle())
        return;
    layOut(nullptr, true);
    adjustClipping(true);
    m_arrangement->animation().start([this] { adjustClipping(false); });
    if (alive)
        forgetPeeking();
}

/// Without laying out; whether one was peeking, which is told.
bool KXLayeredNavigationController::forgetPeeking()
{
    const QPointer<KXViewController> controller = std::exchange(m_peeking, nullptr);
    if (!controller)
        return false;
    if (KXLayeredView *const layer = m_layers.value(controller))
        layer->setPeeking(false);
    tellLayerContent(controller, &KXLayeredNavigationContent::layeredViewDidFinishPeeking);
    return true;
}

void KXLayeredNavigationController::shouldPopToLayeredView(KXLayeredView *layer)
{
    m_peekCall.cancel();
    if (KXViewController *const controller = viewControllerForLayeredView(layer))
        popToViewController(controller, true);
}

void KXLayeredNavigationController::shouldRevealLayeredView(KXLayeredView *layer) { shouldPopToLayeredView(layer); }

void KXLayeredNavigationController::shouldDropLayeredView(KXLayeredView *layer)
{
    m_peekCall.cancel();
    if (KXViewController *const controller = viewControllerForLayeredView(layer))
        dropViewController(controller, true);
}

/// What is covered does not get the keyboard: Tab goes on to the next header, or to the frontmost content.
void KXLayeredNavigationController::focusDidMove(QWidget *from, QWidget *to)
{
    KXLayeredView *const layer
        = to && isViewLoaded() && view()->isAncestorOf(to) ? KXLayeredView::hostingLayeredView(to) : nullptr;
    const QList<KXLayeredView *> all = layers();
    const qsizetype index = all.indexOf(layer);
    if (index < 0 || index + 1 >= all.size() || to == layer->layeredHeaderView())
        return;
    KXLayeredView *const next = all.at(index + 1);
    if (from != layer->layeredHeaderView())
        layer->layeredHeaderView()->setFocus(Qt::BacktabFocusReason);
    else if (next == all.constLast())
        KXFocusInside(next->contentView());
    else
        next->layeredHeaderView()->setFocus(Qt::TabFocusReason);
}

// Appearing

void KXLayeredNavigationController::tellAll(void (KXViewController::*message)())
{
    for (const QPointer<KXViewController> &controller : heldViewControllers()) {
        if (controller && controller->hasAppeared())
            (controller->*message)();
    }
}

void KXLayeredNavigationController::viewWillAppear()
{
    KXNavigationStackController::viewWillAppear();
    m_toldOfAppearance = heldViewControllers();
    for (const QPointer<KXViewController> &controller : QList(m_toldOfAppearance)) {
        if (controller && !controller->hasAppeared())
            controller->viewWillAppear();
    }
}

/// Whoever was told that it will appear may have pushed others, which nobody has told.
void KXLayeredNavigationController::viewDidAppear()
{
    KXNavigationStackController::viewDidAppear();
    const QList<QPointer<KXViewController>> told = std::exchange(m_toldOfAppearance, {});
    for (const QPointer<KXViewController> &controller : heldViewControllers()) {
        if (controller && !controller->hasAppeared() && !told.contains(controller))
            controller->viewWillAppear();
        if (controller && !controller->hasAppeared())
            controller->viewDidAppear();
    }
}

void KXLayeredNavigationController::viewWillDisappear()
{
    tellAll(&KXViewController::viewWillDisappear);
    KXNavigationStackController::viewWillDisappear();
}

void KXLayeredNavigationController::viewDidDisappear()
{
    tellAll(&KXViewController::viewDidDisappear);
    KXNavigationStackController::viewDidDisappear();
}
