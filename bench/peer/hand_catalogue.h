/// What somebody would ask PostgreSQL by hand for the same numbers: libpq, one statement a number, values in the text.
///
/// The same server, table and indexes as ours, in sessions with the same settings (PGOPTIONS). Results are read as
/// texts and kept as numbers, rows as vectors of texts.
#pragma once

#include <string>
#include <vector>

#include <libpq-fe.h>

namespace hand {

class Catalogue
{
public:
    explicit Catalogue(const std::string &address);
    ~Catalogue();
    Catalogue(const Catalogue &) = delete;
    Catalogue &operator=(const Catalogue &) = delete;

    /// SELECT count(*) … WHERE condition
    long long count(const std::string &condition);
    std::vector<std::vector<std::string>> page(const std::string &condition);

private:
    PGconn *m_connection;
};

/// The conditions of the rules and of the facets that catalogue/bench_catalogue.cpp asks for.
extern const char *const narrow;
extern const char *const wide;
std::vector<std::string> facets();

}
