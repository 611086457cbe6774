#include <qglobal.h>

#include <kestrixkit/audio/KXPortAudioLibrary_p.h>

/// What KXPortAudioLibrary::shared() asks for.
extern "C" Q_DECL_EXPORT const KXPortAudioLibrary *KXPortAudioModule()
{
    static const KXPortAudioLibrary library;
    return &library;
}
