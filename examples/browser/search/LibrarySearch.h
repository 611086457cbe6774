#pragma once

#include <kestrixkit/search/KXSearchIndex.h>

#include "library/Library.h"

/// What of a library can be searched for.
namespace LibrarySearch {

/// Places of the groups among groups().
enum Group : quint8 { Tracks, Artists, Albums, Genres, Labels, Presets, Crates };

/// Tracks by title, artists, album, genres, labels and comment, those with the most stars first; artists, albums,
/// genres, labels, presets and crates by their names.
[[nodiscard]] QList<KXSearchGroup> groups();

/// The index of the library's window, kept beside the store.
[[nodiscard]] std::unique_ptr<KXSearchIndex> makeIndex(const KXManagedObjectContext::Ref &context);

/// What an object that was found is called.
[[nodiscard]] QString titleOf(const KXManagedObject &object);

} // namespace LibrarySearch
