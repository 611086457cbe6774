#include "places/PlaceFilters.h"

#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "library/OwnChange.h"

using namespace Qt::StringLiterals;

namespace {

constexpr double placePatience = 10; // seconds

QString placeUriText(const QUrl &uri) { return QString::fromLatin1(uri.toEncoded()); }

QString placeSetTitle(const QUrl &place, const KXRef<KXFilterSetPreset> &preset)
{
    return preset ? placeUriText(place) + u' ' + placeUriText(preset->objectID().URIRepresentation())
                  : placeUriText(place);
}

QUrl placeOfWorkingSet(const KXFilterSet &set) { return QUrl::fromEncoded(set.title().section(u' ', 0, 0).toLatin1()); }

bool placeObjectIsThere(const KXManagedObject *object)
{
    return object && object->managedObjectContext() && !object->isDeleted() && !object->isMissing();
}

} // namespace

PlaceFilters::PlaceFilters(KXManagedObjectContext::Ref context)
    : m_context(std::move(context))
{
    m_removing.start(placePatience, [this] { removeForgotten(); });
}

void PlaceFilters::removeForgotten()
{
    const OwnChange change(*m_context);
    const auto titled = KXPredicate::predicateWithFormat("title != nil");
    for (const auto &set : KXFilterSet::findUsingPredicate(titled, *m_context)) {
        const QUrl place = set ? placeOfWorkingSet(*set) : QUrl();
        if (place.isEmpty())
            continue;
        const auto of = m_context->objectInstancesFromURIRepresentations({ place });
        if (!of.isEmpty() && !placeObjectIsThere(of.first().get()))
            m_context->removeManagedObject(set);
    }
}

KXRef<KXFilterSet> PlaceFilters::find(const QUrl &place) const
{
    const QString uri = placeUriText(place);
    const auto ofPlace
        = KXPredicate::predicateWithFormat("title == %@ OR title BEGINSWITH %@", uri, QString(uri + u' '));
    return KXFilterSet::findFirstUsingPredicate(ofPlace, *m_context);
}

KXRef<KXFilterSet> PlaceFilters::setOfPlace(const QUrl &place)
{
    if (place.isEmpty())
        return {};
    if (const KXRef<KXFilterSet> set = find(place); placeObjectIsThere(set.get()))
        return set;
    const OwnChange change(*m_context);
    const KXRef<KXFilterSet> set = KXFilterSet::createInContext(*m_context);
    if (!set)
        return {};
    set->setTitle(placeSetTitle(place, {}));
    return set;
}

void PlaceFilters::adopt(const QUrl &place, const KXRef<KXFilterSet> &set, const KXRef<KXFilterSetPreset> &preset)
{
    if (!placeObjectIsThere(set.get()))
        return;
    const KXUndoRegistrationOff unrecorded(m_context->undoManager());
    if (const KXRef<KXFilterSet> before = find(place); before && before != set)
        m_context->removeManagedObject(before);
    set->setTitle(placeSetTitle(place, preset));
    m_context->save();
}

KXRef<KXFilterSetPreset> PlaceFilters::presetOfSet(const KXFilterSet &set) const
{
    const QString uri = set.title().section(u' ', 1, 1);
    const auto presets = m_context->objectInstancesFromURIRepresentations({ QUrl::fromEncoded(uri.toLatin1()) });
    const auto preset = presets.isEmpty() ? KXRef<KXFilterSetPreset>() : KXFilterSetPreset::cast(presets.first());
    return placeObjectIsThere(preset.get()) ? preset : KXRef<KXFilterSetPreset>();
}

void PlaceFilters::setPresetOfSet(const KXRef<KXFilterSet> &set, const KXRef<KXFilterSetPreset> &preset)
{
    if (!placeObjectIsThere(set.get()))
        return;
    const KXUndoRegistrationOff unrecorded(m_context->undoManager());
    set->setTitle(placeSetTitle(placeOfWorkingSet(*set), preset));
    m_context->save();
}

bool PlaceFilters::isChangedSince(const KXFilterSet &set, const KXFilterSetPreset &preset) const
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    const auto mapper = manager ? manager->filterSetMapperForApplicationContext(m_context) : nullptr;
    const KXRef<KXFilterSet> stored = preset.filterSet();
    if (!mapper || !placeObjectIsThere(stored.get()))
        return true;
    // What would be loaded, in a context that is never saved.
    const auto scratch = KXManagedObjectContext::contextWithParentContext(m_context);
    const KXRef<KXFilterSet> mapped = mapper->createInstanceByMappingFilterSet(stored, *scratch);
    return !mapped || !set.hasSameFiltersAs(*mapped);
}
