#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <QObject>
#include <QStringList>

#include <kestrixkit/counts/KXCountTable_p.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

/// Lets a table of counts be read and counted by another thread, so that the main thread, which owns both, need not
/// wait for many rows.
///
/// While the table is away nobody else may touch it: the owner keeps what it is told meanwhile, and makes up for it
/// afterwards. What the context alone knows is joined between reading and counting, on the main thread.
class KXCountWorker
{
public:
    /// `done` is called on the main thread, in a turn of its own, with the table back; it may destroy the worker.
    KXCountWorker(KXCountTable &table, std::function<void()> done);
    /// Ends early what is under way, and waits for that.
    ~KXCountWorker();
    Q_DISABLE_COPY_MOVE(KXCountWorker)

    [[nodiscard]] bool isAway() const { return m_stage != Home; }
    /// These attributes' numbers are put in order as well, for KXCountTable::nextNumber().
    void begin(const QStringList &ordered);
    /// Waits, and does what is left at once. `done` is not called.
    void finish();
    /// Of the last round: whether the store answered.
    [[nodiscard]] bool hasAnswered() const { return m_hasAnswered; }
    [[nodiscard]] const KXError &error() const { return m_error; }

private:
    enum Stage { Home, Reading, Counting };

    void start(Stage stage, std::function<void()> work);
    void proceed();
    void deliver(int round);

    KXCountTable &m_table;
    const std::function<void()> m_done;
    QStringList m_ordered;
    Stage m_stage = Home;
    int m_round = 0; // what is delivered by an earlier one is late
    bool m_hasAnswered = true;
    KXError m_error;
    bool m_isFirst = false; // all rows are read
    std::atomic<bool> m_stop = false;
    std::shared_ptr<KXBlockOperation> m_work;
    QObject m_guard; // of deliveries
    KXOperationQueue m_queue;
};
