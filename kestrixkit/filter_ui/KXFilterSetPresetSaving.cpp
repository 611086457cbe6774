#include <kestrixkit/filter_ui/KXFilterSetPresetSaving.h>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXUndoManager.h>

namespace {

using SavedPreset = KXRef<KXFilterSetPreset>;

bool savedIsThere(const KXManagedObject *object)
{
    return object && object->managedObjectContext() && !object->isDeleted() && !object->isMissing();
}

/// The place after the last one, also of a level whose places have gaps.
qint64 savedPlaceAfter(const QList<SavedPreset> &level)
{
    qint64 place = level.size();
    for (const SavedPreset &preset : level)
        place = qMax(place, preset->position() + 1);
    return place;
}

QList<SavedPreset> savedTopLevel(KXManagedObjectContext &context)
{
    QList<SavedPreset> level;
    for (const auto &preset :
        KXFilterSetPreset::findUsingPredicate(KXPredicate::predicateWithFormat("parent == nil"), context))
        level.append(preset);
    return level;
}

}

KXRef<KXFilterSetPreset> KXFilterSetPresetSaving::save(const KXManagedObjectContext::Ref &context,
    const KXRef<KXFilterSet> &set, const QString &title, const KXRef<KXFilterSetPreset> &selected, bool overwrites,
    KXError *error)
{
    if (!context || !savedIsThere(set.get()))
        return {};
    const KXUndoRegistrationOff unrecorded(context->undoManager());
    context->processPendingChanges();
    const bool isThere = savedIsThere(selected.get()) && selected->managedObjectContext() == context.get();
    const SavedPreset old = isThere && overwrites ? selected : SavedPreset();
    const SavedPreset folder = isThere && !old && selected->isFolder() ? selected : SavedPreset();
    const SavedPreset parent = old ? old->parent() : folder;
    const qint64 position
        = old ? old->position() : savedPlaceAfter(folder ? folder->children() : savedTopLevel(*context));

    KXError failure;
    const SavedPreset preset = KXFilterSetPreset::createInContext(*context, &failure);
    const KXRef<KXFilterSet> copy = preset ? set->duplicateInContext(*context) : KXRef<KXFilterSet>();
    if (copy) {
        preset->setTitle(title);
        preset->setPosition(position);
        preset->setParent(parent);
        if (old)
            preset->setLastLoaded(old->lastLoaded());
        if (context->obtainPermanentIDsForObjects({ copy }))
            preset->setFilterSet(copy);
        else
            KXLogError(filter_ui, "The preset \"%@\" was saved without its filter set", title);
        if (context->save(&failure)) {
            if (old && savedIsThere(old.get())) {
                old->setParent({});
                context->removeManagedObject(old);
                context->save();
            }
            return preset;
        }
    }
    // Nothing of it stays; what else was waiting to be saved still does.
    if (preset) {
        context->removeManagedObject(preset);
        context->removeManagedObject(copy);
    }
    KXSetError(error, failure);
    return {};
}
