#include <kestrixkit/foundation/KXBlockOperation.h>

KXBlockOperation::KXBlockOperation(std::function<void()> block)
    : m_block([block = std::move(block)](KXAbstractOperation &) { block(); })
{
}

KXBlockOperation::KXBlockOperation(std::function<void(KXAbstractOperation &)> block)
    : m_block(std::move(block))
{
}

KXBlockOperation::~KXBlockOperation() = default;

void KXBlockOperation::main()
{
    const auto block = std::exchange(m_block, nullptr);
    if (block)
        block(*this);
}
