// What a queue and an operation know of each other.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <vector>

#include <kestrixkit/foundation/KXAbstractOperation.h>

class KXOperationState
{
public:
    enum class Phase { Waiting, Started, Done };

    [[nodiscard]] static const std::shared_ptr<KXOperationState> &of(const KXAbstractOperation &operation)
    {
        return operation.m_state;
    }

    // False when it has been queued or done before.
    bool enterQueue();
    void markStarted();
    // An announcement is open until its didChange: the end counts when the last one closes, since whoever
    // announces still uses the operation until then.
    void announcementOpened();
    void announcementClosed(const KXAbstractOperation &operation);
    // For an operation whose start() threw, or returned without ever executing.
    void finishUnlessRunning(bool executing);
    void finish();
    // Calls at once when it is done already.
    void whenDone(std::function<void()> function);

    mutable std::mutex mutex;
    mutable std::condition_variable released;
    Phase phase = Phase::Waiting;
    bool queued = false;
    bool wasExecuting = false; // seen after the start
    bool isReleased = false; // done, and the completion block has returned
    int openAnnouncements = 0;
    std::function<void()> completion;
    std::vector<std::function<void()>> listeners;
    std::vector<std::shared_ptr<KXAbstractOperation>> dependencies;
    QString name;

    std::atomic<bool> executing { false }; // of the plain kind
    std::atomic<bool> finished { false }; // likewise
    std::atomic<bool> cancelled { false };

    std::recursive_mutex announceMutex; // observers of one operation are called one at a time

    // Recursive: a handler may end its own token.
    std::recursive_mutex cancelMutex;
    std::map<quint64, std::function<void()>> cancelHandlers;
    quint64 lastCancelHandler = 0;
};

// Sets KXAbstractOperation::current() for a scope.
class KXCurrentOperation
{
public:
    explicit KXCurrentOperation(KXAbstractOperation *operation);
    ~KXCurrentOperation();
    Q_DISABLE_COPY_MOVE(KXCurrentOperation)

private:
    KXAbstractOperation *m_previous;
};
