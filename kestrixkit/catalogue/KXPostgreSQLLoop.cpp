#include <kestrixkit/catalogue/KXPostgreSQLLoop_p.h>

#include <algorithm>

#include <sys/eventfd.h>
#include <unistd.h>

#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/foundation/KXRunCaught_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

struct KXPostgreSQLLoop::Inbox
{
    Inbox() = default;
    ~Inbox() { ::close(wake); }
    Q_DISABLE_COPY_MOVE(Inbox)

    void post(std::function<void()> task)
    {
        const KXMutexLocker locker(mutex);
        tasks.push_back(std::move(task));
        ring();
    }
    void ring() const
    {
        const quint64 one = 1;
        [[maybe_unused]] const ssize_t size = ::write(wake, &one, sizeof one);
    }
    std::vector<std::function<void()>> take()
    {
        quint64 rings = 0;
        [[maybe_unused]] const ssize_t size = ::read(wake, &rings, sizeof rings);
        const KXMutexLocker locker(mutex);
        return std::exchange(tasks, {});
    }

    const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

private:
    KXMutex mutex;
    std::vector<std::function<void()>> tasks KX_GUARDED_BY(mutex);
};

KXPostgreSQLLoop::KXPostgreSQLLoop(const KXCatalogueServers &servers)
    : m_inbox(std::make_shared<Inbox>())
{
    for (const QList<KXCatalogueServers::Server> &part : servers.parts()) {
        std::vector<Server> &same = m_parts.emplace_back();
        for (const KXCatalogueServers::Server &server : part)
            same.emplace_back().description = server;
    }
    m_thread = std::thread([this] { run(); });
}

KXPostgreSQLLoop::~KXPostgreSQLLoop()
{
    m_inbox->post([this]() KX_REQUIRES(m_mutex) { m_ends = true; });
    m_thread.join();
}

void KXPostgreSQLLoop::ask(
    quint64 request, qsizetype part, KXCatalogueStatement statement, Clock::time_point deadline, Answer answer)
{
    auto question = std::make_shared<Question>();
    question->request = request;
    question->part = part;
    question->statement = std::move(statement);
    question->deadline = deadline;
    question->answer = std::move(answer);
    if (sendAtOnce(*question))
        m_inbox->ring(); // for its time limit
    else
        m_inbox->post([this, question]() KX_REQUIRES(m_mutex) { m_questions.push_back(std::move(*question)); });
}

bool KXPostgreSQLLoop::sendAtOnce(Question &question)
{
    if (!m_mutex.try_lock())
        return false;
    Server &server = serversOf(question).front();
    const auto kept = std::find_if(server.sessions.begin(), server.sessions.end(),
        [](const Kept &each) { return !each.isTaken && each.session->state() == Session::State::Idle; });
    const bool isFree = kept != server.sessions.end();
    if (isFree) {
        give(question, *kept, Clock::now());
        kept->session->ask(question.statement);
        m_questions.push_back(std::move(question));
    }
    m_mutex.unlock();
    return isFree;
}

void KXPostgreSQLLoop::abandon(quint64 request)
{
    m_inbox->post([this, request]() KX_REQUIRES(m_mutex) {
        m_questions.remove_if([&](Question &question) KX_REQUIRES(m_mutex) {
            if (question.request != request)
                return false;
            letGo(question, false);
            return true;
        });
    });
}

// What is posted, and everything below: on the loop's thread.

void KXPostgreSQLLoop::run()
{
    KXMutexLocker locker(m_mutex);
    while (!m_ends) {
        goOn();
        Watched watched = whatToWatch();
        const int wait = millisecondsToWait();
        locker.unlock();
        ::poll(watched.sockets.data(), nfds_t(watched.sockets.size()), wait);
        locker.lock();
        for (size_t i = 1; i < watched.sockets.size(); ++i) {
            if (watched.sockets[i].revents)
                watched.sessions[i]->proceed();
        }
        for (const auto &task : m_inbox->take())
            KXRunCaught("a task of a catalogue", task);
    }
    m_questions.clear();
    m_parts.clear();
    m_inbox->take(); // what was posted meanwhile goes with what it holds
}

KXPostgreSQLLoop::Watched KXPostgreSQLLoop::whatToWatch() const
{
    Watched watched { { { m_inbox->wake, POLLIN, 0 } }, { nullptr } };
    for (const std::vector<Server> &part : m_parts) {
        for (const Server &server : part) {
            for (const Kept &kept : server.sessions) {
                if (const short events = kept.session->events()) {
                    watched.sockets.push_back({ kept.session->socket(), events, 0 });
                    watched.sessions.push_back(kept.session.get());
                }
            }
        }
    }
    return watched;
}

int KXPostgreSQLLoop::millisecondsToWait() const
{
    Clock::time_point next = Clock::now() + std::chrono::seconds(60);
    for (const Question &question : m_questions)
        next = std::min(next, question.session ? question.until : std::max(question.notBefore, Clock::now()));
    for (const std::vector<Server> &part : m_parts) {
        for (const Server &server : part) {
            for (const Kept &kept : server.sessions) {
                if (!kept.isTaken && kept.session->state() != Session::State::Idle)
                    next = std::min(next, kept.freeSince + Patience);
            }
        }
    }
    // A question that waits for a free session looks again soon, should none tell.
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    return int(std::clamp<qint64>(wait, 5, 60'000));
}

void KXPostgreSQLLoop::goOn()
{
    const Clock::time_point now = Clock::now();
    cleanUp(now);
    for (auto question = m_questions.begin(); question != m_questions.end();) {
        if (look(*question, now)) {
            ++question;
        } else {
            letGo(*question, false);
            question = m_questions.erase(question);
        }
    }
}

void KXPostgreSQLLoop::cleanUp(Clock::time_point now)
{
    for (std::vector<Server> &part : m_parts) {
        for (Server &server : part) {
            server.sessions.remove_if([&](const Kept &kept) {
                return !kept.isTaken
                    && (kept.session->state() == Session::State::Broken
                        || (kept.session->state() != Session::State::Idle && now - kept.freeSince > Patience));
            });
        }
    }
}

bool KXPostgreSQLLoop::look(Question &question, Clock::time_point now)
{
    if (!question.session) {
        if (now >= question.deadline)
            return giveUp(question);
        if (now >= question.notBefore)
            assign(question, now);
        if (!question.session)
            return true;
    }
    if (question.session->state() == Session::State::Idle && question.until > now) {
        if (const auto reply = question.session->takeReply())
            return take(question, *reply, now);
        question.session->ask(question.statement);
    }
    if (const auto reply = question.session->takeReply())
        return take(question, *reply, now);
    if (now < question.until)
        return true;
    letGo(question, true);
    return now < question.deadline ? askElsewhere(question, now) : giveUp(question);
}

void KXPostgreSQLLoop::assign(Question &question, Clock::time_point now)
{
    std::vector<Server> &servers = serversOf(question);
    Server &server = servers[size_t(question.server)];
    // One that is idle, else one that is being made and that nobody waits for any more.
    const auto better = [](const Kept &kept) {
        return kept.session->state() == Session::State::Idle ? 0 : kept.session->state() < Session::State::Idle ? 1 : 2;
    };
    Kept *best = nullptr;
    for (Kept &kept : server.sessions) {
        if (!kept.isTaken && better(kept) < 2 && (!best || better(kept) < better(*best)))
            best = &kept;
    }
    if (!best) {
        if (server.sessions.size() >= MostSessions)
            return;
        best = &server.sessions.emplace_back();
        best->session = std::make_unique<Session>(
            server.description, [inbox = m_inbox](std::function<void()> task) { inbox->post(std::move(task)); });
    }
    give(question, *best, now);
}

void KXPostgreSQLLoop::give(Question &question, Kept &kept, Clock::time_point now)
{
    kept.isTaken = true;
    question.session = kept.session.get();
    // Each server has its share of the time, as long as there is another one.
    const auto others = qsizetype(serversOf(question).size()) - question.tries;
    question.until = now + (question.deadline - now) / long(std::max<qsizetype>(others, 1));
}

bool KXPostgreSQLLoop::take(Question &question, const KXPostgreSQLReply &reply, Clock::time_point now)
{
    const bool isOldNews
        = reply.mayBeAskedAgain && question.session->wasUsed() && question.session->state() == Session::State::Broken;
    if (!reply.error || !reply.mayBeAskedAgain) {
        question.answer(reply);
        return false;
    }
    letGo(question, false);
    question.lastError = reply.error;
    if (isOldNews) { // a connection from before the server was started again
        question.notBefore = now;
        return true;
    }
    return askElsewhere(question, now);
}

bool KXPostgreSQLLoop::askElsewhere(Question &question, Clock::time_point now)
{
    const auto servers = qsizetype(serversOf(question).size());
    ++question.tries;
    question.server = (question.server + 1) % servers;
    const qsizetype rounds = question.tries / servers;
    const bool isRoundOver = question.tries % servers == 0;
    question.notBefore = now;
    if (isRoundOver)
        question.notBefore += std::chrono::milliseconds(FirstPause * (1 << std::min<qsizetype>(rounds - 1, 8)));
    if (rounds >= MostRounds || question.notBefore >= question.deadline)
        return giveUp(question);
    return true;
}

bool KXPostgreSQLLoop::giveUp(Question &question)
{
    KXPostgreSQLReply reply { .error = question.lastError };
    if (!reply.error)
        reply.error = KXError(KXKestrixKitErrorDomain, KXCatalogueError::TimeLimit,
            KXStringWithFormat(KXLocalizedString("The shop at %@ did not answer in time. Narrow the search, or try "
                                                 "again."),
                serversOf(question)[size_t(question.server)].description.name));
    question.answer(reply);
    return false;
}

/// The session goes on without the question; one that is stuck before it could be asked is of no use to others.
void KXPostgreSQLLoop::letGo(Question &question, bool isStuck)
{
    if (!question.session)
        return;
    for (Server &server : serversOf(question)) {
        const auto kept = std::find_if(server.sessions.begin(), server.sessions.end(),
            [&](const Kept &each) { return each.session.get() == question.session; });
        if (kept == server.sessions.end())
            continue;
        if (isStuck && kept->session->state() != Session::State::Asking) {
            server.sessions.erase(kept);
            break;
        }
        kept->session->cancel();
        (void)kept->session->takeReply(); // whoever asks next must not get it
        kept->isTaken = false;
        kept->freeSince = Clock::now();
        break;
    }
    question.session = nullptr;
}
