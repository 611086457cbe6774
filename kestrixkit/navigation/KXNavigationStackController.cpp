#include <kestrixkit/navigation/KXNavigationStackController.h>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/navigation/KXAssociation_p.h>

KXNavigationStackController::KXNavigationStackController(QLatin1StringView key, QObject *parent)
    : KXViewController(parent)
    , m_key(key)
{
}

KXNavigationStackController::~KXNavigationStackController()
{
    for (KXViewController *controller : std::as_const(m_viewControllers))
        forget(controller);
}

bool KXNavigationStackController::admits(KXViewController *controller)
{
    if (!controller || m_viewControllers.contains(controller))
        return false;
    const QWidget *const theirs = controller->isViewLoaded() ? controller->view() : nullptr;
    const bool isAround = theirs && isViewLoaded() && (theirs == view() || theirs->isAncestorOf(view()));
    if (controller == this || isAround) {
        KXLogWarning(toolkit, "\"%@\" cannot be pushed into itself", controller->title());
        return false;
    }
    if (KXNavigationStack *const other = controller->navigationStack(); other && other != this) {
        KXLogWarning(toolkit, "\"%@\" is pushed elsewhere already", controller->title());
        return false;
    }
    return true;
}

void KXNavigationStackController::append(KXViewController *controller)
{
    m_viewControllers.append(controller);
    controller->setNavigationStack(this);
    KXAssociate(controller, m_key, this);
    connect(controller, &QObject::destroyed, this, [this, controller] {
        const qsizetype index = m_viewControllers.indexOf(controller);
        if (index < 0)
            return;
        m_viewControllers.removeAt(index);
        controllerDidEnd(controller, index);
    });
}

void KXNavigationStackController::forget(KXViewController *controller)
{
    disconnect(controller, &QObject::destroyed, this, nullptr);
    if (controller->navigationStack() == this)
        controller->setNavigationStack(nullptr);
    if (KXAssociated<KXNavigationStackController>(controller, m_key) == this)
        KXAssociate(controller, m_key, nullptr);
}

QList<QPointer<KXViewController>> KXNavigationStackController::takeFrom(qsizetype index, qsizetype count)
{
    QList<QPointer<KXViewController>> taken;
    for (KXViewController *controller : m_viewControllers.mid(index, count)) {
        forget(controller);
        taken.append(controller);
    }
    m_viewControllers.remove(index, taken.size());
    return taken;
}

QList<QPointer<KXViewController>> KXNavigationStackController::heldViewControllers() const
{
    return { m_viewControllers.cbegin(), m_viewControllers.cend() };
}

bool KXNavigationStackController::isInWindow() const
{
    auto *const ours = const_cast<KXNavigationStackController *>(this);
    return isViewLoaded() && (ours->view()->parentWidget() || ours->view()->isVisible());
}
