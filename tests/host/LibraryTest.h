#pragma once

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXUserDefaults.h>

#include <library/Library.h>

/// A library in a folder of its own, and a context on it that stands for somebody else.
class LibraryTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Library::registerEntities();
        // A window is as at the first start, whatever became of the one before.
        for (const char *key : { "browser.frame", "browser.panes", "browser.sidebar", "showsInspector",
                 "browser.inspector Expanded Items" })
            KXUserDefaults::standard().remove(QString::fromLatin1(key));
        KXError error;
        coordinator = Library::open(folder.filePath(QStringLiteral("library.db")), &error);
        ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
        context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    }

    KXRef<Track> add(const QString &title, std::optional<double> bpm = {}) { return add(*context, title, bpm); }
    static KXRef<Track> add(KXManagedObjectContext &to, const QString &title, std::optional<double> bpm = {})
    {
        const KXRef<Track> track = Track::createInContext(to);
        track->setLocation(QUrl(QStringLiteral("file:///") + title));
        track->setFileSize(1);
        track->setFileModified(1);
        track->setTitle(title);
        track->setBpm(bpm);
        track->setAdded(QDateTime(QDate(2024, 5, 3), QTime(12, 0), Qt::UTC));
        return track;
    }
    void save()
    {
        KXError error;
        ASSERT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
    }

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
};
