#include <qglobal.h>

#include <kestrixkit/catalogue/KXPostgreSQLLibrary_p.h>

/// What KXPostgreSQLLibrary::shared() asks for.
extern "C" Q_DECL_EXPORT const KXPostgreSQLLibrary *KXPostgreSQLModule()
{
    static const KXPostgreSQLLibrary library;
    return &library;
}
