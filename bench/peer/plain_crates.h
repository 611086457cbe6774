/// The peer of the benchmark of crates: SQLite's C API on the tables of the same file, entries (id, version, position,
/// crate, track) with indexes of (crate, position) and (track); WAL, synchronous=FULL, a cache of 32 MiB. It keeps the
/// rows that it has inserted.
#pragma once

#include <vector>

#include <QString>

struct sqlite3;

namespace plain {

class Crates
{
public:
    explicit Crates(const QString &path);
    ~Crates();

    /// Puts those that are not in the crate yet behind its last track, in one transaction. Answers how many came.
    size_t add(qint64 crate, const std::vector<qint64> &tracks);
    [[nodiscard]] qint64 count(qint64 crate) const;
    /// Gives all tracks the rating, in one statement. Answers how many there were.
    [[nodiscard]] qint64 rateAll(int stars);

private:
    struct Entry
    {
        qint64 id, version, position, crate, track;
    };
    sqlite3 *m_database = nullptr;
    std::vector<Entry> m_entries;
};

}
