#include "peer/hand_catalogue.h"

#include <cstdio>
#include <cstdlib>

namespace hand {

const char *const narrow
    = "genre = 'Electro' AND released >= '2025-01-01 00:00+00' AND released <= '2025-12-31 00:00+00'";
const char *const wide = "genre = 'House' AND released >= '2003-01-01 00:00+00' AND released <= '2030-01-01 00:00+00'";

std::vector<std::string> facets()
{
    std::vector<std::string> all;
    for (int key = 2; key < 26; ++key)
        all.push_back("key_order = " + std::to_string(key));
    for (int stars = 0; stars < 6; ++stars)
        all.push_back("rating = " + std::to_string(stars));
    for (int bpm = 90; bpm < 170; bpm += 10)
        all.push_back("bpm >= " + std::to_string(bpm) + " AND bpm < " + std::to_string(bpm + 10));
    all.push_back("exclusive");
    all.push_back("price <= 1.49");
    return all;
}

Catalogue::Catalogue(const std::string &address)
    : m_connection(PQconnectdb(address.c_str()))
{
    PQclear(PQexec(m_connection, "SET jit = off"));
}

Catalogue::~Catalogue() { PQfinish(m_connection); }

long long Catalogue::count(const std::string &condition)
{
    PGresult *result = PQexec(m_connection, ("SELECT count(*) FROM catalogue.tracks WHERE " + condition).c_str());
    if (PQresultStatus(result) != PGRES_TUPLES_OK) {
        std::fprintf(stderr, "%s", PQerrorMessage(m_connection));
        std::exit(1);
    }
    const long long count = std::strtoll(PQgetvalue(result, 0, 0), nullptr, 10);
    PQclear(result);
    return count;
}

std::vector<std::vector<std::string>> Catalogue::page(const std::string &condition)
{
    PGresult *result = PQexec(m_connection,
        ("SELECT id, title, artist_text, genre, bpm, released FROM catalogue.tracks WHERE " + condition
            + " ORDER BY released DESC, id DESC LIMIT 100")
            .c_str());
    std::vector<std::vector<std::string>> rows;
    for (int row = 0; row < PQntuples(result); ++row) {
        auto &values = rows.emplace_back();
        for (int field = 0; field < PQnfields(result); ++field)
            values.emplace_back(PQgetvalue(result, row, field));
    }
    PQclear(result);
    return rows;
}

}
