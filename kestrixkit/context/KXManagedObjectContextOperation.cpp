#include <kestrixkit/context/KXManagedObjectContextOperation.h>

#include <kestrixkit/context/KXContextBackground_p.h>
#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXMainQueue.h>

namespace {

/// A context of the main thread must not end on this one, should nobody else hold it any more.
void operationLetGoOf(KXManagedObjectContext::Ref context)
{
    if (context && !KXMainQueue::isMainThread())
        KXMainQueue::async([context = std::move(context)] {});
}

}

KXManagedObjectContextOperation::KXManagedObjectContextOperation(KXManagedObjectContext::Ref mainContext)
    : m_mainContext(std::move(mainContext))
{
}

KXManagedObjectContextOperation::~KXManagedObjectContextOperation()
{
    m_saves.reset();
    operationLetGoOf(std::move(m_mainContext));
    if (m_isLocalOfMainThread)
        operationLetGoOf(std::move(m_localContext));
}

KXManagedObjectContext::Ref KXManagedObjectContextOperation::mainContext() const
{
    const std::lock_guard lock(m_mutex);
    return m_mainContext;
}

void KXManagedObjectContextOperation::setMainContext(KXManagedObjectContext::Ref context)
{
    {
        const std::lock_guard lock(m_mutex);
        m_mainContext.swap(context);
    }
    operationLetGoOf(std::move(context));
}

KXManagedObjectContext::Ref KXManagedObjectContextOperation::localContext()
{
    const std::lock_guard lock(m_mutex);
    if (!m_localContext && m_mainContext) {
        m_localContext = KXManagedObjectContext::contextWithPersistentStoreCoordinator(
            m_mainContext->persistentStoreCoordinator());
        m_isLocalOfMainThread = KXMainQueue::isMainThread();
        m_localContext->setUndoManager(nullptr); // which it has on the main thread
        // A save may be announced on one thread while another lets go of the operation: it then stays until the call
        // has returned. One that nobody shares is safe as well, since the token's end waits for the call.
        m_saves = KXNotificationCenter::defaultCenter().addObserver(QString(KXManagedObjectContextDidSaveNotification),
            m_localContext.get(),
            [this, isShared = !weak_from_this().expired(), weak = weak_from_this()](
                const KXNotification &notification) {
                if (const auto self = weak.lock(); self || !isShared)
                    managedObjectContextDidSave(notification);
            });
    }
    if (m_localContext && current() == this)
        KXManagedObjectContextPrivate::of(*m_localContext).checkThread();
    return m_localContext;
}

void KXManagedObjectContextOperation::managedObjectContextDidSave(const KXNotification &notification)
{
    if (mergeChangesIntoMainContext())
        KXMergeOnMainThread(mainContext(), notification, KXMergeUndo::SwitchedOff);
}
