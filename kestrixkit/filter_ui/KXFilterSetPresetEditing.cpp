#include <kestrixkit/filter_ui/KXFilterSetPresetEditing.h>

#include <algorithm>

#include <QSet>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/toolkit/KXAlert.h>
#include <kestrixkit/toolkit/KXPasteboard.h>
#include <kestrixkit/toolkit/KXTreeController.h>

using namespace Qt::StringLiterals;

namespace {

using EditedPreset = KXFilterSetPresetEditing::Preset;
using EditedPresets = KXFilterSetPresetEditing::Presets;

bool presetIsThere(const EditedPreset &preset)
{
    return preset && preset->managedObjectContext() && !preset->isDeleted() && !preset->isMissing();
}

/// Of the folder, or of the top level for none, in order.
EditedPresets presetLevel(const KXTreeController &tree, const EditedPreset &folder)
{
    EditedPresets level;
    const KXTreeNode *const node = folder ? tree.treeNodeForObject(folder.get()) : tree.rootNode();
    for (const KXTreeNode *child : node ? node->childNodes() : QList<const KXTreeNode *>()) {
        if (const auto preset = KXFilterSetPreset::cast(child->representedObject()); presetIsThere(preset))
            level.append(preset);
    }
    return level;
}

void presetRenumber(const EditedPresets &level)
{
    for (qsizetype i = 0; i < level.size(); ++i) {
        if (level[i]->position() != i)
            level[i]->setPosition(i);
    }
}

}

EditedPresets KXFilterSetPresetEditing::selectedPresets(const KXTreeController &tree)
{
    Presets presets;
    for (const KXRef<KXManagedObject> &object : tree.selectedObjects()) {
        if (const auto preset = KXFilterSetPreset::cast(object))
            presets.append(preset);
    }
    return presets;
}

EditedPreset KXFilterSetPresetEditing::addFolder(KXTreeController &tree, const Preset &beside)
{
    const KXManagedObjectContext::Ref context = tree.managedObjectContext();
    if (!context)
        return {};
    context->processPendingChanges();
    const KXUndoRegistrationOff unrecorded(context->undoManager());
    const Preset above = presetIsThere(beside) && beside->isFolder() ? beside : Preset();
    const qsizetype last = presetLevel(tree, above).size();
    const Preset folder = KXFilterSetPreset::createInContext(*context);
    if (!folder)
        return {};
    folder->setIsFolder(true);
    folder->setTitle(KXLocalizedString("untitled folder"));
    folder->setPosition(last);
    folder->setParent(above);
    context->save();
    return folder;
}

bool KXFilterSetPresetEditing::confirmRemoval(const Presets &presets, QWidget *window)
{
    if (std::none_of(presets.begin(), presets.end(),
            [](const Preset &preset) { return presetIsThere(preset) && preset->isDeletable(); }))
        return false;
    KXUserDefaults &defaults = KXUserDefaults::standard();
    if (defaults.boolForKey(KXRemoveFilterSetPresetAlertSuppressKey).value_or(false))
        return true;
    KXAlert alert(presets.size() == 1
            ? KXLocalizedString("Are you sure you want to delete the selected preset?")
            : KXLocalizedString("Are you sure you want to delete the selected presets?", presets.size()));
    alert.setButtons({ KXLocalizedString("Yes"), KXLocalizedString("No") }).setShowsSuppressionButton(true);
    const KXAlertAnswer answer = alert.run(window);
    if (answer.button != 0)
        return false;
    if (answer.suppressed)
        defaults.setValue(KXRemoveFilterSetPresetAlertSuppressKey, true);
    return true;
}

bool KXFilterSetPresetEditing::removePresets(KXTreeController &tree, const Presets &presets)
{
    const KXManagedObjectContext::Ref context = tree.managedObjectContext();
    if (!context)
        return false;
    context->processPendingChanges();
    bool any = false;
    {
        const KXUndoGroup group(context->undoManager(),
            presets.size() == 1 ? KXLocalizedString("Delete Filter Preset")
                                : KXLocalizedString("Delete Filter Presets", presets.size()));
        Presets parents; // of levels that something leaves; empty: the top level
        for (const Preset &preset : presets) {
            // A folder may have taken this one along.
            if (!presetIsThere(preset) || preset->managedObjectContext() != context.get() || !preset->isDeletable())
                continue;
            any = true;
            const Preset parent = preset->parent();
            if (!parents.contains(parent))
                parents.append(parent);
            preset->setParent({});
            context->removeManagedObject(preset);
        }
        for (const Preset &parent : parents) {
            if (!parent || presetIsThere(parent))
                presetRenumber(presetLevel(tree, parent));
        }
    }
    if (any)
        context->save();
    return any;
}

void KXFilterSetPresetEditing::copyPresets(const Presets &presets)
{
    QVariantList uris;
    for (const Preset &preset : presets) {
        if (presetIsThere(preset) && !preset->isFolder())
            uris.append(preset->objectID().URIRepresentation());
    }
    KXPasteboard::setItems(KXFilterSetPresetPasteboardType, uris);
}

EditedPresets KXFilterSetPresetEditing::presetsOnPasteboard(const KXTreeController &tree)
{
    Presets presets;
    const KXManagedObjectContext::Ref context = tree.managedObjectContext();
    QList<QUrl> uris;
    for (const QVariant &item : KXPasteboard::items(KXFilterSetPresetPasteboardType))
        uris.append(item.toUrl());
    if (!context)
        return presets;
    for (const KXRef<KXManagedObject> &object : context->objectInstancesFromURIRepresentations(uris)) {
        if (const auto preset = KXFilterSetPreset::cast(object); presetIsThere(preset))
            presets.append(preset);
    }
    return presets;
}

bool KXFilterSetPresetEditing::canPaste(const Preset &selected)
{
    return KXPasteboard::canReadItems(KXFilterSetPresetPasteboardType)
        && (!selected || (presetIsThere(selected) && selected->isOverwritable()));
}

EditedPresets KXFilterSetPresetEditing::duplicatePresets(
    KXTreeController &tree, const Presets &presets, const Preset &selected)
{
    Presets copies;
    const KXManagedObjectContext::Ref context = tree.managedObjectContext();
    if (!context)
        return copies;
    context->processPendingChanges();
    const KXUndoRegistrationOff unrecorded(context->undoManager());
    const bool isBeside = presetIsThere(selected);
    const Preset above = !isBeside ? Preset() : selected->isFolder() ? selected : selected->parent();
    Presets level = presetLevel(tree, above);
    const qsizetype place = isBeside && !selected->isFolder() ? level.indexOf(selected) + 1 : level.size();
    for (const Preset &preset : presets) {
        const Preset copy = presetIsThere(preset) && preset->managedObjectContext() == context.get()
            ? preset->duplicateInContext(*context)
            : Preset();
        if (!copy)
            continue;
        copy->setParent(above);
        level.insert(place + copies.size(), copy);
        copies.append(copy);
    }
    presetRenumber(level);
    context->save();
    return copies;
}
