#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <QUrl>

#include <kestrixkit/audio/KXAudioTypes.h>

/// The outcome of a step with a file: 0, KXAudioFileInvalidFileError, or a negative number of the decoding libraries.
using KXAudioFileStatus = int;

inline constexpr KXAudioFileStatus KXAudioFileNoError = 0;
/// There is nothing to read yet, but the file is still being written: try again a little later.
inline constexpr KXAudioFileStatus KXAudioFileInvalidFileError = 1685348671;
/// A value that cannot be used (EINVAL), such as a client format that is not planar float or a negative frame.
inline constexpr KXAudioFileStatus KXAudioFileParameterError = -22;
/// The wait ended because its time was up or it was cancelled.
inline constexpr KXAudioFileStatus KXAudioFileInterruptedError = -1414092869;
/// The connection was lost, or the device failed (EIO).
inline constexpr KXAudioFileStatus KXAudioFileConnectionError = -5;

/// A server leads to where it may not: from the public net to this machine or its own network, or to what the options
/// refuse (EACCES).
inline constexpr KXAudioFileStatus KXAudioFileForbiddenError = -13;

/// The part of the installation that decodes files is not there, or does not fit (ENOSYS); the log says more.
inline constexpr KXAudioFileStatus KXAudioFileMissingDecoderError = -38;

/// How a file is opened.
struct KXAudioFileOptions
{
    /// Set to true from any thread to end whatever wait the file is in. May be null.
    std::shared_ptr<std::atomic<bool>> cancelled;
    /// How long one call may wait for a server, in seconds.
    double secondsPerCall = 10;
    /// A file shorter than it promises counts as growing for so long after its last change, in seconds.
    double growthSeconds = 60;
    /// The file is being downloaded: it counts as growing until it has what it promises.
    bool growing = false;
    /// Whether the server may lead on to that address; asked on any thread. Empty: to any, but from the public net to
    /// none of a private network. Of the first address its caller decides.
    std::function<bool(const QUrl &)> mayLeadTo = {};
};

/// What a KXAudioFile stands on. The framework has one for plain PCM and one for everything else; a test can bring
/// its own. One thread at a time.
class KX_AUDIO_EXPORT KXAudioFileBackend
{
public:
    virtual ~KXAudioFileBackend();

    virtual KXAudioFileStatus open(const QUrl &url, const KXAudioFileOptions &options) = 0;
    virtual KXAudioFileStatus dataFormat(KXStreamFormat *format) = 0;
    virtual KXAudioFileStatus lengthInFrames(qint64 *frames) = 0;
    virtual KXAudioFileStatus setClientFormat(const KXStreamFormat &format) = 0;
    virtual KXAudioFileStatus seek(qint64 frame) = 0;
    /// See KXAudioFile::read.
    virtual KXAudioFileStatus read(float *const *channels, quint32 frames, quint32 *framesRead) = 0;

    [[nodiscard]] virtual bool lengthIsExact() const { return true; }
    virtual KXAudioFileStatus findExactLength() { return KXAudioFileNoError; }
    [[nodiscard]] virtual qint64 position() const { return 0; }
    [[nodiscard]] virtual bool isSeekable() const { return true; }
};
