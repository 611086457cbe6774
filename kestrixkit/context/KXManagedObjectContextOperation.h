#pragma once

#include <mutex>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/context/KXOperation.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

/// An operation with a context of its own, whose saves can be merged into the main context.
///
/// Cancelling it interrupts the query or the save that it is running at that moment, which then fails with the error
/// Interrupted; a failed save leaves the changes in the context. What it begins afterwards runs undisturbed.
///
/// Held by shared_ptr. May be destroyed on any thread, also while one of its saves is being announced.
class KX_CORE_EXPORT KXManagedObjectContextOperation : public KXOperation
{
public:
    explicit KXManagedObjectContextOperation(KXManagedObjectContext::Ref mainContext);
    ~KXManagedObjectContextOperation() override;

    /// What changes are merged into; a context of the main thread. Any thread may ask and set.
    [[nodiscard]] KXManagedObjectContext::Ref mainContext() const;
    void setMainContext(KXManagedObjectContext::Ref context);

    /// The operation's own context on the main context's store, without undo manager; nullptr without main context.
    ///
    /// Made by the first call and kept as long as the operation. It belongs to the thread that makes that call, so make
    /// it inside the operation: one that was made elsewhere stops a checking build when the operation asks for it.
    [[nodiscard]] KXManagedObjectContext::Ref localContext();

    /// Off unless changed. Any thread.
    [[nodiscard]] bool mergeChangesIntoMainContext() const { return m_merges.load(std::memory_order_acquire); }
    void setMergeChangesIntoMainContext(bool merges) { m_merges.store(merges, std::memory_order_release); }

    /// Called with each save of the local context, on the thread that saves. When merging is on, has the main thread
    /// merge it into the main context in a later turn, with undo registration off, and does not wait for that.
    virtual void managedObjectContextDidSave(const KXNotification &notification);

private:
    mutable std::mutex m_mutex;
    KXManagedObjectContext::Ref m_mainContext;
    KXManagedObjectContext::Ref m_localContext;
    bool m_isLocalOfMainThread = false;
    std::atomic<bool> m_merges { false };
    KXNotificationToken m_saves;
};
