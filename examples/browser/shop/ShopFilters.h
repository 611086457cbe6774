#pragma once

#include "filters/FilterStrip.h"
#include "filters/FilterTypes.h"
#include "shop/Shop.h"

/// The filters of the shop's tracks: those of the library, with the shop's key paths.
class ShopFilters : public TrackFilters
{
    Q_OBJECT
public:
    ShopFilters(KXManagedObjectContext::Ref context, std::shared_ptr<const KXCatalogueFilterSetMapper> mapper,
        QObject *parent = nullptr);

    void addFilterOfType(const KXFilterTypeItem &type) override;
    using TrackFilters::addFilterOfType;
    /// Puts a value into the facet of that key path of the library's, or takes it out again. The facet is made where
    /// there is none.
    void toggleValue(const QString &keyPath, const QString &name, const FilterTypes::Choice &choice);
    /// What the filters ask the shop for; absent where they ask for nothing.
    [[nodiscard]] KXPredicate remotePredicate() const;

private:
    void insert(const KXRef<KXFilter> &filter);

    const std::shared_ptr<const KXCatalogueFilterSetMapper> m_mapper;
};
