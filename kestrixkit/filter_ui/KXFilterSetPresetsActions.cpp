// What the user does to the presets of a library.

#include <QKeyEvent>

#include <kestrixkit/filter_ui/KXFilterSetPresetsViewController.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/toolkit/KXMenu.h>

void KXFilterSetPresetsViewController::addFolder()
{
    if (const KXRef<KXFilterSetPreset> folder = KXFilterSetPresetEditing::addFolder(*m_tree, selectedPreset()))
        m_sourceList->selectForEditing(folder.get());
}

void KXFilterSetPresetsViewController::deletePreset() { removePresets(selectedPresets()); }

void KXFilterSetPresetsViewController::removePresets(const Presets &presets)
{
    const Presets given = presets; // held while the question waits
    const QPointer<KXFilterSetPresetsViewController> alive(this);
    // A popover is not to close because the alert is in front of it.
    if (m_popover)
        m_popover->setBehaviour(KXPopoverBehaviour::ApplicationDefined);
    const bool mayGo = KXFilterSetPresetEditing::confirmRemoval(given, isViewLoaded() ? view() : nullptr);
    if (!alive)
        return;
    if (m_popover)
        m_popover->setBehaviour(KXPopoverBehaviour::Transient);
    if (mayGo)
        KXFilterSetPresetEditing::removePresets(*m_tree, given);
}

void KXFilterSetPresetsViewController::copy() { KXFilterSetPresetEditing::copyPresets(selectedPresets()); }

void KXFilterSetPresetsViewController::paste()
{
    if (const KXRef<KXFilterSetPreset> selected = selectedPreset(); selected && !selected->isOverwritable())
        return;
    if (const Presets presets = KXFilterSetPresetEditing::presetsOnPasteboard(*m_tree); !presets.isEmpty())
        duplicatePresets(presets);
}

void KXFilterSetPresetsViewController::duplicatePresets(const Presets &presets)
{
    const Presets copies = KXFilterSetPresetEditing::duplicatePresets(*m_tree, presets, selectedPreset());
    if (!copies.isEmpty())
        m_sourceList->selectItem(copies.first().get());
}

bool KXFilterSetPresetsViewController::keyDown(const QKeyEvent &event)
{
    if (!KXSourceListView::isDeleteKey(event))
        return false;
    deletePreset();
    return true;
}

bool KXFilterSetPresetsViewController::validateMenuItem(MenuItem item) const
{
    const Presets selected = selectedPresets();
    switch (item) {
    case MenuItem::Copy:
        return m_editActionsEnabled
            && std::any_of(selected.begin(), selected.end(), [](const auto &preset) { return !preset->isFolder(); });
    case MenuItem::Paste:
        return KXFilterSetPresetEditing::canPaste(selected.value(0));
    case MenuItem::Delete:
        return m_deleteEnabled;
    case MenuItem::Other:
        break;
    }
    return true;
}

void KXFilterSetPresetsViewController::menuNeedsUpdate(KXMenu &menu)
{
    menu.clear();
    const auto add = [&](const char *title, MenuItem item, void (KXFilterSetPresetsViewController::*act)()) {
        menu.addItem(
            KXLocalizedString(title), this, [this, act] { (this->*act)(); },
            [this, item] { return validateMenuItem(item); });
    };
    if (m_editActionsEnabled) {
        add(QT_TRANSLATE_NOOP("KestrixKit", "Copy"), MenuItem::Copy, &KXFilterSetPresetsViewController::copy);
        add(QT_TRANSLATE_NOOP("KestrixKit", "Paste"), MenuItem::Paste, &KXFilterSetPresetsViewController::paste);
    }
    add(QT_TRANSLATE_NOOP("KestrixKit", "Delete"), MenuItem::Delete, &KXFilterSetPresetsViewController::deletePreset);
}
