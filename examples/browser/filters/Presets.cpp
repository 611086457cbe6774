#include "filters/Presets.h"

#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetExplanation.h>

#include "import/Scanner.h"

using namespace Qt::StringLiterals;

namespace {

QJsonArray labels(const QList<KXRef<KXFilter>> &filters)
{
    QJsonArray labels;
    for (const KXRef<KXFilter> &filter : filters)
        labels.append(filter->label());
    return labels;
}

QJsonArray formats(const QList<KXPredicate> &predicates)
{
    QJsonArray formats;
    for (const KXPredicate &predicate : predicates)
        formats.append(predicate.predicateFormat());
    return formats;
}

// Dates as texts, lists as lists; JSON has the rest.
QJsonValue jsonValue(const QVariant &value)
{
    if (value.typeId() == QMetaType::QDateTime)
        return value.toDateTime().toString(Qt::ISODateWithMs);
    if (value.typeId() != QMetaType::QVariantList)
        return QJsonValue::fromVariant(value);
    QJsonArray list;
    for (const QVariant &element : value.toList())
        list.append(jsonValue(element));
    return list;
}

QJsonObject verdictOf(const KXFilterSetExplanation::Verdict &verdict)
{
    QJsonArray conditions;
    for (const auto &part : verdict.parts) {
        QJsonObject condition { { u"predicate"_s, part.predicate.predicateFormat() }, { u"matches"_s, part.matches } };
        if (part.predicate.type() == KXPredicateType::Or)
            condition.insert(u"matching"_s, formats(part.matching));
        conditions.append(condition);
    }
    QJsonObject values;
    for (auto entry = verdict.values.cbegin(); entry != verdict.values.cend(); ++entry)
        values.insert(entry.key(), jsonValue(entry.value()));
    return { { u"name"_s, verdict.filter->name().value_or(QString()) }, { u"label"_s, verdict.filter->label() },
        { u"takesPart"_s, verdict.takesPart }, { u"matches"_s, verdict.matches }, { u"values"_s, values },
        { u"conditions"_s, conditions } };
}

void reportChildren(const KXLivePresetCounts &counts, const KXRef<KXFilterSetPreset> &folder, QJsonArray &presets)
{
    for (const KXRef<KXFilterSetPreset> &preset :
        Presets::children(*counts.liveCounts().managedObjectContext(), folder)) {
        if (preset->isFolder()) {
            reportChildren(counts, preset, presets);
            continue;
        }
        const KXPredicate own = counts.liveCounts().predicate(KXLivePresetCounts::identifierOf(*preset));
        presets.append(QJsonObject { { u"path"_s, Presets::path(*preset) },
            { u"predicate"_s, KXPredicate::andPredicate({ Presets::base(), own }).predicateFormat() },
            { u"count"_s, counts.count(*preset).value_or(-1) } });
    }
}

} // namespace

KXPredicate Presets::base() { return KXPredicate::predicateWithFormat("missing == FALSE"); }

KXLivePresetCounts::Place Presets::place(
    const KXManagedObjectContext::Ref &context, std::shared_ptr<const KXFilterSetMapper> mapper)
{
    return { context, QString(Track::entityName), QString(contextIdentifier), { base() }, std::move(mapper) };
}

KXPredicate Presets::predicate(const KXRef<KXFilterSet> &set)
{
    if (!set || set->isMissing() || set->isDeleted())
        return KXPredicate::falsePredicate();
    return KXPredicate::andPredicate({ base(), set->representedLocalPredicateWithKeyPath() });
}

QString Presets::path(const KXFilterSetPreset &preset)
{
    QStringList titles { preset.title() };
    for (KXRef<KXFilterSetPreset> folder = preset.parent(); folder && titles.size() < 100; folder = folder->parent())
        titles.prepend(folder->title());
    return titles.join(u'/');
}

KXRef<KXFilterSetPreset> Presets::find(KXManagedObjectContext &context, const QString &path)
{
    for (const auto &preset : KXFilterSetPreset::findAllInContext(context)) {
        if (preset && !preset->isFolder() && Presets::path(*preset) == path)
            return preset;
    }
    return {};
}

QList<KXRef<KXFilterSetPreset>> Presets::children(
    KXManagedObjectContext &context, const KXRef<KXFilterSetPreset> &folder)
{
    const auto ofFolder = KXFetchRequest(
        QString(KXFilterSetPreset::entityName), KXPredicate::predicateWithFormat("parent == %@", folder))
                              .setSortDescriptors({ { u"position"_s } });
    QList<KXRef<KXFilterSetPreset>> presets;
    for (const KXRef<KXManagedObject> &object : context.fetch(ofFolder))
        presets.append(KXFilterSetPreset::cast(object));
    return presets;
}

QJsonArray Presets::report(KXManagedObjectContext &context)
{
    KXLivePresetCounts counts(context.shared_from_this(), place(context.shared_from_this()));
    counts.update();
    QJsonArray presets;
    reportChildren(counts, {}, presets);
    return presets;
}

QJsonObject Presets::explain(const KXFilterSetPreset &preset, const Track &track)
{
    const bool isThere = base().evaluateWithObject(&track);
    QJsonObject json { { u"preset"_s, path(preset) },
        { u"file"_s, QString::fromStdString(pathOfUrl(track.location())) },
        { u"base"_s, QJsonObject { { u"predicate"_s, base().predicateFormat() }, { u"matches"_s, isThere } } } };
    const KXRef<KXFilterSet> set = preset.filterSet();
    if (!set || set->isMissing()) {
        json.insert(u"matches"_s, false);
        return json;
    }
    const auto explanation = KXFilterSetExplanation::explain(*set, &track);
    QJsonArray filters;
    for (const auto &verdict : explanation.verdicts())
        filters.append(verdictOf(verdict));
    json.insert(u"matches"_s, isThere && explanation.matches());
    json.insert(u"letInBy"_s, labels(explanation.lettingIn()));
    json.insert(u"keptOutBy"_s, labels(explanation.keepingOut()));
    json.insert(u"filters"_s, filters);
    return json;
}
