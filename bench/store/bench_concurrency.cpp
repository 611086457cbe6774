// What the main thread feels of background work: wall time, because several threads work. The peer is the same work
// alone.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <random>
#include <thread>

#include "BenchProgram.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int samples = 200;
constexpr int fetchedRows = 100;

/// Does the work over and over on a thread of its own, with a context of its own; answers once it is under way.
class Meanwhile
{
public:
    template <typename Work>
    Meanwhile(const KXManagedObjectContext::Ref &beside, Work work)
        : m_thread([this, coordinator = beside->persistentStoreCoordinator(), work = std::move(work)]() mutable {
            const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            while (!m_end) {
                work(*context);
                ++m_rounds;
                m_rounds.notify_all();
            }
        })
    {
        m_rounds.wait(0);
    }
    ~Meanwhile()
    {
        m_end = true;
        m_thread.join();
    }
    [[nodiscard]] int rounds() const { return m_rounds; }

private:
    std::atomic<bool> m_end = false;
    std::atomic<int> m_rounds = 0;
    std::thread m_thread;
};

/// Milliseconds of each sample, sorted. Between them the main thread rests for a while, now shorter, now longer, as it
/// does between two of a user's actions.
template <typename Work> std::vector<double> timesOf(Work &&work)
{
    using Clock = std::chrono::steady_clock;
    std::mt19937 random(11);
    std::vector<double> times;
    for (int i = 0; i < samples; ++i) {
        std::this_thread::sleep_for(std::chrono::microseconds(5'000 + random() % 20'000));
        const auto start = Clock::now();
        work(i);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times;
}

void save(benchmark::State &state, bool importing)
{
    const auto context = BenchLibrary::open(BenchLibrary::scratchCopy(BenchLibrary::emptyStorePath()));
    BenchLibrary::Source own(2);
    BenchLibrary::insert(*context, own, samples);
    std::vector<KXRef<BenchTrack>> tracks;
    for (const auto &track : BenchTrack::findAllInContext(*context))
        tracks.push_back(BenchTrack::cast(track));

    std::optional<Meanwhile> import;
    if (importing) {
        import.emplace(context, [source = BenchLibrary::Source(3), random = std::mt19937(5)](KXManagedObjectContext &other) mutable {
            BenchLibrary::insert(other, source, 1'500 + int(random() % 501));
    });
}
const int roundsBefore = import ? import->rounds() : 0;
bool saved = true;
const std::vector<double> times = timesOf([&](int i) {
    tracks[size_t(i)]->setPlays(tracks[size_t(i)]->plays() + 1);
    saved &= context->save();
});
if (!saved || (import && import->rounds() < roundsBefore + 10))
    return state.SkipWithError("not saved, or no import went on");
BenchProgram::report(state, times[samples * 95 / 100]);
}

void fetch(benchmark::State &state, bool counting)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(true), true);
    std::optional<Meanwhile> count;
    if (counting) {
        const auto predicate = KXPredicate::predicateWithFormat("duration BETWEEN {%@, %@}", 100.0, 200.0);
        count.emplace(context, [predicate](KXManagedObjectContext &other) {
            if (other.countForEntity(u"Track"_s, predicate) == 0)
                std::exit(1);
        });
    }
    const int roundsBefore = count ? count->rounds() : 0;
    double sum = 0;
    qsizetype rows = 0;
    const std::vector<double> times = timesOf([&](int i) {
        // Each time other rows, none of them in memory.
        const auto predicate = KXPredicate::predicateWithFormat("bpm >= %@", 60 + i * 0.65);
        const KXFetchedList list = context->fetch(KXFetchRequest(u"Track"_s, predicate)
                                                      .setSortDescriptors({ { u"bpm"_s, true } })
                                                      .setFetchLimit(fetchedRows)
                                                      .setFetchBatchSize(fetchedRows));
        for (const auto &track : list)
            sum += BenchTrack::cast(track)->duration();
        rows += list.size();
    });
    benchmark::DoNotOptimize(sum);
    if (rows != samples * fetchedRows || (count && count->rounds() < roundsBefore + 3))
        return state.SkipWithError("not fetched, or no count went on");
    BenchProgram::report(state, times[samples / 2]);
}
}

int main(int argc, char **argv)
{
    using BenchProgram::add;
    add("concurrency.save-while-importing/ours", [](benchmark::State &state) { save(state, true); });
    add("concurrency.save-while-importing/peer", [](benchmark::State &state) { save(state, false); });
    add("concurrency.fetch-while-counting/ours", [](benchmark::State &state) { fetch(state, true); });
    add("concurrency.fetch-while-counting/peer", [](benchmark::State &state) { fetch(state, false); });
    return BenchProgram::run(argc, argv, BenchLibrary::prepare);
}
