#include <kestrixkit/foundation/KXRef.h>

KXRefCounted::~KXRefCounted() = default;

void KXRefCounted::destroyWhenUnreferenced() noexcept { delete this; }
