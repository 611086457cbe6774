#pragma once

#include <kestrixkit/filters/KXFilterSet.h>

/// Translates filter sets of presets into sets that one area of the application can use: the host writes one for each
/// application context and registers it with KXFilterSetPresetsManager.
///
/// Shared and not changed after it was registered. Counting operations may use it on their own thread, with objects of
/// their own context.
class KX_CORE_EXPORT KXFilterSetMapper
{
public:
    virtual ~KXFilterSetMapper();

    /// Whether the set, which may be empty, can be translated.
    [[nodiscard]] virtual bool canMapFilterSet(const KXRef<KXFilterSet> &set) const = 0;
    /// Makes an equivalent set in the context, which the caller saves; empty where it cannot.
    [[nodiscard]] virtual KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const = 0;
};
