/// The library of the search benchmarks: a million tracks of 120,000 artists, named as music is.
#pragma once

#include <random>
#include <string>
#include <vector>

#include <QString>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/search/KXSearchIndex.h>

namespace SearchLibrary {

inline constexpr int Tracks = 1'000'000;
inline constexpr int Artists = 120'000;

[[nodiscard]] KXManagedObjectModel::Ref model();
[[nodiscard]] QList<KXSearchGroup> groups();
/// With the index beside it.
[[nodiscard]] QString storePath();
/// FTS5 over the same tracks, in the order of their rank.
[[nodiscard]] QString peerPath();
[[nodiscard]] KXManagedObjectContext::Ref open(const QString &path);
/// Makes what is not there.
void prepare();

/// What 500 people type, one text a keystroke: names and titles of the library, from their beginnings, two words in
/// either order, some with a slip.
[[nodiscard]] const std::vector<std::vector<std::string>> &typings();

}
