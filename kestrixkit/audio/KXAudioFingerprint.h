#pragma once

#include <atomic>
#include <memory>

#include <QByteArray>
#include <QUrl>

#include <kestrixkit/foundation/KXError.h>

/// What tells one sound from another, whatever its file is called and however it is tagged: a hash of the encoded
/// audio packets. A file that was moved, renamed or given other tags keeps it; one encoded again has another.
///
/// It finds what was made of a sound earlier. It is no proof against somebody who makes two files alike on purpose.
class KX_AUDIO_EXPORT KXAudioFingerprint
{
public:
    static constexpr int Bytes = 16;

    /// No sound.
    KXAudioFingerprint() = default;
    /// From bytes(); anything of another length is no fingerprint.
    static KXAudioFingerprint fromBytes(QByteArrayView bytes);
    /// Reads a local file through, which takes as long as that, without decoding it. Empty when cancelled, and with an
    /// error of the code KXAudioFileErrorCode when it cannot be read or still grows. Any thread.
    static KXAudioFingerprint ofFile(
        const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled = {}, KXError *error = nullptr);
    /// The same of the first 256 KiB of packets or so, for which a file is hardly read: where two differ the sounds do.
    /// It is another one than that of the whole file.
    static KXAudioFingerprint ofBeginning(
        const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled = {}, KXError *error = nullptr);

    [[nodiscard]] bool isEmpty() const { return m_bytes.isEmpty(); }
    [[nodiscard]] QByteArray bytes() const { return m_bytes; }
    friend bool operator==(const KXAudioFingerprint &, const KXAudioFingerprint &) = default;

private:
    static KXAudioFingerprint ofPackets(
        const QUrl &url, qint64 bytes, const std::shared_ptr<std::atomic<bool>> &cancelled, KXError *error);

    QByteArray m_bytes;
};
