#pragma once

#include <QUrl>

#include <kestrixkit/foundation/KXAbstractOperation.h>
#include <kestrixkit/foundation/KXError.h>

/// Reads the technical facts of an audio file: an operation for a queue. All of them are 0 and the error is set when
/// the file cannot be opened.
///
/// Threads: it reads on the operation's thread. Its facts are to be asked for when it is done.
class KX_AUDIO_EXPORT KXAudioFileMetadata : public KXAbstractOperation
{
public:
    explicit KXAudioFileMetadata(const QUrl &audioFileURL);
    ~KXAudioFileMetadata() override;

    void main() override;
    void cancel() override;
    /// What main() does; for callers that are on a thread of their own.
    void readMetadataFromAudioFile();

    [[nodiscard]] QUrl audioFileURL() const { return m_audioFileURL; }
    [[nodiscard]] KXError error() const { return m_error; }
    /// As far as is known without decoding.
    [[nodiscard]] qint64 numberOfFrames() const { return m_numberOfFrames; }
    [[nodiscard]] qint64 numberOfChannels() const { return m_numberOfChannels; }
    /// 0 for compressed formats.
    [[nodiscard]] qint64 bitsPerChannel() const { return m_bitsPerChannel; }
    /// Frames a second.
    [[nodiscard]] double sampleRate() const { return m_sampleRate; }
    /// Seconds of all whole packets: what a last packet holds in part is left out.
    [[nodiscard]] double duration() const { return m_duration; }
    /// What kind of file it is, as a MIME name such as "audio/flac".
    [[nodiscard]] QString uti() const { return m_uti; }

private:
    const QUrl m_audioFileURL;
    const std::shared_ptr<std::atomic<bool>> m_cancelled;
    KXError m_error;
    qint64 m_numberOfFrames = 0;
    qint64 m_numberOfChannels = 0;
    qint64 m_bitsPerChannel = 0;
    double m_sampleRate = 0;
    double m_duration = 0;
    QString m_uti;
};
