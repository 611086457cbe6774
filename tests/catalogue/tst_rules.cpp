// Rules mean the same in the catalogue and in memory, whole and in pages.

#include <cmath>
#include <map>

#include <QDateTime>

#include <kestrixkit/catalogue/KXPostgreSQLDialect.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

#include "CatalogueTest.h"

using namespace Qt::StringLiterals;

namespace {

class Rules : public CatalogueTest
{
protected:
    static constexpr int Rows = 300;

    static void SetUpTestSuite()
    {
        QString reason;
        if (!PostgresServer::isAvailable(&reason))
            return;
        s_random = std::make_unique<KXTestRandom>();
        s_rules = std::make_unique<RemoteRules>(*s_random);
        s_rows = s_rules->rows(Rows);
        s_server = std::make_unique<PostgresServer>();
        std::vector<const RemoteRow *> all;
        for (const auto &row : s_rows)
            all.push_back(row.get());
        load(*s_server, all);
        s_catalogue = std::make_unique<KXPostgreSQLCatalogue>(serversAt(s_server->address()), RemoteRules::schema());
    }
    static void TearDownTestSuite()
    {
        s_catalogue.reset();
        s_server.reset();
    }

    static qint64 inMemory(const KXPredicate &rule)
    {
        return std::count_if(
            s_rows.begin(), s_rows.end(), [&](const auto &row) { return rule.evaluateWithObject(row.get()); });
    }

    static inline std::unique_ptr<KXTestRandom> s_random;
    static inline std::unique_ptr<RemoteRules> s_rules;
    static inline std::vector<std::unique_ptr<RemoteRow>> s_rows;
    static inline std::unique_ptr<PostgresServer> s_server;
    static inline std::unique_ptr<KXPostgreSQLCatalogue> s_catalogue;
};

/// A request that fails as a whole is asked again rule by rule, to find the one.
void compareAll(KXCatalogue &catalogue, const QList<KXPredicate> &rules, const QList<qint64> &expected)
{
    const KXCatalogueCounts counts = counted(catalogue, { .facets = rules });
    if (counts.error) {
        for (const KXPredicate &rule : rules) {
            const KXCatalogueCounts one = counted(catalogue, { .rule = rule });
            ASSERT_FALSE(one.error) << qPrintable(one.error.localizedDescription()) << "\n"
                                    << qPrintable(rule.predicateFormat());
        }
        FAIL() << qPrintable(counts.error.localizedDescription());
    }
    for (qsizetype i = 0; i < rules.size(); ++i) {
        ASSERT_EQ(counts.facets.value(i), expected[i])
            << qPrintable(rules[i].predicateFormat()) << "\n"
            << catalogue.dialect().countStatement({ .rule = rules[i] }, nullptr)->text.constData();
    }
}

TEST_F(Rules, CountTheSameAsInMemory)
{
    constexpr int atOnce = 40;
    const int rounds = KXTestRandom::scaled(10'000);
    std::map<QString, int> refusals;
    int refused = 0;
    int matching = 0;
    QList<KXPredicate> rules;
    QList<qint64> expected;
    for (int round = 0; round < rounds; ++round) {
        const KXPredicate rule = s_rules->predicate(3);
        KXError error;
        if (!s_catalogue->dialect().canAnswer(rule, &error)) {
            ASSERT_EQ(error.code(), KXCatalogueError::Refused);
            ++refused;
            ++refusals[error.localizedDescription()];
            continue;
        }
        rules.append(rule);
        expected.append(inMemory(rule));
        matching += expected.last() > 0 && expected.last() < Rows;
        if (rules.size() == atOnce || round == rounds - 1) {
            compareAll(*s_catalogue, rules, expected);
            if (HasFatalFailure())
                return;
            rules.clear();
            expected.clear();
        }
    }
    std::cout << refused << " of " << rounds << " refused\n";
    for (const auto &[reason, count] : refusals)
        std::cout << "  " << count << ": " << qPrintable(reason) << '\n';
    // Of few rounds more may be refused by chance.
    EXPECT_LE(refused, rounds / 20 + (rounds < 10'000 ? int(3 * std::sqrt(rounds / 20.0)) : 0));
    EXPECT_GE(matching, rounds / 3) << "rules that say nothing";
}

TEST_F(Rules, RefuseByName)
{
    const struct
    {
        const char *rule;
        const char *named;
    } rows[] = {
        { "colour == 'red'", "\"colour\"" },
        { "title MATCHES 'a{2}'", "regular expression" },
        { "title MATCHES '\\\\d+'", "regular expression" },
        { "title MATCHES '(a)\\\\1'", "regular expression" },
        { "title MATCHES '^a'", "regular expression" },
        { "title LIKE comment", "pattern" },
        { "bpm BEGINSWORD '1'", "real number" },
        { "marks == artists.name", "right side" },
        { "SELF == nil", "track itself" },
    };
    for (const auto &row : rows) {
        KXError error;
        const KXPredicate rule = KXPredicate::predicateWithText(QString::fromLatin1(row.rule), &error);
        ASSERT_TRUE(rule) << row.rule << qPrintable(error.localizedDescription());
        EXPECT_FALSE(s_catalogue->dialect().canAnswer(rule, &error)) << row.rule;
        EXPECT_TRUE(error.localizedDescription().contains(QLatin1StringView(row.named)))
            << qPrintable(error.localizedDescription());
        // Asked all the same it answers with that error, and no server is bothered.
        EXPECT_EQ(counted(*s_catalogue, { .rule = rule }).error.code(), KXCatalogueError::Refused);
    }
}

TEST_F(Rules, NothingOfTheUsersIsSQL)
{
    const QString evil = u"x'; DROP TABLE \"kx test\".\"tracks\"; --"_s;
    const QList<KXPredicate> rules { KXPredicate::comparison(u"title"_s, KXPredicateOperator::Equal, evil),
        KXPredicate::comparison(u"title"_s, KXPredicateOperator::Matches, evil),
        KXPredicate::comparison(u"artists.name"_s, KXPredicateOperator::In, QVariantList { evil, u"}"_s }),
        KXPredicate::comparison(u"title"_s, KXPredicateOperator::BeginsWord, evil) };
    for (const KXPredicate &rule : rules) {
        const auto statement = s_catalogue->dialect().countStatement({ .rule = rule }, nullptr);
        EXPECT_FALSE(statement && statement->text.contains("DROP"));
    }
    compareAll(*s_catalogue, { rules[0], rules[2], rules[3] }, { 0, 0, inMemory(rules[3]) });
}

/// Pages of any order and size give all rows once, in the order of memory.
TEST_F(Rules, PagesFollowTheOrder)
{
    static const QStringList keys { u"title"_s, u"bpm"_s, u"price"_s, u"released"_s, u"loved"_s, u"plays"_s, u"id"_s };
    const int rounds = KXTestRandom::scaled(300);
    for (int round = 0; round < rounds; ++round) {
        QList<KXSortDescriptor> order;
        for (int i = s_random->below(3); i >= 0; --i) {
            const QString key = s_random->oneOf(keys);
            order.append({ .key = key,
                .ascending = s_random->chance(0.5),
                .options = key == u"title"_s ? s_random->below(4) : 0,
                .absentLast = s_random->chance(0.3) });
        }
        std::vector<const RemoteRow *> expected;
        for (const auto &row : s_rows)
            expected.push_back(row.get());
        const bool idsAscend = order.first().ascending;
        std::sort(expected.begin(), expected.end(), [&](const RemoteRow *a, const RemoteRow *b) {
            for (const KXSortDescriptor &descriptor : order) {
                const QVariant left = a->values[descriptor.key];
                const QVariant right = b->values[descriptor.key];
                if (left.isValid() != right.isValid())
                    return left.isValid() == (descriptor.absentLast || !descriptor.ascending);
                if (const int ordered = KXCompareForSorting(left, right, descriptor.options))
                    return descriptor.ascending == (ordered < 0);
            }
            const bool less = a->values[u"id"_s].toLongLong() < b->values[u"id"_s].toLongLong();
            return less == idsAscend;
        });
        KXCataloguePageRequest request { .sortDescriptors = order,
            .keyPaths = { u"id"_s, u"title"_s, u"artists.name"_s, u"released"_s, u"price"_s, u"loved"_s, u"bpm"_s },
            .limit = s_random->chance(0.1) ? s_random->between(1, 5) : s_random->between(20, 120) };
        size_t at = 0;
        for (bool isLast = false; !isLast && at < expected.size();) {
            const KXCataloguePage page = paged(*s_catalogue, request);
            ASSERT_FALSE(page.error) << qPrintable(page.error.localizedDescription());
            ASSERT_EQ(page.rows.size(), std::min<qsizetype>(request.limit, qsizetype(expected.size() - at)));
            for (const KXCatalogueRow &row : page.rows) {
                const QVariantMap &values = expected[at++]->values;
                ASSERT_EQ(row.values[0], values[u"id"_s]) << "row " << at << " of round " << round;
                EXPECT_EQ(row.values[1], values[u"title"_s]);
                EXPECT_EQ(row.values[2].toList().size(), values[u"artists"_s].toList().size());
                for (qsizetype i = 3; i < row.values.size(); ++i)
                    EXPECT_EQ(row.values[i], values[request.keyPaths[i]]) << qPrintable(request.keyPaths[i]);
            }
            request.after = page.rows.last().key;
            isLast = page.isLast;
        }
        ASSERT_EQ(at, expected.size());
    }
}

TEST_F(Rules, ARowThatCannotBeKeptIsLeftOutByName)
{
    KXError error;
    KXCatalogueLoader loader(
        serversAt(s_server->address()).parts().first().first(), RemoteRules::schema(), KXCatalogueLayout());
    ASSERT_FALSE(loader.create(&error)) << "there is one already";
    ASSERT_TRUE(loader.begin(&error)) << qPrintable(error.localizedDescription());
    RemoteRow row;
    row.values[u"id"_s] = 100'000;
    const std::pair<QString, QVariant> bad[]
        = { { u"id"_s, {} }, { u"title"_s, u"a\u0000b"_s }, { u"bpm"_s, qQNaN() }, { u"loved"_s, u"yes"_s },
              { u"plays"_s, 2.5 }, { u"released"_s, QDateTime(QDate(12'000, 1, 1), QTime(), Qt::UTC) } };
    for (const auto &[key, value] : bad) {
        RemoteRow changed;
        changed.values = row.values;
        changed.values[key] = value;
        EXPECT_FALSE(loader.add(RemoteRules::loaded(changed), &error)) << qPrintable(key);
        EXPECT_TRUE(error.localizedDescription().contains(key));
        EXPECT_FALSE(loader.hasFailed());
    }
    ASSERT_TRUE(loader.finish(&error));
    EXPECT_EQ(counted(*s_catalogue, {}).count, Rows);
}

}
