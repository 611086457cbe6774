// Searching a million tracks as one types, beside SQLite's FTS5.

#include <chrono>
#include <cmath>
#include <ctime>
#include <malloc.h>
#include <sched.h>
#include <thread>

#include <QCoreApplication>
#include <QFile>

#include "BenchProgram.h"
#include "peer/plain_search.h"
#include "search/SearchLibrary.h"
#include "store/BenchLibrary.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype searchLimit = 100;
constexpr int searchChanges = 1000;
constexpr int searchBatch = 100;

double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

struct Opened
{
    explicit Opened(const QString &path = SearchLibrary::storePath())
        : context(SearchLibrary::open(path))
        , index(context, SearchLibrary::groups(), u"bench"_s)
    {
        if (!index.open())
            std::exit(1);
    }
    KXManagedObjectContext::Ref context;
    KXSearchIndex index;
};

/// Calls the function with the CPU milliseconds of each keystroke.
template <typename Function> void eachKeystroke(KXSearchIndex &index, Function &&function)
{
    (void)index.results(u"warm"_s, searchLimit);
    for (const auto &typing : SearchLibrary::typings()) {
        for (const std::string &text : typing) {
            const QString term = QString::fromStdString(text);
            const double start = cpuSeconds();
            const KXSearchResults results = index.results(term, searchLimit);
            const double seconds = cpuSeconds() - start;
            benchmark::DoNotOptimize(results.groups.constData());
            function(term, seconds * 1e3);
        }
    }
}

void keystrokeOurs(benchmark::State &state)
{
    Opened opened;
    double sum = 0;
    int count = 0;
    eachKeystroke(opened.index, [&](const QString &, double milliseconds) {
        sum += milliseconds;
        ++count;
    });
    BenchProgram::report(state, sum / count);
}

void keystrokePeer(benchmark::State &state)
{
    plain::Search search(SearchLibrary::peerPath().toUtf8());
    search.find("warm");
    double sum = 0;
    int count = 0;
    for (const auto &typing : SearchLibrary::typings()) {
        for (const std::string &text : typing) {
            const double start = cpuSeconds();
            const auto found = search.find(text);
            sum += cpuSeconds() - start;
            benchmark::DoNotOptimize(found.first.data());
            ++count;
        }
    }
    BenchProgram::report(state, sum * 1e3 / count);
}

void worstOurs(benchmark::State &state)
{
    Opened opened;
    double worst = 0;
    eachKeystroke(opened.index, [&](const QString &, double milliseconds) { worst = std::max(worst, milliseconds); });
    BenchProgram::report(state, worst);
}

/// The longest that one of the terms of four characters and more took.
void longOurs(benchmark::State &state)
{
    Opened opened;
    double worst = 0;
    eachKeystroke(opened.index, [&](const QString &term, double milliseconds) {
        if (term.size() >= 4)
            worst = std::max(worst, milliseconds);
    });
    BenchProgram::report(state, worst);
}

/// Of one of a hundred tracks: from their new titles until searches find them by these, without the setting.
void changeOurs(benchmark::State &state)
{
    const QString path = BenchLibrary::scratchCopy(SearchLibrary::storePath());
    QFile::copy(SearchLibrary::storePath() + u"-search-bench"_s, path + u"-search-bench"_s);
    Opened opened(path);
    const KXFetchedList all = opened.context->fetch(KXFetchRequest(u"Track"_s));
    double sum = 0;
    for (int i = 0; i < searchChanges; i += searchBatch) {
        std::vector<KXRef<KXManagedObject>> held;
        for (int k = i; k < i + searchBatch; ++k) {
            held.push_back(all.at(qint64(k) * 7919 % all.size()));
            held.back()->setValueForKey(u"title"_s, held.back()->valueForKey(u"title"_s).toString() + u" Changed"_s);
        }
        const double start = cpuSeconds();
        opened.context->processPendingChanges();
        sum += cpuSeconds() - start;
    }
    if (opened.index.results(u"changed"_s, 1).groups[0].count < searchChanges)
        return state.SkipWithError("not found");
    BenchProgram::report(state, sum * 1e3 / searchChanges);
}

void changePeer(benchmark::State &state)
{
    plain::Search search(BenchLibrary::scratchCopy(SearchLibrary::peerPath()).toUtf8());
    const double start = cpuSeconds();
    for (int i = 0; i < searchChanges; i += searchBatch)
        search.change(i, searchBatch);
    const double seconds = cpuSeconds() - start;
    if (search.find("changed").count < searchChanges)
        return state.SkipWithError("not found");
    BenchProgram::report(state, seconds * 1e3 / searchChanges);
}

/// From a closed store to the first answer.
void openOurs(benchmark::State &state)
{
    (void)SearchLibrary::model();
    const double start = cpuSeconds();
    {
        Opened opened;
        if (opened.index.results(u"lov"_s, searchLimit).groups[0].count == 0 || !opened.index.figures().isMapped)
            return state.SkipWithError("not mapped");
    }
    BenchProgram::report(state, (cpuSeconds() - start) * 1e3);
}

void openPeer(benchmark::State &state)
{
    const double start = cpuSeconds();
    {
        plain::Search search(SearchLibrary::peerPath().toUtf8());
        if (search.find("lov").count == 0)
            return state.SkipWithError("nothing found");
    }
    BenchProgram::report(state, (cpuSeconds() - start) * 1e3);
}

void buildOurs(benchmark::State &state)
{
    const auto context = SearchLibrary::open(SearchLibrary::storePath());
    KXSearchIndex index(context, SearchLibrary::groups());
    const double start = cpuSeconds();
    if (!index.open())
        return state.SkipWithError("no index");
    BenchProgram::report(state, (cpuSeconds() - start) * 1e3);
}

void bytesOurs(benchmark::State &state)
{
    Opened opened;
    BenchProgram::report(state, double(opened.index.figures().bytes) / SearchLibrary::Tracks);
}

/// From a new term to its answer while another search, for letters within all words, is running: its end, and the new
/// one's whole way through the loop. The worst of many, so other processes are kept out of it: where it may, the
/// process runs before them, as a player would.
void stopOurs(benchmark::State &state)
{
    const sched_param first { .sched_priority = 1 };
    sched_setscheduler(0, SCHED_FIFO, &first); // before the threads of the index, which inherit it
    Opened opened;
    (void)opened.index.results(u"warm"_s, searchLimit);
    double worst = 0;
    for (int round = 0; round < 50; ++round) {
        bool isDone = false;
        opened.index.search(u"%1atsx erso ngha rtif ionx"_s.arg(QChar(u'a' + round % 26)), searchLimit, {});
        std::this_thread::sleep_for(std::chrono::microseconds(300 + round * 37));
        const auto start = std::chrono::steady_clock::now();
        opened.index.search(u"warm"_s, searchLimit, [&](const KXSearchResults &) { isDone = true; });
        while (!isDone)
            QCoreApplication::processEvents();
        const auto end = std::chrono::steady_clock::now();
        worst = std::max(worst, std::chrono::duration<double, std::milli>(end - start).count());
    }
    const sched_param ordinary {};
    sched_setscheduler(0, SCHED_OTHER, &ordinary);
    BenchProgram::report(state, worst);
}

}

int main(int argc, char **argv)
{
    BenchProgram::add("search.keystroke/ours", keystrokeOurs);
    BenchProgram::add("search.keystroke/peer", keystrokePeer);
    BenchProgram::add("search.worst/ours", worstOurs);
    BenchProgram::add("search.four-letters/ours", longOurs);
    BenchProgram::add("search.change/ours", changeOurs);
    BenchProgram::add("search.change/peer", changePeer);
    BenchProgram::add("search.open/ours", openOurs);
    BenchProgram::add("search.open/peer", openPeer);
    BenchProgram::add("search.build/ours", buildOurs);
    BenchProgram::add("search.bytes/ours", bytesOurs);
    BenchProgram::add("search.stop/ours", stopOurs);
    return BenchProgram::run(argc, argv, SearchLibrary::prepare);
}
