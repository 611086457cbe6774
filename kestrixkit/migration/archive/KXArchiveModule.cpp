#include <qglobal.h>

#include <kestrixkit/migration/KXArchiveLibrary_p.h>

/// What KXArchiveLibrary::shared() asks for.
extern "C" Q_DECL_EXPORT const KXArchiveLibrary *KXArchiveModule()
{
    static const KXArchiveLibrary library;
    return &library;
}
