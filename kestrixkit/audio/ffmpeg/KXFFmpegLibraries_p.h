#pragma once

#include <kestrixkit/audio/KXFFmpeg_p.h>

/// The module's side. A file a function.
class KXFFmpegLibraries final : public KXFFmpeg
{
public:
    [[nodiscard]] std::unique_ptr<KXAudioFileBackend> file() const override;
    KXAudioFileStatus hash(
        const QUrl &url, const KXAudioFileOptions &options, qint64 bytes, QByteArray &hash) const override;
    [[nodiscard]] QByteArray cover(const QString &path, qint64 mostBytes) const override;
    [[nodiscard]] std::unique_ptr<KXRateConverter> rateConverter(int from, int to) const override;
    [[nodiscard]] bool isPrivate(const QString &address) const override;
    void setPrivateRule(std::function<bool(const QUrl &)> rule) const override;
};
