#include "peer/plain_crates.h"

#include <cstdio>
#include <cstdlib>

#include <sqlite3.h>

namespace plain {

namespace {

[[noreturn]] void crateFail(sqlite3 *database)
{
    std::fprintf(stderr, "peer: %s\n", sqlite3_errmsg(database));
    std::exit(1);
}

sqlite3_stmt *cratePrepare(sqlite3 *database, const char *sql)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) != SQLITE_OK)
        crateFail(database);
    return statement;
}

qint64 crateNumber(sqlite3 *database, const char *sql, qint64 parameter)
{
    sqlite3_stmt *const statement = cratePrepare(database, sql);
    sqlite3_bind_int64(statement, 1, parameter);
    if (sqlite3_step(statement) != SQLITE_ROW)
        crateFail(database);
    const qint64 number = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return number;
}

void crateExecute(sqlite3 *database, const char *sql)
{
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        crateFail(database);
}

}

Crates::Crates(const QString &path)
{
    if (sqlite3_open_v2(path.toUtf8().constData(), &m_database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr)
        != SQLITE_OK)
        crateFail(m_database);
    crateExecute(m_database,
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-32768; PRAGMA temp_store=MEMORY");
    sqlite3_wal_autocheckpoint(m_database, 16 << 10);
}

Crates::~Crates() { sqlite3_close(m_database); }

size_t Crates::add(qint64 crate, const std::vector<qint64> &tracks)
{
    crateExecute(m_database, "BEGIN IMMEDIATE");
    // What another entity of the file has is not to be met.
    qint64 id = crateNumber(m_database, "SELECT max(kx_id) + 10000000 FROM CrateEntry WHERE crate > ?", 0);
    qint64 position
        = crateNumber(m_database, "SELECT coalesce(max(position), 0) FROM CrateEntry WHERE crate = ?", crate);
    sqlite3_stmt *const known
        = cratePrepare(m_database, "SELECT 1 FROM CrateEntry WHERE track = ? AND +crate = ? LIMIT 1");
    sqlite3_stmt *const insert = cratePrepare(
        m_database, "INSERT INTO CrateEntry(kx_id, kx_version, position, crate, track) VALUES (?, 1, ?, ?, ?)");
    m_entries.clear();
    for (const qint64 track : tracks) {
        sqlite3_bind_int64(known, 1, track);
        sqlite3_bind_int64(known, 2, crate);
        const bool isThere = sqlite3_step(known) == SQLITE_ROW;
        sqlite3_reset(known);
        if (isThere)
            continue;
        m_entries.push_back({ ++id, 1, position += 1 << 20, crate, track });
        sqlite3_bind_int64(insert, 1, id);
        sqlite3_bind_int64(insert, 2, position);
        sqlite3_bind_int64(insert, 3, crate);
        sqlite3_bind_int64(insert, 4, track);
        if (sqlite3_step(insert) != SQLITE_DONE)
            crateFail(m_database);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(known);
    sqlite3_finalize(insert);
    crateExecute(m_database, "COMMIT");
    return m_entries.size();
}

qint64 Crates::rateAll(int stars)
{
    sqlite3_stmt *const update = cratePrepare(m_database, "UPDATE Track SET rating = ?, kx_version = kx_version + 1");
    sqlite3_bind_int(update, 1, stars);
    if (sqlite3_step(update) != SQLITE_DONE)
        crateFail(m_database);
    sqlite3_finalize(update);
    return sqlite3_changes64(m_database);
}

qint64 Crates::count(qint64 crate) const
{
    return crateNumber(m_database, "SELECT count(*) FROM CrateEntry WHERE crate = ?", crate);
}

}
