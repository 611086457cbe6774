// The guide's pages about stores.

#include <QFile>

#include <kestrixkit/context/KXManagedObjectContextOperation.h>
#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/foundation/KXOperationQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/migration/KXMigrationPlan.h>
#include <kestrixkit/store/KXPersistentStore.h>

#include "GuideLibrary.h"

using namespace Guide;

namespace {

//! [import]
class Import : public KXManagedObjectContextOperation
{
public:
    Import(const KXManagedObjectContext::Ref &mainContext, const QString &path)
        : KXManagedObjectContextOperation(mainContext)
        , m_path(path)
    {
        setMergeChangesIntoMainContext(true); // so that views follow each save
    }
    void main() override
    {
        QFile file(m_path);
        if (!file.open(QIODevice::ReadOnly))
            return;
        const auto context = localContext(); // of this thread
        for (int line = 1; !file.atEnd() && !isCancelled(); ++line) {
            const QStringList fields = QString::fromUtf8(file.readLine().trimmed()).split(u';');
            const auto track = Track::createInContext(*context);
            if (!track)
                return;
            track->setTitle(fields.value(0));
            track->setBpm(fields.value(1).toDouble());
            if (KXError error; (line % 1000 == 0 || file.atEnd()) && !context->save(&error))
                return; // the error says why; what was saved before stays
        }
    }

private:
    const QString m_path;
};
//! [import]

}

using GuideStore = Guide::LibraryTest;

TEST(GuideFirstHost, opensEditsAndAsks)
{
    const QTemporaryDir folder;
    const QUrl url = QUrl::fromLocalFile(folder.filePath(u"library.db"_s));
    QString message;
    //! [open]
    Track::registerEntity();
    Crate::registerEntity();
    KXError error;
    const auto coordinator
        = KXPersistentStoreCoordinator::persistentStoreCoordinatorByMigratingStoreURL(url, Guide::model(), &error);
    if (!coordinator)
        message = error.localizedDescription(); // for the user
    //! [open]
    ASSERT_TRUE(coordinator) << message.toStdString();
    //! [context]
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    KXManagedObjectContext::setMainContext(context);
    const auto track = Track::createInContext(*context);
    track->setTitle(u"Night Signal"_s);
    track->setBpm(126);
    context->save(&error); // all or nothing, on the disk when it returns
    //! [context]
    EXPECT_FALSE(error);
    QStringList titles;
    //! [find]
    const auto fast = KXPredicate::predicateWithFormat("%K >= %@", Track::bpmKey, 120);
    for (const KXRef<Track> &found : Track::findUsingPredicate(fast, *context))
        titles << found->title();
    //! [find]
    EXPECT_EQ(titles, QStringList { u"Night Signal"_s });
    //! [undo]
    track->setTitle(u"Day Signal"_s);
    context->undoManager()->undo();
    //! [undo]
    EXPECT_EQ(track->title(), u"Night Signal"_s);
    KXManagedObjectContext::setMainContext(nullptr);
}

TEST_F(GuideStore, importsInTheBackground)
{
    const QString path = folder.filePath(u"tracks.csv"_s);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    for (int i = 0; i < 2500; ++i)
        file.write("Imported;128\n");
    file.close();
    //! [import-run]
    KXOperationQueue imports;
    imports.addOperation(std::make_shared<Import>(context, path));
    //! [import-run]
    EXPECT_TRUE(QTest::qWaitFor([&] { return Track::countOfInContext(*context) == 2502; }, 60'000));
}

TEST_F(GuideStore, countsAsOneEdits)
{
    //! [counts]
    KXLiveCounts counts(context, u"Track"_s);
    counts.setRule(u"fast"_s, KXPredicate::predicateWithFormat("bpm >= 120"));
    QObject::connect(&counts, &KXLiveCounts::countsDidChange, [&](const QStringList &identifiers) {
        for (const QString &identifier : identifiers)
            qInfo() << identifier << *counts.count(identifier);
    });
    counts.update(); // else in the next turn
    //! [counts]
    EXPECT_EQ(counts.count(u"fast"_s), 1);
    Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("bpm < 100"), *context)->setBpm(140);
    context->processPendingChanges();
    EXPECT_TRUE(QTest::qWaitFor([&] { return counts.count(u"fast"_s) == 2; }));
}

TEST_F(GuideStore, migratesToANewerModel)
{
    context.reset();
    coordinator.reset();
    const auto newer
        = KXManagedObjectModel::make({ KXEntityDescription(u"Track"_s)
                                           .add(KXPropertyDescription::attribute(u"name"_s, KXAttributeType::String)
                                                    .required()
                                                    .renamedFrom(u"title"_s))
                                           .add(KXPropertyDescription::attribute(u"genre"_s, KXAttributeType::String))
                                           .add(KXPropertyDescription::attribute(u"bpm"_s, KXAttributeType::Double)),
            Crate::treeDescription().add(KXPropertyDescription::attribute(Crate::titleKey, KXAttributeType::String)) });
    //! [plan]
    KXError error;
    const auto plan = KXMigrationPlan::planForStoreURL(url, newer, &error);
    for (const KXMigrationChange &change : plan->changes())
        qInfo() << change.description();
    const bool isSafe = plan->isPossible() && !plan->losesData();
    //! [plan]
    EXPECT_TRUE(isSafe && plan->isNeeded());
    //! [migrate]
    const auto migrated
        = KXPersistentStoreCoordinator::persistentStoreCoordinatorByMigratingStoreURL(url, newer, &error);
    //! [migrate]
    ASSERT_TRUE(migrated) << error.localizedDescription().toStdString();
    const auto later = KXManagedObjectContext::contextWithPersistentStoreCoordinator(migrated);
    EXPECT_EQ(later->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat("name == 'Slow Water'")), 1);
}

TEST_F(GuideStore, backsUpAndRestores)
{
    //! [backup]
    KXError error;
    if (!coordinator->backupPersistentStores(&error) && error.code() != KXStoreErrorCode::BackupExists)
        qWarning() << error.localizedDescription();
    const QList<QUrl> backups = coordinator->store()->existingBackupFileURLs(); // oldest first
    //! [backup]
    ASSERT_EQ(backups.size(), 1);
    context->deleteObjects({ Track::findFirstUsingPredicate({}, *context) });
    ASSERT_TRUE(context->save());
    context.reset();
    coordinator.reset();
    //! [restore]
    QUrl former; // where the old store is kept
    const bool isRestored = KXPersistentStore::restoreBackup(backups.last(), url, &error, &former);
    //! [restore]
    ASSERT_TRUE(isRestored) << error.localizedDescription().toStdString();
    const auto restored = KXManagedObjectContext::contextWithPersistentStoreCoordinator(
        KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, Guide::model()));
    EXPECT_EQ(Track::countOfInContext(*restored), 2);
}

TEST_F(GuideStore, answersAsThoseWhoComeFromElsewhereAsk)
{
    //! [sql-where]
    KXFetchRequest request(
        u"Track"_s, KXPredicate::predicateWithFormat("genre == %@ AND bpm BETWEEN {120, 128}", u"House"_s));
    request.setSortDescriptors({ { Track::bpmKey, false } }).setFetchLimit(20);
    const KXFetchedList tracks = context->fetch(request);
    //! [sql-where]
    EXPECT_TRUE(tracks.isEmpty() && !tracks.isNull());
    KXError error;
    //! [sql-transaction]
    const auto house = Track::findUsingPredicate(KXPredicate::predicateWithFormat("bpm > 120"), *context);
    for (const KXRef<Track> &track : house)
        track->setGenre(u"House"_s);
    if (!context->save(&error)) // nothing was written
        context->rollback();
    //! [sql-transaction]
    EXPECT_EQ(context->count(request), 1);
    QStringList problems;
    //! [errors]
    KXFetchRequest typed(u"Track"_s, KXPredicate::predicateWithText(u"bpm > 'fast'"_s, &error));
    if (context->fetch(typed, &error).isNull())
        problems << error.localizedDescription(); // "bpm" is a number and "fast" is a text: …
    //! [errors]
    EXPECT_EQ(problems.size(), 1);
}
