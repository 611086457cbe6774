#include "peer/plain_sqlite.h"

#include <cstdio>
#include <cstdlib>

namespace plain {

namespace {

[[noreturn]] void fail(sqlite3 *database)
{
    std::fprintf(stderr, "peer: %s\n", sqlite3_errmsg(database));
    std::exit(1);
}

void bindText(sqlite3_stmt *statement, int index, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    sqlite3_bind_text(statement, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
}

QString text(sqlite3_stmt *statement, int column)
{
    return QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, column)),
        sqlite3_column_bytes(statement, column));
}

std::unique_ptr<Row> read(sqlite3_stmt *statement)
{
    auto row = std::make_unique<Row>();
    row->id = sqlite3_column_int64(statement, 0);
    row->version = sqlite3_column_int64(statement, 1);
    row->track.title = text(statement, 2);
    row->track.artist = text(statement, 3);
    row->track.album = text(statement, 4);
    row->track.genre = text(statement, 5);
    row->track.comment = text(statement, 6);
    row->track.year = sqlite3_column_int64(statement, 7);
    row->track.rating = sqlite3_column_int64(statement, 8);
    row->track.plays = sqlite3_column_int64(statement, 9);
    row->track.bpm = sqlite3_column_double(statement, 10);
    row->track.duration = sqlite3_column_double(statement, 11);
    row->track.gain = sqlite3_column_double(statement, 12);
    row->track.energy = sqlite3_column_double(statement, 13);
    return row;
}

constexpr const char *columns
    = "kx_id, kx_version, title, artist, album, genre, comment, year, rating, plays, bpm, duration, gain, energy";

}

Database::Database(const QString &path)
{
    if (sqlite3_open_v2(path.toUtf8().constData(), &m_database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr)
        != SQLITE_OK)
        fail(m_database);
    exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-32768; PRAGMA temp_store=MEMORY");
    sqlite3_wal_autocheckpoint(m_database, 16 << 10);
}

Database::~Database() { sqlite3_close(m_database); }

sqlite3_stmt *Database::prepare(const char *sql)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(m_database, sql, -1, &statement, nullptr) != SQLITE_OK)
        fail(m_database);
    return statement;
}

void Database::exec(const char *sql)
{
    if (sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(m_database);
}

void Database::insert(const Rows &rows)
{
    exec("BEGIN IMMEDIATE");
    sqlite3_stmt *statement
        = prepare((std::string("INSERT INTO Track(") + columns + ") VALUES(?,1,?,?,?,?,?,?,?,?,?,?,?,?)").c_str());
    for (const auto &row : rows) {
        sqlite3_bind_int64(statement, 1, row->id);
        bindText(statement, 2, row->track.title);
        bindText(statement, 3, row->track.artist);
        bindText(statement, 4, row->track.album);
        bindText(statement, 5, row->track.genre);
        bindText(statement, 6, row->track.comment);
        sqlite3_bind_int64(statement, 7, row->track.year);
        sqlite3_bind_int64(statement, 8, row->track.rating);
        sqlite3_bind_int64(statement, 9, row->track.plays);
        sqlite3_bind_double(statement, 10, row->track.bpm);
        sqlite3_bind_double(statement, 11, row->track.duration);
        sqlite3_bind_double(statement, 12, row->track.gain);
        sqlite3_bind_double(statement, 13, row->track.energy);
        if (sqlite3_step(statement) != SQLITE_DONE)
            fail(m_database);
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    exec("COMMIT");
}

Rows Database::scan()
{
    Rows rows;
    sqlite3_stmt *statement = prepare((std::string("SELECT ") + columns + " FROM Track").c_str());
    while (sqlite3_step(statement) == SQLITE_ROW)
        rows.push_back(read(statement));
    sqlite3_finalize(statement);
    return rows;
}

Rows Database::byId(const std::vector<qint64> &ids)
{
    Rows rows;
    rows.reserve(ids.size());
    sqlite3_stmt *statement = prepare((std::string("SELECT ") + columns + " FROM Track WHERE kx_id = ?").c_str());
    for (const qint64 id : ids) {
        sqlite3_bind_int64(statement, 1, id);
        if (sqlite3_step(statement) == SQLITE_ROW)
            rows.push_back(read(statement));
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    return rows;
}

void Database::updateBpm(const Rows &rows)
{
    exec("BEGIN IMMEDIATE");
    sqlite3_stmt *statement
        = prepare("UPDATE Track SET bpm = ?, kx_version = kx_version + 1 WHERE kx_id = ? AND kx_version = ?");
    for (const auto &row : rows) {
        row->track.bpm += 1;
        sqlite3_bind_double(statement, 1, row->track.bpm);
        sqlite3_bind_int64(statement, 2, row->id);
        sqlite3_bind_int64(statement, 3, row->version);
        if (sqlite3_step(statement) != SQLITE_DONE || sqlite3_changes(m_database) != 1)
            fail(m_database);
        sqlite3_reset(statement);
        ++row->version;
    }
    sqlite3_finalize(statement);
    exec("COMMIT");
}

qint64 Database::count(double from, double to, const QStringList &genres)
{
    sqlite3_stmt *statement = prepare("SELECT count(*) FROM Track WHERE bpm BETWEEN ? AND ? AND genre IN (?,?,?,?)");
    sqlite3_bind_double(statement, 1, from);
    sqlite3_bind_double(statement, 2, to);
    for (int i = 0; i < 4; ++i)
        bindText(statement, 3 + i, genres[i]);
    sqlite3_step(statement);
    const qint64 number = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return number;
}

}
