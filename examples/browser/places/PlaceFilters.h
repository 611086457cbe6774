#pragma once

#include <QUrl>

#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXDelayedCall.h>

/// The filters that the user is working with in each place of the library, kept in the library's store, so that they
/// are there again after a restart; and which preset they were loaded from.
///
/// A place is whatever the left side selects, named by its URI. Its set is titled with that URI and, behind a blank,
/// the preset's: sets of presets have no title. Nothing here is a step to undo.
class PlaceFilters
{
public:
    /// A while later it takes those away whose places have gone. Empty ones stay: the next start finds them, and has
    /// nothing to write before its window stands.
    explicit PlaceFilters(KXManagedObjectContext::Ref context);

    /// Made where there is none yet. Empty where the store takes none.
    [[nodiscard]] KXRef<KXFilterSet> setOfPlace(const QUrl &place);
    /// Makes that the place's set; the one before goes.
    void adopt(const QUrl &place, const KXRef<KXFilterSet> &set, const KXRef<KXFilterSetPreset> &preset);

    /// That the set was loaded from, or saved as; empty for none, and for one that has gone.
    [[nodiscard]] KXRef<KXFilterSetPreset> presetOfSet(const KXFilterSet &set) const;
    void setPresetOfSet(const KXRef<KXFilterSet> &set, const KXRef<KXFilterSetPreset> &preset);
    /// Whether the set differs from what loading the preset would bring.
    [[nodiscard]] bool isChangedSince(const KXFilterSet &set, const KXFilterSetPreset &preset) const;

private:
    [[nodiscard]] KXRef<KXFilterSet> find(const QUrl &place) const;
    void removeForgotten();

    const KXManagedObjectContext::Ref m_context;
    KXDelayedCall m_removing;
};
