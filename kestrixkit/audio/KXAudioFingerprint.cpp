#include <kestrixkit/audio/KXAudioFingerprint.h>

#include <limits>

#include <QtEndian>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXFFmpegAudioFile_p.h>
#include <kestrixkit/foundation/KXLog.h>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/murmur3.h>
}

namespace {

constexpr qint64 fingerprintBeginning = 256 * 1024; // bytes of packets

}

KXAudioFingerprint KXAudioFingerprint::fromBytes(QByteArrayView bytes)
{
    KXAudioFingerprint fingerprint;
    if (bytes.size() == Bytes && std::any_of(bytes.begin(), bytes.end(), [](char byte) { return byte != 0; }))
        fingerprint.m_bytes = bytes.toByteArray();
    return fingerprint;
}

KXAudioFingerprint KXAudioFingerprint::ofFile(
    const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled, KXError *error)
{
    return ofPackets(url, std::numeric_limits<qint64>::max(), cancelled, error);
}

KXAudioFingerprint KXAudioFingerprint::ofBeginning(
    const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled, KXError *error)
{
    return ofPackets(url, fingerprintBeginning, cancelled, error);
}

/// Whole packets, until there are so many bytes or no more.
KXAudioFingerprint KXAudioFingerprint::ofPackets(
    const QUrl &url, qint64 bytes, const std::shared_ptr<std::atomic<bool>> &cancelled, KXError *error)
{
    KXAudioFileOptions options;
    options.cancelled = cancelled;
    KXFFmpegAudioFile file;
    KXAudioFileStatus status = url.isLocalFile() ? file.open(url, options) : KXAudioFileParameterError;
    KXStreamFormat format;
    if (status == KXAudioFileNoError)
        status = file.dataFormat(&format);
    const std::unique_ptr<AVMurMur3, decltype(&av_free)> hash(av_murmur3_alloc(), &av_free);
    if (!hash)
        status = AVERROR(ENOMEM);
    if (status == KXAudioFileNoError) {
        av_murmur3_init(hash.get());
        // The same bytes can be different sounds in another format.
        const quint64 facts[] = { qToLittleEndian<quint64>(quint64(format.mSampleRate)),
            qToLittleEndian<quint64>(quint64(format.mChannelsPerFrame) << 32 | format.mFormatID),
            qToLittleEndian<quint64>(quint64(format.mBitsPerChannel)) };
        av_murmur3_update(hash.get(), reinterpret_cast<const uint8_t *>(facts), sizeof facts);
    }
    for (QByteArrayView packet; status == KXAudioFileNoError && bytes > 0; bytes -= packet.size()) {
        status = file.readEncoded(&packet);
        if (status != KXAudioFileNoError || packet.isEmpty())
            break;
        av_murmur3_update(hash.get(), reinterpret_cast<const uint8_t *>(packet.data()), size_t(packet.size()));
    }
    if (cancelled && *cancelled)
        return {};
    if (status != KXAudioFileNoError) {
        KXLogError(audio, "Failed to read file (%i)", status);
        KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXAudioFileErrorCode,
                KXStringWithFormat(KXLocalizedString("Failed to read file (%i)"), status)));
        return {};
    }
    uint8_t sum[Bytes];
    av_murmur3_final(hash.get(), sum);
    return fromBytes({ reinterpret_cast<const char *>(sum), Bytes });
}
