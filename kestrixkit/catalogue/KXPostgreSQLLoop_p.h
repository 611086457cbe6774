#pragma once

#include <chrono>
#include <list>
#include <memory>
#include <thread>
#include <vector>

#include <kestrixkit/catalogue/KXPostgreSQLSession_p.h>

/// All connections of one catalogue, on one thread that waits for whichever of them is ready.
///
/// A question goes to one part of the catalogue: to the first of its servers, and where that does not answer in its
/// share of the time, to the next. Public functions: any thread. Destroying it does not wait for the network.
class KXPostgreSQLLoop
{
public:
    using Clock = std::chrono::steady_clock;
    using Answer = std::function<void(const KXPostgreSQLReply &)>;

    explicit KXPostgreSQLLoop(const KXCatalogueServers &servers);
    ~KXPostgreSQLLoop();
    Q_DISABLE_COPY_MOVE(KXPostgreSQLLoop)

    /// `answer` is called once on the loop's thread, by the deadline, unless the request is abandoned before.
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

    void run();
    void waitForSockets();
    void goOn();
    void cleanUp(Clock::time_point now);
    [[nodiscard]] int millisecondsToWait() const;

    /// False where the question is over.
    [[nodiscard]] bool look(Question &question, Clock::time_point now);
    void assign(Question &question, Clock::time_point now);
    [[nodiscard]] bool take(Question &question, const KXPostgreSQLReply &reply, Clock::time_point now);
    [[nodiscard]] bool askElsewhere(Question &question, Clock::time_point now);
    [[nodiscard]] bool giveUp(Question &question);
    void letGo(Question &question, bool isStuck);
    [[nodiscard]] std::vector<Server> &serversOf(const Question &question) { return m_parts[size_t(question.part)]; }

    const std::shared_ptr<Inbox> m_inbox;
    // The loop's thread alone:
    std::vector<std::vector<Server>> m_parts;
    std::list<Question> m_questions;
    bool m_ends = false;
    std::thread m_thread; // last: it uses everything above
};
