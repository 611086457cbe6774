// Live counts: 500 presets in 40 folders over 200,000 tracks, beside SQL and loops written by hand for the same rules.

#include <ctime>
#include <malloc.h>

#include <QFile>

#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/filters/KXLivePresetCounts.h>

#include "BenchProgram.h"
#include "counts/LoadBench.h"
#include "counts/RulePresets.h"
#include "counts/WhatIfBench.h"
#include "peer/hand_rules.h"
#include "store/BenchLibrary.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int tracks = 200'000;
constexpr int imported = 10'000;
constexpr int edits = 20'000;

const QStringList genres = [] {
    QStringList names;
    for (const char *name : hand::genreNames)
        names.append(QString::fromUtf8(name));
    return names;
}();

double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

KXManagedObjectModel::Ref countsModel()
{
    KXFilters::registerEntities();
    return KXManagedObjectModel::modelByMergingModels({ BenchLibrary::model(false), KXFilters::managedObjectModel() });
}

KXManagedObjectContext::Ref openCounts(const QString &path)
{
    KXError error;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(path), countsModel(), &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    context->setUndoManager(nullptr); // which the peers have none of
    return context;
}

QString countsPath() { return BenchLibrary::emptyStorePath().chopped(8) + u"counts-200k.db"_s; }

void prepareCounts()
{
    if (QFile::exists(countsPath()))
        return;
    const QString making = countsPath() + u".making"_s;
    QFile::remove(making);
    {
        const auto context = openCounts(making);
        RulePresets::make(*context, { u"genre"_s, false, u"plays"_s, u"energy"_s });
        BenchLibrary::Source source;
        for (int saved = 0; saved < tracks; saved += 50'000)
            BenchLibrary::insert(*context, source, 50'000);
    }
    QFile::rename(making, countsPath());
}

/// The counts by the number of the rule, which is the preset's title.
hand::Counts countsOf(const KXLivePresetCounts &live, KXManagedObjectContext &context)
{
    hand::Counts counts {};
    for (const KXRef<KXManagedObject> &object : KXFilterSetPreset::findAllInContext(context)) {
        const auto preset = KXFilterSetPreset::cast(object);
        if (!preset->isFolder())
            counts[preset->title().toUInt()] = live.count(*preset).value_or(-1);
    }
    return counts;
}

std::vector<hand::Row> handRows(const QString &path)
{
    sqlite3 *database = nullptr;
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_open_v2(path.toUtf8(), &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK
        || sqlite3_prepare_v2(database, "SELECT bpm, energy, year, rating, plays, genre FROM \"Track\" ORDER BY kx_id",
               -1, &statement, nullptr)
            != SQLITE_OK)
        std::exit(1);
    std::vector<hand::Row> rows;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        rows.push_back({ sqlite3_column_double(statement, 0), sqlite3_column_double(statement, 1),
            sqlite3_column_int64(statement, 2), sqlite3_column_int64(statement, 3), sqlite3_column_int64(statement, 4),
            uint32_t(genres.indexOf(
                QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, 5))))) });
    }
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return rows;
}

const hand::Counts &rightCounts()
{
    static const hand::Counts counts = [] {
        hand::Counts made {};
        const auto rows = handRows(countsPath());
        hand::countAll(rows.data(), rows.size(), made);
        return made;
    }();
    return counts;
}

struct Live
{
    explicit Live(const QString &path)
        : context(openCounts(path))
        , counts(context, { context, u"Track"_s, u"bench"_s, {}, {} })
    {
        if (!counts.update())
            std::exit(1);
    }
    KXManagedObjectContext::Ref context;
    KXLivePresetCounts counts;
};

void coldOurs(benchmark::State &state)
{
    const hand::Counts right = rightCounts();
    malloc_trim(0);
    const double start = cpuSeconds();
    const Live live(countsPath());
    const double seconds = cpuSeconds() - start;
    if (countsOf(live.counts, *live.context) != right)
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

QByteArray handSQL(const hand::Rule &rule)
{
    QByteArrayList parts;
    if (rule.hasBpm)
        parts += "bpm >= " + QByteArray::number(rule.bpmFrom) + " AND bpm < " + QByteArray::number(rule.bpmTo);
    if (rule.hasYear)
        parts += "year >= " + QByteArray::number(qint64(rule.yearFrom)) + " AND year < "
            + QByteArray::number(qint64(rule.yearTo));
    if (rule.hasRating)
        parts += "rating >= " + QByteArray::number(qint64(rule.ratingFrom));
    if (rule.hasPlays)
        parts += "plays <= " + QByteArray::number(qint64(rule.playsTo));
    if (rule.hasEnergy)
        parts += "energy >= " + QByteArray::number(rule.energyFrom, 'g', 17);
    QByteArrayList names;
    for (int genre = 0; genre < 16; ++genre) {
        if ((rule.genres | rule.without) >> genre & 1)
            names += "'" + genres[genre].toUtf8() + "'";
    }
    if (!names.isEmpty())
        parts += "genre " + QByteArray(rule.without ? "NOT IN (" : "IN (") + names.join(',') + ")";
    return "SELECT count(*) FROM \"Track\" WHERE " + parts.join(" AND ");
}

void coldPeer(benchmark::State &state)
{
    const hand::Counts right = rightCounts();
    malloc_trim(0);
    hand::Counts counts {};
    const double start = cpuSeconds();
    sqlite3 *database = nullptr;
    if (sqlite3_open_v2(countsPath().toUtf8(), &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr)
        != SQLITE_OK)
        return state.SkipWithError("no store");
    sqlite3_exec(database, "PRAGMA cache_size=-32768", nullptr, nullptr, nullptr);
    for (size_t i = 0; i < hand::Rules; ++i) {
        sqlite3_stmt *statement = nullptr;
        sqlite3_prepare_v2(database, handSQL(hand::rules[i]), -1, &statement, nullptr);
        if (sqlite3_step(statement) == SQLITE_ROW)
            counts[i] = sqlite3_column_int64(statement, 0);
        sqlite3_finalize(statement);
    }
    sqlite3_close(database);
    const double seconds = cpuSeconds() - start;
    if (counts != right)
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

void scanOurs(benchmark::State &state)
{
    Live live(countsPath());
    malloc_trim(0);
    const double start = cpuSeconds();
    live.counts.liveCounts().recount();
    const double seconds = cpuSeconds() - start;
    if (countsOf(live.counts, *live.context) != rightCounts())
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

void scanPeer(benchmark::State &state)
{
    const auto rows = handRows(countsPath());
    hand::Counts counts {};
    malloc_trim(0);
    const double start = cpuSeconds();
    hand::countAll(rows.data(), rows.size(), counts);
    const double seconds = cpuSeconds() - start;
    benchmark::DoNotOptimize(counts);
    BenchProgram::report(state, seconds * 1e3);
}

/// Tempos that some tracks get one after the other.
template <typename Change> double timeOfEdits(KXManagedObjectContext &context, Change &&change)
{
    const KXFetchedList all = context.fetch(KXFetchRequest(u"Track"_s).setFetchLimit(1000));
    std::vector<KXRef<BenchTrack>> held;
    for (qsizetype i = 0; i < all.size(); ++i)
        held.push_back(all.as<BenchTrack>(i));
    std::mt19937 random(3);
    const double start = cpuSeconds();
    for (int i = 0; i < edits; ++i) {
        const auto &track = held[size_t(i) % held.size()];
        const double before = track->bpm(), after = 60 + double(random() % 14'000) / 100;
        track->setBpm(after);
        context.processPendingChanges();
        change(*track, before, after);
    }
    return cpuSeconds() - start;
}

/// What live counts add to a change.
void changeOurs(benchmark::State &state)
{
    const auto plain = openCounts(BenchLibrary::scratchCopy(countsPath()));
    const double without = timeOfEdits(*plain, [](const BenchTrack &, double, double) {});
    Live live(BenchLibrary::scratchCopy(countsPath()));
    const double with = timeOfEdits(*live.context, [](const BenchTrack &, double, double) {});
    hand::Counts now = countsOf(live.counts, *live.context);
    live.counts.liveCounts().recount();
    if (now != countsOf(live.counts, *live.context) || now == rightCounts())
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, (with - without) * 1e3);
}

void changePeer(benchmark::State &state)
{
    const auto context = openCounts(BenchLibrary::scratchCopy(countsPath()));
    hand::Counts counts = rightCounts();
    std::vector<std::pair<hand::Row, hand::Row>> changes;
    timeOfEdits(*context, [&](const BenchTrack &track, double before, double after) {
        hand::Row row { before, track.energy(), track.year(), track.rating(), track.plays(),
            uint32_t(genres.indexOf(track.genre())) };
        hand::Row changed = row;
        changed.bpm = after;
        changes.emplace_back(row, changed);
    });
    const double start = cpuSeconds();
    for (const auto &[before, after] : changes)
        hand::change(before, after, counts);
    const double seconds = cpuSeconds() - start;
    benchmark::DoNotOptimize(counts);
    BenchProgram::report(state, seconds * 1e3);
}

/// `counts` is waited for: much of it is counted by another thread, whose time counts as well.
double timeOfImport(KXManagedObjectContext &context, KXLivePresetCounts *counts = nullptr)
{
    const auto background
        = KXManagedObjectContext::contextWithPersistentStoreCoordinator(context.persistentStoreCoordinator());
    background->setUndoManager(nullptr); // as on a thread of its own
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), background.get(), [&context](const KXNotification &saved) {
            context.mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
        });
    BenchLibrary::Source source(77);
    const double start = cpuSeconds();
    for (int i = 0; i < imported; i += 2'000)
        BenchLibrary::insert(*background, source, 2'000);
    if (counts)
        counts->update();
    return cpuSeconds() - start;
}

void importOurs(benchmark::State &state)
{
    Live live(BenchLibrary::scratchCopy(countsPath()));
    const double seconds = timeOfImport(*live.context, &live.counts);
    const hand::Counts now = countsOf(live.counts, *live.context);
    live.counts.liveCounts().recount();
    if (now != countsOf(live.counts, *live.context) || now == rightCounts())
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

void importPeer(benchmark::State &state)
{
    const auto context = openCounts(BenchLibrary::scratchCopy(countsPath()));
    BenchProgram::report(state, timeOfImport(*context) * 1e3);
}

void bytes(benchmark::State &state)
{
    const Live live(countsPath());
    BenchProgram::report(state, live.counts.liveCounts().bytesPerObject());
}

}

int main(int argc, char **argv)
{
    BenchProgram::add("counts.cold/ours", coldOurs);
    BenchProgram::add("counts.cold/peer", coldPeer);
    BenchProgram::add("counts.scan/ours", scanOurs);
    BenchProgram::add("counts.scan/peer", scanPeer);
    BenchProgram::add("counts.change/ours", changeOurs);
    BenchProgram::add("counts.change/peer", changePeer);
    BenchProgram::add("counts.import/ours", importOurs);
    BenchProgram::add("counts.import/peer", importPeer);
    BenchProgram::add("counts.bytes/ours", bytes);
    LoadBench::add();
    WhatIfBench::add();
    return BenchProgram::run(argc, argv, [] {
        prepareCounts();
        BenchLibrary::prepare();
        WhatIfBench::prepare();
    });
}
