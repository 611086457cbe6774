#pragma once

#include <memory>

#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>
#include <kestrixkit/catalogue/presets/KXCatalogueCountsCache.h>
#include <kestrixkit/catalogue/presets/KXCatalogueFilterSetMapper.h>

/// The shop: its catalogue, what it calls what the library calls otherwise, and what was counted there.
struct Shop
{
    explicit Shop(const KXCatalogueServers &servers);

    /// What counts of presets are kept under.
    static constexpr QLatin1StringView contextIdentifier { "shop" };
    [[nodiscard]] static std::shared_ptr<const KXCatalogueFilterSetMapper> makeMapper();

    std::shared_ptr<KXPostgreSQLCatalogue> catalogue;
    std::shared_ptr<const KXCatalogueFilterSetMapper> mapper = makeMapper();
    std::shared_ptr<KXCatalogueCountsCache> counts = std::make_shared<KXCatalogueCountsCache>();
};
