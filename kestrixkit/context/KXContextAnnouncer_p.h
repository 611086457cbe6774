#pragma once

#include <memory>
#include <vector>

#include <kestrixkit/context/KXChangeLedger_p.h>
#include <kestrixkit/context/KXContextRecorder_p.h>

/// Tells observers of a context what has changed: at the end of the main thread's turn, before a save, and when asked.
/// One announcement after the other, however deep the calls that cause them. Of the context's thread.
class KXContextAnnouncer
{
public:
    KXContextAnnouncer(KXObjectKeeper &keeper, KXChangeLedger &ledger, KXContextRecorder &recorder)
        : m_keeper(keeper)
        , m_ledger(ledger)
        , m_recorder(recorder)
    {
    }
    Q_DISABLE_COPY_MOVE(KXContextAnnouncer)

    /// Something has changed, which is told at the end of the turn. A background context announces when it saves.
    void schedule();
    void processPendingChanges();
    /// What is pending is told before what comes now: at once, or next where something is being told.
    void settle();
    /// Posts objects-did-change, after whatever is being posted.
    void announce(KXObjectsDidChange did);

private:
    void post();

    KXObjectKeeper &m_keeper;
    KXChangeLedger &m_ledger;
    KXContextRecorder &m_recorder;
    std::vector<KXObjectsDidChange> m_toPost; // in order
    bool m_posting = false;
    bool m_due = false;
    bool m_scheduled = false;
    const std::shared_ptr<char> m_alive = std::make_shared<char>(); // for calls queued on the main thread
};
