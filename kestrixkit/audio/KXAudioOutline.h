#pragma once

#include <atomic>
#include <memory>

#include <QByteArray>
#include <QUrl>

#include <kestrixkit/foundation/KXError.h>

/// How a sound begins, in a few bytes: which bands rise against their neighbours, four times a second. Unlike a
/// fingerprint it survives another encoding, so it finds the file that took the place of one encoded differently.
///
/// It is a likeness and no proof: two versions of a song may begin alike. A beginning that hardly changes, such as
/// silence or a single tone, says nothing and has no outline.
class KX_AUDIO_EXPORT KXAudioOutline
{
public:
    /// Of the sound's beginning that are listened to.
    static constexpr double Seconds = 8.25;
    /// Sounds that are at least so alike are taken for the same. Sounds that have nothing to do with each other are
    /// alike by a half, give or take a twentieth.
    static constexpr double LikeFrom = 0.8;

    /// Of no sound.
    KXAudioOutline() = default;
    /// From bytes(); what cannot be one is none.
    static KXAudioOutline fromBytes(QByteArrayView bytes);
    /// Decodes the beginning of a local file. Empty when cancelled, for a beginning that says nothing, and with an
    /// error of the code KXAudioFileErrorCode for a file that cannot be read. Any thread.
    static KXAudioOutline ofFile(
        const QUrl &url, const std::shared_ptr<std::atomic<bool>> &cancelled = {}, KXError *error = nullptr);

    [[nodiscard]] bool isEmpty() const { return m_bytes.isEmpty(); }
    /// At most 64.
    [[nodiscard]] QByteArray bytes() const { return m_bytes; }
    /// From 0 to 1, over what both have; 0 where one of them is empty.
    [[nodiscard]] double likeness(const KXAudioOutline &to) const;
    friend bool operator==(const KXAudioOutline &, const KXAudioOutline &) = default;

private:
    QByteArray m_bytes;
};
