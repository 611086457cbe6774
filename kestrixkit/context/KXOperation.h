#pragma once

#include <atomic>

#include <kestrixkit/foundation/KXAbstractOperation.h>

/// An operation that manages its own execution behind one flag, executing.
///
/// A subclass overrides start(), sets executing to true at its very start and back to false when it is done, there or
/// later on any thread; or it overrides main() and leaves that to this class.
class KX_CORE_EXPORT KXOperation : public KXAbstractOperation
{
public:
    KXOperation();
    ~KXOperation() override;

    /// Runs main(), unless cancelled, as one execution.
    void start() override;

    [[nodiscard]] bool isExecuting() const override;
    /// The opposite of isExecuting(): true before the start as well. Ask isDone() whether it has run.
    [[nodiscard]] bool isFinished() const override;
    /// The queue only calls start().
    [[nodiscard]] bool isConcurrent() const { return true; }

    /// Announces that isExecuting and isFinished will change, stores, announces that they did; also where the value is
    /// the same. Any thread.
    void setExecuting(bool executing);

private:
    std::atomic<bool> m_executing { false };
};
