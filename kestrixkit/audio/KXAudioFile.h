#pragma once

#include <functional>

#include <kestrixkit/audio/KXAudioFileBackend.h>
#include <kestrixkit/foundation/KXError.h>

/// The code of errors with audio files, in KXKestrixKitErrorDomain.
inline constexpr int KXAudioFileErrorCode = 1001;

/// An audio file, local or remote, as a stream of frames: 32-bit floats, one buffer a channel, in the file's own rate.
///
/// What it is decides its contents, not its name: PCM in WAV, AIFF and CAF is read directly, anything else decoded
/// by FFmpeg's libraries. Playlists and other things that would lead elsewhere are refused. Seeking is exact to the
/// frame in every format. Values beyond 1.0, which lossy formats have, are not clipped.
///
/// Files are also read over http and https. A server on the public net may not lead to this machine or its own network,
/// unless the host allows it: that fails with KXAudioFileForbiddenError.
///
/// A file may grow while it is read. As long as it is shorter than its header promises and was changed lately (see
/// KXAudioFileOptions), reading at its present end answers KXAudioFileInvalidFileError instead of the end.
///
/// Threads: one at a time. Nothing here is for the render thread.
class KX_AUDIO_EXPORT KXAudioFile
{
public:
    using BackendFactory = std::function<std::unique_ptr<KXAudioFileBackend>(const QUrl &)>;

    KXAudioFile() = default;
    ~KXAudioFile();
    Q_DISABLE_COPY_MOVE(KXAudioFile)

    /// Opens the file, in place of one opened before. A file that grows and has not enough for its header fails.
    KXAudioFileStatus open(const QUrl &url, const KXAudioFileOptions &options = {});
    /// Opens it and asks for format and length. A failure is logged, unless it was cancelled, and has the code
    /// KXAudioFileErrorCode.
    bool openForReading(
        const QUrl &url, const KXAudioFileOptions &options, KXStreamFormat *format, qint64 *frames, KXError *error);
    [[nodiscard]] bool isOpen() const { return m_backend != nullptr; }
    void close();

    /// How the file itself stores its audio.
    KXAudioFileStatus dataFormat(KXStreamFormat *format) const;

    /// The length in frames: what was promised, until reading reaches the end and corrects it.
    KXAudioFileStatus lengthInFrames(qint64 *frames) const;
    /// Whether the length is known to be what reading delivers, if the file is whole. Otherwise it is a guess.
    [[nodiscard]] bool lengthIsExact() const;
    /// Decodes the end of a local file whose length is a guess: milliseconds, for long MP3 files a tenth of a second.
    /// The position stays. Where it fails the length stays a guess.
    KXAudioFileStatus findExactLength();

    /// How frames are to be delivered. Only KXPlanarFloatFormat with the file's own rate and channels, which is also
    /// what is delivered when this is not called.
    KXAudioFileStatus setClientFormat(const KXStreamFormat &format);

    /// As above, with failures as in openForReading().
    bool useFormat(const KXStreamFormat &format, KXError *error);

    /// The next frame to be read.
    [[nodiscard]] qint64 position() const;
    /// False for streams that can only be read from the start: seek() then reads its way to the target.
    [[nodiscard]] bool isSeekable() const;
    /// Makes `frame` the next to be read; the length itself is allowed. When it fails, the position stays.
    KXAudioFileStatus seek(qint64 frame);

    /// Reads into one array a channel. Fills all of it unless the end, growth or a failure intervenes; what was read
    /// before that comes without an error, which the next call reports. 0 frames without an error: end of file.
    KXAudioFileStatus read(float *const *channels, quint32 frames, quint32 *framesRead);
    /// Reads into the list's buffers, and sets their sizes to what was read.
    KXAudioFileStatus read(KXAudioBufferList *list, quint32 frames, quint32 *framesRead);

    /// Whether the host allows servers on the public net to lead to private addresses; for files opened from now on.
    /// False at first. Any thread.
    static void setFollowsPrivateRedirects(bool follows);
    [[nodiscard]] static bool followsPrivateRedirects();

    /// Loads the libraries that decode, in the background: a tenth of a second and more where the machine has just been
    /// started. Else the first file that needs them waits for it. For hosts whose window is shown. Any thread.
    static void prepare();

    /// Makes every file opened from now on stand on the factory's back end; for tests. Null: the framework's own
    /// again. Any thread.
    static void setBackendFactory(BackendFactory factory);

private:
    static bool fail(KXError *error, const char *step, KXAudioFileStatus status, bool isLogged = true);

    std::unique_ptr<KXAudioFileBackend> m_backend;
};
