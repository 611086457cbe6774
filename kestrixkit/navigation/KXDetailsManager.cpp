#include <kestrixkit/navigation/KXDetailsManager.h>

#include <memory>

#include <QSplitter>
#include <QVBoxLayout>

/// Between container and view: wants a width without insisting on it.
class KXDetailsManager::Holder : public QWidget
{
public:
    Holder() { (new QVBoxLayout(this))->setContentsMargins(0, 0, 0, 0); }
    [[nodiscard]] QSize minimumSizeHint() const override
    {
        return { MinimumWidth, QWidget::minimumSizeHint().height() };
    }
    [[nodiscard]] QSize sizeHint() const override
    {
        const QSize wanted = QWidget::sizeHint();
        return { std::clamp(wanted.width(), MinimumWidth, MaximumWidth), wanted.height() };
    }
};

KXDetailsManager::KXDetailsManager() = default;
KXDetailsManager::~KXDetailsManager() = default;

KXDetailsManager &KXDetailsManager::sharedManager()
{
    static auto *const manager = new KXDetailsManager; // as long as the process: containers may outlive statics
    return *manager;
}

void KXDetailsManager::addDetailsViewController(KXViewController *controller, const QString &identifier)
{
    if (!controller)
        return;
    Controllers controllers = m_controllers;
    controllers.insert(identifier, controller);
    m_controllers = controllers;
    connect(controller, &QObject::destroyed, this, &KXDetailsManager::controllerDidEnd, Qt::UniqueConnection);
}

void KXDetailsManager::removeDetailsViewControllerWithIdentifier(const QString &identifier)
{
    const QPointer<KXViewController> removed = m_controllers.value(identifier);
    if (removed && removed == m_current && removed != m_going)
        showDetailsViewController(nullptr);
    if (m_controllers.value(identifier) != removed)
        return; // whoever was told has put another one there
    Controllers controllers = m_controllers;
    controllers.remove(identifier);
    m_controllers = controllers;
}

void KXDetailsManager::controllerDidEnd()
{
    Controllers rest = m_controllers;
    rest.removeIf([](const auto &entry) { return entry.value().isNull(); });
    m_controllers = rest;
    if (!m_holder || m_current)
        return;
    emptyContainer();
    Q_EMIT currentDetailsViewControllerDidChange();
}

void KXDetailsManager::showDetailsViewController(KXViewController *controller)
{
    if (controller == m_current)
        return;
    const QPointer<KXDetailsManager> alive(this);
    const QPointer<KXViewController> wanted(controller);
    const quint32 request = ++m_requests;
    if (m_current) { // it still is while it is told that it goes
        m_going = m_current;
        m_current->disappear();
    }
    if (!alive || m_requests != request)
        return; // whoever was told shows something else
    m_going = nullptr;
    m_current = wanted;
    if (wanted)
        connect(wanted, &QObject::destroyed, this, &KXDetailsManager::controllerDidEnd, Qt::UniqueConnection);
    fillContainer();
    if (m_current == wanted)
        Q_EMIT currentDetailsViewControllerDidChange();
}

void KXDetailsManager::setContentContainerView(QWidget *container)
{
    if (container == m_container)
        return;
    const QPointer<QWidget> before = m_container;
    if (m_current)
        m_current->disappear();
    if (m_container != before)
        return; // whoever was told has named another one
    emptyContainer();
    m_container = container;
    fillContainer();
}

void KXDetailsManager::fillContainer()
{
    if (!m_current || m_current == m_going || !m_container) {
        emptyContainer();
        return;
    }
    if (!m_holder) {
        m_holder = new Holder;
        if (!m_container->layout())
            (new QVBoxLayout(m_container))->setContentsMargins(0, 0, 0, 0);
        m_container->layout()->addWidget(m_holder);
        m_limitsContainer
            = qobject_cast<QSplitter *>(m_container->parent()) && m_container->maximumWidth() == QWIDGETSIZE_MAX;
        if (m_limitsContainer)
            m_container->setMaximumWidth(MaximumWidth);
    }
    m_current->appearIn(m_holder);
}

void KXDetailsManager::emptyContainer()
{
    const std::unique_ptr<QWidget> holder(std::exchange(m_holder, nullptr));
    if (holder) {
        // A controller that is being told that it goes has its view here still.
        for (QWidget *const view : holder->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
            view->hide();
            view->setParent(nullptr);
        }
    }
    if (std::exchange(m_limitsContainer, false) && m_container)
        m_container->setMaximumWidth(QWIDGETSIZE_MAX);
}
