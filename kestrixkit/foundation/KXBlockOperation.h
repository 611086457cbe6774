#pragma once

#include <functional>

#include <kestrixkit/foundation/KXAbstractOperation.h>

/// An operation whose work is a function, which is let go as soon as it has run. Made on any thread; the function runs
/// on the one that starts it: one of its queue's.
class KX_CORE_EXPORT KXBlockOperation : public KXAbstractOperation
{
public:
    explicit KXBlockOperation(std::function<void()> block);
    /// The function is given the operation, to ask whether it is cancelled or to add cancel handlers.
    explicit KXBlockOperation(std::function<void(KXAbstractOperation &)> block);
    ~KXBlockOperation() override;

    void main() override;

private:
    std::function<void(KXAbstractOperation &)> m_block;
};
