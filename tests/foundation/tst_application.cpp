#include <filesystem>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXFileManager.h>

#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

using namespace Qt::StringLiterals;

namespace application_test {

// Folders and names of a test's own.
class Application : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const char *name : { "XDG_DATA_HOME", "XDG_CACHE_HOME", "TMPDIR" }) {
            m_former.append({ QByteArray(name), qgetenv(name) });
            qputenv(name, m_dir.filePath(QString::fromLatin1(name)).toLocal8Bit());
        }
        QDir().mkpath(QString::fromLocal8Bit(qgetenv("TMPDIR")));
        KXBundle::mainBundle().setName(u"Crate Digger"_s);
        KXBundle::mainBundle().setIdentifier(u"org.example.crates"_s);
    }
    void TearDown() override
    {
        for (const auto &[name, value] : m_former)
            qputenv(name.constData(), value);
        KXBundle::mainBundle().setName({});
        KXBundle::mainBundle().setIdentifier({});
    }
    QString path(const char *variable, const QString &rest = {}) const
    {
        return m_dir.filePath(QString::fromLatin1(variable)) + rest;
    }

    QTemporaryDir m_dir;
    QList<std::pair<QByteArray, QByteArray>> m_former;
};

TEST_F(Application, FoldersAreNamedAfterTheBundleAndMade)
{
    EXPECT_EQ(KXFileManager::applicationSupportFolderPath(), path("XDG_DATA_HOME", u"/Crate Digger"_s));
    EXPECT_EQ(KXFileManager::cachesFolderPath(), path("XDG_CACHE_HOME", u"/org.example.crates"_s));
    EXPECT_EQ(KXFileManager::temporaryFolderPath(), path("TMPDIR", u"/org.example.crates"_s));
    for (const QString &folder : { path("XDG_DATA_HOME", u"/Crate Digger"_s),
             path("XDG_CACHE_HOME", u"/org.example.crates"_s), path("TMPDIR", u"/org.example.crates"_s) })
        EXPECT_TRUE(QFileInfo(folder).isDir()) << folder.toStdString();
}

TEST_F(Application, AFolderThatCannotBeMadeIsToldAbout)
{
    KXError presented;
    int terminated = 0;
    const auto present = KXApplication::setPresentErrorHandler([&](const KXError &error) { presented = error; });
    const auto terminate = KXApplication::setTerminateHandler([&] { ++terminated; });
    const KXTestLog log;
    for (const char *variable : { "XDG_DATA_HOME", "XDG_CACHE_HOME" }) { // files stand where folders should
        QFile file(path(variable));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    EXPECT_TRUE(KXFileManager::cachesFolderPath().isNull());
    EXPECT_EQ(terminated, 0);
    EXPECT_TRUE(KXFileManager::applicationSupportFolderPath().isNull());
    EXPECT_EQ(terminated, 1);
    EXPECT_TRUE(presented);
    EXPECT_EQ(log.lines().filter(u"Failed to create dir "_s).size(), 2);
    EXPECT_TRUE(log.contains(path("XDG_DATA_HOME", u"/Crate Digger - "_s)));
}

TEST_F(Application, AFileInTheFoldersPlaceIsTakenAsItIs)
{
    QFile file(path("TMPDIR", u"/org.example.crates"_s));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(KXFileManager::temporaryFolderPath(), file.fileName());
    EXPECT_TRUE(QFileInfo(file.fileName()).isFile());
}

TEST_F(Application, BundlesFindTheirNameAndResources)
{
    auto &bundle = KXBundle::mainBundle();
    bundle.setName({});
    bundle.setIdentifier({});
    QCoreApplication::setOrganizationDomain(u"example.co.uk"_s);
    const QString name = QCoreApplication::applicationName();
    EXPECT_EQ(bundle.name(), name);
    EXPECT_EQ(bundle.identifier(), u"uk.co.example."_s + name);
    QCoreApplication::setOrganizationDomain({});
    EXPECT_EQ(bundle.identifier(), name);
    EXPECT_EQ(KXBundle::frameworkBundle().identifier(), u"com.kestrix.KestrixKit"_s);

    const QStringList former = bundle.resourceFolders();
    for (const QString &folder : { u"one"_s, u"two/Model.momd"_s })
        QDir().mkpath(m_dir.filePath(folder));
    for (const QString &file :
        { u"one/b.mom"_s, u"one/a.mom"_s, u"two/a.mom"_s, u"two/c.txt"_s, u"two/Model.momd/v2.mom"_s }) {
        QFile made(m_dir.filePath(file));
        ASSERT_TRUE(made.open(QIODevice::WriteOnly));
    }
    bundle.setResourceFolders({ m_dir.filePath(u"one"_s), m_dir.filePath(u"two"_s), m_dir.filePath(u"missing"_s) });
    EXPECT_EQ(bundle.resourcePaths(u"mom"_s),
        QStringList(
            { m_dir.filePath(u"one/a.mom"_s), m_dir.filePath(u"one/b.mom"_s), m_dir.filePath(u"two/a.mom"_s) }));
    EXPECT_EQ(bundle.resourcePaths(u"momd"_s), QStringList({ m_dir.filePath(u"two/Model.momd"_s) }));
    EXPECT_EQ(
        bundle.resourcePaths(u"mom"_s, u"Model.momd"_s), QStringList({ m_dir.filePath(u"two/Model.momd/v2.mom"_s) }));
    EXPECT_EQ(bundle.pathForResource(u"a"_s, u"mom"_s), m_dir.filePath(u"one/a.mom"_s));
    EXPECT_EQ(bundle.pathForResource(u"c.txt"_s), m_dir.filePath(u"two/c.txt"_s));
    EXPECT_TRUE(bundle.pathForResource(u"d"_s, u"mom"_s).isNull());
    bundle.setResourceFolders(former);
}

TEST_F(Application, HandlersAreReplacedForAScope)
{
    QStringList calls;
    const KXError error(u"d"_s, 1, u"shown"_s);
    auto outer = KXApplication::setPresentErrorHandler([&](const KXError &) { calls.append(u"outer"_s); });
    {
        const auto inner = KXApplication::setPresentErrorHandler([&](const KXError &) { calls.append(u"inner"_s); });
        KXApplication::presentError(error);
    }
    KXApplication::presentError(error);
    KXApplication::presentError({}); // nothing to present
    outer.reset();
    EXPECT_EQ(calls, QStringList({ u"inner"_s, u"outer"_s }));
    const KXTestLog log;
    KXApplication::presentError(error);
    EXPECT_TRUE(log.contains(u"shown"_s));
}

TEST_F(Application, TerminatingLeavesTheMainLoop)
{
    KXApplication::terminate(); // before the loop runs, as at start-up
    EXPECT_EQ(QCoreApplication::exec(), 1);
}

TEST_F(Application, AnEditorMayRefuseToEndItsEditing)
{
    const int subject = 0;
    const int other = 0;
    EXPECT_TRUE(KXApplication::commitEditing(&subject));
    QStringList asked;
    const auto first = KXApplication::registerEditor(&subject, [&] {
        asked.append(u"first"_s);
        return true;
    });
    const auto foreign = KXApplication::registerEditor(&other, [&] {
        asked.append(u"foreign"_s);
        return false;
    });
    EXPECT_TRUE(KXApplication::commitEditing(&subject));
    {
        const auto veto = KXApplication::registerEditor(&subject, [&] {
            asked.append(u"veto"_s);
            return false;
        });
        EXPECT_FALSE(KXApplication::commitEditing(&subject));
    }
    EXPECT_TRUE(KXApplication::commitEditing(&subject));
    EXPECT_EQ(asked, QStringList({ u"first"_s, u"veto"_s, u"first"_s }));
}

TEST_F(Application, AnEditorThatAnotherEndsIsNotAsked)
{
    const int subject = 0;
    auto first = KXApplication::registerEditor(&subject, [] { return false; });
    const auto second = KXApplication::registerEditor(&subject, [&] {
        first.reset();
        return true;
    });
    EXPECT_TRUE(KXApplication::commitEditing(&subject));
}

}
