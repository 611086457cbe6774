#pragma once

#include <QMargins>
#include <QPointer>
#include <QWidget>

#include <kestrixkit/foundation/KXObject.h>
#include <kestrixkit/toolkit/KXInterfaceLoader.h>

class KXNavigationStack;
class KXPopoverController;

/// A view and what it does: base of all controllers of views.
///
/// The view is loaded when it is first asked for, from the interface file that is named after the class (less
/// "ViewController") or, where that has none, after the nearest base class that has: the host's file before the
/// framework's. A subclass needs Q_OBJECT to have a name. It ends with its controller, wherever it is shown. A
/// controller whose view has ended with the window around it loads another when asked. Main thread.
class KX_UI_EXPORT KXViewController : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(QString title READ title WRITE setTitle NOTIFY titleChanged)
public:
    explicit KXViewController(QObject *parent = nullptr);
    ~KXViewController() override;

    /// What navigation shows of it.
    [[nodiscard]] const QString &title() const { return m_title; }
    void setTitle(const QString &title);

    /// Never nullptr: an empty one where there is no interface file, which is logged.
    [[nodiscard]] QWidget *view();
    [[nodiscard]] bool isViewLoaded() const { return m_view; }
    /// Whether the view has appeared and not disappeared since.
    [[nodiscard]] bool hasAppeared() const { return m_view && m_hasAppeared; }

    /// Puts the view into the container, filling it, and tells the controller. Whatever its layout holds else stays.
    /// Where whoever is told asks for another place, or for none, that holds.
    void appearIn(QWidget *container, const QMargins &margins = {});
    /// Takes the view out again, hidden. Harmless when it has not appeared.
    void disappear();

    /// The stack that it is on; nullptr on none.
    [[nodiscard]] KXNavigationStack *navigationStack() const { return m_navigationStack; }
    void setNavigationStack(KXNavigationStack *stack) { m_navigationStack = stack; }

    /// The popover that it is the content of; nullptr for none.
    [[nodiscard]] KXPopoverController *popoverController() const;
    void setPopoverController(KXPopoverController *popover);

    // Told by whoever embeds the view, before and after; popovers tell their content of themselves, too. Overriding
    // ones call the base's.

    virtual void viewWillAppear() { }
    virtual void viewDidAppear() { m_hasAppeared = true; }
    virtual void viewWillDisappear() { }
    virtual void viewDidDisappear() { m_hasAppeared = false; }
    virtual void popoverWillShow() { }
    virtual void popoverDidShow() { }
    virtual void popoverWillClose() { }
    virtual void popoverDidClose() { }

Q_SIGNALS:
    void titleChanged();

protected:
    /// Makes the view and gives it to setView(). One that makes its view in code overrides this.
    virtual void loadView();
    /// The view is there: the place to take the outlets.
    virtual void viewDidLoad() { }
    /// The controller owns it from now on; an earlier one ends.
    void setView(QWidget *view);
    /// The object of that name in the view; nullptr, with a log line, where there is none of that type.
    template <typename Type> [[nodiscard]] Type *outlet(const QString &name)
    {
        return KXInterfaceLoader::outlet<Type>(view(), name);
    }

private:
    void leave();

    QString m_title;
    QPointer<QWidget> m_view;
    KXNavigationStack *m_navigationStack = nullptr;
    QPointer<QObject> m_popover;
    quint32 m_requests = 0; // to appear somewhere, or to disappear
    bool m_isLeaving = false; // while it is told that it will disappear
    bool m_hasAppeared = false;
};
