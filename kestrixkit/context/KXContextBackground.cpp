// Contexts of other threads, and how what they save reaches the main one.

#include <kestrixkit/context/KXContextBackground_p.h>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>

void KXMergeOnMainThread(KXManagedObjectContext::Ref context, const KXNotification &didSave, KXMergeUndo undo)
{
    const auto *change = didSave.payloadAs<std::shared_ptr<const KXStoreChange>>();
    if (!context || !change)
        return;
    KXMainQueue::async([context = std::move(context), change = *change, undo] {
        const KXUndoRegistrationOff off(undo == KXMergeUndo::SwitchedOff ? context->undoManager() : nullptr);
        context->mergeChangesFromStoreChange(change);
    });
}

bool KXManagedObjectContext::saveOnMainThread()
{
    const KXNotificationToken saves = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), this, &KXManagedObjectContext::managedObjectContextDidSave);
    KXError error;
    if (save(&error))
        return true;
    KXLogError(store, "Failed to save: - %@", error);
    return false;
}

void KXManagedObjectContext::managedObjectContextDidSave(const KXNotification &notification)
{
    KXMergeOnMainThread(mainContext(), notification, KXMergeUndo::Untouched);
}
