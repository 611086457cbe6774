#include <kestrixkit/navigation/KXNavigationController.h>

#include <QEvent>
#include <QVBoxLayout>

#include <kestrixkit/navigation/KXAssociation_p.h>
#include <kestrixkit/navigation/KXFocusInside_p.h>

using namespace Qt::StringLiterals;

KXNavigationController::KXNavigationController(KXViewController *root, QObject *parent)
    : KXNavigationStackController(KXNavigationControllerKey, parent)
{
    if (root)
        pushViewController(root, false);
}

KXNavigationController::~KXNavigationController()
{
    // The view ends with this controller, but the view of what is shown is another's.
    if (m_shown && m_shown->isViewLoaded() && m_container && m_shown->view()->parentWidget() == m_container) {
        m_shown->view()->hide();
        m_shown->view()->setParent(nullptr);
    }
}

KXNavigationController *KXNavigationController::navigationController(const KXViewController *controller)
{
    return KXAssociated<KXNavigationController>(controller, KXNavigationControllerKey);
}

void KXNavigationController::loadView()
{
    KXInterfaceLoader::shared().registerWidgetOnce<KXNavigationBar>();
    KXNavigationStackController::loadView();
}

void KXNavigationController::viewDidLoad()
{
    KXNavigationStackController::viewDidLoad();
    m_bar = outlet<KXNavigationBar>(u"navigationBar"_s);
    m_barHolder = m_bar ? m_bar->parentWidget() : nullptr;
    m_container = outlet<QWidget>(u"contentContainerView"_s);
    if (m_barHolder) {
        m_bar->setDelegate(this);
        m_barHolder->installEventFilter(this);
    }
    m_shown.clear(); // an earlier view has ended
    updateBar(false);
    showVisible();
}

// The bar

bool KXNavigationController::eventFilter(QObject *object, QEvent *event)
{
    if (object == m_barHolder && event->type() == QEvent::Resize)
        placeBar();
    return KXNavigationStackController::eventFilter(object, event);
}

void KXNavigationController::placeBar()
{
    if (m_bar)
        m_bar->setGeometry(0, m_barOffset, m_barHolder->width(), KXNavigationBar::Height);
}

void KXNavigationController::setNavigationBarVerticalLayoutConstraint(int offset)
{
    m_barOffset = std::clamp(offset, -KXNavigationBar::Height, 0);
    if (!m_barHolder)
        return;
    m_barHolder->setFixedHeight(KXNavigationBar::Height + m_barOffset);
    m_barHolder->setVisible(m_barHolder->height() > 0);
    placeBar();
}

void KXNavigationController::updateBar(bool animated)
{
    QList<KXNavigationItem *> items;
    for (KXViewController *controller : viewControllers())
        items.append(KXNavigationItem::navigationItem(controller));
    const int offset = items.size() >= 2 ? 0 : -KXNavigationBar::Height;
    m_slide.finish();
    if (m_bar)
        m_bar->setItems(items, animated);
    if (animated)
        m_slide.add(this, "navigationBarVerticalLayoutConstraint", offset).start();
    else
        setNavigationBarVerticalLayoutConstraint(offset);
}

void KXNavigationController::shouldPopToItem(KXNavigationBar &, KXNavigationItem *item)
{
    for (KXViewController *controller : viewControllers()) {
        if (KXNavigationItem::navigationItem(controller) == item) {
            popToViewController(controller, true);
            return;
        }
    }
}

// Pushing and popping

void KXNavigationController::pushViewController(KXViewController *controller, bool animated)
{
    (void)view();
    if (!admits(controller))
        return;
    const QPointer<KXNavigationController> alive(this);
    append(controller);
    updateBar(animated);
    showVisible();
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXNavigationController::popToViewController(KXViewController *controller, bool animated)
{
    const qsizetype index = viewControllers().indexOf(controller);
    if (index < 0 || controller == visibleViewController())
        return;
    const QPointer<KXNavigationController> alive(this);
    (void)takeFrom(index + 1, viewControllers().size());
    updateBar(animated);
    showVisible();
    if (alive && m_shown && m_shown->isViewLoaded())
        KXFocusInside(m_shown->view());
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXNavigationController::removeAllViewControllers()
{
    if (viewControllers().isEmpty())
        return;
    const QPointer<KXNavigationController> alive(this);
    (void)takeFrom(0, viewControllers().size());
    updateBar(false);
    showVisible();
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXNavigationController::controllerDidEnd(KXViewController *, qsizetype)
{
    const QPointer<KXNavigationController> alive(this);
    updateBar(false);
    showVisible();
    if (alive)
        Q_EMIT viewControllersDidChange();
}

void KXNavigationController::back()
{
    const QList<KXViewController *> controllers = viewControllers();
    if (controllers.size() > 1)
        popToViewController(controllers.at(controllers.size() - 2), true);
}

void KXNavigationController::popToTopViewController()
{
    if (!viewControllers().isEmpty())
        popToViewController(viewControllers().constFirst(), true);
}

bool KXNavigationController::shouldShowBackArrowForCurrentItem(const KXNavigationItem *) const
{
    return viewControllers().size() > 1;
}

// What is shown

void KXNavigationController::showVisible()
{
    if (m_isShowing)
        return; // whoever shows goes on until it is right
    const QPointer<KXNavigationController> alive(this);
    m_isShowing = true;
    while (alive && m_container && m_shown != visibleViewController())
        exchangeShown();
    if (alive)
        m_isShowing = false;
}

void KXNavigationController::exchangeShown()
{
    const QPointer<KXNavigationController> alive(this);
    const bool hadFocus = KXHasFocusInside(m_container);
    if (const QPointer<KXViewController> leaving = std::exchange(m_shown, nullptr)) {
        leaving->viewWillDisappear();
        if (alive && leaving && leaving->isViewLoaded() && leaving->view()->parentWidget() == m_container) {
            m_container->layout()->removeWidget(leaving->view());
            leaving->view()->hide();
            leaving->view()->setParent(nullptr);
        }
        if (leaving)
            leaving->viewDidDisappear();
    }
    const QPointer<KXViewController> entering(alive ? visibleViewController() : nullptr);
    if (!entering || !m_container)
        return;
    m_shown = entering;
    const bool inWindow = isInWindow();
    if (inWindow)
        entering->viewWillAppear();
    if (!alive || !entering || entering != visibleViewController())
        return; // it was popped again, or something was pushed above it
    embed(entering->view());
    if (inWindow)
        entering->viewDidAppear();
    if (alive && hadFocus && entering && entering->isViewLoaded())
        KXFocusInside(entering->view());
}

void KXNavigationController::embed(QWidget *view)
{
    if (!m_container->layout())
        (new QVBoxLayout(m_container))->setContentsMargins(0, 0, 0, 0);
    m_container->layout()->addWidget(view);
    view->show();
}

void KXNavigationController::viewWillAppear()
{
    KXNavigationStackController::viewWillAppear();
    m_toldOfAppearance = m_shown;
    if (m_shown && !m_shown->hasAppeared())
        m_shown->viewWillAppear();
}

void KXNavigationController::viewDidAppear()
{
    const QPointer<KXViewController> shown = m_shown;
    KXNavigationStackController::viewDidAppear();
    if (!shown || shown->hasAppeared())
        return;
    if (shown != m_toldOfAppearance)
        shown->viewWillAppear();
    if (shown)
        shown->viewDidAppear();
}

void KXNavigationController::viewWillDisappear()
{
    if (m_shown && m_shown->hasAppeared())
        m_shown->viewWillDisappear();
    KXNavigationStackController::viewWillDisappear();
}

void KXNavigationController::viewDidDisappear()
{
    if (m_shown && m_shown->hasAppeared())
        m_shown->viewDidDisappear();
    KXNavigationStackController::viewDidDisappear();
}
