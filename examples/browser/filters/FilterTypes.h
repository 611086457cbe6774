#pragma once

#include <kestrixkit/filter_ui/editors/KXFacetFilterValuesModel.h>
#include <kestrixkit/filters/KXFilter.h>
#include <kestrixkit/filters/KXFilterDefaultValue.h>
#include <kestrixkit/filters/KXRangeFilter.h>

#include "library/Library.h"

/// The kinds of filters that tracks can be filtered by.
namespace FilterTypes {

/// How a kind is edited.
enum class Editor { Range, Date, Choice, Text };

/// For the grid of types, in the order in which they are offered.
[[nodiscard]] QList<KXFilterTypeItem> items();
/// A new filter of the kind, with its name and key path; of nothing yet, so that every track fits. The track is the one
/// that plays, or is selected: "like this one" takes its values from it. Empty where the store takes no filter.
[[nodiscard]] KXRef<KXFilter> make(KXManagedObjectContext &context, qint64 tag, const KXRef<Track> &track);

[[nodiscard]] Editor editorOf(const KXFilter &filter);
/// What the filter's numbers are of: "bpm", "seconds".
[[nodiscard]] QString unitOf(const KXFilter &filter);
[[nodiscard]] bool isOfKeys(const KXFilter &filter);
[[nodiscard]] bool isOfTempos(const KXFilter &filter);
/// One of the values to choose from.
using Choice = KXFacetFilterValuesModel::Offer;
/// The library's values of what the filter asks for, by name; empty for what the grid does not offer.
[[nodiscard]] QList<Choice> choicesFor(KXManagedObjectContext &context, const KXFilter &filter);

void addValue(KXFacetFilter &filter, const Choice &choice);
void removeValues(KXFacetFilter &filter);

inline constexpr double tempoTolerance = 0.04; ///< of the tempo: what a pitch fader bridges without being heard
/// Asks for tempos within the tolerance.
void setTempoAround(KXRangeFilter &filter, double bpm);
/// The key itself, its neighbours on the wheel and its relative, as they are stored (Track::keyOrder()).
[[nodiscard]] QList<int> fittingKeys(int keyOrder);
/// Asks for the key itself, its neighbours on the wheel and its relative, in place of what was asked for.
void setFittingKeys(KXFacetFilter &filter, int keyOrder);
/// Of the wheel: "8A".
[[nodiscard]] QString keyCode(int keyOrder);

/// What a text filter compares with for a part of a text, whatever its case.
[[nodiscard]] QString patternOfText(const QString &part);

} // namespace FilterTypes
