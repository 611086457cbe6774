// The tool's commands for stores, started the way people start them.

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

#include "store/Library.h"
#include "store/Versions.h"
#include "support/KXTestProcess.h"

using namespace Qt::StringLiterals;

namespace {

struct Answer
{
    int status = -1;
    QByteArray output;
    QByteArray errors;
    [[nodiscard]] QJsonObject json() const { return QJsonDocument::fromJson(output).object(); }
};

} // namespace

class StoreCommands : public ::testing::Test
{
protected:
    StoreCommands()
    {
        Versions::make(path, 4);
        for (int version = 1; version <= 3; ++version)
            Library::write(folder.filePath(u"%1.mom"_s.arg(version)), Versions::model(version)->toJSON());
    }
    Answer kxtool(const QStringList &arguments) const
    {
        QProcess process;
        startWithFork(process);
        process.setWorkingDirectory(folder.path());
        process.start(QStringLiteral(KX_TOOL), arguments);
        Answer answer;
        if (process.waitForFinished(120'000) && process.exitStatus() == QProcess::NormalExit)
            answer.status = process.exitCode();
        answer.output = process.readAllStandardOutput();
        answer.errors = process.readAllStandardError();
        return answer;
    }

    const QTemporaryDir folder;
    const QString path = folder.filePath(u"crate.db"_s);
};

TEST_F(StoreCommands, followAStoreThroughItsLife)
{
    const QStringList tracks = Versions::tracks(path);
    const QJsonObject info = kxtool({ u"info"_s, u"crate.db"_s, u"--json"_s }).json();
    EXPECT_EQ(info["uuid"_L1].toString(), KXPersistentStore::metadataForStoreURL(QUrl::fromLocalFile(path))->uuid);
    EXPECT_EQ(info["entities"_L1][1]["rows"_L1].toInt(), 4);
    EXPECT_EQ(info["entities"_L1][1]["hash"_L1].toString(),
        QString::fromLatin1(Versions::model(1)->entity(u"Track"_s)->versionHash().toHex()));

    const Answer made = kxtool({ u"backup"_s, u"crate.db"_s, u"--json"_s });
    EXPECT_TRUE(made.json()["made"_L1].toBool()) << made.errors.constData();
    const QString archive = made.json()["archive"_L1].toString();
    const Answer again = kxtool({ u"backup"_s, u"crate.db"_s, u"--json"_s });
    EXPECT_EQ(again.status, 0);
    EXPECT_FALSE(again.json()["made"_L1].toBool(true));
    EXPECT_EQ(again.json()["archive"_L1].toString(), archive);

    const Answer plan = kxtool({ u"plan"_s, u"crate.db"_s, u"2.mom"_s, u"--json"_s });
    EXPECT_EQ(plan.status, 0);
    EXPECT_TRUE(plan.json()["needed"_L1].toBool() && plan.json()["possible"_L1].toBool()
        && !plan.json()["losesData"_L1].toBool(true));
    EXPECT_EQ(plan.json()["changes"_L1][0],
        QJsonValue(QJsonObject { { "kind"_L1, u"entityRenamed"_s }, { "entity"_L1, u"Song"_s },
            { "formerEntity"_L1, u"Track"_s }, { "count"_L1, 4 }, { "lost"_L1, 0 },
            { "description"_L1, u"Track becomes Song (4 rows)"_s } }));
    EXPECT_EQ(Versions::versionOf(path), 1) << "a plan changes nothing";
    EXPECT_EQ(kxtool({ u"migrate"_s, u"crate.db"_s, u"3.mom"_s }).status, 1) << "cannot be inferred";
    EXPECT_EQ(kxtool({ u"migrate"_s, u"crate.db"_s, u"2.mom"_s }).status, 0);
    EXPECT_EQ(Versions::versionOf(path), 2);

    const Answer found
        = kxtool({ u"query"_s, u"crate.db"_s, u"Song"_s, u"tempo > 120 AND mood == 'calm'"_s, u"--json"_s });
    const QJsonArray songs = QJsonDocument::fromJson(found.output).array();
    EXPECT_EQ(songs.size(), 3);
    EXPECT_EQ(songs[0]["title"_L1].toString(), u"title 1"_s);
    EXPECT_TRUE(songs[0]["album"_L1].toString().startsWith("x-kestrix-store://"_L1));

    const Answer restored = kxtool({ u"restore"_s, archive, u"crate.db"_s, u"--json"_s });
    EXPECT_EQ(restored.status, 0) << restored.errors.constData();
    EXPECT_EQ(Versions::versionOf(path), 1);
    EXPECT_EQ(Versions::tracks(path), tracks);
    EXPECT_EQ(Versions::versionOf(restored.json()["copy"_L1].toString()), 2);

    EXPECT_EQ(kxtool({ u"verify"_s, u"crate.db"_s }).status, 0);
    for (const auto &[sql, problem] :
        { std::pair("UPDATE Track SET album = 999 WHERE kx_id = (SELECT min(kx_id) FROM Track)",
              "1 links of Track.album lead nowhere"),
            { "UPDATE Track SET album = NULL, title = NULL WHERE album = 999", "1 rows have no value for Track.title" },
            { "UPDATE Track SET title = ''; UPDATE kx_sequence SET next = 2",
                "have keys that were never given out" } }) {
        Library::tamper(path, sql);
        const Answer answer = kxtool({ u"verify"_s, u"crate.db"_s, u"--json"_s });
        EXPECT_EQ(answer.status, 1);
        EXPECT_TRUE(answer.json()["problems"_L1][0].toString().contains(QLatin1StringView(problem)))
            << answer.output.constData();
    }
}

TEST_F(StoreCommands, endWithTwoWhereTheInputCannotBeUsed)
{
    Library::write(folder.filePath(u"noise.db"_s), "noise");
    const QStringList before = Versions::files(folder.path());
    for (const QStringList &arguments :
        { QStringList {}, { u"info"_s }, { u"info"_s, u"missing.db"_s }, { u"verify"_s, u"noise.db"_s },
            { u"plan"_s, u"crate.db"_s, u"missing.mom"_s }, { u"migrate"_s, u"noise.db"_s, u"2.mom"_s },
            { u"backup"_s, u"noise.db"_s }, { u"restore"_s, u"missing.cpgz"_s, u"crate.db"_s },
            { u"query"_s, u"crate.db"_s, u"Nobody"_s, u"TRUEPREDICATE"_s },
            { u"query"_s, u"crate.db"_s, u"Track"_s, u"title =="_s },
            { u"query"_s, u"crate.db"_s, u"Track"_s, u"nothing == 1"_s },
            { u"query"_s, u"crate.db"_s, u"Track"_s, u"title == 5"_s } }) {
        const Answer answer = kxtool(arguments);
        EXPECT_EQ(answer.status, 2) << arguments.join(u' ').toStdString();
        EXPECT_TRUE(answer.output.isEmpty());
        EXPECT_FALSE(answer.errors.isEmpty());
    }
    EXPECT_EQ(kxtool({ u"restore"_s, u"noise.db"_s, u"crate.db"_s }).status, 1);
    EXPECT_EQ(Versions::files(folder.path()), before);
}
