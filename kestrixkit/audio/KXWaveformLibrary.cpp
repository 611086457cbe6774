#include <kestrixkit/audio/KXWaveformLibrary.h>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <kestrixkit/audio/KXWaveformStore_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>

namespace {

constexpr size_t waveformMostAsked = 256; // what was scrolled past long ago is not wanted any more
constexpr int waveformNiceness = 10;

/// From the store, or made. Null when it cannot be read, or the work was cancelled.
std::shared_ptr<const KXWaveformPyramid> waveformOf(
    KXWaveformStore &store, const QUrl &url, bool withLoudness, const std::shared_ptr<std::atomic<bool>> &ends)
{
    const QString file = url.toLocalFile();
    const KXWaveformStore::Stamp stamp = KXWaveformStore::Stamp::of(file);
    if (stamp.size < 0)
        return nullptr;
    KXAudioFingerprint fingerprint = store.fingerprintOf(file, stamp);
    if (fingerprint.isEmpty()) {
        fingerprint = KXAudioFingerprint::ofFile(url, ends);
        if (fingerprint.isEmpty())
            return nullptr;
        store.setFingerprint(file, stamp, fingerprint);
    }
    if (auto kept = store.pyramid(fingerprint); kept && (!withLoudness || kept->loudness()))
        return std::make_shared<KXWaveformPyramid>(std::move(*kept));
    KXWaveformReading reading;
    reading.cancelled = ends;
    reading.measuresLoudness = withLoudness;
    auto made = KXWaveformPyramid::read(url, reading);
    if (!made)
        return nullptr;
    // It may have been replaced between the two.
    if (KXWaveformStore::Stamp::of(file) == stamp) {
        made->setFingerprint(fingerprint);
        store.setPyramid(*made);
    }
    return std::make_shared<KXWaveformPyramid>(std::move(*made));
}

std::pair<qint64, qint64> waveformStamp(const QUrl &file)
{
    const auto stamp = KXWaveformStore::Stamp::of(file.toLocalFile());
    return { stamp.size, stamp.changed };
}

}

KXWaveformLibrary::KXWaveformLibrary(const QString &path, QObject *parent)
    : QObject(parent)
    , m_thread([this, path] { run(path); })
{
}

KXWaveformLibrary::~KXWaveformLibrary()
{
    {
        const std::lock_guard lock(m_mutex);
        *m_ends = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

const KXWaveformColumns *KXWaveformLibrary::overview(const QUrl &file)
{
    if (const KXWaveformColumns *columns = m_overviews.object(file))
        return columns;
    ask(file);
    return nullptr;
}

std::shared_ptr<const KXWaveformPyramid> KXWaveformLibrary::pyramid(const QUrl &file)
{
    if (const Kept *kept = m_pyramids.object(file)) {
        if (kept->stamp == waveformStamp(file))
            return kept->pyramid;
        m_pyramids.remove(file);
        m_overviews.remove(file);
    }
    if (const auto without = m_without.constFind(file); without != m_without.cend() && *without != waveformStamp(file))
        m_without.erase(without);
    ask(file);
    return nullptr;
}

void KXWaveformLibrary::ask(const QUrl &file)
{
    if (!file.isLocalFile() || m_awaited.contains(file) || m_without.contains(file))
        return;
    m_awaited.insert(file);
    QUrl forgotten;
    {
        const std::lock_guard lock(m_mutex);
        m_asked.push_back(file);
        if (m_asked.size() > waveformMostAsked) {
            forgotten = m_asked.front();
            m_asked.pop_front();
        }
    }
    m_awaited.remove(forgotten);
    m_changed.notify_one();
}

void KXWaveformLibrary::prepare(const QUrl &file)
{
    if (!file.isLocalFile())
        return;
    {
        const std::lock_guard lock(m_mutex);
        m_prepared.push_back(file);
    }
    m_changed.notify_one();
}

void KXWaveformLibrary::setMeasuresLoudness(bool measures)
{
    if (m_measuresLoudness.exchange(measures) || !measures)
        return;
    for (const QUrl &file : m_pyramids.keys()) {
        if (!m_pyramids.object(file)->pyramid->loudness())
            m_pyramids.remove(file);
    }
}

void KXWaveformLibrary::setPaused(bool paused)
{
    {
        const std::lock_guard lock(m_mutex);
        m_isPaused = paused;
    }
    m_changed.notify_one();
}

bool KXWaveformLibrary::isPaused() const
{
    const std::lock_guard lock(m_mutex);
    return m_isPaused;
}

qsizetype KXWaveformLibrary::pendingCount() const
{
    const std::lock_guard lock(m_mutex);
    return qsizetype(m_prepared.size());
}

void KXWaveformLibrary::run(const QString &path)
{
    setpriority(PRIO_PROCESS, id_t(syscall(SYS_gettid)), waveformNiceness); // of this thread alone
    KXWaveformStore store(path);
    for (;;) {
        QUrl file;
        bool wasAsked = false;
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(
                lock, [this] { return *m_ends || !m_asked.empty() || (!m_isPaused && !m_prepared.empty()); });
            if (*m_ends)
                return;
            wasAsked = !m_asked.empty();
            if (wasAsked) {
                file = m_asked.back();
                m_asked.pop_back();
            } else {
                file = m_prepared.front();
                m_prepared.pop_front();
            }
        }
        const auto stamp = waveformStamp(file); // before: a change meanwhile shows
        const bool measures = m_measuresLoudness;
        const Kept kept { waveformOf(store, file, measures, m_ends), stamp, measures };
        KXMainQueue::async(this, [this, file, kept, wasAsked] { take(file, kept, wasAsked); });
    }
}

void KXWaveformLibrary::take(const QUrl &file, const Kept &kept, bool wasAsked)
{
    const bool isWanted = m_awaited.remove(file) || wasAsked;
    if (isWanted && !wasAsked) { // somebody has asked for it while it was prepared
        const std::lock_guard lock(m_mutex);
        std::erase(m_asked, file);
    }
    if (kept.pyramid && m_measuresLoudness && !kept.measured) // it was being made when that was switched on
        return isWanted ? ask(file) : prepare(file);
    const QPointer<KXWaveformLibrary> alive(this);
    if (!kept.pyramid) {
        m_without.insert(file, kept.stamp);
    } else if (isWanted) {
        const KXWaveformPyramid &pyramid = *kept.pyramid;
        m_overviews.insert(
            file, new KXWaveformColumns(pyramid.columnsOfStems({}, 0, pyramid.frames(), OverviewColumns)));
        m_pyramids.insert(file, new Kept(kept));
    }
    Q_EMIT ready(file);
    if (alive && !wasAsked)
        Q_EMIT progressed(pendingCount());
}
