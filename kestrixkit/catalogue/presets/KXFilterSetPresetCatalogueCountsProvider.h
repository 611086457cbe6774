#pragma once

#include <kestrixkit/catalogue/KXCatalogue.h>
#include <kestrixkit/catalogue/presets/KXCatalogueCountsCache.h>
#include <kestrixkit/filters/KXFilterSetPresetCountsProvider.h>

/// Counts what one preset matches in a remote catalogue: what a host gives to KXFilterSetPresetCountsScheduler for the
/// place that shows the catalogue, with basePredicates() and the place's mapper.
///
/// A count that is known and young enough is not asked for again; presets get it with the time at which the catalogue
/// gave it. A preset that cannot be mapped, and one whose count
/// some part of the catalogue did not give, keeps the number that it has: error() says why. After a failure to reach
/// the catalogue the presets that follow do not try for a while.
///
/// Made and configured on the main thread; see KXFilterSetPresetCountsProvider. The operation's thread waits for the
/// answer, cancelling wakes it.
class KX_CATALOGUE_EXPORT KXFilterSetPresetCatalogueCountsProvider : public KXFilterSetPresetCountsProvider
{
public:
    /// The catalogue is asked on the main thread, and may be gone by then.
    KXFilterSetPresetCatalogueCountsProvider(KXRef<KXFilterSetPreset> preset, QString contextIdentifier,
        std::weak_ptr<KXCatalogue> catalogue, std::shared_ptr<KXCatalogueCountsCache> cache);

    static constexpr double Young = 60; ///< seconds for which a count is not asked for again
    static constexpr double Pause = 10; ///< seconds after the catalogue could not be reached
    static constexpr double TimeLimit = 15; ///< seconds for one answer

protected:
    void loadCounts() override;

private:
    [[nodiscard]] KXError refusal(const KXRef<KXFilterSet> &set) const;
    [[nodiscard]] KXPredicate rule(const KXRef<KXFilterSet> &set) const;
    [[nodiscard]] std::optional<KXCatalogueCounts> ask(const KXPredicate &rule);

    const std::weak_ptr<KXCatalogue> m_catalogue;
    const std::shared_ptr<KXCatalogueCountsCache> m_cache;
};
