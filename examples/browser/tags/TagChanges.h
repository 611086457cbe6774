#pragma once

#include <string>

#include <QMap>
#include <QStringList>

#include "tags/TrackTags.h"

/// New values of a file's tags by their names, as "ARTIST"; a name without values goes.
using TagChanges = QMap<QString, QStringList>;

/// Writes tags into the file itself, and reads it again: the refusal says why it could not be written. Not for a file
/// that somebody wants to keep if this fails or is ended: TagWriter works on a copy. Any thread.
TagReading changeTags(const std::string &path, const TagChanges &changes);
