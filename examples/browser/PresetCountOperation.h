#pragma once

#include <kestrixkit/filters/KXFilterSetPresetCountsProvider.h>

/// Counts the tracks of a preset by a query, in a context of its own.
class PresetCountOperation : public KXFilterSetPresetCountsProvider
{
public:
    using KXFilterSetPresetCountsProvider::KXFilterSetPresetCountsProvider;

protected:
    void loadCounts() override;
};
