#include "plain_search.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

#include <sqlite3.h>

namespace {

void searchRun(sqlite3 *database, const std::string &sql)
{
    char *problem = nullptr;
    if (sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &problem) != SQLITE_OK) {
        std::fprintf(stderr, "%s: %s\n", sql.c_str(), problem);
        std::exit(1);
    }
}

std::string searchMatch(const std::string &term)
{
    std::string match;
    for (size_t at = 0; at < term.size();) {
        const auto isPart = [&](size_t i) {
            const auto c = static_cast<unsigned char>(term[i]);
            return c >= 0x80 || std::isalnum(c);
        };
        if (!isPart(at)) {
            ++at;
            continue;
        }
        std::string word;
        for (; at < term.size() && isPart(at); ++at)
            word += term[at];
        match += (match.empty() ? "\"" : " AND \"") + word + "\"*";
    }
    return match;
}

}

void plain::makeSearch(const char *path, const char *store)
{
    sqlite3 *database = nullptr;
    sqlite3_open_v2(path, &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    searchRun(database,
        "PRAGMA journal_mode=WAL; PRAGMA cache_size=-262144;"
        "CREATE TABLE texts(id INTEGER PRIMARY KEY, title, artists, album, genres, labels, comment);"
        "CREATE VIRTUAL TABLE search USING fts5(title, artists, album, genres, labels, comment, content='', "
        "detail=none, "
        "prefix='1 2 3', tokenize='unicode61 remove_diacritics 2');"
        "ATTACH '"
            + std::string(store)
            + "' AS s; BEGIN;"
              "INSERT INTO texts SELECT NULL, t.title,"
              "(SELECT group_concat(a.name, ' ') FROM s.\"kx_Artist.tracks\" j JOIN s.Artist a ON a.kx_id = j.a WHERE "
              "j.b = "
              "t.kx_id), (SELECT title FROM s.Album WHERE kx_id = t.album),"
              "(SELECT group_concat(a.name, ' ') FROM s.\"kx_Genre.tracks\" j JOIN s.Genre a ON a.kx_id = j.a WHERE "
              "j.b = "
              "t.kx_id),"
              "(SELECT group_concat(a.name, ' ') FROM s.\"kx_Label.tracks\" j JOIN s.Label a ON a.kx_id = j.a WHERE "
              "j.b = "
              "t.kx_id), t.comment FROM s.Track t ORDER BY t.rating DESC, t.title, t.kx_id;"
              "INSERT INTO search(rowid, title, artists, album, genres, labels, comment) SELECT * FROM texts; COMMIT;"
              "INSERT INTO search(search) VALUES('optimize');");
    sqlite3_close(database);
}

plain::Search::Search(const char *path)
{
    sqlite3_open_v2(path, &m_database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    searchRun(m_database, "PRAGMA cache_size=-65536; PRAGMA mmap_size=1073741824; PRAGMA synchronous=FULL");
    sqlite3_prepare_v3(m_database, "SELECT count(*) FROM search WHERE search MATCH ?", -1, SQLITE_PREPARE_PERSISTENT,
        &m_count, nullptr);
    sqlite3_prepare_v3(m_database, "SELECT rowid FROM search WHERE search MATCH ? LIMIT 100", -1,
        SQLITE_PREPARE_PERSISTENT, &m_first, nullptr);
}

plain::Search::~Search()
{
    sqlite3_finalize(m_count);
    sqlite3_finalize(m_first);
    sqlite3_close(m_database);
}

plain::Search::Found plain::Search::find(const std::string &term)
{
    Found found;
    const std::string match = searchMatch(term);
    if (match.empty())
        return found;
    for (sqlite3_stmt *statement : { m_count, m_first }) {
        sqlite3_bind_text(statement, 1, match.c_str(), int(match.size()), SQLITE_STATIC);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            if (statement == m_count)
                found.count = sqlite3_column_int64(statement, 0);
            else
                found.first.push_back(sqlite3_column_int64(statement, 0));
        }
        sqlite3_reset(statement);
    }
    return found;
}

void plain::Search::change(int from, int count)
{
    // A contentless table must be told what it forgets.
    const std::string rows
        = " FROM texts WHERE id IN (SELECT (value * 7919) % 1000000 + 1 FROM (WITH RECURSIVE n(value) AS "
          "(VALUES("
        + std::to_string(from) + ") UNION ALL SELECT value + 1 FROM n WHERE value < " + std::to_string(from + count - 1)
        + ") SELECT value FROM n))";
    searchRun(m_database,
        "BEGIN; INSERT INTO search(search, rowid, title, artists, album, genres, labels, comment) SELECT 'delete', id, "
        "title, artists, album, genres, labels, comment"
            + rows
            + "; INSERT INTO search(rowid, title, artists, album, genres, labels, comment) SELECT id, title || ' "
              "Changed', artists, album, genres, labels, comment"
            + rows + "; COMMIT");
}
