#include <kestrixkit/counts/KXCountWorker_p.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <kestrixkit/foundation/KXMainQueue.h>

using namespace Qt::StringLiterals;

KXCountWorker::KXCountWorker(KXCountTable &table, std::function<void()> done)
    : m_table(table)
    , m_done(std::move(done))
{
    m_queue.setName(u"counts"_s);
    m_queue.setMaxConcurrentOperationCount(1);
}

KXCountWorker::~KXCountWorker()
{
    m_stop = true;
    m_queue.waitUntilAllOperationsAreFinished();
}

void KXCountWorker::begin(const QStringList &ordered)
{
    m_ordered = ordered;
    m_error = {};
    m_isFirst = !m_table.hasRows();
    m_table.holdUnsaved();
    start(Reading, [this] { m_hasAnswered = m_table.readRows(&m_error, &m_stop); });
}

void KXCountWorker::start(Stage stage, std::function<void()> work)
{
    m_stage = stage;
    m_work = m_queue.addBlock([this, work = std::move(work), round = ++m_round] {
        work();
        KXMainQueue::async(&m_guard, [this, round] { deliver(round); });
    });
}

/// What was under way is done.
void KXCountWorker::proceed()
{
    if (m_stage == Counting || !m_hasAnswered) {
        m_stage = Home;
        return;
    }
    m_hasAnswered = m_table.joinContext(&m_error);
    if (!m_hasAnswered) {
        m_stage = Home;
        return;
    }
    start(Counting, [this] {
        m_table.countRows();
        for (const QString &attribute : std::as_const(m_ordered))
            (void)m_table.nextNumber(attribute, 0);
#ifdef __GLIBC__
        if (m_isFirst)
            malloc_trim(0); // each thread has a heap of its own, which keeps what columns left behind while they grew
#endif
    });
}

void KXCountWorker::deliver(int round)
{
    if (round != m_round || !isAway())
        return;
    proceed();
    if (isAway())
        return;
    const auto done = m_done; // it may destroy the worker
    done();
}

void KXCountWorker::finish()
{
    while (isAway()) {
        m_work->waitUntilFinished();
        proceed();
    }
}
