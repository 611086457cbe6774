#pragma once

#include <QJsonObject>

#include <kestrixkit/filters/KXFilterSetPreset.h>

/// What every value of the library would make of a preset, as JSON.
namespace WhatIfCommand {

/// {"preset", "count", "facets": [{"key", "values": [{"value", "added", "excluded", "addedQuery", "excludedQuery"}]}]}:
/// for each facet of the browser all values that tracks have there, sorted. The counts are those of the preset's filter
/// set with the value asked for, or kept out; the queries are texts that count to the same numbers.
QJsonObject answer(const KXFilterSetPreset &preset, KXError *error);

} // namespace WhatIfCommand
