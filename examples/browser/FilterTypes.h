#pragma once

#include <kestrixkit/filters/KXFilter.h>
#include <kestrixkit/filters/KXFilterDefaultValue.h>

#include "Library.h"

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
/// One of the values to choose from.
struct Choice
{
    QString name;
    QVariant value;
    KXPredicateOperator included = KXPredicateOperator::Equal; ///< how it is compared when it is wanted
};
/// The library's values of what the filter asks for, by name.
[[nodiscard]] QList<Choice> choicesFor(KXManagedObjectContext &context, const KXFilter &filter);

/// What a text filter compares with for a part of a text, whatever its case.
[[nodiscard]] QString patternOfText(const QString &part);

} // namespace FilterTypes
