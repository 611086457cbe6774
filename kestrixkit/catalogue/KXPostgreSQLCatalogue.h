#pragma once

#include <kestrixkit/catalogue/KXCatalogue.h>
#include <kestrixkit/catalogue/KXCatalogueServers.h>

class KXPostgreSQLCataloguePrivate;

/// A catalogue in PostgreSQL: one table, whole or split over several servers by whatever rule.
///
/// All parts are asked side by side: their counts are added, their pages merged by key. Where a server does not answer
/// in its share of the time limit, or its connection breaks, the next one that holds the same part is asked. Sessions
/// are read-only, end statements by themselves, and are kept for the next request. Main thread; the network has a
/// thread of its own, and destroying the catalogue does not wait for servers.
class KX_CATALOGUE_EXPORT KXPostgreSQLCatalogue : public KXCatalogue
{
public:
    /// Connects with the first request.
    KXPostgreSQLCatalogue(const KXCatalogueServers &servers, KXCatalogueSchema schema);
    ~KXPostgreSQLCatalogue() override;
    Q_DISABLE_COPY_MOVE(KXPostgreSQLCatalogue)

    [[nodiscard]] const KXCatalogueSchema &schema() const override;
    [[nodiscard]] const KXCatalogueDialect &dialect() const override;
    [[nodiscard]] KXCatalogueTicket count(const KXCatalogueCountRequest &request, CountsAnswer answer) override;
    [[nodiscard]] KXCatalogueTicket estimate(const KXCatalogueCountRequest &request, CountsAnswer answer) override;
    [[nodiscard]] KXCatalogueTicket values(const KXCatalogueValuesRequest &request, ValuesAnswer answer) override;
    [[nodiscard]] KXCatalogueTicket page(const KXCataloguePageRequest &request, PageAnswer answer) override;

    /// The share of the rows that estimates look at, above 0 to 1; 1/64 unless set.
    void setSampleShare(double share);

private:
    std::shared_ptr<KXPostgreSQLCataloguePrivate> d;
};
