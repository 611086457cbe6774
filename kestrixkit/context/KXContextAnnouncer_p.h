#pragma once

#include <vector>

#include <kestrixkit/context/KXChangeLedger_p.h>
#include <kestrixkit/context/KXContextRecorder_p.h>
#include <kestrixkit/foundation/KXAlive.h>

/// Tells observers of a context what has changed: at the end of the main thread's turn, before a save, and when asked.
/// One announcement after the other, however deep the calls that cause them. Of the context's thread.
class KXContextAnnouncer
{
public:
    KXContextAnnouncer(KXObjectKeeper &keeper, KXChangeLedger &ledger, KXContextRecorder &recorder, bool isOfMainThread)
        : m_keeper(keeper)
        , m_ledger(ledger)
        , m_recorder(recorder)
        , m_isOfMainThread(isOfMainThread)
    {
    }
    Q_DISABLE_COPY_MOVE(KXContextAnnouncer)

    /// Something has changed, which is told at the end of the turn. A background context announces when it saves.
    void schedule()
    {
        if (m_isOfMainThread && !m_scheduled)
            scheduleTurn();
    }
    void processPendingChanges();
    /// What is pending is told before what comes now: at once, or next where something is being told.
    void settle();
    /// Posts objects-did-change, after whatever is being posted.
    void announce(KXObjectsDidChange did);

private:
    void scheduleTurn();
    void post();

    KXObjectKeeper &m_keeper;
    KXChangeLedger &m_ledger;
    KXContextRecorder &m_recorder;
    const bool m_isOfMainThread;
    std::vector<KXObjectsDidChange> m_toPost; // in order
    bool m_posting = false;
    bool m_due = false;
    bool m_scheduled = false;
    KXAlive m_alive;
};
