/// What somebody would write by hand to bring 1,000,000 tracks into a table with other columns: the peer of
/// migration.time.
///
/// Schema: the store's own table before, "Track"(kx_id INTEGER PRIMARY KEY, kx_version INTEGER, 12 columns, of which
/// genre and bpm are indexed), read out of the very same file; afterwards the table that the store makes for the new
/// model, indexes and all, in a new file. One INSERT INTO … SELECT, then the indexes, then one fsync. Pragmas, the
/// fastest ones: journal_mode=OFF, synchronous=OFF, cache_size=-32768 for both files, temporary files on disk.
#pragma once

#include <QString>

namespace plain {

/// Ends the process where it fails.
void migrate(const QString &from, const QString &to);

}
