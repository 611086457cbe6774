#pragma once

#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXError.h>

/// How a filter set becomes a preset. Main thread.
namespace KXFilterSetPresetSaving {

/// A preset of that title with a copy of the set, saved without a step to undo.
///
/// It goes last into `selected` if that is a folder; takes the place of `selected`, its last-loaded date too, where it
/// overwrites it; else goes last at the top. The set may be of any context, and may be the overwritten preset's own.
/// The old preset goes only after the new one is safe: where the store takes no more, nothing is lost and nothing
/// changes. Empty then, with an error; empty without one where there is nothing to save. What has gone meanwhile (a
/// folder, the preset to be overwritten) is treated as if nothing were selected.
KX_UI_EXPORT KXRef<KXFilterSetPreset> save(const KXManagedObjectContext::Ref &context, const KXRef<KXFilterSet> &set,
    const QString &title, const KXRef<KXFilterSetPreset> &selected, bool overwrites, KXError *error = nullptr);

}
