#pragma once

#include <functional>
#include <memory>

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QUrl>

#include <kestrixkit/context/KXTreeObjectOf.h>

/// One node of the tree by which a window is navigated: a place of the application, remembered from run to run, and
/// together with it the controller of the view that shows it.
///
/// The controller is made when it is first asked for, and ends when it is torn down: with the deletion of the view
/// state at the latest. Its kind, the image, the count and whether work is in progress are kept in memory only. All
/// keys are observable; observers of "count" hear of "expanded", too. Register the entity before a store is opened.
class KX_UI_EXPORT KXViewState : public KXTreeObjectOf<KXViewState>
{
public:
    static constexpr QLatin1StringView entityName { "KXViewState" };

    ~KXViewState() override;

    KX_ATTRIBUTE(QString, title, setTitle)
    /// For the host.
    KX_ATTRIBUTE(qint64, tag, setTag)
    KX_ATTRIBUTE(bool, expanded, setExpanded)

    [[nodiscard]] QIcon image() const override { return m_image; }
    void setImage(const QIcon &image);
    [[nodiscard]] qint64 count() const { return m_count; }
    void setCount(qint64 count);
    [[nodiscard]] std::optional<qint64> countForContextIdentifier(const QString &) const override { return m_count; }
    [[nodiscard]] QStringList badgeKeys() const override;
    [[nodiscard]] bool inProgress() const override { return m_inProgress; }
    void setInProgress(bool inProgress);

    /// Its identifier in the form that lasts.
    [[nodiscard]] QUrl sourceURL() const { return objectID().URIRepresentation(); }
    /// Where it stands, as a path: "/store/top100tracks". Each step is a title in lower case of which letters and
    /// digits are left; one that has neither adds nothing.
    [[nodiscard]] QString trackingPath() const;

    // Its controller. Main thread.

    /// A class that view states can make controllers of. Others need an invokable constructor without arguments.
    template <class Controller> static void registerControllerClass()
    {
        registerControllerClass(&Controller::staticMetaObject, []() -> QObject * { return new Controller; });
    }
    static void registerControllerClass(const QMetaObject *controllerClass, std::function<QObject *()> make);
    /// Null at first.
    [[nodiscard]] const QMetaObject *controllerClass() const override { return m_controllerClass; }
    void setControllerClass(const QMetaObject *controllerClass);
    /// Makes it where there is none and the class is known. Null where that cannot be made, which is logged.
    [[nodiscard]] QObject *controllerObject() const;
    /// The same; null for a controller that is no KXSourceListItemController.
    [[nodiscard]] KXSourceListItemController *controller() const override;
    /// Takes another one, which it owns unless that has a QObject as parent. The one before is left to its parent, or
    /// deleted in the loop's next turn: it may be what calls this.
    void setControllerObject(QObject *controller);
    void setController(KXSourceListItemController *controller) override;
    [[nodiscard]] bool isControllerLoaded() const override { return m_controller; }
    /// Lets the controller go, and empties the navigation stack that it is on: all on it lose the stack.
    void tearDownController();

    /// A view state of the same class and title in the same context. Children are copied along only where the original
    /// has a parent; the copy has none.
    [[nodiscard]] KXRef<KXViewState> duplicate() const;
    [[nodiscard]] bool canBeDuplicated() const override { return true; }
    KXSourceListItem *duplicateItem() override { return duplicate().get(); }

    [[nodiscard]] bool canBeRepositioned() const override { return true; }
    [[nodiscard]] bool canBeParentForItem(const KXSourceListItem *) const override { return false; }
    [[nodiscard]] bool isDescendantOfItem(const KXSourceListItem *item) const override
    {
        return item == this || hasAncestor(item);
    }
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;
    bool setValueForKey(const QString &key, const QVariant &value) override;
    [[nodiscard]] QStringList keyPathsForValuesAffectingKey(const QString &key) const override;

protected:
    void prepareForDeletion() override;

private:
    template <typename Value> void setInMemory(QStringView key, Value &member, const Value &value);
    void takeController(QObject *controller);

    QIcon m_image;
    qint64 m_count = 0;
    bool m_inProgress = false;
    const QMetaObject *m_controllerClass = nullptr;
    mutable QPointer<QObject> m_controller;
};
