#pragma once

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

/// What becomes of undo registration while a save of another context is merged.
enum class KXMergeUndo { Untouched, SwitchedOff };

/// Has the main thread merge the save that a did-save notification tells of into the context, in a later turn; returns
/// at once. Keeps the context and the change until then, and nothing of whoever asks. Nothing for a null context. Any
/// thread.
void KXMergeOnMainThread(KXManagedObjectContext::Ref context, const KXNotification &didSave, KXMergeUndo undo);
