#include <kestrixkit/catalogue/KXPostgreSQLLibrary_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

const KXPostgreSQLLibrary *KXPostgreSQLLibrary::shared()
{
    static const KXPostgreSQLLibrary *const loaded
        = KXModule::offer<KXPostgreSQLLibrary>("postgresql", "KXPostgreSQLModule");
    return loaded;
}
