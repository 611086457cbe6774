#pragma once

#include <kestrixkit/filters/KXFilterSetMapper.h>

/// Maps presets into the library: filters whose key paths lead to something that tracks have.
class PresetMapper : public KXFilterSetMapper
{
public:
    /// Whether every enabled filter makes sense for tracks. Not for an empty set, which would be all tracks.
    [[nodiscard]] bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override;
    /// A copy with those filters that make sense.
    [[nodiscard]] KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override;
};
