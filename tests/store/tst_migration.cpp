// Stores of older models become stores of newer ones: what is carried over, where the files go, and what is refused.

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/store/KXPersistentStore.h>

#include "store/Library.h"
#include "store/RandomModels.h"
#include "support/FaultVfs.h"
#include "support/KXTestLog.h"
#include "support/KXTestPrint.h"

using namespace Qt::StringLiterals;
using Coordinator = KXPersistentStoreCoordinator;
using Change = KXMigrationChange;

TEST(Migration, doesExactlyWhatThePlanSays)
{
    KXTestRandom random;
    const FaultVfs vfs(FaultVfs::MachineWide); // which does not wait for the disk
    for (int left = KXTestRandom::scaled(2000); left > 0;) {
        SCOPED_TRACE("pairs left: " + std::to_string(left));
        const QTemporaryDir folder;
        const QUrl url = QUrl::fromLocalFile(folder.filePath(u"store.db"_s));
        RandomModels models(random);
        const auto source = models.model();
        models.fill(url.toLocalFile(), source);
        KXManagedObjectModel::Ref destination;
        try {
            destination = models.changedModel();
        } catch (const KXException &) {
            continue; // relationships that no longer fit together
        }
        KXError error;
        const auto plan = KXMigrationPlan::planForStoreURL(url, destination, &error);
        if (!plan)
            continue;
        --left;
        const PlainStore before(url.toLocalFile(), *plan->mapping()->sourceModel());
        const bool done = [&] {
            const KXTestLog log;
            return Coordinator::migrateURL(url, source, destination, &error);
        }();
        ASSERT_EQ(done, plan->isPossible()) << error.localizedDescription().toStdString();
        if (!done)
            continue;
        EXPECT_EQ(Library::damage(url.toLocalFile()), "");
        const PlainStore after(url.toLocalFile(), *destination);
        const auto lines = [](const QList<Change> &changes) {
            QStringList texts;
            for (const Change &change : changes) {
                if (change.kind != Change::PropertyRemoved || change.count > 0)
                    texts.append(change.description() + u" "_s + change.formerEntity + u'.' + change.formerProperty);
            }
            texts.sort();
            return texts.join(u'\n').toStdString();
        };
        EXPECT_EQ(lines(plan->changes()), lines(recount(before, after, *plan->mapping())));
        // And it is a store that works.
        const auto coordinator = Coordinator::persistentStoreCoordinatorWithStoreURL(url, destination, &error);
        ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
        if (::testing::Test::HasFailure()) {
            std::cout << source->toJSON().constData() << destination->toJSON().constData() << std::endl;
            return;
        }
    }
}
