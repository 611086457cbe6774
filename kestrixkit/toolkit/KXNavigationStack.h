#pragma once

#include <QList>

#include <kestrixkit/foundation/KXGlobal.h>

class KXViewController;

/// What shows one of a stack of view controllers, as those know it. Whoever implements it tells each controller when it
/// is pushed and when it leaves, or when the stack itself ends, by KXViewController::setNavigationStack(). Main thread.
class KX_UI_EXPORT KXNavigationStack
{
public:
    virtual ~KXNavigationStack();

    /// The root first.
    [[nodiscard]] virtual QList<KXViewController *> viewControllers() const = 0;
    /// nullptr for an empty stack.
    [[nodiscard]] KXViewController *visibleViewController() const;
    virtual void pushViewController(KXViewController *controller, bool animated) = 0;
    /// Nothing for one that is not on the stack, or on top of it.
    virtual void popToViewController(KXViewController *controller, bool animated) = 0;
    /// All of them lose the stack.
    virtual void removeAllViewControllers() = 0;
};
