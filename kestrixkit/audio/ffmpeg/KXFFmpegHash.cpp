#include <kestrixkit/audio/ffmpeg/KXFFmpegLibraries_p.h>

#include <QtEndian>

#include <kestrixkit/audio/ffmpeg/KXFFmpegAudioFile_p.h>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/murmur3.h>
}

KXAudioFileStatus KXFFmpegLibraries::hash(
    const QUrl &url, const KXAudioFileOptions &options, qint64 bytes, QByteArray &hash) const
{
    KXFFmpegAudioFile file;
    KXAudioFileStatus status = file.open(url, options);
    KXStreamFormat format;
    if (status == KXAudioFileNoError)
        status = file.dataFormat(&format);
    const std::unique_ptr<AVMurMur3, decltype(&av_free)> state(av_murmur3_alloc(), &av_free);
    if (!state)
        status = AVERROR(ENOMEM);
    if (status != KXAudioFileNoError)
        return status;
    av_murmur3_init(state.get());
    // The same bytes can be different sounds in another format.
    const quint64 facts[] = { qToLittleEndian<quint64>(quint64(format.mSampleRate)),
        qToLittleEndian<quint64>(quint64(format.mChannelsPerFrame) << 32 | format.mFormatID),
        qToLittleEndian<quint64>(quint64(format.mBitsPerChannel)) };
    av_murmur3_update(state.get(), reinterpret_cast<const uint8_t *>(facts), sizeof facts);
    for (QByteArrayView packet; bytes > 0; bytes -= packet.size()) { // whole packets
        status = file.readEncoded(&packet);
        if (status != KXAudioFileNoError)
            return status;
        if (packet.isEmpty())
            break;
        av_murmur3_update(state.get(), reinterpret_cast<const uint8_t *>(packet.data()), size_t(packet.size()));
    }
    hash.resize(16);
    av_murmur3_final(state.get(), reinterpret_cast<uint8_t *>(hash.data()));
    return KXAudioFileNoError;
}
