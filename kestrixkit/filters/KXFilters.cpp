#include <kestrixkit/filters/KXFilters.h>

#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXCheck.h>

void KXFilters::registerEntities()
{
    KXFilter::registerEntity();
    KXRangeFilter::registerEntity();
    KXDateFilter::registerEntity();
    KXFacetFilter::registerEntity();
    KXFacetFilterValue::registerEntity();
    KXFilterSet::registerEntity();
    KXFilterSetPreset::registerEntity();
}

KXManagedObjectModel::Ref KXFilters::managedObjectModel()
{
    static const KXManagedObjectModel::Ref model = [] {
        KXError error;
        const auto merged = KXManagedObjectModel::mergedModelFromBundles({ &KXBundle::frameworkBundle() }, &error);
        KX_CHECK(merged, "The framework's object model cannot be read: %@", error.localizedDescription());
        return merged;
    }();
    return model;
}
