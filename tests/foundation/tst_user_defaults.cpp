#include <thread>

#include <sys/stat.h>

#include <QCborMap>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QUrl>
#include <QUuid>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXArchive.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUserDefaults.h>

#include <support/KXTestLog.h>
#include <support/KXTestPrint.h>

using namespace Qt::StringLiterals;

namespace user_defaults_test {

class UserDefaults : public ::testing::Test
{
protected:
    QTemporaryDir m_dir;
    const QString m_file = m_dir.filePath(u"folder/defaults.cbor"_s);
};

TEST_F(UserDefaults, TypesSurvive)
{
    const QDateTime date(QDate(2024, 5, 6), QTime(7, 8, 9, 10), Qt::UTC);
    const QVariantMap values { { u"text"_s, u"12"_s }, { u"number"_s, 12 }, { u"real"_s, 12.0 }, { u"yes"_s, true },
        { u"data"_s, QByteArray("\0\xff", 2) }, { u"date"_s, date },
        { u"list"_s, QVariantList { 1, u"1"_s, QVariantList() } }, { u"map"_s, QVariantMap { { u"k/x"_s, 1 } } },
        { u"url"_s, QUrl(u"file:///a%20b"_s) }, { u"texts"_s, QStringList { u"a"_s, QString() } },
        { u"empty"_s, u""_s }, { u"a//b/../%2F\\ Größe"_s, 1 }, { u"A//b/../%2F\\ Größe"_s, 2 }, { u"/x"_s, 3 },
        { u"x/"_s, 4 }, { u"x"_s, 5 } };
    const auto verify = [&](const KXUserDefaults &defaults) {
        EXPECT_EQ(defaults.stringForKey(u"text"_s), u"12"_s);
        EXPECT_EQ(defaults.integerForKey(u"text"_s), std::nullopt); // another type is no answer
        EXPECT_EQ(defaults.doubleForKey(u"text"_s), std::nullopt);
        EXPECT_EQ(defaults.integerForKey(u"number"_s), 12);
        EXPECT_EQ(defaults.doubleForKey(u"number"_s), 12.0);
        EXPECT_EQ(defaults.stringForKey(u"number"_s), std::nullopt);
        EXPECT_EQ(defaults.boolForKey(u"number"_s), std::nullopt);
        EXPECT_EQ(defaults.doubleForKey(u"real"_s), 12.0);
        EXPECT_EQ(defaults.boolForKey(u"yes"_s), true);
        EXPECT_EQ(defaults.integerForKey(u"yes"_s), std::nullopt);
        EXPECT_EQ(defaults.dataForKey(u"data"_s), QByteArray("\0\xff", 2));
        EXPECT_EQ(defaults.dateForKey(u"date"_s), date);
        EXPECT_EQ(defaults.arrayForKey(u"list"_s), QVariantList({ 1, u"1"_s, QVariantList() }));
        EXPECT_EQ(defaults.stringArrayForKey(u"list"_s), std::nullopt);
        EXPECT_EQ(defaults.stringArrayForKey(u"texts"_s), QStringList({ u"a"_s, u""_s }));
        EXPECT_EQ(defaults.dictionaryForKey(u"map"_s)->value(u"k/x"_s), 1);
        EXPECT_EQ(defaults.valueForKey(u"url"_s), QUrl(u"file:///a%20b"_s));
        EXPECT_EQ(defaults.stringForKey(u"empty"_s), u""_s);
        EXPECT_EQ(defaults.integerForKey(u"a//b/../%2F\\ Größe"_s), 1);
        EXPECT_EQ(defaults.integerForKey(u"A//b/../%2F\\ Größe"_s), 2);
        EXPECT_EQ(defaults.integerForKey(u"/x"_s), 3);
        EXPECT_EQ(defaults.integerForKey(u"x/"_s), 4);
        EXPECT_EQ(defaults.integerForKey(u"x"_s), 5);
        EXPECT_EQ(defaults.stringForKey(u"absent"_s), std::nullopt);
    };
    {
        KXUserDefaults defaults(m_file);
        for (auto value = values.begin(); value != values.end(); ++value)
            EXPECT_TRUE(defaults.setValue(value.key(), value.value())) << value.key().toStdString();
        verify(defaults);
    }
    KXUserDefaults reread(m_file);
    verify(reread);
    const KXTestLog log;
    EXPECT_FALSE(reread.setValue(u"object"_s, QVariant::fromValue<QObject *>(nullptr)));
    EXPECT_FALSE(reread.setValue(u"deep"_s, QVariantList { QVariantList { QVariant::fromValue<QObject *>(nullptr) } }));
    EXPECT_EQ(log.lines().size(), 2);
}

TEST_F(UserDefaults, RegisteredDefaultsStandBehindStoredValues)
{
    KXUserDefaults defaults(m_file);
    defaults.registerDefaults({ { u"limit"_s, 5 }, { u"user"_s, u"*"_s } });
    defaults.setValue(u"limit"_s, 6);
    EXPECT_EQ(defaults.integerForKey(u"limit"_s), 6);
    defaults.remove(u"limit"_s);
    EXPECT_EQ(defaults.integerForKey(u"limit"_s), 5);
    EXPECT_EQ(KXUserDefaults(m_file).integerForKey(u"limit"_s), std::nullopt); // never written
}

TEST_F(UserDefaults, TwoProcessesShareAFile)
{
    KXUserDefaults one(m_file);
    KXUserDefaults two(m_file);
    one.setValue(u"a"_s, 1);
    two.setValue(u"b"_s, 2);
    EXPECT_TRUE(one.synchronize());
    EXPECT_TRUE(two.synchronize());
    EXPECT_TRUE(one.synchronize());
    EXPECT_EQ(one.integerForKey(u"b"_s), 2);
    EXPECT_EQ(two.integerForKey(u"a"_s), 1);
}

TEST_F(UserDefaults, UnreadableFilesReadAsEmptyAndAreReplaced)
{
    QByteArray valid;
    {
        KXUserDefaults(m_file).setValue(u"k"_s, QByteArray(1000, 'x'));
        QFile file(m_file);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        valid = file.readAll();
    }
    const KXTestLog log;
    int number = 0;
    for (const QByteArray &bytes :
        { valid.left(valid.size() / 2), QByteArray("not cbor at all"), QByteArray(4096, '\xff'),
            QByteArray(valid).replace("kestrix.defaults", "kestrix.somewhat"), QByteArray(17 << 20, '\0') }) {
        const QString path = m_dir.filePath(u"bad%1.cbor"_s.arg(++number));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        {
            KXUserDefaults defaults(path);
            EXPECT_EQ(defaults.dataForKey(u"k"_s), std::nullopt) << number;
            EXPECT_TRUE(defaults.setValue(u"new"_s, 1));
            EXPECT_TRUE(defaults.synchronize());
        }
        EXPECT_EQ(KXUserDefaults(path).integerForKey(u"new"_s), 1) << number;
    }
    EXPECT_GE(log.lines().filter(u"unreadable"_s).size(), number);
}

TEST_F(UserDefaults, ChangesAreAnnouncedPerKey)
{
    KXUserDefaults defaults(m_file);
    int told = 0;
    QVariantList observed;
    const auto token = defaults.onChange(u"k"_s, [&] { ++told; });
    const auto observer = KXObserver::observerFor(
        &defaults, u"k"_s, KXObservingOptionNew | KXObservingOptionOld, [&](const KXKeyValueChange &change) {
            observed.append({ change.oldValue, change.newValue });
        });
    defaults.setValue(u"k"_s, 1);
    defaults.setValue(u"k"_s, 1); // no change
    defaults.setValue(u"other"_s, 1);
    defaults.setValue(u"k"_s, u"1"_s);
    defaults.remove(u"k"_s);
    EXPECT_EQ(told, 3);
    EXPECT_EQ(observed.value(1), 1);
    EXPECT_EQ(observed.last(), QVariant());

    // Set on another thread: told there at once, observers on the main thread.
    QEventLoop loop;
    observed.clear();
    std::thread([&] { defaults.setValue(u"k"_s, 2); }).join();
    EXPECT_EQ(told, 4);
    EXPECT_TRUE(observed.isEmpty());
    KXMainQueue::async([&] { loop.quit(); });
    loop.exec();
    EXPECT_EQ(observed.last(), 2);
}

TEST_F(UserDefaults, WhatCannotBeReadIsKeptAside)
{
    const KXTestLog log;
    const auto write = [this](const QByteArray &bytes) {
        QDir().mkpath(QFileInfo(m_file).path());
        QFile file(m_file);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    };
    const auto aside = [this] {
        return QFileInfo(m_file).dir().entryInfoList({ u"defaults.cbor.unreadable-*"_s }, QDir::Files | QDir::System);
    };
    const QByteArray newer = KXArchive::archive(u"kestrix.defaults", 2, QCborMap { { u"theme"_s, u"dark"_s } });
    write(newer);
    for (int i = 0; i < 2; ++i) // the second finds it kept
        EXPECT_EQ(KXUserDefaults(m_file).valueForKey(u"theme"_s), QVariant());
    ASSERT_EQ(aside().size(), 1);
    KXUserDefaults defaults(m_file);
    defaults.setValue(u"theme"_s, u"light"_s);
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(KXUserDefaults(m_file).stringForKey(u"theme"_s), u"light"_s);
    QFile kept(aside().value(0).filePath());
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), newer);

    // A pipe is not waited for, whether it is there from the start or comes later.
    QFile::remove(m_file);
    ASSERT_EQ(::mkfifo(QFile::encodeName(m_file).constData(), 0600), 0);
    EXPECT_TRUE(defaults.synchronize());
    QFile::remove(m_file);
    ASSERT_EQ(::mkfifo(QFile::encodeName(m_file).constData(), 0600), 0);
    KXUserDefaults other(m_file);
    other.setValue(u"theme"_s, u"dark"_s);
    EXPECT_TRUE(other.synchronize());
    EXPECT_EQ(KXUserDefaults(m_file).stringForKey(u"theme"_s), u"dark"_s);
    EXPECT_GE(aside().size(), 2);
    struct stat status = {};
    ::stat(QFile::encodeName(m_file).constData(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0600U) << "a new file is its owner's alone";
}

TEST_F(UserDefaults, ManyThreadsMayUseThem)
{
    KXUserDefaults defaults(m_file);
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            for (int i = 0; i < 100; ++i) {
                defaults.setValue(u"key%1"_s.arg(number), i);
                EXPECT_EQ(defaults.integerForKey(u"key%1"_s.arg(number)), i);
            }
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(KXUserDefaults(m_file).integerForKey(u"key3"_s), 99);
}

TEST_F(UserDefaults, TheStandardOnesLieInTheConfigurationFolder)
{
    KXUserDefaults::standard().setValue(u"kestrixUsername"_s, u"ada"_s);
    EXPECT_TRUE(KXUserDefaults::standard().synchronize());
    EXPECT_TRUE(QFile::exists(
        qEnvironmentVariable("XDG_CONFIG_HOME") + u'/' + KXBundle::mainBundle().identifier() + u"/defaults.cbor"_s));
}

}
