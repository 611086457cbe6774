#pragma once

#include <QJsonArray>
#include <QJsonObject>

#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/filters/KXLivePresetCounts.h>

#include "library/Library.h"

/// The library's presets: searches for tracks that are there, by tempo, genre, key and date.
namespace Presets {

/// The identifier under which the browser counts.
inline constexpr QLatin1StringView contextIdentifier { "library" };

/// Makes folders and presets for the music that the library holds, where it has no presets at all, and saves them; in a
/// context with unsaved changes they wait for its next save, with those. False with an error, and without a trace,
/// where the store takes none.
bool install(KXManagedObjectContext &context, KXError *error = nullptr);

/// A preset of a genre's tracks or, without one, of those added lately; last on the top level. One step to undo, saved.
/// Empty where the store takes none.
KXRef<KXFilterSetPreset> makeOfPlace(KXManagedObjectContext &context, const KXRef<Genre> &genre, const QString &title);

/// What holds for every track that is shown: its file is there.
KXPredicate base();
/// The tracks of a library, as presets are counted there.
KXLivePresetCounts::Place place(
    const KXManagedObjectContext::Ref &context, std::shared_ptr<const KXFilterSetMapper> mapper = {});
/// The tracks of a filter set, base included; none for an empty handle.
KXPredicate predicate(const KXRef<KXFilterSet> &set);

/// Titles from the topmost folder down, joined by "/".
QString path(const KXFilterSetPreset &preset);
/// Empty where no preset has that path.
KXRef<KXFilterSetPreset> find(KXManagedObjectContext &context, const QString &path);
/// The presets, and below the folders theirs, by position.
QList<KXRef<KXFilterSetPreset>> children(KXManagedObjectContext &context, const KXRef<KXFilterSetPreset> &folder);

/// [{"path", "predicate", "count"}]: every preset that is no folder, in the order in which they are shown.
QJsonArray report(KXManagedObjectContext &context);
/// Why a track is in a preset or not: {"preset", "file", "matches", "letInBy", "keptOutBy", "base", "filters"}.
QJsonObject explain(const KXFilterSetPreset &preset, const Track &track);

} // namespace Presets
