#pragma once

#include <QList>

#include <kestrixkit/toolkit/KXNavigationStack.h>
#include <kestrixkit/toolkit/KXViewController.h>

/// Base of the controllers that push and pop others: keeps the list of them.
///
/// The controllers are borrowed; one that ends leaves the stack by itself. A controller is on one stack at a time, and
/// learns of it before anything is called out. Main thread.
class KX_UI_EXPORT KXNavigationStackController : public KXViewController, public KXNavigationStack
{
    Q_OBJECT
public:
    /// All of them lose the stack.
    ~KXNavigationStackController() override;

    [[nodiscard]] QList<KXViewController *> viewControllers() const override { return m_viewControllers; }

Q_SIGNALS:
    /// Controllers were pushed, were popped or have ended; the list is as it is from now on.
    void viewControllersDidChange();

protected:
    /// The name of the property under which controllers carry the stack.
    KXNavigationStackController(QLatin1StringView key, QObject *parent);

    /// Whether it may be pushed; refused is, with a log line, what is on another stack or has this one inside of it.
    [[nodiscard]] bool admits(KXViewController *controller);
    void append(KXViewController *controller);
    /// These lose the stack.
    [[nodiscard]] QList<QPointer<KXViewController>> takeFrom(qsizetype index, qsizetype count);
    /// To call each of them: any may end meanwhile.
    [[nodiscard]] QList<QPointer<KXViewController>> heldViewControllers() const;
    /// Whether views put into this one's are in a window, or about to be.
    [[nodiscard]] bool isInWindow() const;
    /// One ended, which had that place; of the controller only the address is left.
    virtual void controllerDidEnd(KXViewController *controller, qsizetype index) = 0;

private:
    void forget(KXViewController *controller);

    const QLatin1StringView m_key;
    QList<KXViewController *> m_viewControllers; // the root first
};
