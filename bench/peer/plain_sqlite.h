/// What somebody would write by hand against the SQLite C API for the same work: the peer of the store's benchmarks.
///
/// Schema: the table that the store makes for the same tracks, "Track"(kx_id INTEGER PRIMARY KEY, kx_version INTEGER,
/// 12 columns); the very same files are used. Pragmas: those of the store, journal_mode=WAL, synchronous=FULL,
/// cache_size=-32768, temp_store=MEMORY, no connection mutex. Rows are kept as ours are: each on the heap, texts as
/// QString, numbers plain, in a vector.
#pragma once

#include <memory>
#include <vector>

#include <QString>

#include <sqlite3.h>

#include "store/BenchLibrary.h"

namespace plain {

struct Row
{
    qint64 id = 0;
    qint64 version = 0;
    PlainTrack track;
};

using Rows = std::vector<std::unique_ptr<Row>>;

class Database
{
public:
    explicit Database(const QString &path);
    ~Database();

    void insert(const Rows &rows);
    Rows scan();
    Rows byId(const std::vector<qint64> &ids);
    void updateBpm(const Rows &rows);
    qint64 count(double from, double to, const QStringList &genres);

private:
    sqlite3_stmt *prepare(const char *sql);
    void exec(const char *sql);
    sqlite3 *m_database = nullptr;
};

}
