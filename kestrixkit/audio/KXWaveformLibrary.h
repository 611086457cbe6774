#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <QCache>
#include <QObject>
#include <QSet>

#include <kestrixkit/audio/KXWaveformPyramid.h>

/// The waveforms of a library's files: kept in a file of their own, made on a thread of their own. Files are known by
/// their sound: one that was moved or tagged needs no new waveform, and other sound under an old name gets one.
///
/// What is asked for is there at once if it was shown lately; else the answer is null, and ready() follows when it was
/// looked up or made. What was asked for last comes first. Local files only.
///
/// Threads: the main thread.
class KX_AUDIO_EXPORT KXWaveformLibrary : public QObject
{
    Q_OBJECT
public:
    static constexpr int OverviewColumns = 128;

    /// Kept in the file `path`, which is made; where that fails they are made anew in each process.
    explicit KXWaveformLibrary(const QString &path, QObject *parent = nullptr);
    /// Waits for the thread, whose work is cancelled.
    ~KXWaveformLibrary() override;

    /// The whole file in few columns, for rows of a table; borrowed until the next turn. Null also for a file that has
    /// no waveform.
    [[nodiscard]] const KXWaveformColumns *overview(const QUrl &file);
    /// Looks whether the file was changed since, or can be read by now.
    [[nodiscard]] std::shared_ptr<const KXWaveformPyramid> pyramid(const QUrl &file);

    /// Whether loudness is measured with it, which takes half as long again. False at first. Waveforms that were made
    /// without are made anew when they are asked for.
    void setMeasuresLoudness(bool measures);
    [[nodiscard]] bool measuresLoudness() const { return m_measuresLoudness; }

    /// Has it made when there is nothing else to do, if there is none yet.
    void prepare(const QUrl &file);
    /// While paused only what is asked for is made.
    void setPaused(bool paused);
    [[nodiscard]] bool isPaused() const;
    /// Files that are still to be prepared.
    [[nodiscard]] qsizetype pendingCount() const;

Q_SIGNALS:
    /// The waveform of a file is there, or there will be none.
    void ready(const QUrl &file);
    /// A prepared file is done.
    void progressed(qsizetype pending);

private:
    using Stamp = std::pair<qint64, qint64>; ///< a file's size and last change
    /// What was made, and of what.
    struct Kept
    {
        std::shared_ptr<const KXWaveformPyramid> pyramid;
        Stamp stamp;
        bool measured; ///< whether loudness was wanted; of some sounds there is none
    };

    void ask(const QUrl &file);
    void run(const QString &path);
    void take(const QUrl &file, const Kept &kept, bool wasAsked);

    QCache<QUrl, KXWaveformColumns> m_overviews { 4096 };
    QCache<QUrl, Kept> m_pyramids { 64 };
    QSet<QUrl> m_awaited; // asked for and not answered
    QHash<QUrl, Stamp> m_without; // cannot be read
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<QUrl> m_asked; // the newest at the end
    std::deque<QUrl> m_prepared;
    bool m_isPaused = false;
    std::atomic<bool> m_measuresLoudness = false;
    const std::shared_ptr<std::atomic<bool>> m_ends = std::make_shared<std::atomic<bool>>(false);
    std::thread m_thread;
};
