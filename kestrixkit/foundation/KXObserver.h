#pragma once

#include <memory>

#include <kestrixkit/foundation/KXObservable.h>

class KXObserverPrivate;

/// One observation of a key path of one object. Held by whoever made it: the caller of observerFor, or the
/// observed object for those made by KXObservable::onChangeOf. Ends with its last holder, with the observed
/// object, or by stop(). Belongs to the thread of the observed object.
class KX_CORE_EXPORT KXObserver : public std::enable_shared_from_this<KXObserver>
{
public:
    /// Observes the key path; with KXObservingOptionInitial the block is called once before this returns.
    /// A null object gives an observer that never calls.
    [[nodiscard]] static std::shared_ptr<KXObserver> observerFor(
        KXObservable *object, const QString &keyPath, KXObservingOptions options, KXObserverBlock block);
    ~KXObserver();
    Q_DISABLE_COPY_MOVE(KXObserver)

    /// The observed object; null once it has gone or the observation was stopped.
    [[nodiscard]] KXObservable *observee() const;
    [[nodiscard]] QString keypath() const;

    /// Ends the observation; the block is not called any more. Harmless when repeated.
    void stop();

private:
    friend class KXObserverPrivate;
    KXObserver();
    std::unique_ptr<KXObserverPrivate> d;
};
