#include "analysis/TrackAnalysis.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <thread>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include "library/TrackFields.h"
#include "library/TrackNames.h"

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds analysisSave(1); // between two saves
constexpr size_t analysisBatch = 500; // tracks that are changed back in one save

/// Threads that listen, task by task; another one takes what they have heard.
class Listeners
{
public:
    using Listen = std::function<void(size_t task)>;

    Listeners(size_t tasks, TrackAnalysis::Stop stop)
        : m_tasks(tasks)
        , m_stop(std::move(stop))
    {
    }
    ~Listeners()
    {
        m_ends = true;
        for (std::thread &thread : m_threads)
            thread.join();
    }
    Q_DISABLE_COPY_MOVE(Listeners)

    [[nodiscard]] bool stops() const { return m_ends || (m_stop && m_stop()); }

    void start(const Listen &listen)
    {
        // One core is left to the rest.
        m_working = std::min<size_t>(m_tasks, std::max(2U, std::thread::hardware_concurrency()) - 1);
        for (size_t i = m_working; i > 0; --i)
            m_threads.emplace_back([this, listen] {
                for (size_t task; !stops() && (task = m_next++) < m_tasks;)
                    listen(task);
                const std::lock_guard lock(m_mutex);
                --m_working;
                m_changed.notify_one();
            });
    }

    /// By the threads.
    template <class Heard> void give(std::vector<Heard> &to, Heard heard)
    {
        const std::lock_guard lock(m_mutex);
        to.push_back(std::move(heard));
        m_changed.notify_one();
    }
    /// What there is by now; empty once nobody listens any more.
    template <class Heard> std::vector<Heard> wait(std::vector<Heard> &from)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return !from.empty() || m_working == 0; });
        return std::exchange(from, {});
    }

private:
    const size_t m_tasks;
    const TrackAnalysis::Stop m_stop;
    std::atomic<bool> m_ends = false;
    std::atomic<size_t> m_next = 0;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    size_t m_working = 0;
    std::vector<std::thread> m_threads;
};

/// What is not known of it, for people; empty where all is.
QString missingOf(const Track &track)
{
    return !track.bpm() && !track.keyOrder() ? u"neither a steady beat nor a key was heard"_s
        : !track.bpm()                       ? u"no steady beat was heard"_s
        : !track.keyOrder()                  ? u"no key was heard"_s
                                             : QString();
}

} // namespace

TrackAnalysis::TrackAnalysis(KXManagedObjectContext::Ref context, Analyser analyser)
    : m_context(std::move(context))
    , m_analyser(std::move(analyser))
{
}

KXRef<Track> TrackAnalysis::track(qint64 key) const
{
    const KXPersistentStoreCoordinator::Ref coordinator = m_context->persistentStoreCoordinator();
    const KXRef<Track> track = Track::cast(m_context->objectWithID(KXManagedObjectID(
        coordinator->store()->identity(), coordinator->model()->entity(QString(Track::entityName)), key)));
    return track && !track->isMissing() && !track->isDeleted() ? track : KXRef<Track>();
}

std::vector<qint64> TrackAnalysis::unknown() const
{
    const auto predicate = KXPredicate::predicateWithFormat(
        "missing == FALSE AND analysisNote == nil AND (bpm == nil OR keyOrder == nil)");
    std::vector<qint64> keys;
    for (const KXRef<Track> &track : Track::findUsingPredicate(predicate, *m_context)) {
        if (track)
            keys.push_back(track->objectID().key());
    }
    return keys;
}

std::vector<TrackAnalysis::Task> TrackAnalysis::tasksFor(const std::vector<qint64> &tracks, const Stop &stop) const
{
    std::vector<Task> tasks;
    for (const qint64 key : tracks) {
        if (stop && stop())
            break;
        const KXRef<Track> wanted = track(key);
        if (wanted && !wanted->missing() && !missingOf(*wanted).isEmpty())
            tasks.push_back({ key, pathOfUrl(wanted->location()) });
    }
    return tasks;
}

TrackAnalysisResult TrackAnalysis::run(const std::vector<qint64> &tracks, const Stop &stop, const Progress &progress)
{
    using Clock = std::chrono::steady_clock;
    TrackAnalysisResult result;
    const std::vector<Task> tasks = tasksFor(tracks, stop);
    std::vector<Heard> heard, pending;
    Listeners listeners(tasks.size(), stop);
    listeners.start([&](size_t task) {
        SoundAnalysis analysis = m_analyser.analyse(tasks[task].path, [&listeners] { return listeners.stops(); });
        if (!listeners.stops())
            listeners.give(heard, Heard { task, std::move(analysis) });
    });
    qint64 done = 0;
    Clock::time_point saved = Clock::now();
    // What was heard is set and saved at once, so that nobody changes the tracks in between.
    const auto save = [&] {
        for (const Heard &each : pending)
            take(tasks[each.task], each.analysis, result);
        pending.clear();
        saved = Clock::now();
        return m_context->save(&result.error);
    };
    for (std::vector<Heard> news; !(news = listeners.wait(heard)).empty();) {
        done += qint64(news.size());
        std::move(news.begin(), news.end(), std::back_inserter(pending));
        if (Clock::now() - saved > analysisSave && !save())
            return result;
        if (progress)
            progress(done, qint64(tasks.size()));
    }
    result.cancelled = done < qint64(tasks.size()) || (stop && stop());
    (void)save();
    return result;
}

void TrackAnalysis::take(const Task &task, const SoundAnalysis &analysis, TrackAnalysisResult &result)
{
    const KXRef<Track> heard = track(task.key);
    if (!heard)
        return;
    m_context->refreshObject(heard.get()); // as it is by now
    if (!analysis.problem.isEmpty()) {
        heard->setAnalysisNote(analysis.problem);
        result.failed.push_back({ displayPath(task.path), analysis.problem });
        return;
    }
    AnalysedValues values { task.key, analysis.bpm,
        analysis.key ? std::optional(analysis.key->number * 2 + !analysis.key->minor) : std::nullopt };
    if (set(*heard, values))
        result.found.push_back(values);
    const QString missing = missingOf(*heard);
    result.silent += !heard->bpm() && !heard->keyOrder();
    heard->setAnalysisNote(missing.isEmpty() ? std::nullopt : std::optional(missing));
}

/// Where there is nothing. What it sets is left in the values.
bool TrackAnalysis::set(Track &track, AnalysedValues &values)
{
    if (track.bpm())
        values.bpm.reset();
    if (track.keyOrder())
        values.keyOrder.reset();
    if (!values.bpm && !values.keyOrder)
        return false;
    if (!track.fileTags())
        track.setFileTags(TrackFields::marks(track)); // the file does not say what is set here
    if (values.bpm) {
        track.setBpm(values.bpm);
        track.setAnalysedBpm(values.bpm);
    }
    if (values.keyOrder) {
        // Anew each time, which costs a look at two dozen names: another import may have made the key meanwhile.
        TrackNames names(*m_context);
        track.setKeyOrder(values.keyOrder);
        track.setKey(names.key(MusicalKey { *values.keyOrder / 2, *values.keyOrder % 2 == 0 }));
        track.setAnalysedKey(values.keyOrder);
    }
    return true;
}

KXError TrackAnalysis::change(const std::vector<AnalysedValues> &found, bool isSet)
{
    KXError error;
    for (size_t i = 0; i < found.size() && !error; ++i) {
        AnalysedValues values = found[i];
        const KXRef<Track> changed = track(values.key);
        if (!changed)
            continue;
        m_context->refreshObject(changed.get());
        if (isSet) {
            set(*changed, values);
        } else {
            if (values.bpm && changed->analysedBpm() == values.bpm && changed->bpm() == values.bpm) {
                changed->setBpm({});
                changed->setAnalysedBpm({});
            }
            if (values.keyOrder && changed->analysedKey() == values.keyOrder
                && changed->keyOrder() == values.keyOrder) {
                changed->setKeyOrder({});
                changed->setKey({});
                changed->setAnalysedKey({});
            }
        }
        if (i % analysisBatch == analysisBatch - 1)
            m_context->save(&error);
    }
    if (!error)
        m_context->save(&error);
    return error;
}
