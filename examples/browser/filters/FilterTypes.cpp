#include "filters/FilterTypes.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <kestrixkit/filters/KXDateFilter.h>
#include <kestrixkit/filters/KXFacetFilter.h>

#include "tags/TagValues.h"

using namespace Qt::StringLiterals;

namespace {

enum FilterTag : qint64 {
    Tempo,
    KeyOfWheel,
    GenreNames,
    ArtistNames,
    LabelNames,
    Year,
    Rating,
    Length,
    Added,
    Comment,
    Kind,
    LikeTempo,
    LikeKey
};

using FilterEditor = FilterTypes::Editor;

struct FilterType
{
    FilterTag tag;
    const char *name;
    const char16_t *keyPath;
    FilterEditor editor;
    KXPredicateModifier modifier = KXPredicateModifier::Direct;
};

const FilterType filterTypes[] = {
    { Tempo, QT_TRANSLATE_NOOP("FilterTypes", "Tempo"), u"bpm", FilterTypes::Editor::Range },
    { KeyOfWheel, QT_TRANSLATE_NOOP("FilterTypes", "Key"), u"keyOrder", FilterTypes::Editor::Choice },
    { GenreNames, QT_TRANSLATE_NOOP("FilterTypes", "Genre"), u"genres.name", FilterTypes::Editor::Choice,
        KXPredicateModifier::Any },
    { ArtistNames, QT_TRANSLATE_NOOP("FilterTypes", "Artist"), u"artists.name", FilterTypes::Editor::Choice,
        KXPredicateModifier::Any },
    { LabelNames, QT_TRANSLATE_NOOP("FilterTypes", "Label"), u"labels.name", FilterTypes::Editor::Choice,
        KXPredicateModifier::Any },
    { Year, QT_TRANSLATE_NOOP("FilterTypes", "Year"), u"year", FilterTypes::Editor::Range },
    { Rating, QT_TRANSLATE_NOOP("FilterTypes", "Rating"), u"rating", FilterTypes::Editor::Range },
    { Length, QT_TRANSLATE_NOOP("FilterTypes", "Length"), u"duration", FilterTypes::Editor::Range },
    { Added, QT_TRANSLATE_NOOP("FilterTypes", "Added"), u"added", FilterTypes::Editor::Date },
    { Comment, QT_TRANSLATE_NOOP("FilterTypes", "Comment"), u"comment", FilterTypes::Editor::Text },
    { Kind, QT_TRANSLATE_NOOP("FilterTypes", "File Kind"), u"location", FilterTypes::Editor::Choice },
    // These two are made of the track at hand, and are the first two from then on.
    { LikeTempo, QT_TRANSLATE_NOOP("FilterTypes", "Same Tempo"), u"bpm", FilterTypes::Editor::Range },
    { LikeKey, QT_TRANSLATE_NOOP("FilterTypes", "Fitting Key"), u"keyOrder", FilterTypes::Editor::Choice },
};

QString filterTypeText(const char *text) { return QCoreApplication::translate("FilterTypes", text); }

const FilterType *filterTypeOf(const KXFilter &filter)
{
    const QString keyPath = filter.localValuePredicateKeyPath().value_or(QString());
    const auto *const found = std::find_if(std::begin(filterTypes), std::end(filterTypes),
        [&](const FilterType &type) { return keyPath == type.keyPath; });
    return found == std::end(filterTypes) ? nullptr : found;
}

MusicalKey keyOfOrder(int order) { return { order / 2, order % 2 == 0 }; }

FilterTypes::Choice keyChoice(int order)
{
    const MusicalKey key = keyOfOrder(order);
    return { u"%1 · %2"_s.arg(key.wheelCode(), key.name()), order };
}

FilterTypes::Choice kindChoice(const QString &name, const QString &extensions)
{
    return { name, u"(?is).*\\.(%1)"_s.arg(extensions), {}, KXPredicateOperator::Matches };
}

template <class Named> QList<FilterTypes::Choice> namesOf(KXManagedObjectContext &context)
{
    QList<FilterTypes::Choice> choices;
    KXFetchRequest all { QString(Named::entityName), KXPredicate() };
    all.setSortDescriptors({ { u"name"_s, true, KXCaseInsensitive | KXDiacriticInsensitive } });
    for (const KXRef<KXManagedObject> &object : context.fetch(all)) {
        const QString name = Named::cast(object)->name();
        choices.append({ name, name });
    }
    return choices;
}

} // namespace

QList<KXFilterTypeItem> FilterTypes::items()
{
    QList<KXFilterTypeItem> items;
    for (const FilterType &type : filterTypes)
        items.append({ filterTypeText(type.name), type.tag });
    return items;
}

KXRef<KXFilter> FilterTypes::make(KXManagedObjectContext &context, qint64 tag, const KXRef<Track> &track)
{
    const auto *const type = std::find_if(
        std::begin(filterTypes), std::end(filterTypes), [tag](const FilterType &one) { return one.tag == tag; });
    if (type == std::end(filterTypes))
        return {};
    KXRef<KXFilter> filter;
    if (type->editor == FilterTypes::Editor::Range) {
        const auto range = KXRangeFilter::createInContext(context);
        if (!range)
            return {};
        range->setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
        range->setEndValueOperatorType(KXPredicateOperator::LessThanOrEqual);
        const auto bpm = track ? track->bpm() : std::nullopt;
        if (type->tag == LikeTempo && bpm)
            setTempoAround(*range, *bpm);
        filter = range;
    } else if (type->editor == FilterTypes::Editor::Date) {
        filter = KXDateFilter::createInContext(context);
    } else {
        const auto facet = KXFacetFilter::createInContext(context);
        const auto order = track ? track->keyOrder() : std::nullopt;
        if (facet && type->tag == LikeKey && order)
            setFittingKeys(*facet, *order);
        filter = facet;
    }
    if (!filter)
        return {};
    filter->setLocalValuePredicateKeyPath(QString::fromUtf16(type->keyPath));
    filter->setLocalValuePredicateModifier(type->modifier);
    filter->setName(filterTypeText(filterTypeOf(*filter)->name)); // of "like this one" the plain kind's
    return filter;
}

FilterTypes::Editor FilterTypes::editorOf(const KXFilter &filter)
{
    const FilterType *const type = filterTypeOf(filter);
    if (dynamic_cast<const KXRangeFilter *>(&filter))
        return FilterTypes::Editor::Range;
    if (dynamic_cast<const KXDateFilter *>(&filter))
        return FilterTypes::Editor::Date;
    return type && type->editor == FilterTypes::Editor::Text ? FilterTypes::Editor::Text : FilterTypes::Editor::Choice;
}

QString FilterTypes::unitOf(const KXFilter &filter)
{
    const FilterType *const type = filterTypeOf(filter);
    const int tag = type ? int(type->tag) : -1;
    return tag == Tempo ? filterTypeText(QT_TRANSLATE_NOOP("FilterTypes", "bpm"))
        : tag == Length ? filterTypeText(QT_TRANSLATE_NOOP("FilterTypes", "seconds"))
        : tag == Rating ? filterTypeText(QT_TRANSLATE_NOOP("FilterTypes", "stars"))
                        : QString();
}

QList<FilterTypes::Choice> FilterTypes::choicesFor(KXManagedObjectContext &context, const KXFilter &filter)
{
    const FilterType *const type = filterTypeOf(filter);
    QList<Choice> choices;
    switch (type ? type->tag : Tempo) {
    case KeyOfWheel:
        for (int order = 2; order <= 25; ++order)
            choices.append(keyChoice(order));
        break;
    case GenreNames:
        return namesOf<Genre>(context);
    case ArtistNames:
        return namesOf<Artist>(context);
    case LabelNames:
        return namesOf<Label>(context);
    case Kind:
        return { kindChoice(u"AAC / M4A"_s, u"m4a|aac|mp4"_s), kindChoice(u"AIFF"_s, u"aiff?|aifc"_s),
            kindChoice(u"FLAC"_s, u"flac"_s), kindChoice(u"MP3"_s, u"mp3"_s), kindChoice(u"Ogg"_s, u"ogg|oga|opus"_s),
            kindChoice(u"WAV"_s, u"wav"_s) };
    default: // presets may ask for more than the grid offers; the editor offers what they hold
        break;
    }
    return choices;
}

bool FilterTypes::isOfKeys(const KXFilter &filter)
{
    const FilterType *const type = filterTypeOf(filter);
    return type && type->tag == KeyOfWheel;
}

bool FilterTypes::isOfTempos(const KXFilter &filter)
{
    const FilterType *const type = filterTypeOf(filter);
    return type && type->tag == Tempo;
}

void FilterTypes::addValue(KXFacetFilter &filter, const Choice &choice)
{
    const auto value = KXFacetFilterValue::createInContext(*filter.managedObjectContext());
    if (!value)
        return;
    value->setName(choice.name);
    value->setValue(choice.value);
    value->setOperatorType(choice.included);
    filter.addToValues(value);
}

void FilterTypes::removeValues(KXFacetFilter &filter)
{
    for (const auto &value : filter.values())
        filter.managedObjectContext()->removeManagedObject(value);
}

void FilterTypes::setTempoAround(KXRangeFilter &filter, double bpm)
{
    const auto tenth = [](double value) { return KXDecimal::fromDouble(std::round(value * 10) / 10); };
    filter.setStartValueOperatorType(KXPredicateOperator::GreaterThanOrEqual);
    filter.setEndValueOperatorType(KXPredicateOperator::LessThanOrEqual);
    filter.setStartValue(tenth(bpm * (1 - tempoTolerance)));
    filter.setEndValue(tenth(bpm * (1 + tempoTolerance)));
}

QList<int> FilterTypes::fittingKeys(int keyOrder)
{
    const int number = keyOrder / 2, mode = keyOrder % 2;
    return { 2 * ((number + 10) % 12 + 1) + mode, keyOrder, 2 * (number % 12 + 1) + mode, 2 * number + 1 - mode };
}

void FilterTypes::setFittingKeys(KXFacetFilter &filter, int keyOrder)
{
    removeValues(filter);
    for (const int order : fittingKeys(keyOrder))
        addValue(filter, keyChoice(order));
}

QString FilterTypes::keyCode(int keyOrder) { return keyOfOrder(keyOrder).wheelCode(); }

QString FilterTypes::patternOfText(const QString &part)
{
    return u"(?is).*%1.*"_s.arg(QRegularExpression::escape(part));
}
