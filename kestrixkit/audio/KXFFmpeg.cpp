#include <kestrixkit/audio/KXFFmpeg_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

KXRateConverter::~KXRateConverter() = default;

KXFFmpeg::~KXFFmpeg() = default;

const KXFFmpeg *KXFFmpeg::shared()
{
    static const KXFFmpeg *const loaded = [] {
        const auto function = KXModule::function("ffmpeg", "KXFFmpegModule");
        return function ? reinterpret_cast<const KXFFmpeg *(*)()>(function)() : nullptr;
    }();
    return loaded;
}
