#include <kestrixkit/context/KXOperation.h>

KXOperation::KXOperation() = default;
KXOperation::~KXOperation() = default;

void KXOperation::start()
{
    if (isDone())
        return;
    setExecuting(true);
    try {
        if (!isCancelled())
            main();
    } catch (...) {
        setExecuting(false);
        throw;
    }
    setExecuting(false);
}

bool KXOperation::isExecuting() const { return m_executing.load(std::memory_order_acquire); }
bool KXOperation::isFinished() const { return !isExecuting(); }

void KXOperation::setExecuting(bool executing)
{
    const auto self = weak_from_this().lock(); // whoever is told may let the operation go
    willChangeValueForKey(u"isExecuting");
    willChangeValueForKey(u"isFinished");
    m_executing.store(executing, std::memory_order_release);
    didChangeValueForKey(u"isExecuting");
    didChangeValueForKey(u"isFinished");
}
