#pragma once

#include <functional>
#include <memory>

#include <QList>
#include <QString>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXObservable.h>

class KXOperationState;

/// A piece of work for an operation queue, or to be started by hand.
///
/// The plain kind overrides main() and is done when that returns. One that manages itself overrides start(),
/// isExecuting() and isFinished(): it sets executing to true at the very start of start(), may return from it
/// and go on elsewhere, and ends by setting executing back to false. It announces each change of these keys as
/// an observable's, "isExecuting" and "isFinished" together.
///
/// An operation is done when, once started, its executing was announced to go from true to false and, under a
/// queue, start() has returned; that happens once, however often it is announced, and whatever isFinished
/// answers. One that is cancelled before it starts is started all the same and ends at once.
///
/// Threads: cancel, dependencies, waiting and the questions may be used on any thread. Observe it before it is
/// queued and until it is done; observers are called on whatever thread announces, one at a time.
class KX_CORE_EXPORT KXAbstractOperation : public KXObservable, public std::enable_shared_from_this<KXAbstractOperation>
{
public:
    KXAbstractOperation();
    ~KXAbstractOperation() override;
    Q_DISABLE_COPY_MOVE(KXAbstractOperation)

    /// Runs main(), unless cancelled, between announcing that it executes and that it is finished. What main()
    /// throws passes through, after the operation has ended; a queue logs it.
    virtual void start();
    /// The work of the plain kind. Nothing unless overridden.
    virtual void main();

    /// Marks it cancelled and calls the cancel handlers; the work has to look, or to be interrupted by a handler.
    virtual void cancel();
    [[nodiscard]] bool isCancelled() const;
    /// Called by cancel(), on its thread, or at once if that has happened. Once the token is gone the function is not
    /// running any more. Short, as it holds the operation's cancel lock: "interrupt the query".
    [[nodiscard]] KXScopeToken addCancelHandler(std::function<void()> handler);

    [[nodiscard]] virtual bool isExecuting() const;
    [[nodiscard]] virtual bool isFinished() const;
    /// Whether it may start: all operations it depends on are done, or it is cancelled and would end at once.
    [[nodiscard]] bool isReady() const;
    /// Whether it was started and has ended (see above).
    [[nodiscard]] bool isDone() const;

    /// It will not start before the other is done. To be told before it is queued.
    void addDependency(const std::shared_ptr<KXAbstractOperation> &operation);
    void removeDependency(const std::shared_ptr<KXAbstractOperation> &operation);
    [[nodiscard]] QList<std::shared_ptr<KXAbstractOperation>> dependencies() const;

    /// Called once when the operation is done, on the thread that announced it, before anybody who waits goes on.
    void setCompletionBlock(std::function<void()> block);
    /// Returns when it is done, also when nobody has started it yet.
    void waitUntilFinished() const;

    [[nodiscard]] QString name() const;
    void setName(const QString &name);

    /// The operation whose start() runs on this thread under a queue; null outside. Borrowed.
    [[nodiscard]] static KXAbstractOperation *current();

    /// isExecuting, isFinished, isCancelled, isReady and name.
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;

    // Announcements that the queue listens to; they hide those of KXObservable and do what these do.
    void willChangeValueForKey(QStringView key);
    void didChangeValueForKey(QStringView key);

protected:
    /// Keeps the plain kind's flag, announcing isExecuting and isFinished.
    void setPlainExecuting(bool executing);

private:
    friend class KXOperationState; // by which a queue knows it
    const std::shared_ptr<KXOperationState> m_state;
};
