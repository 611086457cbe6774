#include <kestrixkit/web/KXWebModule_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

KXGATrackerPage::~KXGATrackerPage() = default;

KXWebModule::~KXWebModule() = default;

const KXWebModule *KXWebModule::shared()
{
    static const KXWebModule *const loaded = [] {
        const auto function = KXModule::function("webengine", "KXWebEngineModule");
        return function ? reinterpret_cast<const KXWebModule *(*)()>(function)() : nullptr;
    }();
    return loaded;
}
