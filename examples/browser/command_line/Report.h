#pragma once

#include <QJsonObject>

#include "import/Importer.h"

/// Answers about a library as JSON, for programs that start the browser without its window.
namespace Report {

/// {"tracks", "skipped", "genres", "notes", "presets", "store"}: tracks whose files are there, files that are none with
/// the reason, the number of tracks of each genre, what made no sense in the tags, and each preset with its predicate
/// and count. It depends on the music and the store alone, not on what was imported just now, but for presets by date.
QJsonObject ofLibrary(
    KXManagedObjectContext &context, const ImportResult &result, const std::string &folder, const QString &store);

/// What in a predicate the library's tracks do not have; empty where it can be counted.
QString unknownName(const KXPredicate &predicate);

/// {"count"}: the tracks that match.
QJsonObject ofQuery(KXManagedObjectContext &context, const KXPredicate &predicate, KXError *error);

} // namespace Report
