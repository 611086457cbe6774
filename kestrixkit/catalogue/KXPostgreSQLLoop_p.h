#pragma once

#include <chrono>
#include <list>
#include <memory>
#include <thread>
#include <vector>

#include <poll.h>

#include <kestrixkit/catalogue/KXPostgreSQLSession_p.h>
#include <kestrixkit/foundation/KXLock_p.h>

/// All connections of one catalogue, on one thread that waits for whichever of them is ready.
///
/// A question goes to one part of the catalogue: to the first of its servers, and where that does not answer in its
/// share of the time, to the next. Where a connection is free the thread that asks sends the question itself: it is on
/// its way while this one wakes up. Public functions: any thread, for none of which they wait. Destroying it does not
/// wait for the network.
class KXPostgreSQLLoop
{
public:
    using Clock = std::chrono::steady_clock;
    using Answer = std::function<void(const KXPostgreSQLReply &)>;

    explicit KXPostgreSQLLoop(const KXCatalogueServers &servers);
    ~KXPostgreSQLLoop();
    Q_DISABLE_COPY_MOVE(KXPostgreSQLLoop)

    /// `answer` is called once on the loop's thread, by the deadline, unless the request is abandoned before. It must
    /// not ask by itself.
    void ask(
        quint64 request, qsizetype part, KXCatalogueStatement statement, Clock::time_point deadline, Answer answer);
    /// Stops all that was asked for the request.
    void abandon(quint64 request);

private:
    using Session = KXPostgreSQLSession;
    /// What is asked of one part, and how far that is.
    struct Question
    {
        quint64 request;
        qsizetype part;
        KXCatalogueStatement statement;
        Clock::time_point deadline;
        Answer answer;
        int tries = 0;
        qsizetype server = 0; ///< of the part's
        Clock::time_point notBefore = {};
        Clock::time_point until = {}; ///< when the next server gets its turn
        Session *session = nullptr;
        KXError lastError = {};
    };
    struct Kept
    {
        std::unique_ptr<Session> session;
        bool isTaken = true; ///< by a question
        Clock::time_point freeSince = {};
    };
    struct Server
    {
        KXCatalogueServers::Server description;
        std::list<Kept> sessions;
    };
    /// What other threads hand over; shared with helpers, which may come back when the loop has gone.
    struct Inbox;

    static constexpr size_t MostSessions = 6; ///< to one server
    static constexpr int MostRounds = 5; ///< through the servers of a part, before it counts as unreachable
    static constexpr std::chrono::milliseconds FirstPause { 100 }; ///< after a round; doubles
    static constexpr std::chrono::seconds Patience { 5 }; ///< with a session that nobody waits for

    /// Sockets that are waited for, and whose they are; the first is the inbox's.
    struct Watched
    {
        std::vector<pollfd> sockets;
        std::vector<Session *> sessions;
    };

    void run();
    [[nodiscard]] Watched whatToWatch() const KX_REQUIRES(m_mutex);
    void goOn() KX_REQUIRES(m_mutex);
    void cleanUp(Clock::time_point now) KX_REQUIRES(m_mutex);
    [[nodiscard]] int millisecondsToWait() const KX_REQUIRES(m_mutex);

    [[nodiscard]] bool sendAtOnce(Question &question);
    /// False where the question is over.
    [[nodiscard]] bool look(Question &question, Clock::time_point now) KX_REQUIRES(m_mutex);
    void assign(Question &question, Clock::time_point now) KX_REQUIRES(m_mutex);
    void give(Question &question, Kept &kept, Clock::time_point now) KX_REQUIRES(m_mutex);
    [[nodiscard]] bool take(Question &question, const KXPostgreSQLReply &reply, Clock::time_point now)
        KX_REQUIRES(m_mutex);
    [[nodiscard]] bool askElsewhere(Question &question, Clock::time_point now) KX_REQUIRES(m_mutex);
    [[nodiscard]] bool giveUp(Question &question) KX_REQUIRES(m_mutex);
    void letGo(Question &question, bool isStuck) KX_REQUIRES(m_mutex);
    [[nodiscard]] std::vector<Server> &serversOf(const Question &question) KX_REQUIRES(m_mutex)
    {
        return m_parts[size_t(question.part)];
    }

    const std::shared_ptr<Inbox> m_inbox;
    /// Held by the loop's thread except while it waits for sockets, and by others for sending at once. Only the loop's
    /// thread takes connections away.
    KXMutex m_mutex;
    std::vector<std::vector<Server>> m_parts KX_GUARDED_BY(m_mutex);
    std::list<Question> m_questions KX_GUARDED_BY(m_mutex);
    bool m_ends KX_GUARDED_BY(m_mutex) = false;
    std::thread m_thread; // last: it uses everything above
};
