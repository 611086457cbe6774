#pragma once

#include <QHash>
#include <QPointer>

#include <kestrixkit/toolkit/KXViewController.h>

/// The process's details views by identifier, of which one at a time is shown in a container that the host gives.
///
/// The view fills its container, and wants to be 200 to 1,000 points wide: a splitter keeps to it, any other layout
/// may overrule it, as may a maximum width that the host has given to the container. Controllers are borrowed; one that
/// ends leaves by itself. Main thread.
class KX_UI_EXPORT KXDetailsManager : public KXObject
{
    Q_OBJECT
public:
    using Controllers = QHash<QString, QPointer<KXViewController>>;
    static constexpr int MinimumWidth = 200; ///< points
    static constexpr int MaximumWidth = 1000; ///< points

    [[nodiscard]] static KXDetailsManager &sharedManager();

    /// As they are now: a later change makes another map.
    [[nodiscard]] Controllers detailsViewControllers() const { return m_controllers; }
    /// Registers it, or puts it in the place of the one before, which stays shown where it is. Null is ignored.
    void addDetailsViewController(KXViewController *controller, const QString &withIdentifier);
    /// Takes it from the container first where it is shown.
    void removeDetailsViewControllerWithIdentifier(const QString &identifier);

    /// nullptr while nothing is shown.
    [[nodiscard]] KXViewController *currentDetailsViewController() const { return m_current; }
    /// Registered or not; nullptr empties the container. Without a container it waits for one.
    void showDetailsViewController(KXViewController *controller);

    [[nodiscard]] QWidget *contentContainerView() const { return m_container; }
    /// Borrowed; what is shown moves there.
    void setContentContainerView(QWidget *container);

Q_SIGNALS:
    void currentDetailsViewControllerDidChange();

private:
    class Holder;
    KXDetailsManager();
    ~KXDetailsManager() override;
    void fillContainer();
    void emptyContainer();
    void controllerDidEnd();

    Controllers m_controllers;
    QPointer<KXViewController> m_current;
    QPointer<KXViewController> m_going; // the current one, while it is told so
    quint32 m_requests = 0; // to show another one
    QPointer<QWidget> m_container;
    QPointer<QWidget> m_holder; // in the container, while something is shown
    bool m_limitsContainer = false;
};
