#pragma once

#include <functional>
#include <memory>

#include <QByteArray>

#include <kestrixkit/audio/KXAudioFileBackend.h>

/// Brings stereo sound, a buffer a side, from one rate to another. One thread at a time.
class KX_AUDIO_EXPORT KXRateConverter
{
public:
    virtual ~KXRateConverter();

    /// Forgets what it was given. False where the rates cannot be brought together, which is so at once or never.
    [[nodiscard]] virtual bool reset() = 0;
    /// Takes so many frames and answers how many came out, `room` at most. Allocates nothing once it was given as much
    /// in one go before.
    virtual int convert(float *const *out, int room, const float *const *in, int frames) noexcept = 0;
};

/// What FFmpeg's libraries do here. They link some hundred others, so that they are in a module (audio/ffmpeg), which
/// is loaded when the first of its functions is needed. Any thread.
class KX_AUDIO_EXPORT KXFFmpeg
{
public:
    /// nullptr where the module cannot be loaded, which the log says once.
    [[nodiscard]] static const KXFFmpeg *shared();

    /// A file that is yet to be opened.
    [[nodiscard]] virtual std::unique_ptr<KXAudioFileBackend> file() const = 0;
    /// A hash of the local file's format and of its packets, as they are encoded, until those are so many bytes.
    virtual KXAudioFileStatus hash(
        const QUrl &url, const KXAudioFileOptions &options, qint64 bytes, QByteArray &hash) const = 0;
    /// The picture in a local file's tags, as it is stored; empty where there is none, or none of so few bytes.
    [[nodiscard]] virtual QByteArray cover(const QString &path, qint64 mostBytes) const = 0;
    /// Not reset yet; nullptr where there cannot be one.
    [[nodiscard]] virtual std::unique_ptr<KXRateConverter> rateConverter(int from, int to) const = 0;

    /// Whether the IP address is this machine's, or that of a network without a way to it from outside.
    [[nodiscard]] virtual bool isPrivate(const QString &address) const = 0;
    /// What counts as private instead, for tests, whose servers are all on loopback. Null: the rule again.
    virtual void setPrivateRule(std::function<bool(const QUrl &)> rule) const = 0;

protected:
    KXFFmpeg() = default;
    virtual ~KXFFmpeg();
};
