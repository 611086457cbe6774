#include "counts/LoadBench.h"

#include <chrono>
#include <malloc.h>
#include <string>
#include <unordered_map>

#include <kestrixkit/counts/KXLiveCounts.h>

#include "BenchProgram.h"
#include "store/BenchLibrary.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

constexpr double loadedEnergy = 0.5; // what is counted, so that both sides can be compared

/// What somebody waits for: it may be done beside the thread that asks.
double loadSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// One rule for each column: filling them is nearly all there is to do.
void setRules(KXLiveCounts &counts)
{
    counts.setRule(u"energy"_s, KXPredicate::predicateWithFormat("energy >= %@", loadedEnergy));
    counts.setRule(u"bpm"_s, KXPredicate::predicateWithFormat("bpm > 120"));
    counts.setRule(u"year"_s, KXPredicate::predicateWithFormat("year > 2000"));
    counts.setRule(u"rating"_s, KXPredicate::predicateWithFormat("rating > 3"));
    counts.setRule(u"plays"_s, KXPredicate::predicateWithFormat("plays > 100"));
    counts.setRule(u"genre"_s, KXPredicate::predicateWithFormat("genre == 'House'"));
}

/// The same in arrays, a genre as its number.
struct LoadedColumns
{
    std::vector<double> bpm, energy;
    std::vector<qint64> year, rating, plays;
    std::vector<uint32_t> genre;
    std::unordered_map<std::string, uint32_t> genres;

    [[nodiscard]] bool scan(const QString &path)
    {
        sqlite3 *database = nullptr;
        sqlite3_stmt *row = nullptr;
        if (sqlite3_open_v2(path.toUtf8(), &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK
            || sqlite3_prepare_v2(
                   database, "SELECT bpm, energy, year, rating, plays, genre FROM \"Track\"", -1, &row, nullptr)
                != SQLITE_OK)
            return false;
        while (sqlite3_step(row) == SQLITE_ROW) {
            bpm.push_back(sqlite3_column_double(row, 0));
            energy.push_back(sqlite3_column_double(row, 1));
            year.push_back(sqlite3_column_int64(row, 2));
            rating.push_back(sqlite3_column_int64(row, 3));
            plays.push_back(sqlite3_column_int64(row, 4));
            const std::string name(
                reinterpret_cast<const char *>(sqlite3_column_text(row, 5)), size_t(sqlite3_column_bytes(row, 5)));
            genre.push_back(genres.try_emplace(name, uint32_t(genres.size())).first->second);
        }
        sqlite3_finalize(row);
        sqlite3_close(database);
        return true;
    }
    [[nodiscard]] qint64 energetic() const
    {
        return std::count_if(energy.begin(), energy.end(), [](double value) { return value >= loadedEnergy; });
    }
};

void loadOurs(benchmark::State &state)
{
    malloc_trim(0);
    const double start = loadSeconds();
    const auto context = BenchLibrary::open(BenchLibrary::storePath(false));
    KXLiveCounts counts(context, u"Track"_s);
    setRules(counts);
    const bool isCounted = counts.update();
    const double seconds = loadSeconds() - start;
    LoadedColumns columns;
    if (!isCounted || !columns.scan(BenchLibrary::storePath(false)) || !counts.unsupported().isEmpty()
        || counts.count(u"energy"_s) != columns.energetic())
        return state.SkipWithError("wrong counts");
    BenchProgram::report(state, seconds * 1e3);
}

void loadPeer(benchmark::State &state)
{
    malloc_trim(0);
    const double start = loadSeconds();
    LoadedColumns columns;
    const bool isRead = columns.scan(BenchLibrary::storePath(false));
    const double seconds = loadSeconds() - start;
    if (!isRead || columns.genre.size() != size_t(BenchLibrary::Rows) || columns.genres.size() != 16)
        return state.SkipWithError("not all rows");
    BenchProgram::report(state, seconds * 1e3);
}

}

void LoadBench::add()
{
    BenchProgram::add("counts.load/ours", loadOurs);
    BenchProgram::add("counts.load/peer", loadPeer);
}
