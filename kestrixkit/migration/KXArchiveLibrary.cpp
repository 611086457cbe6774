#include <kestrixkit/migration/KXArchiveLibrary_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

const KXArchiveLibrary *KXArchiveLibrary::shared()
{
    static const KXArchiveLibrary *const loaded = KXModule::offer<KXArchiveLibrary>("archive", "KXArchiveModule");
    return loaded;
}
