#include <kestrixkit/foundation/KXRef.h>

#include <kestrixkit/foundation/KXObservable.h>

KXRefCounted::~KXRefCounted() = default;

void KXRefCounted::destroyWhenUnreferenced() noexcept
{
    if (const auto *observable = dynamic_cast<const KXObservable *>(this))
        observable->endWeakHandles();
    delete this;
}
