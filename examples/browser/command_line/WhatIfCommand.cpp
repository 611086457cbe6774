#include "command_line/WhatIfCommand.h"

#include <algorithm>

#include <QJsonArray>

#include <kestrixkit/filters/KXFilterSetWhatIfCounts.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include "filters/Presets.h"
#include "library/Library.h"

using namespace Qt::StringLiterals;

namespace {

struct BrowserFacet
{
    QLatin1StringView keyPath;
    KXPredicateModifier modifier;
};

// What tracks can be told apart by, one value at a time.
constexpr BrowserFacet browserFacets[] = {
    { "genres.name"_L1, KXPredicateModifier::Any },
    { "artists.name"_L1, KXPredicateModifier::Any },
    { "labels.name"_L1, KXPredicateModifier::Any },
    { "album.title"_L1, KXPredicateModifier::Direct },
    { "key.name"_L1, KXPredicateModifier::Direct },
    { "key.number"_L1, KXPredicateModifier::Direct },
    { "key.isMinor"_L1, KXPredicateModifier::Direct },
    { "year"_L1, KXPredicateModifier::Direct },
    { "rating"_L1, KXPredicateModifier::Direct },
    { "bpm"_L1, KXPredicateModifier::Direct },
    { "channels"_L1, KXPredicateModifier::Direct },
    { "comment"_L1, KXPredicateModifier::Direct },
};

const KXEntityDescription *entityBehind(const QString &keyPath)
{
    const KXEntityDescription *tracks = Library::model()->entity(QString(Track::entityName));
    const KXPropertyDescription *first = tracks->property(keyPath.section(u'.', 0, 0));
    return first->isRelationship() ? first->destinationEntity() : tracks;
}

/// What there is behind each facet's key path, each value once, sorted. Every entity is read through once.
QMap<QString, QVariantList> allValues(KXManagedObjectContext &context)
{
    QMap<const KXEntityDescription *, QStringList> paths;
    for (const BrowserFacet &facet : browserFacets)
        paths[entityBehind(QString(facet.keyPath))].append(QString(facet.keyPath));
    QMap<QString, QVariantList> all;
    for (auto entity = paths.cbegin(); entity != paths.cend(); ++entity) {
        const auto request = KXFetchRequest(entity.key()->name()).setFetchBatchSize(1000);
        for (const KXRef<KXManagedObject> &object : context.fetch(request)) {
            for (const QString &path : *entity) {
                const QVariant value = object->valueForKey(path.section(u'.', -1));
                if (value.isValid() && !value.isNull())
                    all[path].append(value);
            }
        }
    }
    for (QVariantList &values : all) {
        std::sort(values.begin(), values.end(),
            [](const QVariant &a, const QVariant &b) { return QVariant::compare(a, b) == QPartialOrdering::Less; });
        values.erase(std::unique(values.begin(), values.end()), values.end());
    }
    return all;
}

} // namespace

QJsonObject WhatIfCommand::answer(const KXFilterSetPreset &preset, KXError *error)
{
    const KXManagedObjectContext::Ref context = preset.managedObjectContext()->shared_from_this();
    KXLiveCounts live(context, QString(Track::entityName), { Presets::base() });
    KXFilterSetWhatIfCounts counts(live);
    counts.setFilterSet(preset.filterSet());
    const QMap<QString, QVariantList> offered = allValues(*context);
    for (const BrowserFacet &facet : browserFacets)
        counts.setFacet(QString(facet.keyPath), offered.value(QString(facet.keyPath)), facet.modifier);
    if (!counts.update(error))
        return {};
    QJsonArray facets;
    for (const BrowserFacet &facet : browserFacets) {
        const QString keyPath(facet.keyPath);
        const QVariantList values = offered.value(keyPath);
        const QList<KXWhatIfCounts::ValueCounts> numbers = counts.valueCounts(keyPath);
        const auto query = [&](const QVariant &value, KXPredicateOperator comparisonOperator) {
            return counts.predicateWithValue(keyPath, value, comparisonOperator).predicateFormat();
        };
        QJsonArray answers;
        for (qsizetype i = 0; i < values.size() && i < numbers.size(); ++i) {
            answers.append(QJsonObject { { u"value"_s, QJsonValue::fromVariant(values[i]) },
                { u"added"_s, numbers[i].added }, { u"excluded"_s, numbers[i].excluded },
                { u"addedQuery"_s, query(values[i], KXPredicateOperator::Equal) },
                { u"excludedQuery"_s, query(values[i], KXPredicateOperator::NotEqual) } });
        }
        facets.append(QJsonObject { { u"key"_s, keyPath }, { u"values"_s, answers } });
    }
    return { { u"preset"_s, Presets::path(preset) }, { u"count"_s, counts.count().value_or(-1) },
        { u"facets"_s, facets } };
}
