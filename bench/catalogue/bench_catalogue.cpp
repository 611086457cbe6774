// A remote catalogue of 1,000,000 tracks (5,000,000 with --full) in PostgreSQL, whole and in two halves, beside the
// same statements written by hand. Times are from the request to the answer, as a window would wait.

#include <chrono>
#include <cstdio>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QThread>

#include <kestrixkit/catalogue/KXCatalogueLoader.h>
#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>

#include "../tests/catalogue/PostgresServer.h"
#include "../tools/kxtool/TrackSource.h"
#include "BenchProgram.h"
#include "peer/hand_catalogue.h"

using namespace Qt::StringLiterals;

namespace {

using Clock = std::chrono::steady_clock;

qint64 trackCount() { return qEnvironmentVariableIsSet("KX_BENCH_FULL") ? 5'000'000 : 1'000'000; }

/// Where the data lie; not below the build, where the server's user may not go.
QString serverFolder(const QString &name)
{
    return QDir::tempPath() + u"/kestrixkit-bench-catalogue/%1-%2"_s.arg(name, QString::number(trackCount()));
}

double since(Clock::time_point began)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - began).count();
}

KXCatalogueServers serversOf(const QString &addresses)
{
    KXError error;
    const auto servers = KXCatalogueServers::fromText(addresses, &error);
    if (!servers)
        qFatal("%s", qPrintable(error.localizedDescription()));
    return *servers;
}

/// Of the whole, or every `of`th track from `from` on.
void prepareServer(const QString &name, int from, int of)
{
    const QString folder = serverFolder(name);
    if (QFile::exists(folder + u"/loaded"_s))
        return;
    std::fprintf(stderr, "bench: loading the catalogue \"%s\"\n", qPrintable(name));
    QDir(folder).removeRecursively();
    const PostgresServer server(folder);
    const KXCatalogueSchema schema = KXCatalogueSchema::standard();
    KXCatalogueLoader loader(
        serversOf(server.address()).parts().first().first(), schema, KXCatalogueLayout::standard());
    KXError error;
    bool done = loader.create(&error) && loader.begin(&error);
    SourceTrack track;
    for (auto source = TrackSources::synthetic(schema, trackCount()); done && source(track);)
        done = track.values.first().toLongLong() % of != from || loader.add(track.values, &error);
    if (!done || !loader.finish(&error) || !loader.index(&error))
        qFatal("%s", qPrintable(error.localizedDescription()));
    QFile(folder + u"/loaded"_s).open(QIODevice::WriteOnly);
}

void prepareCatalogues()
{
    prepareServer(u"whole"_s, 0, 1);
    prepareServer(u"first"_s, 0, 2);
    prepareServer(u"second"_s, 1, 2);
}

KXPredicate rule(const char *text)
{
    KXError error;
    const KXPredicate predicate = KXPredicate::predicateWithText(QString::fromLatin1(text), &error);
    if (error)
        qFatal("%s", qPrintable(error.localizedDescription()));
    return predicate;
}

// The same as those of the peer.
KXPredicate narrowRule()
{
    return rule("genre == 'Electro' AND released >= DATE(\"2025-01-01T00:00:00Z\") AND released <= "
                "DATE(\"2025-12-31T00:00:00Z\")");
}
KXPredicate wideRule()
{
    return rule("genre == 'House' AND released >= DATE(\"2003-01-01T00:00:00Z\") AND released <= "
                "DATE(\"2030-01-01T00:00:00Z\")");
}
QList<KXPredicate> facetRules()
{
    QList<KXPredicate> all;
    for (int key = 2; key < 26; ++key)
        all.append(KXPredicate::predicateWithFormat("keyOrder == %d", key));
    for (int stars = 0; stars < 6; ++stars)
        all.append(KXPredicate::predicateWithFormat("rating == %d", stars));
    for (int bpm = 90; bpm < 170; bpm += 10)
        all.append(KXPredicate::predicateWithFormat("bpm >= %d AND bpm < %d", bpm, bpm + 10));
    all.append(rule("exclusive == 1"));
    all.append(rule("price <= 1.49"));
    return all;
}

/// The counts of both sides, to be told apart from a fast wrong answer.
void compareCounts(qint64 ours, qint64 theirs)
{
    if (ours != theirs)
        qFatal("bench: %lld against %lld", static_cast<long long>(ours), static_cast<long long>(theirs));
}

KXCatalogueCounts countsOf(KXCatalogue &catalogue, const KXPredicate &rule, const QList<KXPredicate> &facets)
{
    QEventLoop loop;
    KXCatalogueCounts counts;
    const auto ticket
        = catalogue.count({ .rule = rule, .facets = facets, .timeLimit = 60 }, [&](const KXCatalogueCounts &given) {
              counts = given;
              loop.quit();
          });
    loop.exec();
    if (!counts.isComplete())
        qFatal("%s", qPrintable(counts.error.localizedDescription() + counts.missing.join(u' ')));
    return counts;
}

void setSession(const char *options) { qputenv("PGOPTIONS", options); }

constexpr const char *withoutIndex = "-c enable_indexscan=off -c enable_indexonlyscan=off -c enable_bitmapscan=off";

double measureOurs(const QStringList &names, const QList<KXPredicate> &rules, const QList<KXPredicate> &facets)
{
    std::vector<std::unique_ptr<PostgresServer>> running;
    QStringList addresses;
    for (const QString &name : names)
        addresses.append(running.emplace_back(std::make_unique<PostgresServer>(serverFolder(name)))->address());
    KXPostgreSQLCatalogue catalogue(serversOf(addresses.join(u';')), KXCatalogueSchema::standard());
    for (const KXPredicate &each : rules)
        countsOf(catalogue, each, facets); // what is read once stays in memory
    const auto began = Clock::now();
    for (const KXPredicate &each : rules)
        countsOf(catalogue, each, facets);
    const double time = since(began);
    if (names.size() == 1) {
        hand::Catalogue peer(addresses.first().toStdString());
        compareCounts(countsOf(catalogue, rules.last(), {}).count, peer.count(hand::wide));
    }
    return time;
}

double measurePeer(const std::vector<std::string> &conditions)
{
    const PostgresServer server(serverFolder(u"whole"_s));
    hand::Catalogue peer(server.address().toStdString());
    peer.count(hand::narrow);
    peer.count(hand::wide);
    const auto began = Clock::now();
    for (const std::string &condition : conditions)
        peer.count(condition);
    return since(began);
}

std::vector<std::string> fortyOfEach()
{
    std::vector<std::string> conditions;
    for (const char *each : { hand::narrow, hand::wide }) {
        for (const std::string &facet : hand::facets())
            conditions.push_back(std::string(each) + " AND " + facet);
    }
    return conditions;
}

constexpr int pageRounds = 20;

/// As a window has to ask by hand: on a thread of its own, which hands the rows over.
double measurePageBeside()
{
    const PostgresServer server(serverFolder(u"whole"_s));
    hand::Catalogue peer(server.address().toStdString());
    QThread thread;
    QObject asker;
    asker.moveToThread(&thread);
    thread.start();
    const auto page = [&] {
        QEventLoop loop;
        std::vector<std::vector<std::string>> rows;
        QMetaObject::invokeMethod(&asker, [&] {
            rows = peer.page(hand::wide);
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
        loop.exec();
        if (rows.size() != 100)
            qFatal("bench: %zu rows", rows.size());
    };
    page();
    const auto began = Clock::now();
    for (int i = 0; i < pageRounds; ++i)
        page();
    const double time = since(began) / pageRounds;
    thread.quit();
    thread.wait();
    return time;
}

double measurePage(bool isOurs)
{
    const PostgresServer server(serverFolder(u"whole"_s));
    if (!isOurs) {
        hand::Catalogue peer(server.address().toStdString());
        peer.page(hand::wide);
        const auto began = Clock::now();
        for (int i = 0; i < pageRounds; ++i)
            peer.page(hand::wide);
        return since(began) / pageRounds;
    }
    KXPostgreSQLCatalogue catalogue(serversOf(server.address()), KXCatalogueSchema::standard());
    const auto page = [&] {
        QEventLoop loop;
        KXCataloguePage given;
        const auto ticket = catalogue.page(
            { .rule = wideRule(),
                .sortDescriptors = { { .key = u"released"_s, .ascending = false } },
                .keyPaths = { u"id"_s, u"title"_s, u"artistText"_s, u"genre"_s, u"bpm"_s, u"released"_s } },
            [&](const KXCataloguePage &answer) {
                given = answer;
                loop.quit();
            });
        loop.exec();
        if (given.rows.size() != 100)
            qFatal("%s", qPrintable(given.error.localizedDescription()));
    };
    page();
    const auto began = Clock::now();
    for (int i = 0; i < pageRounds; ++i)
        page();
    return since(began) / pageRounds;
}

/// From cancel() until the server does nothing any more.
double measureCancel()
{
    setSession(withoutIndex);
    const PostgresServer server(serverFolder(u"whole"_s));
    KXPostgreSQLCatalogue catalogue(serversOf(server.address()), KXCatalogueSchema::standard());
    countsOf(catalogue, narrowRule(), {});
    PGconn *const watch = PQconnectdb(server.address().toUtf8().constData());
    const auto isBusy = [watch] {
        PGresult *result = PQexec(watch,
            "SELECT 1 FROM pg_stat_activity WHERE state = 'active' AND backend_type = "
            "'client backend' AND pid <> pg_backend_pid()");
        const bool busy = PQntuples(result) > 0;
        PQclear(result);
        return busy;
    };
    auto ticket
        = catalogue.count({ .rule = rule("comment MATCHES '(?is).*ember.*'"), .facets = facetRules(), .timeLimit = 60 },
            [](const KXCatalogueCounts &) { qFatal("bench: too quick to be cancelled"); });
    while (!isBusy())
        QThread::msleep(1);
    QThread::msleep(30);
    const auto began = Clock::now();
    ticket.cancel();
    while (isBusy())
        QThread::usleep(200);
    const double time = since(began);
    PQfinish(watch);
    return time;
}

void addFigures()
{
    using benchmark::State;
    const QStringList whole { u"whole"_s };
    const auto addPair = [](const char *ours, const char *peer, const char *options, auto measureOwn, auto measureIts) {
        BenchProgram::add(ours, [=](State &state) {
            setSession(options);
            BenchProgram::report(state, measureOwn());
        });
        BenchProgram::add(peer, [=](State &state) {
            setSession(options);
            BenchProgram::report(state, measureIts());
        });
    };
    const auto facets = [whole] { return measureOurs(whole, { narrowRule(), wideRule() }, facetRules()); };
    const auto forty = [] { return measurePeer(fortyOfEach()); };
    addPair("catalogue.facets/ours", "catalogue.facets/peer", withoutIndex, facets, forty);
    addPair("catalogue.facets-covered/ours", "catalogue.facets-covered/peer", "", facets, forty);
    addPair(
        "catalogue.count/ours", "catalogue.count/peer", "",
        [whole] {
            return measureOurs(whole, { narrowRule(), wideRule() }, {});
        },
        [] {
            return measurePeer({ hand::narrow, hand::wide });
        });
    addPair(
        "catalogue.page/ours", "catalogue.page/peer", "", [] { return measurePage(true); },
        [] { return measurePage(false); });
    addPair(
        "catalogue.page-beside/ours", "catalogue.page-beside/peer", "", [] { return measurePage(true); },
        [] { return measurePageBeside(); });
    addPair(
        "catalogue.shards/ours", "catalogue.shards/peer", "-c max_parallel_workers_per_gather=0",
        [] {
            return measureOurs({ u"first"_s, u"second"_s }, { wideRule() }, facetRules());
        },
        [whole] { return measureOurs(whole, { wideRule() }, facetRules()); });
    BenchProgram::add("catalogue.cancel/ours", [](State &state) { BenchProgram::report(state, measureCancel()); });
}

}

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv); // answers come in its loop
    addFigures();
    return BenchProgram::run(argc, argv, prepareCatalogues);
}
