// What the main thread pays for somebody else's save, beside what it pays for changing the same objects itself.

#include <algorithm>
#include <ctime>
#include <malloc.h>
#include <memory>
#include <numeric>
#include <random>
#include <span>
#include <thread>

#include <kestrixkit/foundation/KXNotificationCenter.h>

#include "BenchProgram.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int storedRows = 20'000;
constexpr int savedRows = 10'000;
constexpr int heldRows = 1'000;
constexpr int rounds = 15;

/// CPU time of the calling thread: the other one does not count, nor what else the machine does.
double threadSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

/// A store of which a context of the main thread holds 1,000 loaded objects all over it, and nothing else.
class Held
{
public:
    Held()
        : m_context(BenchLibrary::open(BenchLibrary::scratchCopy(BenchLibrary::emptyStorePath())))
    {
        std::thread([this] {
            BenchLibrary::Source source;
            BenchLibrary::insert(*otherContext(), source, storedRows);
        }).join();
        m_places.resize(storedRows);
        std::iota(m_places.begin(), m_places.end(), 0);
        std::shuffle(m_places.begin(), m_places.end(), std::mt19937(7));
        const KXFetchedList all = m_context->fetch(KXFetchRequest(u"Track"_s).setFetchBatchSize(1));
        for (int i = 0; i < heldRows; ++i) {
            tracks.push_back(all.as<BenchTrack>(m_places[size_t(i)]));
            m_before.push_back(tracks.back()->bpm());
        }
        m_didChange = KXNotificationCenter::defaultCenter().addObserver(
            QString(KXManagedObjectContextObjectsDidChangeNotification), m_context.get(),
            [this](const KXNotification &notification) {
                const auto *did = notification.payloadAs<KXObjectsDidChange>();
                m_announced += did->refreshed.size() + did->updated.size();
            });
    }

    /// The median of the main thread's times for `work`, each after another thread saved 10,000 objects: all that are
    /// held and 9,000 others, or 10,000 others. `afterwards` is not timed.
    template <typename Work, typename Afterwards> double median(bool savesHeld, Work &&work, Afterwards &&afterwards)
    {
        const std::span places = std::span(m_places).subspan(savesHeld ? 0 : storedRows - savedRows, savedRows);
        std::vector<double> times;
        for (int round = 0; round < rounds; ++round) {
            const std::shared_ptr<const KXStoreChange> change = saveElsewhere(places);
            malloc_trim(0);
            const double start = threadSeconds();
            work(change);
            times.push_back(threadSeconds() - start);
            afterwards();
        }
        std::nth_element(times.begin(), times.begin() + rounds / 2, times.end());
        return times[rounds / 2];
    }

    /// Whether each round announced and changed all that are held.
    [[nodiscard]] bool changedEachRound() const
    {
        for (size_t i = 0; i < tracks.size(); ++i) {
            if (qAbs(tracks[i]->bpm() - m_before[i] - rounds) > 1e-6)
                return false;
        }
        return m_announced == rounds * heldRows;
    }

    [[nodiscard]] KXManagedObjectContext &context() const { return *m_context; }
    std::vector<KXRef<BenchTrack>> tracks;

private:
    [[nodiscard]] KXManagedObjectContext::Ref otherContext() const
    {
        const auto other
            = KXManagedObjectContext::contextWithPersistentStoreCoordinator(m_context->persistentStoreCoordinator());
        other->setUndoManager(nullptr); // as another process would
        return other;
    }

    std::shared_ptr<const KXStoreChange> saveElsewhere(std::span<const int> places) const
    {
        std::shared_ptr<const KXStoreChange> saved;
        const auto token = m_context->persistentStoreCoordinator()->addChangeObserver(
            [&saved](const auto &change) { saved = change; });
        std::thread([&] {
            const auto context = otherContext();
            const KXFetchedList all = BenchTrack::findAllInContext(*context);
            for (const int place : places) {
                const auto track = all.as<BenchTrack>(place);
                track->setBpm(track->bpm() + 1);
            }
            if (!context->save())
                std::exit(1);
        }).join();
        return saved;
    }

    const KXManagedObjectContext::Ref m_context;
    std::vector<int> m_places; // in the list of all tracks, shuffled; the first are held
    std::vector<double> m_before;
    KXNotificationToken m_didChange;
    qsizetype m_announced = 0;
};

void mergeOurs(benchmark::State &state)
{
    Held held;
    const double seconds = held.median(
        true, [&held](const auto &change) { held.context().mergeChangesFromStoreChange(change); }, [] {});
    if (!held.changedEachRound())
        return state.SkipWithError("not merged");
    BenchProgram::report(state, seconds * 1e3);
}

void mergePeer(benchmark::State &state)
{
    Held held;
    const auto work = [&held](const auto &) {
        for (const auto &track : held.tracks)
            track->setBpm(track->bpm() + 1);
        held.context().processPendingChanges();
    };
    const double seconds = held.median(false, work, [&held] { (void)held.context().save(); });
    if (!held.changedEachRound())
        return state.SkipWithError("not changed");
    BenchProgram::report(state, seconds * 1e3);
}

}

int main(int argc, char **argv)
{
    BenchProgram::add("merge.main/ours", mergeOurs);
    BenchProgram::add("merge.main/peer", mergePeer);
    return BenchProgram::run(argc, argv, BenchLibrary::prepare);
}
