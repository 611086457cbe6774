#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <kestrixkit/catalogue/KXCatalogueDialect.h>
#include <kestrixkit/catalogue/KXCatalogueServers.h>
#include <kestrixkit/catalogue/KXPostgreSQLLibrary_p.h>

/// What a server said: a table of texts, or an error.
struct KXPostgreSQLReply
{
    KXError error = {};
    bool mayBeAskedAgain = false; ///< whether another server, or the same one later, may say better
    std::shared_ptr<const PGresult> table = {}; ///< any thread may read it

    [[nodiscard]] int rowCount() const { return table ? KXLibpq().ntuples(table.get()) : 0; }
    /// Absent for NULL, and beyond the table. Lives as long as the table.
    [[nodiscard]] std::optional<QByteArrayView> text(int row, int field) const
    {
        if (!table || row >= KXLibpq().ntuples(table.get()) || field >= KXLibpq().nfields(table.get())
            || KXLibpq().getisnull(table.get(), row, field))
            return std::nullopt;
        return QByteArrayView(
            KXLibpq().getvalue(table.get(), row, field), KXLibpq().getlength(table.get(), row, field));
    }
};

/// Calls of libpq that wait for the network, on threads of their own. A task must not refer to anything that may go.
namespace KXPostgreSQLHelpers {
void connect(std::function<void()> task);
void cancel(std::function<void()> task);
}

/// One connection, which never blocks: it is moved on when its socket is ready. One thread at a time.
class KXPostgreSQLSession
{
public:
    enum class State {
        Starting, ///< a helper looks for the server's address
        Connecting,
        Settling, ///< its settings are made
        Idle,
        Asking,
        Draining, ///< was cancelled; what is left of the answer is read
        Broken,
    };
    /// Runs a function on the loop's thread as long as there is one. Any thread.
    using Post = std::function<void(std::function<void()>)>;

    KXPostgreSQLSession(const KXCatalogueServers::Server &server, Post post);
    ~KXPostgreSQLSession();
    Q_DISABLE_COPY_MOVE(KXPostgreSQLSession)

    [[nodiscard]] State state() const { return m_state; }
    [[nodiscard]] int socket() const { return m_connection ? KXLibpq().socket(m_connection.get()) : -1; }
    /// What to poll for; 0 while there is nothing to wait for.
    [[nodiscard]] short events() const;
    /// The socket is ready.
    void proceed();
    /// Of an idle session.
    void ask(const KXCatalogueStatement &statement);
    /// The answer to what was asked, or why the session broke; once.
    [[nodiscard]] std::optional<KXPostgreSQLReply> takeReply();
    /// Whether the connection had answered before, so that its breaking may be old news.
    [[nodiscard]] bool wasUsed() const { return m_answers > 0; }
    /// Stops what is asked. The session is idle again once the server has said so.
    void cancel();

private:
    void begin(std::shared_ptr<PGconn> connection);
    void proceedConnecting();
    void settle();
    void read();
    void take(const std::shared_ptr<PGresult> &result);
    void finishAnswer();
    void breakWith(KXError error, bool mayBeAskedAgain);
    [[nodiscard]] KXError connectionError() const;

    const KXCatalogueServers::Server m_server;
    const Post m_post;
    std::shared_ptr<PGconn> m_connection;
    State m_state = State::Starting;
    bool m_wantsToWrite = false;
    bool m_cancelIsUnderWay = false;
    bool m_isDrained = false;
    int m_answers = 0;
    KXPostgreSQLReply m_reply;
    std::optional<KXPostgreSQLReply> m_finished;
    std::shared_ptr<char> m_life = std::make_shared<char>(); ///< for what comes back from helpers
};
