#include <kestrixkit/audio/ffmpeg/KXFFmpegAudioFile_p.h>
#include <kestrixkit/audio/ffmpeg/KXFFmpegLibraries_p.h>

std::unique_ptr<KXAudioFileBackend> KXFFmpegLibraries::file() const { return std::make_unique<KXFFmpegAudioFile>(); }

/// What KXFFmpeg::shared() asks for.
extern "C" Q_DECL_EXPORT const KXFFmpeg *KXFFmpegModule()
{
    static const KXFFmpegLibraries libraries;
    return &libraries;
}
