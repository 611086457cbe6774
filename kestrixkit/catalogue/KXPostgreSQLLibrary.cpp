#include <kestrixkit/catalogue/KXPostgreSQLLibrary_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

const KXPostgreSQLLibrary *KXPostgreSQLLibrary::shared()
{
    static const KXPostgreSQLLibrary *const loaded = [] {
        const auto function = KXModule::function("postgresql", "KXPostgreSQLModule");
        return function ? reinterpret_cast<const KXPostgreSQLLibrary *(*)()>(function)() : nullptr;
    }();
    return loaded;
}
