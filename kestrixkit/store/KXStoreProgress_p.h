#pragma once

#include <algorithm>
#include <utility>

#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXSQLite_p.h>

/// The progress of one part of the work, told as that of the whole. Empty where nobody wants to know.
[[nodiscard]] inline KXStoreProgress KXProgressOfPart(const KXStoreProgress &whole, double from, double to)
{
    if (!whole)
        return {};
    return [whole, from, to](double done) { whole(from + (to - from) * std::clamp(done, 0.0, 1.0)); };
}

/// While it lives, tells how far the statement that runs on a connection has come. Takes the place of the connection's
/// own progress handler, so the connection must not be one that is interrupted.
class KXStatementProgress
{
public:
    KXStatementProgress(KXSQLiteConnection &connection, const KXStoreProgress &progress, std::function<double()> done)
        : m_connection(progress ? connection.handle() : nullptr)
        , m_progress(progress)
        , m_done(std::move(done))
    {
        const auto look = [](void *self) {
            const auto *const me = static_cast<KXStatementProgress *>(self);
            me->m_progress(std::min(me->m_done(), 1.0));
            return 0;
        };
        if (m_connection)
            sqlite3_progress_handler(m_connection, stepsBetweenLooks, look, this);
    }
    ~KXStatementProgress()
    {
        if (m_connection)
            sqlite3_progress_handler(m_connection, 0, nullptr, nullptr);
    }
    Q_DISABLE_COPY_MOVE(KXStatementProgress)

private:
    static constexpr int stepsBetweenLooks = 200'000; // of SQLite's virtual machine: some milliseconds

    sqlite3 *const m_connection;
    const KXStoreProgress m_progress;
    const std::function<double()> m_done;
};
