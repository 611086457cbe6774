#include <kestrixkit/audio/KXAudioFingerprint.h>

#include <limits>

#include <kestrixkit/audio/KXAudioFile.h>
#include <kestrixkit/audio/KXFFmpeg_p.h>
#include <kestrixkit/foundation/KXLog.h>

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

KXAudioFingerprint KXAudioFingerprint::ofPackets(
    const QUrl &url, qint64 bytes, const std::shared_ptr<std::atomic<bool>> &cancelled, KXError *error)
{
    KXAudioFileOptions options;
    options.cancelled = cancelled;
    KXAudioFileStatus status = KXAudioFileParameterError;
    QByteArray hash;
    if (url.isLocalFile())
        status
            = KXFFmpeg::shared() ? KXFFmpeg::shared()->hash(url, options, bytes, hash) : KXAudioFileMissingDecoderError;
    if (cancelled && *cancelled)
        return {};
    if (status != KXAudioFileNoError) {
        KXLogError(audio, "Failed to read file (%i)", status);
        KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXAudioFileErrorCode,
                KXStringWithFormat(KXLocalizedString("Failed to read file (%i)"), status)));
        return {};
    }
    return fromBytes(hash);
}
