#include <kestrixkit/messages/views/KXMessageCenterViewController.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/messages/KXMessageCenter.h>
#include <kestrixkit/messages/views/KXMessageCenterDetailsViewController.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

using namespace Qt::StringLiterals;

KXMessageCenterViewControllerDelegate::~KXMessageCenterViewControllerDelegate() = default;

KXMessageCenterViewController::KXMessageCenterViewController(QObject *parent)
    : KXViewController(parent)
{
    setTitle(KXLocalizedString("Messages"));
}

KXMessageCenterViewController::~KXMessageCenterViewController()
{
    delete m_messageDetailsPopover; // while there is somebody whom it may tell that it closes
}

KXPopoverController *KXMessageCenterViewController::messageDetailsPopover() const { return m_messageDetailsPopover; }

void KXMessageCenterViewController::loadView()
{
    KXInterfaceLoader::shared().registerWidgetOnce<KXMessageView>();
    KXViewController::loadView();
}

void KXMessageCenterViewController::viewDidLoad()
{
    m_messageView = outlet<KXMessageView>(u"messageView"_s);
    if (m_messageView)
        m_messageView->setDelegate(this);
    auto &notifications = KXNotificationCenter::defaultCenter();
    m_posts = notifications.addObserver(KXMessageCenterDidPostMessageNotification, &KXMessageCenter::sharedInstance(),
        [this](const KXNotification &notification) { messageCenterDidPostMessage(notification); });
    m_theme = notifications.addObserver(KXThemeDidChangeNotification, &KXThemeManager::sharedManager(),
        [this](const KXNotification &) { showNewest(); });
    showNewest();
}

void KXMessageCenterViewController::messageCenterDidPostMessage(const KXNotification &)
{
    const QPointer<KXMessageCenterViewController> alive(this);
    if (KXMessageCenterViewControllerDelegate *const host = delegate())
        host->messageCenterViewShouldBeShown(this);
    if (alive)
        updateMessageView();
}

void KXMessageCenterViewController::showNewest()
{
    const KXMessageCenter &center = KXMessageCenter::sharedInstance();
    const KXMessage::Ref newest = center.newestMessage();
    if (!m_messageView || !newest)
        return;
    if (const auto &theme = KXThemeManager::sharedManager().theme()) {
        if (newest->type() == KXMessageTypeInfo)
            m_messageView->setBackgroundGradient(theme->messageViewInfoGradient());
        else if (newest->type() == KXMessageTypeError)
            m_messageView->setBackgroundGradient(theme->messageViewErrorGradient());
    }
    const qsizetype count = center.messageCount();
    m_messageView->setMessage(count < 2 ? newest->title() : KXStringWithFormat(u"%@ (%lu)", newest->title(), count));
}

void KXMessageCenterViewController::updateMessageView()
{
    showNewest();
    m_clearTimer.cancel();
    const KXMessage::Ref newest = KXMessageCenter::sharedInstance().newestMessage();
    if (newest && newest->autoClear())
        m_clearTimer.start(autoClearSeconds, [this, newest] { autoClearMessage(newest); });
}

void KXMessageCenterViewController::autoClearMessage(const KXMessage::Ref &message)
{
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    const bool showsDetails = m_messageDetailsPopover && m_messageDetailsPopover->isShown();
    if (!message || center.newestMessage() != message || showsDetails)
        return;
    center.clearMessages({ message });
    hide();
}

void KXMessageCenterViewController::hide()
{
    if (KXMessageCenterViewControllerDelegate *const host = delegate())
        host->messageCenterViewShouldBeHidden(this);
}

void KXMessageCenterViewController::messageWasSelected(KXMessageView *)
{
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    const KXMessage::Ref newest = center.newestMessage();
    if (!newest || !m_messageView)
        return;
    if (const KXMessage::SelectionBlock block = newest->onSelectionBlock()) {
        const QPointer<KXMessageCenterViewController> alive(this);
        block(newest); // may end the controller
        center.clearMessages({ newest });
        if (alive)
            hide();
        return;
    }
    if (m_messageDetailsPopover) {
        const QPointer<KXMessageCenterViewController> alive(this);
        m_messageDetailsPopover->deleteLater();
        m_messageDetailsPopover->close(); // which clears what it showed, and has the strip hidden if that was all
        if (!alive || center.messageCount() == 0)
            return;
    }
    auto *const details = new KXMessageCenterDetailsViewController;
    m_messageDetailsPopover = new KXPopoverController(details, this);
    details->setParent(m_messageDetailsPopover);
    m_messageDetailsPopover->setBehaviour(KXPopoverBehaviour::SemiTransient);
    m_messageDetailsPopover->setCloseAction([this] {
        if (KXMessageCenter::sharedInstance().messageCount() == 0)
            hide();
        else
            showNewest(); // fewer than it says
    });
    m_messageDetailsPopover->showRelativeTo(m_messageView->messageButton(), Qt::TopEdge);
}

void KXMessageCenterViewController::messageViewShouldBeHidden(KXMessageView *)
{
    const QPointer<KXMessageCenterViewController> alive(this);
    hide();
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    center.clearMessages(center.messages());
    if (alive)
        m_clearTimer.cancel();
}
