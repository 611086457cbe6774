#pragma once

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXUndoManager.h>

/// For the scope of a change that the browser makes by itself, unasked: it is no step to undo, and is saved when the
/// scope ends. Where something was unsaved before, such as what was just undone, that waits for the user, and the
/// change with it. Borrows the context; of its thread.
class OwnChange
{
public:
    explicit OwnChange(KXManagedObjectContext &context)
        : m_context(context)
        , m_waits(context.hasChanges())
        , m_unrecorded(context.undoManager())
    {
    }
    ~OwnChange()
    {
        if (!m_isDone)
            save();
    }
    Q_DISABLE_COPY_MOVE(OwnChange)

    /// For those who want to know before the scope ends; true also where it waits.
    bool save(KXError *error = nullptr)
    {
        m_isDone = true;
        return m_waits || m_context.save(error);
    }

private:
    KXManagedObjectContext &m_context;
    const bool m_waits;
    bool m_isDone = false;
    const KXUndoRegistrationOff m_unrecorded;
};
