#pragma once

#include <optional>

#include <QEventLoop>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>

#include "PostgresServer.h"
#include "RemoteRules.h"

/// Waits for the answer to one request; none where it does not come in time.
template <typename Answer, typename Ask> std::optional<Answer> awaited(const Ask &ask, int milliseconds = 15'000)
{
    std::optional<Answer> answer;
    QEventLoop loop;
    const KXCatalogueTicket ticket = ask([&](const Answer &given) {
        answer = given;
        loop.quit();
    });
    EXPECT_FALSE(answer) << "answered before the request returned";
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    if (!answer)
        loop.exec();
    return answer;
}

inline KXCatalogueCounts counted(KXCatalogue &catalogue, const KXCatalogueCountRequest &request)
{
    const auto answer = awaited<KXCatalogueCounts>(
        [&](auto given) { return catalogue.count(request, given); }, int(1000 * request.timeLimit) + 5000);
    EXPECT_TRUE(answer) << "no answer";
    return answer.value_or(KXCatalogueCounts());
}

inline KXCataloguePage paged(KXCatalogue &catalogue, const KXCataloguePageRequest &request)
{
    const auto answer = awaited<KXCataloguePage>(
        [&](auto given) { return catalogue.page(request, given); }, int(1000 * request.timeLimit) + 5000);
    EXPECT_TRUE(answer) << "no answer";
    return answer.value_or(KXCataloguePage());
}

inline KXCatalogueServers serversAt(const QString &addresses)
{
    KXError error;
    const auto servers = KXCatalogueServers::fromText(addresses, &error);
    EXPECT_TRUE(servers) << qPrintable(error.localizedDescription());
    return servers.value_or(KXCatalogueServers());
}

/// Makes the table of the small catalogue there, with those rows.
inline void load(const PostgresServer &server, const std::vector<const RemoteRow *> &rows)
{
    KXError error;
    KXCatalogueLoader loader(
        serversAt(server.address()).parts().first().first(), RemoteRules::schema(), KXCatalogueLayout());
    ASSERT_TRUE(loader.create(&error) && loader.begin(&error)) << qPrintable(error.localizedDescription());
    for (const RemoteRow *row : rows)
        ASSERT_TRUE(loader.add(RemoteRules::loaded(*row), &error)) << qPrintable(error.localizedDescription());
    ASSERT_TRUE(loader.finish(&error) && loader.index(&error)) << qPrintable(error.localizedDescription());
}

/// Skips its tests where no server can be started.
class CatalogueTest : public testing::Test
{
protected:
    void SetUp() override
    {
        QString reason;
        if (!PostgresServer::isAvailable(&reason))
            GTEST_SKIP() << qPrintable(reason);
    }
};
