#include <kestrixkit/audio/KXPortAudioLibrary_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

const KXPortAudioLibrary *KXPortAudioLibrary::shared()
{
    static const KXPortAudioLibrary *const loaded
        = KXModule::offer<KXPortAudioLibrary>("portaudio", "KXPortAudioModule");
    return loaded;
}
