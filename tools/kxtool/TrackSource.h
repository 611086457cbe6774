/// Where the tracks that are loaded into a catalogue come from.
#pragma once

#include <functional>

#include <QVariantList>

class KXCatalogueSchema;

/// A track on its way into a catalogue.
struct SourceTrack
{
    QVariantList values = {}; ///< in the order of the schema's columns
    QString name = {}; ///< by which its source knows it, such as "line 12"
    QString problem = {}; ///< why it is to be left out; empty for one that is loaded
};

/// Gives the next track; false after the last one.
using TrackSource = std::function<bool(SourceTrack &track)>;

namespace TrackSources {

/// Made-up tracks, the same ones each time: few genres with many of them, releases over a quarter of a century.
[[nodiscard]] TrackSource synthetic(const KXCatalogueSchema &schema, qint64 count);
/// A table whose first line names key paths; lists have their elements separated by "|", dates are as ISO 8601 has
/// them. What it has no column for is absent; without "id" tracks are numbered. A line with more or fewer cells than
/// the first, and one whose "id" was there before, has a problem. Columns that the schema does not know are named on
/// standard error and left out. Throws an Ending for what is no table.
[[nodiscard]] TrackSource table(const KXCatalogueSchema &schema, const QString &path);
/// The tracks of a library's store. Throws an Ending for what is none.
[[nodiscard]] TrackSource library(const KXCatalogueSchema &schema, const QString &path);

} // namespace TrackSources
