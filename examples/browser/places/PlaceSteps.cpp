#include "places/PlaceSteps.h"

#include <QCoreApplication>
#include <QUrlQuery>

#include <kestrixkit/predicate/KXPredicate.h>

#include "filters/FilterTypes.h"
#include "search/LibrarySearch.h"

using namespace Qt::StringLiterals;

namespace {

QString stepText(const char *text) { return QCoreApplication::translate("PlaceSteps", text); }

KXRef<KXManagedObject> stepObject(const PlaceStep &step, KXManagedObjectContext &context)
{
    const QList<KXRef<KXManagedObject>> found = context.objectInstancesFromURIRepresentations({ step.object });
    const KXRef<KXManagedObject> object = found.value(0);
    if (!object || object->isDeleted() || object->isMissing())
        return {};
    const auto track = KXDynamicRefCast<Track>(object);
    const auto reached = PlaceSteps::to(*object);
    const bool fits = step.kind == PlaceStep::ToAlike ? bool(track) : reached && reached->kind == step.kind;
    return fits ? object : KXRef<KXManagedObject>();
}

KXPredicate tempoBetween(double from, double to)
{
    return KXPredicate::predicateWithFormat("bpm >= %@ AND bpm <= %@", QVariant(from), QVariant(to));
}

/// The same tempo, half of it or twice it, and a key beside its own on the wheel. What the track does not have, others
/// need not fit.
KXPredicate soundsAlike(const Track &track)
{
    QList<KXPredicate> parts { KXPredicate::predicateWithFormat("missing == FALSE") };
    if (const std::optional<double> bpm = track.bpm()) {
        QList<KXPredicate> tempos;
        for (const double factor : { 0.5, 1.0, 2.0 })
            tempos.append(tempoBetween(
                *bpm * factor * (1 - FilterTypes::tempoTolerance), *bpm * factor * (1 + FilterTypes::tempoTolerance)));
        parts.append(KXPredicate::orPredicate(tempos));
    }
    if (const std::optional<int> key = track.keyOrder()) {
        QVariantList fitting;
        for (const int order : FilterTypes::fittingKeys(*key))
            fitting.append(order);
        parts.append(KXPredicate::predicateWithFormat("keyOrder IN %@", fitting));
    }
    return KXPredicate::andPredicate(parts);
}

} // namespace

std::optional<PlaceStep> PlaceSteps::to(const KXManagedObject &object)
{
    const KXRef<KXManagedObject> held(const_cast<KXManagedObject *>(&object));
    const QUrl url = object.objectID().URIRepresentation();
    if (KXDynamicRefCast<Artist>(held))
        return PlaceStep { PlaceStep::ToArtist, url };
    if (KXDynamicRefCast<Album>(held))
        return PlaceStep { PlaceStep::ToAlbum, url };
    if (KXDynamicRefCast<Genre>(held))
        return PlaceStep { PlaceStep::ToGenre, url };
    if (KXDynamicRefCast<Label>(held))
        return PlaceStep { PlaceStep::ToLabel, url };
    return std::nullopt;
}

QList<PlaceStep> PlaceSteps::of(const Track &track)
{
    QList<PlaceStep> steps;
    const auto add = [&](auto related) { // in the order of their names
        std::sort(related.begin(), related.end(),
            [](const auto &a, const auto &b) { return LibrarySearch::titleOf(*a) < LibrarySearch::titleOf(*b); });
        for (const auto &object : related) {
            if (const auto step = object ? to(*object) : std::nullopt)
                steps.append(*step);
        }
    };
    add(track.artists());
    add(QList<KXRef<Album>> { track.album() });
    add(track.labels());
    add(track.genres());
    if (track.bpm() || track.keyOrder())
        steps.append({ PlaceStep::ToAlike, track.objectID().URIRepresentation() });
    return steps;
}

QString PlaceSteps::title(const PlaceStep &step, KXManagedObjectContext &context)
{
    const KXRef<KXManagedObject> object = stepObject(step, context);
    if (!object)
        return {};
    const QString name = LibrarySearch::titleOf(*object);
    const QString shown = name.isEmpty() ? stepText(QT_TRANSLATE_NOOP("PlaceSteps", "Untitled")) : name;
    return step.kind == PlaceStep::ToAlike ? stepText(QT_TRANSLATE_NOOP("PlaceSteps", "Sounds Like “%1”")).arg(shown)
                                           : shown;
}

QString PlaceSteps::commandTitle(const PlaceStep &step, KXManagedObjectContext &context)
{
    const QString name = title(step, context);
    switch (step.kind) {
    case PlaceStep::ToArtist:
        return stepText(QT_TRANSLATE_NOOP("PlaceSteps", "Artist “%1”")).arg(name);
    case PlaceStep::ToAlbum:
        return stepText(QT_TRANSLATE_NOOP("PlaceSteps", "Album “%1”")).arg(name);
    case PlaceStep::ToGenre:
        return stepText(QT_TRANSLATE_NOOP("PlaceSteps", "Genre “%1”")).arg(name);
    case PlaceStep::ToLabel:
        return stepText(QT_TRANSLATE_NOOP("PlaceSteps", "Label “%1”")).arg(name);
    case PlaceStep::ToAlike:
        break;
    }
    return stepText(QT_TRANSLATE_NOOP("PlaceSteps", "What Sounds Like This"));
}

KXPredicate PlaceSteps::predicate(const PlaceStep &step, KXManagedObjectContext &context)
{
    const KXRef<KXManagedObject> object = stepObject(step, context);
    if (!object)
        return KXPredicate::falsePredicate();
    const QVariant value = KXVariantFromRef(object);
    switch (step.kind) {
    case PlaceStep::ToArtist:
        return KXPredicate::predicateWithFormat("ANY artists == %@", value);
    case PlaceStep::ToAlbum:
        return KXPredicate::predicateWithFormat("album == %@", value);
    case PlaceStep::ToGenre:
        return KXPredicate::predicateWithFormat("ANY genres == %@", value);
    case PlaceStep::ToLabel:
        return KXPredicate::predicateWithFormat("ANY labels == %@", value);
    case PlaceStep::ToAlike:
        break;
    }
    return soundsAlike(*KXDynamicRefCast<Track>(object));
}

QUrl PlaceSteps::filtersURL(const PlaceStep &step)
{
    // A track's own address is no place; what sounds like it is.
    return step.kind == PlaceStep::ToAlike
        ? QUrl(u"browser:alike#"_s + QString::fromLatin1(step.object.toEncoded().toPercentEncoding()))
        : step.object;
}
