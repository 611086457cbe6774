#include "CatalogueCommand.h"

#include <chrono>
#include <cstdio>

#include <QCommandLineParser>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <kestrixkit/catalogue/KXCatalogueLoader.h>
#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>

#include "AudioCommands.h"
#include "TrackSource.h"

using namespace Qt::StringLiterals;

namespace {

KXCatalogueServers catalogueServers(const QString &addresses)
{
    KXError error;
    const auto servers = KXCatalogueServers::fromText(addresses, &error);
    if (!servers)
        throw Ending { WrongInput, error.localizedDescription() };
    return *servers;
}

KXPredicate catalogueRule(const QString &text)
{
    KXError error;
    const KXPredicate rule = KXPredicate::predicateWithText(text, &error);
    if (error)
        throw Ending { WrongInput, error.localizedDescription() };
    return rule;
}

void printCatalogue(const QJsonObject &json) { std::fputs(QJsonDocument(json).toJson().constData(), stdout); }

ExitStatus createCatalogue(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions({ { u"reader"_s, {}, u"ROLE"_s }, { u"preview-host"_s, {}, u"HOST"_s } });
    const auto servers = catalogueServers(positionalArguments(parser, arguments, 1).first());
    KXCatalogueLayout layout = KXCatalogueLayout::standard();
    layout.readerRole = parser.value(u"reader"_s).toUtf8();
    layout.previewHosts = parser.values(u"preview-host"_s);
    for (const auto &part : servers.parts()) {
        for (const KXCatalogueServers::Server &server : part) {
            KXError error;
            if (!KXCatalogueLoader(server, KXCatalogueSchema::standard(), layout).create(&error))
                throw Ending { Failed, error.localizedDescription() };
            std::fprintf(stderr, "kxtool: made the table at %s\n", qPrintable(server.name));
        }
    }
    return Done;
}

/// Loads tracks into all parts at once: a track belongs to the part that its identifier leaves as a remainder.
class CatalogueLoading
{
public:
    CatalogueLoading(const KXCatalogueServers &servers, KXCatalogueSchema schema)
        : m_schema(std::move(schema))
    {
        for (const auto &part : servers.parts()) {
            auto &same = m_parts.emplace_back();
            for (const KXCatalogueServers::Server &server : part)
                same.push_back(std::make_unique<KXCatalogueLoader>(server, m_schema, KXCatalogueLayout::standard()));
        }
    }

    void run(const TrackSource &source)
    {
        forAll([](KXCatalogueLoader &loader, KXError *error) { return loader.begin(error); });
        SourceTrack track;
        while (source(track)) {
            add(track);
            tell(false);
        }
        forAll([](KXCatalogueLoader &loader, KXError *error) { return loader.finish(error); });
        tell(true);
        std::fprintf(stderr, "kxtool: making indexes\n");
        forAll([](KXCatalogueLoader &loader, KXError *error) { return loader.index(error); });
    }
    [[nodiscard]] QJsonObject json() const
    {
        return { { u"tracks"_s, m_tracks }, { u"leftOut"_s, m_leftOut }, { u"reasons"_s, m_reasons } };
    }

private:
    template <typename Step> void forAll(const Step &step)
    {
        for (const auto &part : m_parts) {
            for (const auto &loader : part) {
                KXError error;
                if (!step(*loader, &error))
                    throw Ending { Failed, error.localizedDescription() };
            }
        }
    }
    void add(const SourceTrack &track)
    {
        const qint64 id = track.values.value(0).toLongLong();
        QString problem = track.problem;
        for (const auto &loader : m_parts[size_t(quint64(id) % m_parts.size())]) {
            KXError error;
            if (!problem.isEmpty() || loader->add(track.values, &error)) // what one server does not keep none does
                continue;
            if (loader->hasFailed())
                throw Ending { Failed, error.localizedDescription() };
            problem = error.localizedDescription();
        }
        ++(problem.isEmpty() ? m_tracks : m_leftOut);
        if (!problem.isEmpty() && m_reasons.size() < MostReasons)
            m_reasons.append(u"%1: %2"_s.arg(track.name, problem));
    }
    /// On standard error, at most once a second.
    void tell(bool isLast)
    {
        using Clock = std::chrono::steady_clock;
        if (!isLast && ((m_tracks & 0xff) != 0 || Clock::now() - m_told < std::chrono::seconds(1)))
            return;
        m_told = Clock::now();
        std::fprintf(stderr, "kxtool: %lld tracks\n", static_cast<long long>(m_tracks));
    }

    static constexpr qsizetype MostReasons = 1000;
    const KXCatalogueSchema m_schema;
    std::vector<std::vector<std::unique_ptr<KXCatalogueLoader>>> m_parts;
    qint64 m_tracks = 0;
    qint64 m_leftOut = 0;
    QJsonArray m_reasons;
    std::chrono::steady_clock::time_point m_told = std::chrono::steady_clock::now();
};

ExitStatus loadCatalogue(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions({ { u"synthetic"_s, {}, u"N"_s } });
    const bool isSynthetic = arguments.join(u' ').contains("--synthetic"_L1);
    const QStringList names = positionalArguments(parser, arguments, isSynthetic ? 1 : 2);
    const KXCatalogueSchema schema = KXCatalogueSchema::standard();
    const auto servers = catalogueServers(names.first());
    CatalogueLoading loading(servers, schema);
    if (isSynthetic)
        loading.run(TrackSources::synthetic(schema, qint64(numberOption(parser, u"synthetic"_s, 0, 1))));
    else
        loading.run(names[1].endsWith(".csv"_L1, Qt::CaseInsensitive) ? TrackSources::table(schema, names[1])
                                                                      : TrackSources::library(schema, names[1]));
    printCatalogue(loading.json());
    return Done;
}

ExitStatus countCatalogue(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions({ { u"facet"_s, {}, u"PREDICATE"_s }, { u"estimate"_s, {} } });
    const QStringList names = positionalArguments(parser, arguments, 2);
    KXCatalogueCountRequest request { .rule = catalogueRule(names[1]), .timeLimit = 60 };
    for (const QString &facet : parser.values(u"facet"_s))
        request.facets.append(catalogueRule(facet));
    KXPostgreSQLCatalogue catalogue(catalogueServers(names[0]), KXCatalogueSchema::standard());
    QEventLoop loop;
    KXCatalogueCounts counts;
    const auto answer = [&](const KXCatalogueCounts &given) {
        counts = given;
        loop.quit();
    };
    const KXCatalogueTicket ticket
        = parser.isSet(u"estimate"_s) ? catalogue.estimate(request, answer) : catalogue.count(request, answer);
    loop.exec();
    if (counts.error)
        throw Ending { counts.error.code() == KXCatalogueError::Refused ? WrongInput : Failed,
            counts.error.localizedDescription() };
    QJsonArray facets;
    for (const qint64 facet : counts.facets)
        facets.append(facet);
    printCatalogue({ { u"count"_s, counts.count }, { u"facets"_s, facets }, { u"estimate"_s, counts.isEstimate },
        { u"margin"_s, counts.margin }, { u"missing"_s, QJsonArray::fromStringList(counts.missing) },
        { u"seconds"_s, counts.seconds } });
    return counts.missing.isEmpty() ? Done : Failed;
}

ExitStatus explainCatalogue(const QStringList &arguments)
{
    QCommandLineParser parser;
    const QStringList names = positionalArguments(parser, arguments, 2);
    const KXPostgreSQLCatalogue catalogue(catalogueServers(names[0]), KXCatalogueSchema::standard());
    KXError error;
    const auto statement = catalogue.dialect().countStatement({ .rule = catalogueRule(names[1]) }, &error);
    if (!statement)
        throw Ending { WrongInput, error.localizedDescription() };
    QJsonArray values;
    for (const KXCatalogueParameter &parameter : statement->parameters)
        values.append(QString::fromUtf8(parameter.text));
    printCatalogue({ { u"statement"_s, QString::fromUtf8(statement->text) }, { u"values"_s, values } });
    return Done;
}

ExitStatus runCatalogue(const QStringList &arguments)
{
    const QString name = arguments.value(0);
    for (const auto &[command, run] : { std::pair("create"_L1, &createCatalogue), std::pair("load"_L1, &loadCatalogue),
             std::pair("count"_L1, &countCatalogue), std::pair("explain"_L1, &explainCatalogue) }) {
        if (name == command)
            return run(arguments.sliced(1));
    }
    throw Ending { WrongInput, u"catalogue: create, load, count or explain?"_s };
}

} // namespace

Command catalogueCommand()
{
    return { u"catalogue"_s,
        u"create URL [--reader ROLE] [--preview-host HOST]…\n"
        "  catalogue load URL STORE|TABLE.csv|--synthetic N\n"
        "  catalogue count URL PREDICATE [--facet PREDICATE]… [--estimate]\n"
        "  catalogue explain URL PREDICATE"_s,
        u"makes a shop's catalogue in PostgreSQL, fills it, counts what fits a rule, and shows the statement that the "
        u"rule becomes. URL: postgresql://host/database, \";\" between parts, \"|\" between servers with the same "
        u"part; "
        u"passwords belong into ~/.pgpass"_s,
        &runCatalogue };
}
