#include "counts/RulePresets.h"

#include <cstdlib>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/filters/KXRangeFilter.h>

#include "peer/hand_rules.h"

using namespace Qt::StringLiterals;

namespace {

void addRange(const KXRef<KXFilterSet> &set, const QString &path, std::optional<double> from, std::optional<double> to,
    KXPredicateOperator upper = KXPredicateOperator::LessThan)
{
    const auto filter = KXRangeFilter::createInContext(*set->managedObjectContext());
    filter->setLocalValuePredicateKeyPath(path);
    if (from) {
        filter->setStartValue(KXDecimal::fromDouble(*from));
        filter->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
    }
    if (to) {
        filter->setEndValue(KXDecimal::fromDouble(*to));
        filter->setEndValueOperatorType(upper);
    }
    filter->setFilterSet(set);
}

void addGenres(const KXRef<KXFilterSet> &set, const hand::Rule &rule, const RulePresets::KeyPaths &paths)
{
    KXManagedObjectContext &context = *set->managedObjectContext();
    const auto facet = KXFacetFilter::createInContext(context);
    facet->setLocalValuePredicateKeyPath(paths.genre);
    if (paths.hasManyGenres)
        facet->setLocalValuePredicateModifier(rule.without ? KXPredicateModifier::All : KXPredicateModifier::Any);
    facet->setFilterSet(set);
    for (int genre = 0; genre < hand::Genres; ++genre) {
        if (!((rule.genres | rule.without) >> genre & 1))
            continue;
        const auto value = KXFacetFilterValue::createInContext(context);
        const QString name = QString::fromUtf8(hand::genreNames[genre]);
        value->setName(name);
        value->setValue(name);
        value->setOperatorType(rule.without ? KXPredicateOperator::NotEqual : KXPredicateOperator::Equal);
        value->setFilter(facet);
    }
}

KXRef<KXFilterSet> setOf(KXManagedObjectContext &context, const hand::Rule &rule, const RulePresets::KeyPaths &paths)
{
    const auto set = KXFilterSet::createInContext(context);
    if (rule.hasBpm)
        addRange(set, u"bpm"_s, rule.bpmFrom, rule.bpmTo);
    if (rule.hasYear)
        addRange(set, u"year"_s, double(rule.yearFrom), double(rule.yearTo));
    if (rule.hasRating)
        addRange(set, u"rating"_s, double(rule.ratingFrom), {});
    if (rule.hasPlays && !paths.plays.isEmpty())
        addRange(set, paths.plays, {}, double(rule.playsTo), KXPredicateOperator::LessThanOrEqual);
    if (rule.hasEnergy && !paths.energy.isEmpty())
        addRange(set, paths.energy, rule.energyFrom, {});
    if (rule.genres || rule.without)
        addGenres(set, rule, paths);
    return set;
}

}

void RulePresets::make(KXManagedObjectContext &context, const KeyPaths &paths)
{
    QList<KXRef<KXFilterSetPreset>> folders;
    for (int i = 0; i < hand::Folders; ++i) {
        folders.append(KXFilterSetPreset::createInContext(context));
        folders.last()->setTitle(u"Folder %1"_s.arg(i));
        folders.last()->setIsFolder(true);
        folders.last()->setPosition(i);
    }
    for (int i = 0; i < hand::Rules; ++i) {
        const auto preset = KXFilterSetPreset::createInContext(context);
        preset->setTitle(u"%1"_s.arg(i, 3, 10, QChar(u'0')));
        preset->setFilterSet(setOf(context, hand::rules[size_t(i)], paths));
        preset->setPosition(i);
        preset->setParent(folders[i % hand::Folders]);
    }
    if (!context.save())
        std::exit(1);
}
