#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <QList>
#include <QString>

#include <kestrixkit/foundation/KXAbstractOperation.h>
#include <kestrixkit/foundation/KXBlockOperation.h>
#include <kestrixkit/foundation/KXGlobal.h>

class KXOperationQueuePrivate;

/// Runs operations on threads of its own, first come first served among those that are ready, at most
/// so many at a time.
///
/// Each operation is started exactly once, also when it is cancelled or calls itself finished before, and counts
/// as running until it is done, even if its start() returned long ago. What an operation throws is logged and ends it.
/// The queue keeps its operations alive. Destroying the queue cancels them all and waits for them, unless one of
/// them destroys it: then nobody waits. All functions may be called on any thread.
class KX_CORE_EXPORT KXOperationQueue
{
public:
    /// As many at a time as the machine has processors.
    static constexpr int DefaultMaxConcurrentOperationCount = -1;

    KXOperationQueue();
    ~KXOperationQueue();
    Q_DISABLE_COPY_MOVE(KXOperationQueue)

    /// Throws KXException for an operation that was queued or done before. Null is ignored.
    void addOperation(const std::shared_ptr<KXAbstractOperation> &operation);
    void addOperations(const QList<std::shared_ptr<KXAbstractOperation>> &operations);
    /// Queues a function, which may take the operation that runs it.
    template <typename Function> std::shared_ptr<KXBlockOperation> addBlock(Function &&function)
    {
        auto operation = std::make_shared<KXBlockOperation>(std::forward<Function>(function));
        addOperation(operation);
        return operation;
    }

    void cancelAllOperations();
    /// Returns when none is left. From inside one of its own operations this would never be.
    void waitUntilAllOperationsAreFinished();

    /// At least 1, or DefaultMaxConcurrentOperationCount. Running ones are not affected.
    void setMaxConcurrentOperationCount(int count);
    [[nodiscard]] int maxConcurrentOperationCount() const;

    /// While suspended nothing is started; what runs goes on.
    void setSuspended(bool suspended);
    [[nodiscard]] bool isSuspended() const;

    /// Those that are not done, in order of arrival.
    [[nodiscard]] QList<std::shared_ptr<KXAbstractOperation>> operations() const;
    [[nodiscard]] int operationCount() const;

    [[nodiscard]] QString name() const;
    /// Its threads get the (shortened) name, too.
    void setName(const QString &name);

private:
    const std::shared_ptr<KXOperationQueuePrivate> d;
};
