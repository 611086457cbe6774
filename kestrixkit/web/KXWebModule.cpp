#include <kestrixkit/web/KXWebModule_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

KXGATrackerPage::~KXGATrackerPage() = default;

KXWebModule::~KXWebModule() = default;

const KXWebModule *KXWebModule::shared()
{
    static const KXWebModule *const loaded = KXModule::offer<KXWebModule>("webengine", "KXWebEngineModule");
    return loaded;
}
