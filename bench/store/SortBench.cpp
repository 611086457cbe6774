#include "store/SortBench.h"

#include <ctime>
#include <malloc.h>
#include <string>

#include <QFile>

#include "BenchProgram.h"
#include "store/BenchLibrary.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

QString sortedPath() { return BenchLibrary::emptyStorePath().chopped(8) + u"sortable.db"_s; }
QString sortPath() { return BenchLibrary::emptyStorePath().chopped(8) + u"folded-titles.db"_s; }

double sortCpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

/// As a program would keep it that sorts in SQL.
QString foldedTitle(const QString &title)
{
    QString folded = title.normalized(QString::NormalizationForm_KD);
    folded.removeIf([](QChar c) { return c.category() == QChar::Mark_NonSpacing; });
    return folded.toCaseFolded();
}

std::vector<qint64> sortedByPeer(const char *order)
{
    sqlite3 *database = nullptr;
    sqlite3_stmt *row = nullptr;
    std::vector<qint64> keys;
    sqlite3_open_v2(sortPath().toUtf8(), &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    sqlite3_exec(database, "PRAGMA cache_size=-32768", nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(database, ("SELECT kx_id FROM Track ORDER BY " + std::string(order)).c_str(), -1, &row, nullptr);
    while (sqlite3_step(row) == SQLITE_ROW)
        keys.push_back(sqlite3_column_int64(row, 0));
    sqlite3_finalize(row);
    sqlite3_close(database);
    return keys;
}

constexpr const char *byIndex = "folded, kx_id";
constexpr const char *withoutIndex = "+folded, kx_id";

void sortOurs(benchmark::State &state, bool sortable)
{
    const auto context = BenchLibrary::open(sortable ? sortedPath() : BenchLibrary::storePath(false), false, sortable);
    (void)context->countForEntity(u"Track"_s); // the connection is open
    malloc_trim(0);
    const double start = sortCpuSeconds();
    const KXFetchedList list
        = context->fetch(KXFetchRequest(u"Track"_s)
                             .setSortDescriptors({ { u"title"_s, true, KXCaseInsensitive | KXDiacriticInsensitive } }));
    const double seconds = sortCpuSeconds() - start;
    if (list.keys() != sortedByPeer(byIndex))
        return state.SkipWithError("wrong order");
    BenchProgram::report(state, seconds * 1e3);
}

void sortPeer(benchmark::State &state, const char *order)
{
    malloc_trim(0);
    const double start = sortCpuSeconds();
    const std::vector<qint64> keys = sortedByPeer(order);
    const double seconds = sortCpuSeconds() - start;
    if (keys.size() != size_t(BenchLibrary::Rows))
        return state.SkipWithError("not all rows");
    BenchProgram::report(state, seconds * 1e3);
}

}

void SortBench::add()
{
    BenchProgram::add("store.sort-text/ours", [](auto &state) { sortOurs(state, true); });
    BenchProgram::add("store.sort-text/peer", [](auto &state) { sortPeer(state, byIndex); });
    BenchProgram::add("store.sort-unindexed/ours", [](auto &state) { sortOurs(state, false); });
    BenchProgram::add("store.sort-unindexed/peer", [](auto &state) { sortPeer(state, withoutIndex); });
}

void SortBench::prepare()
{
    if (!QFile::exists(sortedPath())) {
        QFile::remove(sortedPath() + u".making"_s);
        QFile::copy(BenchLibrary::storePath(false), sortedPath() + u".making"_s);
        (void)BenchLibrary::open(sortedPath() + u".making"_s, false, true); // which makes the index
        QFile::rename(sortedPath() + u".making"_s, sortedPath());
    }
    if (QFile::exists(sortPath()))
        return;
    const QString making = sortPath() + u".making"_s;
    QFile::remove(making);
    sqlite3 *database = nullptr;
    sqlite3_stmt *insert = nullptr;
    sqlite3_open(making.toUtf8(), &database);
    sqlite3_exec(database, "CREATE TABLE Track(kx_id INTEGER PRIMARY KEY, title TEXT, folded TEXT); BEGIN", nullptr,
        nullptr, nullptr);
    sqlite3_prepare_v2(database, "INSERT INTO Track VALUES(?, ?, ?)", -1, &insert, nullptr);
    BenchLibrary::Source source; // whose rows the store has, with keys from 1 on
    for (int key = 1; key <= BenchLibrary::Rows; ++key) {
        const QString title = source.next().title;
        const QByteArray texts[] = { title.toUtf8(), foldedTitle(title).toUtf8() };
        sqlite3_bind_int64(insert, 1, key);
        for (int i = 0; i < 2; ++i)
            sqlite3_bind_text(insert, i + 2, texts[i], int(texts[i].size()), SQLITE_TRANSIENT);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    const int code = sqlite3_exec(database, "COMMIT; CREATE INDEX folded ON Track(folded)", nullptr, nullptr, nullptr);
    sqlite3_close(database);
    if (code != SQLITE_OK || !QFile::rename(making, sortPath()))
        std::exit(1);
}
