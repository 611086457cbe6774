// The store beside plain SQLite. Each benchmark runs once in a process of its own, started by scripts/bench.

#include <ctime>
#include <malloc.h>

#include "BenchProgram.h"
#include "peer/plain_sqlite.h"
#include "store/BenchLibrary.h"
#include "store/SortBench.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int insertedRows = 100'000;
constexpr int updatedRows = 10'000;
constexpr int fetchedRows = 100'000;
const QStringList countedGenres { u"House"_s, u"Techno"_s, u"Disco"_s, u"Dub"_s };

/// CPU time of the process: one thread works, and the machine has other things to do.
double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

template <typename Work> void timed(benchmark::State &state, Work &&work)
{
    for (auto _ : state) {
        malloc_trim(0);
        const double start = cpuSeconds();
        work();
        state.SetIterationTime(cpuSeconds() - start);
    }
}

void readAll(const BenchTrack &track)
{
    benchmark::DoNotOptimize(track.title());
    benchmark::DoNotOptimize(track.artist());
    benchmark::DoNotOptimize(track.album());
    benchmark::DoNotOptimize(track.genre());
    benchmark::DoNotOptimize(track.comment());
    benchmark::DoNotOptimize(track.year());
    benchmark::DoNotOptimize(track.rating());
    benchmark::DoNotOptimize(track.plays());
    benchmark::DoNotOptimize(track.bpm());
    benchmark::DoNotOptimize(track.duration());
    benchmark::DoNotOptimize(track.gain());
    benchmark::DoNotOptimize(track.energy());
}

void insertOurs(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::scratchCopy(BenchLibrary::emptyStorePath()));
    timed(state, [&] {
        BenchLibrary::Source source;
        for (int i = 0; i < insertedRows; ++i) {
            const PlainTrack plain = source.next();
            BenchTrack::createInContext(*context)->take(plain);
        }
        if (!context->save())
            state.SkipWithError("not saved");
    });
}

void insertPeer(benchmark::State &state)
{
    plain::Database database(BenchLibrary::scratchCopy(BenchLibrary::emptyStorePath()));
    timed(state, [&] {
        BenchLibrary::Source source;
        plain::Rows rows;
        for (int i = 0; i < insertedRows; ++i)
            rows.push_back(std::make_unique<plain::Row>(plain::Row { i + 1, 1, source.next() }));
        database.insert(rows);
    });
}

void fetchOurs(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(false));
    std::vector<KXRef<BenchTrack>> kept;
    timed(state, [&] {
        const KXFetchedList list = BenchTrack::findAllInContext(*context);
        for (qsizetype i = 0; i < list.size(); ++i) {
            kept.push_back(list.as<BenchTrack>(i));
            readAll(*kept.back());
        }
    });
    BenchLibrary::Source source;
    for (const auto &track : kept) {
        const PlainTrack plain = source.next();
        if (track->title() != plain.title || track->comment() != plain.comment || track->bpm() != plain.bpm
            || track->year() != plain.year)
            state.SkipWithError("wrong values");
    }
    if (kept.size() != BenchLibrary::Rows)
        state.SkipWithError("not all rows");
}

void fetchPeer(benchmark::State &state)
{
    plain::Database database(BenchLibrary::storePath(false));
    plain::Rows rows;
    timed(state, [&] { rows = database.scan(); });
    if (rows.size() != BenchLibrary::Rows)
        state.SkipWithError("not all rows");
}

void idsOurs(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(false));
    KXFetchedList list;
    timed(state, [&] { list = BenchTrack::findAllInContext(*context); });
    if (list.size() != BenchLibrary::Rows)
        state.SkipWithError("not all rows");
}

void byIdOurs(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(false));
    const KXEntityDescription *entity = context->persistentStoreCoordinator()->model()->entity(u"Track"_s);
    const KXFetchedList one = context->fetch(KXFetchRequest(u"Track"_s).setFetchLimit(1));
    const auto store = one.objectID(0).store();
    QList<KXManagedObjectID> ids;
    for (const qint64 key : BenchLibrary::randomKeys(fetchedRows))
        ids.append(KXManagedObjectID(store, entity, key));
    std::vector<KXRef<BenchTrack>> kept;
    timed(state, [&] {
        for (const KXManagedObjectID &id : ids) {
            kept.push_back(BenchTrack::cast(context->objectWithID(id)));
            benchmark::DoNotOptimize(kept.back()->year());
        }
    });
}

void byIdPeer(benchmark::State &state)
{
    plain::Database database(BenchLibrary::storePath(false));
    const std::vector<qint64> ids = BenchLibrary::randomKeys(fetchedRows);
    plain::Rows rows;
    timed(state, [&] { rows = database.byId(ids); });
}

void updateOurs(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::scratchCopy(BenchLibrary::storePath(false)));
    const KXFetchedList list = BenchTrack::findAllInContext(*context);
    std::vector<KXRef<BenchTrack>> tracks;
    for (const qint64 key : BenchLibrary::randomKeys(updatedRows))
        tracks.push_back(list.as<BenchTrack>(key - 1));
    timed(state, [&] {
        for (const auto &track : tracks)
            track->setBpm(track->bpm() + 1);
        if (!context->save())
            state.SkipWithError("not saved");
    });
}

void updatePeer(benchmark::State &state)
{
    plain::Database database(BenchLibrary::scratchCopy(BenchLibrary::storePath(false)));
    const plain::Rows rows = database.byId(BenchLibrary::randomKeys(updatedRows));
    timed(state, [&] { database.updateBpm(rows); });
}

void countOurs(benchmark::State &state, bool indexed)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(indexed), indexed);
    const auto predicate
        = KXPredicate::predicateWithFormat("bpm BETWEEN {%@, %@} AND genre IN %@", 120.0, 124.0, countedGenres);
    qint64 number = context->countForEntity(u"Track"_s, predicate);
    timed(state, [&] {
        for (int i = 0; i < 5; ++i)
            number += context->countForEntity(u"Track"_s, predicate);
    });
    if (number == 0)
        state.SkipWithError("nothing counted");
}

void countPeer(benchmark::State &state, bool indexed)
{
    plain::Database database(BenchLibrary::storePath(indexed));
    qint64 number = database.count(120, 124, countedGenres);
    timed(state, [&] {
        for (int i = 0; i < 5; ++i)
            number += database.count(120, 124, countedGenres);
    });
    if (number == 0)
        state.SkipWithError("nothing counted");
}

void readNanoseconds(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(false));
    const KXFetchedList list = context->fetch(KXFetchRequest(u"Track"_s).setFetchLimit(1000));
    std::vector<KXRef<BenchTrack>> tracks;
    for (qsizetype i = 0; i < list.size(); ++i)
        tracks.push_back(list.as<BenchTrack>(i));
    constexpr int rounds = 1000;
    const double start = cpuSeconds();
    for (int round = 0; round < rounds; ++round) {
        for (const auto &track : tracks)
            readAll(*track);
    }
    BenchProgram::report(state, (cpuSeconds() - start) * 1e9 / (rounds * double(tracks.size()) * 12));
}

void rowBytes(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(false));
    (void)BenchTrack::findAllInContext(*context); // fills the connection's cache of pages
    const auto heap = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const size_t before = heap();
    const KXFetchedList list = BenchTrack::findAllInContext(*context);
    BenchProgram::report(state, double(heap() - before) / double(list.size()));
}

void objectBytes(benchmark::State &state)
{
    const auto context = BenchLibrary::open(BenchLibrary::storePath(false));
    const KXFetchedList list = BenchTrack::findAllInContext(*context);
    const auto heap = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    std::vector<KXRef<BenchTrack>> kept(size_t(list.size()), nullptr);
    for (qsizetype i = 0; i < 1000; ++i)
        (void)list.at(i); // fills the connection's cache
    const size_t before = heap();
    for (qsizetype i = 0; i < list.size(); ++i)
        kept[size_t(i)] = list.as<BenchTrack>(i);
    const size_t objects = heap() - before;
    // The same texts on their own, as deep copies in a vector that is there already.
    std::vector<QString> texts(5 * kept.size());
    const size_t without = heap();
    for (size_t i = 0; i < kept.size(); ++i) {
        const QString fields[]
            = { kept[i]->title(), kept[i]->artist(), kept[i]->album(), kept[i]->genre(), kept[i]->comment() };
        for (size_t j = 0; j < 5; ++j)
            texts[5 * i + j] = QString(fields[j].constData(), fields[j].size());
    }
    BenchProgram::report(state, (double(objects) - double(heap() - without)) / double(kept.size()));
}

}

int main(int argc, char **argv)
{
    using BenchProgram::add;
    add("store.insert/ours", insertOurs);
    add("store.insert/peer", insertPeer);
    add("store.fetch/ours", fetchOurs);
    add("store.fetch/peer", fetchPeer);
    add("store.ids/ours", idsOurs);
    add("store.ids/peer", fetchPeer);
    add("store.byid/ours", byIdOurs);
    add("store.byid/peer", byIdPeer);
    add("store.update/ours", updateOurs);
    add("store.update/peer", updatePeer);
    add("store.count/ours", [](benchmark::State &state) { countOurs(state, false); });
    add("store.count/peer", [](benchmark::State &state) { countPeer(state, false); });
    add("store.count-indexed/ours", [](benchmark::State &state) { countOurs(state, true); });
    add("store.count-indexed/peer", [](benchmark::State &state) { countPeer(state, true); });
    add("store.read-ns/ours", readNanoseconds);
    add("store.row-bytes/ours", rowBytes);
    add("store.object-bytes/ours", objectBytes);
    SortBench::add();
    return BenchProgram::run(argc, argv, [] {
        BenchLibrary::prepare();
        SortBench::prepare();
    });
}
