#pragma once

#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/messages/KXMessage.h>
#include <kestrixkit/messages/views/KXMessageView.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXMessageCenterViewController;
class KXPopoverController;

/// Shows and hides the strip, wherever the host has it. Unless it is a QObject, it outlives the controller or is taken
/// off it.
class KX_UI_EXPORT KXMessageCenterViewControllerDelegate
{
public:
    virtual ~KXMessageCenterViewControllerDelegate();
    /// Called for every message that is posted, shown already or not.
    virtual void messageCenterViewShouldBeShown(KXMessageCenterViewController *controller) = 0;
    virtual void messageCenterViewShouldBeHidden(KXMessageCenterViewController *controller) = 0;
};

/// The strip of the message center: its newest message, how many there are, and the details of all of them in a
/// popover. Follows the message center from the moment its view is loaded. Main thread.
class KX_UI_EXPORT KXMessageCenterViewController : public KXViewController, public KXMessageViewDelegate
{
    Q_OBJECT
public:
    static constexpr double autoClearSeconds = 5;

    explicit KXMessageCenterViewController(QObject *parent = nullptr);
    ~KXMessageCenterViewController() override;

    [[nodiscard]] KXMessageCenterViewControllerDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXMessageCenterViewControllerDelegate *delegate) { m_delegate.set(delegate); }

    /// nullptr until the view is loaded.
    [[nodiscard]] KXMessageView *messageView() const { return m_messageView; }
    /// nullptr until details were shown for the first time.
    [[nodiscard]] KXPopoverController *messageDetailsPopover() const;
    /// Pending while the newest message is one that goes by itself.
    [[nodiscard]] const KXDelayedCall &clearTimer() const { return m_clearTimer; }

    /// Text, count, colour and timer after the newest message.
    void updateMessageView();
    /// Asks the delegate. The messages stay.
    void hide();
    /// Clears the message if it is the newest and no details are shown; else it stays for good.
    void autoClearMessage(const KXMessage::Ref &message);
    /// Runs the newest message's own action, or shows the details.
    void messageWasSelected(KXMessageView *view) override;
    /// Hides the strip and clears all messages.
    void messageViewShouldBeHidden(KXMessageView *view) override;
    void messageCenterDidPostMessage(const KXNotification &notification);

protected:
    void loadView() override;
    void viewDidLoad() override;

private:
    void showNewest();

    QPointer<KXMessageView> m_messageView;
    QPointer<KXPopoverController> m_messageDetailsPopover;
    KXDelayedCall m_clearTimer { this };
    KXWeakDelegate<KXMessageCenterViewControllerDelegate> m_delegate;
    KXNotificationToken m_posts;
    KXNotificationToken m_theme;
};
