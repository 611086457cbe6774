#include <kestrixkit/catalogue/KXPostgreSQLSession_p.h>

#include <condition_variable>
#include <deque>
#include <thread>

#include <poll.h>

#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/foundation/KXRunCaught_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

/// A server ends by itself what nobody waits for any more: after the longest time that a request may take.
constexpr int sessionStatementLimit = 60'000; // milliseconds
constexpr int sessionLockLimit = 3'000; // milliseconds; a locked table is something to be told about

/// Threads that may hang in the network for minutes, and end when there is nothing to do. They may outlast everything
/// else: nothing waits for them, and what they use stays.
class SessionHelpers
{
public:
    void start(std::function<void()> task)
    {
        const KXMutexLocker locker(m_mutex);
        m_tasks.push_back(std::move(task));
        if (m_waiting >= m_tasks.size() || m_threads >= MostThreads)
            return m_hasTask.notify_one();
        ++m_threads;
        std::thread([this] { work(); }).detach();
    }

private:
    static constexpr int MostThreads = 8;
    static constexpr std::chrono::seconds Patience { 5 };

    void work()
    {
        while (const auto task = next())
            KXRunCaught("a connection of a catalogue", task);
    }
    /// None when there was nothing to do for a while: the thread ends.
    std::function<void()> next()
    {
        KXMutexLocker locker(m_mutex);
        const auto end = std::chrono::steady_clock::now() + Patience;
        ++m_waiting;
        while (m_tasks.empty() && locker.waitUntil(m_hasTask, end) == std::cv_status::no_timeout) { }
        --m_waiting;
        if (m_tasks.empty()) {
            --m_threads;
            return {};
        }
        auto task = std::move(m_tasks.front());
        m_tasks.pop_front();
        return task;
    }

    KXMutex m_mutex;
    std::condition_variable m_hasTask;
    std::deque<std::function<void()>> m_tasks KX_GUARDED_BY(m_mutex);
    size_t m_waiting KX_GUARDED_BY(m_mutex) = 0;
    int m_threads KX_GUARDED_BY(m_mutex) = 0;
};

KXError sessionError(int code, const QString &text) { return KXError(KXKestrixKitErrorDomain, code, text); }

KXPostgreSQLReply sessionFailure(const PGresult *result, const QString &server)
{
    const char *const field = KXLibpq().resultErrorField(result, PG_DIAG_SQLSTATE);
    const QByteArray state = field ? field : "";
    const char *const primary = KXLibpq().resultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    const QString said = QString::fromUtf8(primary ? primary : KXLibpq().resultErrorMessage(result)).trimmed();
    const auto reply = [](int code, const QString &text, bool again) {
        return KXPostgreSQLReply { .error = sessionError(code, text), .mayBeAskedAgain = again };
    };
    if (state == "57014")
        return reply(KXCatalogueError::TimeLimit,
            KXLocalizedString("The shop took too long. Narrow the search, or try again."), false);
    if (state == "55P03")
        return reply(KXCatalogueError::Locked,
            KXLocalizedString("The shop's catalogue is being changed. Try again in a moment."), true);
    if (state == "42501" || state.startsWith("28"))
        return reply(KXCatalogueError::Forbidden,
            KXStringWithFormat(
                KXLocalizedString("The shop at %@ does not let you in: %@. Check the user name, and the password in "
                                  "~/.pgpass."),
                server, said),
            false);
    if (state == "42P01" || state == "42703" || state == "3F000" || state == "3D000")
        return reply(KXCatalogueError::NoTable,
            KXStringWithFormat(
                KXLocalizedString("There is no catalogue at %@: %@. Check the address, or make one with \"kxtool "
                                  "catalogue create\"."),
                server, said),
            false);
    if (state.isEmpty() || state.startsWith("08") || state.startsWith("57P") || state == "53300" || state == "40001")
        return reply(KXCatalogueError::Unreachable,
            KXStringWithFormat(KXLocalizedString("The shop at %@ does not answer: %@. Check the network, or try again "
                                                 "later."),
                server, said),
            true);
    return reply(KXCatalogueError::Failed,
        KXStringWithFormat(
            KXLocalizedString("The shop at %@ could not answer: %@ (%@)."), server, said, QString::fromLatin1(state)),
        false);
}

}

void KXPostgreSQLHelpers::connect(std::function<void()> task)
{
    static auto *const helpers = new SessionHelpers;
    helpers->start(std::move(task));
}

void KXPostgreSQLHelpers::cancel(std::function<void()> task)
{
    static auto *const helpers = new SessionHelpers;
    helpers->start(std::move(task));
}

KXPostgreSQLSession::KXPostgreSQLSession(const KXCatalogueServers::Server &server, Post post)
    : m_server(server)
    , m_post(std::move(post))
{
    // The host's name is looked up right there, which may take its time.
    KXPostgreSQLHelpers::connect(
        [this, life = std::weak_ptr(m_life), address = m_server.address, post = m_post]() mutable {
            const char *const keywords[] = { "dbname", "client_encoding", "fallback_application_name", nullptr };
            const char *const values[] = { address.constData(), "UTF8", "KestrixKit", nullptr };
            std::shared_ptr<PGconn> connection;
            if (const KXPostgreSQLLibrary *const libpq = KXPostgreSQLLibrary::shared())
                connection.reset(libpq->connectStartParams(keywords, values, 1), libpq->finish);
            post([this, life, connection] {
                if (!life.expired())
                    begin(connection);
            });
        });
}

KXPostgreSQLSession::~KXPostgreSQLSession()
{
    if (m_state == State::Asking)
        cancel(); // the server need not find out by itself
}

void KXPostgreSQLSession::begin(std::shared_ptr<PGconn> connection)
{
    m_connection = std::move(connection);
    m_state = State::Connecting;
    if (!m_connection || KXLibpq().status(m_connection.get()) == CONNECTION_BAD)
        return breakWith(connectionError(), true);
    KXLibpq().setNoticeProcessor(
        m_connection.get(), [](void *, const char *) {}, nullptr); // it prints by itself
    m_wantsToWrite = true;
}

short KXPostgreSQLSession::events() const
{
    if (m_state == State::Starting || m_state == State::Broken || !m_connection)
        return 0;
    if (m_state == State::Connecting)
        return m_wantsToWrite ? POLLOUT : POLLIN;
    return short(POLLIN | (m_wantsToWrite ? POLLOUT : 0));
}

void KXPostgreSQLSession::proceed()
{
    if (m_state == State::Connecting)
        proceedConnecting();
    else if (m_state != State::Starting && m_state != State::Broken)
        read();
}

void KXPostgreSQLSession::proceedConnecting()
{
    switch (KXLibpq().connectPoll(m_connection.get())) {
    case PGRES_POLLING_READING:
        m_wantsToWrite = false;
        return;
    case PGRES_POLLING_WRITING:
        m_wantsToWrite = true;
        return;
    case PGRES_POLLING_OK:
        return settle();
    default:
        return breakWith(connectionError(), true);
    }
}

/// What every session is: read-only, with limits of its own, and independent of how the server is set up.
void KXPostgreSQLSession::settle()
{
    PGconn *const connection = m_connection.get();
    const char *const encoding = KXLibpq().parameterStatus(connection, "server_encoding");
    if (qstrcmp(encoding, "UTF8") != 0)
        return breakWith(
            sessionError(KXCatalogueError::NoTable,
                KXStringWithFormat(
                    KXLocalizedString("The catalogue at %@ is not in UTF8. It has to be made anew."), m_server.name)),
            false);
    KXLibpq().setnonblocking(connection, 1);
    QByteArray settings = "SET default_transaction_read_only = on; SET jit = off; SET DateStyle = 'ISO'; "
                          "SET TimeZone = 'UTC'; SET extra_float_digits = 1; SET statement_timeout = "
        + QByteArray::number(sessionStatementLimit) + "; SET lock_timeout = " + QByteArray::number(sessionLockLimit);
    if (KXLibpq().serverVersion(connection) >= 140000)
        settings += "; SET client_connection_check_interval = 5000"; // milliseconds
    m_state = State::Settling;
    if (!KXLibpq().sendQuery(connection, settings.constData()))
        return breakWith(connectionError(), true);
    read();
}

void KXPostgreSQLSession::ask(const KXCatalogueStatement &statement)
{
    std::vector<Oid> types;
    std::vector<const char *> values;
    for (const KXCatalogueParameter &parameter : statement.parameters) {
        types.push_back(parameter.type);
        values.push_back(parameter.text.constData());
    }
    m_state = State::Asking;
    m_reply = {};
    // Unnamed, so that it is planned for these values each time.
    if (!KXLibpq().sendQueryParams(m_connection.get(), statement.text.constData(), int(values.size()), types.data(),
            values.data(), nullptr, nullptr, 0))
        return breakWith(connectionError(), true);
    read();
}

void KXPostgreSQLSession::read()
{
    PGconn *const connection = m_connection.get();
    const int left = KXLibpq().flush(connection);
    m_wantsToWrite = left > 0;
    if (left < 0 || !KXLibpq().consumeInput(connection))
        return breakWith(connectionError(), true);
    if (m_state == State::Idle) {
        if (KXLibpq().status(connection) == CONNECTION_BAD)
            breakWith(connectionError(), true);
        return;
    }
    while (m_state != State::Broken && !KXLibpq().isBusy(connection)) {
        const std::shared_ptr<PGresult> result(KXLibpq().getResult(connection), KXLibpq().clear);
        if (!result)
            return finishAnswer();
        take(result);
    }
}

void KXPostgreSQLSession::take(const std::shared_ptr<PGresult> &result)
{
    switch (KXLibpq().resultStatus(result.get())) {
    case PGRES_TUPLES_OK:
        m_reply.table = result;
        return;
    case PGRES_COMMAND_OK:
        return;
    default:
        if (m_state != State::Draining)
            m_reply = sessionFailure(result.get(), m_server.name);
    }
}

void KXPostgreSQLSession::finishAnswer()
{
    if (KXLibpq().status(m_connection.get()) == CONNECTION_BAD)
        return breakWith(m_reply.error ? m_reply.error : connectionError(), true);
    if (m_state == State::Draining) {
        m_isDrained = true;
        if (!m_cancelIsUnderWay)
            m_state = State::Idle;
        return;
    }
    if (m_state == State::Settling && m_reply.error)
        return breakWith(m_reply.error, m_reply.mayBeAskedAgain);
    if (m_state == State::Asking) {
        ++m_answers;
        m_finished = std::exchange(m_reply, {});
    }
    m_state = State::Idle;
}

std::optional<KXPostgreSQLReply> KXPostgreSQLSession::takeReply() { return std::exchange(m_finished, std::nullopt); }

void KXPostgreSQLSession::cancel()
{
    if (m_state != State::Asking)
        return;
    m_state = State::Draining;
    m_isDrained = false;
    m_cancelIsUnderWay = true;
    const std::shared_ptr<PGcancel> handle(KXLibpq().getCancel(m_connection.get()), KXLibpq().freeCancel);
    // A session that went on while its cancelling is under way would lose its next answer to it.
    KXPostgreSQLHelpers::cancel([this, life = std::weak_ptr(m_life), handle, post = m_post] {
        char problem[256];
        if (handle)
            KXLibpq().cancel(handle.get(), problem, sizeof problem);
        post([this, life] {
            if (life.expired())
                return;
            m_cancelIsUnderWay = false;
            if (m_state == State::Draining && m_isDrained)
                m_state = State::Idle;
        });
    });
}

void KXPostgreSQLSession::breakWith(KXError error, bool mayBeAskedAgain)
{
    const bool isExpected = m_state == State::Idle || m_state == State::Draining;
    m_state = State::Broken;
    m_wantsToWrite = false;
    m_connection.reset();
    if (!isExpected)
        m_finished = KXPostgreSQLReply { .error = std::move(error), .mayBeAskedAgain = mayBeAskedAgain };
}

KXError KXPostgreSQLSession::connectionError() const
{
    // libpq's text names the host and the user, never a password.
    const QString text = m_connection ? QString::fromUtf8(KXLibpq().errorMessage(m_connection.get()))
                                      : KXLocalizedString("out of memory");
    const QString said = text.simplified();
    const bool isRefusal = said.contains("authentication"_L1) || said.contains("no password"_L1)
        || said.contains("pg_hba"_L1) || (said.contains("role "_L1) && said.contains("does not exist"_L1));
    if (isRefusal)
        return sessionError(KXCatalogueError::Forbidden,
            KXStringWithFormat(
                KXLocalizedString("The shop at %@ does not let you in: %@. Check the user name, and the password in "
                                  "~/.pgpass."),
                m_server.name, said));
    return sessionError(KXCatalogueError::Unreachable,
        KXStringWithFormat(
            KXLocalizedString("The shop at %@ does not answer: %@. Check the network, or try again later."),
            m_server.name, text.trimmed().section(u'\n', 0, 0).simplified())); // below it libpq guesses why
}
