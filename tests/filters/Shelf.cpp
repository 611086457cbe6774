#include "filters/Shelf.h"

using namespace Qt::StringLiterals;
using Property = KXPropertyDescription;
using Type = KXAttributeType;

namespace {

KXManagedObjectModel::Ref shelfModel()
{
    static const KXManagedObjectModel::Ref model = [] {
        KXFilters::registerEntities();
        Thing::registerEntity();
        Mark::registerEntity();
        ColouredValue::registerEntity();
        // A host extends the framework's entities in C++, so it takes their descriptions over.
        QList<KXEntityDescription> entities {
            KXEntityDescription(u"Thing"_s)
                .add(Property::attribute(u"bpm"_s, Type::Double))
                .add(Property::attribute(u"added"_s, Type::Date))
                .add(Property::attribute(u"key"_s, Type::String))
                .add(Property::toMany(u"tags"_s, u"Mark"_s, u"things"_s)),
            KXEntityDescription(u"Mark"_s)
                .add(Property::attribute(u"name"_s, Type::String))
                .add(Property::toMany(u"things"_s, u"Thing"_s, u"tags"_s)),
            KXEntityDescription(u"ColouredValue"_s, u"KXFacetFilterValue"_s).resident(),
        };
        for (const KXEntityDescription *entity : KXFilters::managedObjectModel()->entities()) {
            KXEntityDescription own(entity->name(), entity->parentName());
            own.resident();
            for (qsizetype i = entity->parent() ? entity->parent()->properties().size() : 0;
                 i < entity->properties().size(); ++i)
                own.add(entity->properties()[i]);
            entities.append(own);
        }
        return KXManagedObjectModel::make(entities);
    }();
    return model;
}

}

Shelf::Shelf() { reopen(); }

void Shelf::reopen()
{
    if (context)
        context->save();
    context.reset();
    coordinator.reset();
    coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(path()), shelfModel());
    context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
}

KXRef<KXRangeFilter> Shelf::range(const QString &start, const QString &end)
{
    auto filter = make<KXRangeFilter>();
    filter->setLocalValuePredicateKeyPath(u"bpm"_s);
    filter->setStartValue(KXDecimal::fromString(start));
    filter->setEndValue(KXDecimal::fromString(end));
    filter->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
    filter->setEndValueOperatorType(KXPredicateOperator::LessThanOrEqual);
    return filter;
}

KXRef<KXFacetFilter> Shelf::facet(const QStringList &included, const QStringList &excluded, Paths paths)
{
    auto filter = make<KXFacetFilter>();
    filter->setLocalValuePredicateKeyPath(paths == ToOne ? u"key"_s : u"tags.name"_s);
    filter->setLocalValuePredicateModifier(paths == ToOne ? KXPredicateModifier::Direct : KXPredicateModifier::Any);
    const auto add = [&](const QString &name, KXPredicateOperator comparisonOperator) {
        auto value = make<KXFacetFilterValue>();
        value->setName(name);
        value->setValue(name);
        value->setOperatorType(comparisonOperator);
        filter->addToValues(value);
    };
    for (const QString &name : included)
        add(name, KXPredicateOperator::Equal);
    for (const QString &name : excluded)
        add(name, KXPredicateOperator::NotEqual);
    return filter;
}

KXRef<KXFilterSet> Shelf::set(const QList<KXRef<KXFilter>> &filters)
{
    auto set = make<KXFilterSet>();
    for (const KXRef<KXFilter> &filter : filters)
        set->addToFilters(filter);
    return set;
}

KXRef<KXFilterSetPreset> Shelf::preset(const QString &title, const KXRef<KXFilterSet> &set)
{
    auto preset = make<KXFilterSetPreset>();
    preset->setTitle(title);
    preset->setFilterSet(set);
    return preset;
}

KXRef<KXFilterSetPreset> Shelf::folderPreset(const QString &title, const QList<KXRef<KXFilterSetPreset>> &children)
{
    auto folder = preset(title);
    folder->setIsFolder(true);
    for (const KXRef<KXFilterSetPreset> &child : children)
        child->setParent(folder);
    return folder;
}
