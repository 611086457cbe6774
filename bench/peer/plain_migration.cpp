#include "peer/plain_migration.h"

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include <sqlite3.h>

void plain::migrate(const QString &from, const QString &to)
{
    sqlite3 *database = nullptr;
    const QByteArray attach = "ATTACH '" + from.toUtf8() + "' AS old";
    int code = sqlite3_open_v2(
        to.toUtf8().constData(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    for (const char *sql :
        { "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; PRAGMA cache_size=-32768; PRAGMA temp_store=FILE",
            attach.constData(), "PRAGMA old.cache_size=-32768", "BEGIN",
            "CREATE TABLE Track(kx_id INTEGER PRIMARY KEY, kx_version INTEGER NOT NULL, title TEXT, artist TEXT, album "
            "TEXT, style TEXT, comment TEXT, "
            "year INTEGER, rating INTEGER, playCount INTEGER, bpm REAL, duration REAL, gain REAL, energy REAL, mood "
            "TEXT)",
            "INSERT INTO Track SELECT kx_id, kx_version, title, artist, album, genre, comment, year, rating, plays, "
            "bpm, duration, gain, energy, 'calm' "
            "FROM old.Track",
            "CREATE INDEX i_style ON Track(style)", "CREATE INDEX i_bpm ON Track(bpm)", "COMMIT" }) {
        if (code == SQLITE_OK)
            code = sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
    }
    if (code != SQLITE_OK) {
        std::fprintf(stderr, "peer: %s\n", sqlite3_errmsg(database));
        std::exit(1);
    }
    sqlite3_close(database);
    const int file = ::open(to.toUtf8().constData(), O_RDWR | O_CLOEXEC);
    if (file < 0 || ::fsync(file) != 0)
        std::exit(1);
    ::close(file);
}
