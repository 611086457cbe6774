#pragma once

#include <QLatin1StringView>

#include <kestrixkit/foundation/KXObject.h>

class KXViewController;

/// The dynamic property under which a view controller carries its item.
inline constexpr QLatin1StringView KXNavigationItemKey { "KXNavigationItemKey" };

/// What a navigation bar shows of a view controller. Belongs to that controller. Main thread.
class KX_UI_EXPORT KXNavigationItem : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(QString title READ title WRITE setTitle NOTIFY titleChanged)
public:
    /// The controller's item, made when it is first asked for; nullptr for nullptr.
    [[nodiscard]] static KXNavigationItem *navigationItem(KXViewController *controller);

    /// What was set or, where nothing was, the controller's own title.
    [[nodiscard]] QString title() const;
    void setTitle(const QString &title);

Q_SIGNALS:
    void titleChanged();

private:
    explicit KXNavigationItem(KXViewController *controller);

    KXViewController *const m_controller; // the parent
    QString m_title;
};
