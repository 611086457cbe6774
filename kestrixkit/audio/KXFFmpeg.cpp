#include <kestrixkit/audio/KXFFmpeg_p.h>

#include <kestrixkit/foundation/KXModule_p.h>

KXRateConverter::~KXRateConverter() = default;

KXFFmpeg::~KXFFmpeg() = default;

const KXFFmpeg *KXFFmpeg::shared()
{
    static const KXFFmpeg *const loaded = KXModule::offer<KXFFmpeg>("ffmpeg", "KXFFmpegModule");
    return loaded;
}
