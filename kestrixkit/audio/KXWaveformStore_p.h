#pragma once

#include <memory>

#include <QString>

#include <kestrixkit/audio/KXWaveformPyramid.h>

struct sqlite3;

/// The file that waveforms are kept in, beside a library: an SQLite database of two tables, which sound a file had when
/// it was last looked at, and the waveform of each sound. What it says can be found out again: a file that is damaged
/// is begun anew, and where nothing can be written nothing is kept.
///
/// Threads: one at a time. Other processes may use the same file.
class KX_AUDIO_EXPORT KXWaveformStore
{
public:
    /// A file's bytes and last change, by which one that was changed is told.
    struct Stamp
    {
        qint64 size = -1; ///< -1: there is no such file
        qint64 changed = 0; ///< nanoseconds
        static Stamp of(const QString &path);
        friend bool operator==(const Stamp &, const Stamp &) = default;
    };

    explicit KXWaveformStore(QString path);
    ~KXWaveformStore();
    Q_DISABLE_COPY_MOVE(KXWaveformStore)

    /// Empty for a file that was not looked at since it changed.
    [[nodiscard]] KXAudioFingerprint fingerprintOf(const QString &file, const Stamp &stamp);
    void setFingerprint(const QString &file, const Stamp &stamp, const KXAudioFingerprint &fingerprint);
    /// Nothing where there is none, or it is damaged.
    [[nodiscard]] std::optional<KXWaveformPyramid> pyramid(const KXAudioFingerprint &fingerprint);
    void setPyramid(const KXWaveformPyramid &pyramid);

private:
    class Statement;
    struct Closer
    {
        void operator()(sqlite3 *database) const;
    };
    bool open();
    void lookAt(int status);

    const QString m_path;
    std::unique_ptr<sqlite3, Closer> m_database; // null: nothing is kept
    bool m_hasFailed = false; // and it has been said
};
