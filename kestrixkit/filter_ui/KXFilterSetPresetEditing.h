#pragma once

#include <QList>

#include <kestrixkit/filters/KXFilterSetPreset.h>

class KXTreeController;
class QWidget;

/// Presets on the pasteboard, by the URIs of the objects.
inline constexpr QLatin1StringView KXFilterSetPresetPasteboardType { "com.kestrix.kxkit.internal.KXFilterSetPreset" };
/// User default: true where the user does not want to be asked before presets are deleted.
inline constexpr QLatin1StringView KXRemoveFilterSetPresetAlertSuppressKey { "KXRemoveFilterSetPresetAlertSuppress" };

/// What the user does to the presets of a tree, wherever that is shown. Each saves the tree's context; nothing happens,
/// and nothing is answered, for a tree whose context has gone. Main thread.
namespace KXFilterSetPresetEditing {

using Preset = KXRef<KXFilterSetPreset>;
using Presets = QList<Preset>;

/// The selected objects of the tree that are presets, from top to bottom.
[[nodiscard]] KX_UI_EXPORT Presets selectedPresets(const KXTreeController &tree);

/// A folder "untitled folder", last in the folder beside (or on the top level, for any other preset or none). Not
/// undone.
KX_UI_EXPORT Preset addFolder(KXTreeController &tree, const Preset &beside);

/// Whether the presets may go: asks the user, unless that is suppressed. False where none of them can be deleted. While
/// the question stands, presets may be deleted by others.
[[nodiscard]] KX_UI_EXPORT bool confirmRemoval(const Presets &presets, QWidget *window);
/// Deletes those that can be and renumbers the levels that they leave; one step to undo. False where there was none.
KX_UI_EXPORT bool removePresets(KXTreeController &tree, const Presets &presets);

/// Puts the presets among them that are no folders on the pasteboard.
KX_UI_EXPORT void copyPresets(const Presets &presets);
/// Those on the pasteboard that the tree's context still has.
[[nodiscard]] KX_UI_EXPORT Presets presetsOnPasteboard(const KXTreeController &tree);
/// Whether there is something to paste, and what is selected (nothing will do) can be changed.
[[nodiscard]] KX_UI_EXPORT bool canPaste(const Preset &selected);

/// Copies, in the given order: last in a folder that is selected, after another preset that is, else last of all. Not
/// undone. Answers the copies.
KX_UI_EXPORT Presets duplicatePresets(KXTreeController &tree, const Presets &presets, const Preset &selected);

}
