/// The 500 rules of hand_rules.h as presets in 40 folders, for libraries that call their tracks' properties by names of
/// their own.
#pragma once

#include <kestrixkit/context/KXManagedObjectContext.h>

namespace RulePresets {

/// Key paths of a track; rules leave out what has none.
struct KeyPaths
{
    QString genre;
    bool hasManyGenres; ///< or one
    QString plays, energy;
};

/// Saves them, each with the number of its rule as its title; ends the process where that fails.
void make(KXManagedObjectContext &context, const KeyPaths &paths);

}
