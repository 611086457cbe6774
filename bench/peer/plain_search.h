/// Searching tracks with SQLite's FTS5, as one would by hand: contentless, detail=none, prefix indexes of one, two and
/// three characters, unicode61 without diacritics; rows in the order of their rank, so that the first found are the
/// best. Page cache 64 MiB, the file mapped, WAL with synchronous=FULL for changes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace plain {

/// Makes the file from the tables of the store.
void makeSearch(const char *path, const char *store);

class Search
{
public:
    explicit Search(const char *path);
    ~Search();
    Search(const Search &) = delete;
    Search &operator=(const Search &) = delete;

    struct Found
    {
        int64_t count = 0;
        std::vector<int64_t> first; ///< at most 100
    };
    /// Rows with a word that begins so for each word of the term.
    Found find(const std::string &term);
    /// Changes so many tracks' texts in one transaction.
    void change(int from, int count);

private:
    sqlite3 *m_database = nullptr;
    sqlite3_stmt *m_count = nullptr;
    sqlite3_stmt *m_first = nullptr;
};

}
