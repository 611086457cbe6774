#pragma once

#include <functional>
#include <memory>

#include <QFlags>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <kestrixkit/foundation/KXGlobal.h>
#include <kestrixkit/foundation/KXRef.h>
#include <kestrixkit/foundation/KXWeakRef.h>

class KXObservable;
class KXObserver;
class KXObservableData;
class KXKeyPathLink;

/// What happened to a value. To-many keys announce insertion, removal and replacement of members.
enum class KXChangeKind : int {
    Setting = 1,
    Insertion = 2,
    Removal = 3,
    Replacement = 4,
};

/// What an observer wants beside the fact that something changed.
enum KXObservingOption : int {
    KXObservingOptionNew = 1, ///< the value (or inserted members) afterwards
    KXObservingOptionOld = 2, ///< the value (or removed members) before
    KXObservingOptionInitial = 4, ///< a first call at once, before the observation is answered
};
Q_DECLARE_FLAGS(KXObservingOptions, KXObservingOption)
Q_DECLARE_OPERATORS_FOR_FLAGS(KXObservingOptions)

/// A change as its observer sees it. Values are invalid unless they were asked for. When members of a to-many
/// key come or go they are lists of the members concerned, else the values of the whole key path.
struct KXKeyValueChange
{
    KXChangeKind kind = KXChangeKind::Setting;
    QVariant oldValue;
    QVariant newValue;
    QString keyPath;
};

using KXObserverBlock = std::function<void(const KXKeyValueChange &)>;

/// What makes an object's values readable by key and observable along key paths. A mix-in: no QObject, no
/// cost but a pointer until somebody observes.
///
/// Whoever changes a value announces it: willChangeValueForKey before, didChangeValueForKey after, on the
/// object's own thread, where observers are called at once. An observer may remove itself or others, change
/// the object again, or end it.
class KX_CORE_EXPORT KXObservable
{
public:
    KXObservable() = default;
    KXObservable(const KXObservable &) { } // observers and weak handles stay with the original
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): who observes stays with the object
    KXObservable &operator=(const KXObservable &) { return *this; }
    virtual ~KXObservable();

    // Announcing
    void willChangeValueForKey(QStringView key) const
    {
        if (m_data) [[unlikely]]
            announceWillChange(key, KXChangeKind::Setting, {});
    }
    void didChangeValueForKey(QStringView key) const
    {
        if (m_data) [[unlikely]]
            announceDidChange(key, KXChangeKind::Setting, {}, {});
    }
    /// For to-many keys: the members that are inserted (newMembers) or removed (oldMembers), or both.
    void willChangeValueForKey(QStringView key, KXChangeKind kind, const QVariantList &oldMembers = {}) const
    {
        if (m_data) [[unlikely]]
            announceWillChange(key, kind, oldMembers);
    }
    void didChangeValueForKey(QStringView key, KXChangeKind kind, const QVariantList &oldMembers = {},
        const QVariantList &newMembers = {}) const
    {
        if (m_data) [[unlikely]]
            announceDidChange(key, kind, oldMembers, newMembers);
    }
    /// Whether announcements reach anybody: saves preparing what nobody sees.
    [[nodiscard]] bool isObserved() const;

    // Values by key
    /// The value; invalid when absent. The base class knows no key and answers an invalid value.
    [[nodiscard]] virtual QVariant valueForKey(const QString &key) const;
    /// False when the key is unknown or refuses the value.
    virtual bool setValueForKey(const QString &key, const QVariant &value);
    /// Follows the path through objects and maps; through a list it answers the list of its members' values.
    /// Invalid as soon as something on the way is absent.
    [[nodiscard]] QVariant valueForKeyPath(const QString &keyPath) const;
    /// The keys (or key paths) whose change also changes this one. Names that do not exist are harmless.
    [[nodiscard]] virtual QStringList keyPathsForValuesAffectingKey(const QString &key) const;

    // Observing
    /// Calls the block whenever the value at the key path changes, or any object on the way is replaced. The
    /// object keeps the observer; the observation ends when it is removed or the object goes.
    std::shared_ptr<KXObserver> onChangeOf(const QString &keyPath, KXObserverBlock block);
    std::shared_ptr<KXObserver> onChangeOf(const QString &keyPath, KXObservingOptions options, KXObserverBlock block);
    /// Also of one that was made by KXObserver::observerFor(). Nothing happens for an observer of another object or one
    /// already removed.
    void removeKVOBlockObserver(const std::shared_ptr<KXObserver> &observer);
    void removeKVOBlockObservers();
    /// The observers that onChangeOf made, by key path.
    [[nodiscard]] QHash<QString, QList<std::shared_ptr<KXObserver>>> observers() const;

    /// For KXWeakRef.
    [[nodiscard]] std::shared_ptr<KXWeakAnchor> weakAnchor() const;
    /// Weak handles answer nothing from now on. To be called before a counted object is deleted, since another
    /// thread may be asking its count meanwhile; KXRefCounted does.
    void endWeakHandles() const;

protected:
    /// The first observer came, the last one went. A store keeps an observed object alive by these; the
    /// object may end during observationDidEnd. Not called while the object is being destroyed.
    virtual void observationDidBegin() const;
    virtual void observationDidEnd() const;

private:
    friend class KXKeyPathLink;

    KXObservableData &data() const;
    void announceWillChange(QStringView key, KXChangeKind kind, const QVariantList &oldMembers) const;
    void announceDidChange(
        QStringView key, KXChangeKind kind, const QVariantList &oldMembers, const QVariantList &newMembers) const;

    mutable KXObservableData *m_data = nullptr;
};

/// The object that a variant holds: a `KXObservable *`, a QObject that is also a KXObservable, or any type made
/// known by KXRegisterObservableHandle. Null for everything else. Borrowed.
KX_CORE_EXPORT KXObservable *KXObservableFromVariant(const QVariant &value);

/// Makes variants of a handle type (a pointer or smart pointer to something that is a KXObservable) readable
/// as objects. May be called any number of times, on any thread.
template <typename Handle> void KXRegisterObservableHandle()
{
    static const bool registered = QMetaType::hasRegisteredConverterFunction<Handle, KXObservable *>()
        || QMetaType::registerConverter<Handle, KXObservable *>(
            [](const Handle &handle) { return static_cast<KXObservable *>(handle ? &*handle : nullptr); });
    Q_UNUSED(registered)
}

template <typename T> void KXRegisterObservableHandle(const KXRef<T> &)
{
    // Each library asks once; another one may have been first.
    static const bool registered = QMetaType::hasRegisteredConverterFunction<KXRef<T>, KXObservable *>()
        || QMetaType::registerConverter<KXRef<T>, KXObservable *>(
            [](const KXRef<T> &ref) { return static_cast<KXObservable *>(ref.get()); });
    Q_UNUSED(registered)
}

/// A variant that keeps the object alive and is readable by KXObservableFromVariant. Invalid for an empty handle.
template <typename T> [[nodiscard]] QVariant KXVariantFromRef(const KXRef<T> &ref)
{
    KXRegisterObservableHandle(ref);
    return ref ? QVariant::fromValue(ref) : QVariant();
}
