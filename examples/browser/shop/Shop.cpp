#include "shop/Shop.h"

#include <kestrixkit/catalogue/KXPostgreSQLDialect.h>

using namespace Qt::StringLiterals;

Shop::Shop(const KXCatalogueServers &servers)
    : catalogue(std::make_shared<KXPostgreSQLCatalogue>(servers, KXCatalogueSchema::standard()))
{
}

std::shared_ptr<const KXCatalogueFilterSetMapper> Shop::makeMapper()
{
    // A shop puts a track into one genre and sells it for one label.
    const QHash<QString, KXCatalogueFilterSetMapper::KeyPath> keyPaths { { u"bpm"_s, { u"bpm"_s } },
        { u"keyOrder"_s, { u"keyOrder"_s } }, { u"genres.name"_s, { u"genre"_s } },
        { u"artists.name"_s, { u"artists.name"_s, KXPredicateModifier::Any } }, { u"labels.name"_s, { u"label"_s } },
        { u"year"_s, { u"year"_s } }, { u"rating"_s, { u"rating"_s } }, { u"duration"_s, { u"duration"_s } },
        { u"added"_s, { u"released"_s } }, { u"comment"_s, { u"comment"_s } }, { u"location"_s, { u"file"_s } } };
    return std::make_shared<KXCatalogueFilterSetMapper>(
        std::make_shared<KXPostgreSQLDialect>(KXCatalogueSchema::standard()), keyPaths);
}
