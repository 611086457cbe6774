// A table over stored objects: what it shows, how it follows, and what an edit does.

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/toolkit/KXLiveListModel.h>

#include "Grove.h"
#include "support/FaultVfs.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

QList<KXLiveListModel::Column> columnsOfBranches()
{
    return { { .keyPath = u"title"_s, .title = u"Title"_s, .isEditable = true, .sortOptions = KXCaseInsensitive },
        { .keyPath = u"position"_s, .title = u"Place"_s, .alignment = Qt::AlignRight, .isEditable = true },
        { .keyPath = u"parent.title"_s, .title = u"Of"_s, .isEditable = true },
        { .keyPath = u"position"_s,
            .title = u"Stars"_s,
            .formatter = [](const QVariant &value) { return QString(value.toInt() % 7, u'*'); },
            .sortsAscending = false } };
}

} // namespace

TEST(LiveListModel, showsEditsAndFollows)
{
    const KXClockPin pin;
    KXClock::setLocale(QLocale(QLocale::German, QLocale::Germany));
    Grove grove;
    const auto root = grove.branch(u"root"_s, {}, 1);
    const auto leaf = grove.branch(u"leaf"_s, root, 1003);
    ASSERT_TRUE(grove.context->save());
    grove.undo().removeAllActions();

    KXLiveListModel model(grove.context, u"Branch"_s, columnsOfBranches(), { { u"position"_s } });
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.setRoles({ { Qt::UserRole, u"title"_s } });
    const auto cell = [&](int row, int column) { return model.index(row, column); };
    EXPECT_EQ(cell(0, 0).data(), u"root"_s);
    EXPECT_EQ(cell(0, 2).data(), QString());
    EXPECT_EQ(cell(1, 2).data(), u"root"_s);
    EXPECT_EQ(cell(1, 3).data(), u"**"_s);
    EXPECT_EQ(cell(1, 3).data(Qt::UserRole), u"leaf"_s);
    EXPECT_EQ(cell(0, 1).data(Qt::TextAlignmentRole).toInt(), int(Qt::AlignRight | Qt::AlignVCenter));
    EXPECT_EQ(model.headerData(3, Qt::Horizontal, Qt::InitialSortOrderRole).toInt(), int(Qt::DescendingOrder));
    EXPECT_TRUE(cell(0, 0).flags() & Qt::ItemIsEditable);
    EXPECT_FALSE(cell(0, 2).flags() & Qt::ItemIsEditable) << "another object's";
    EXPECT_FALSE(cell(0, 3).flags() & Qt::ItemIsEditable);

    // Edits: one step with a name, saved; what is no value or no news is refused.
    EXPECT_TRUE(model.setData(cell(1, 1), u"1.004"_s)) << "a thousand and four";
    EXPECT_EQ(leaf->position(), 1004);
    EXPECT_FALSE(grove.context->hasChanges());
    EXPECT_EQ(grove.undo().undoActionName(), u"Change Place"_s);
    for (const auto &[column, value] : { std::pair(1, QVariant(u"many"_s)), std::pair(1, QVariant(u"1004"_s)),
             std::pair(0, QVariant(u"leaf"_s)), std::pair(2, QVariant(u"x"_s)), std::pair(3, QVariant(4)) })
        EXPECT_FALSE(model.setData(cell(1, column), value)) << column << value.toString().toStdString();
    EXPECT_TRUE(model.setData(cell(1, 0), u"Leaf"_s));
    EXPECT_EQ(cell(1, 0).data(Qt::UserRole), u"Leaf"_s);
    grove.undo().undo();
    grove.context->processPendingChanges();
    EXPECT_EQ(cell(1, 0).data(), u"leaf"_s);

    // What a key path reaches, changed here and behind the context's back.
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    root->setTitle(u"trunk"_s);
    grove.context->processPendingChanges();
    EXPECT_EQ(cell(1, 2).data(), u"trunk"_s);
    ASSERT_TRUE(grove.context->save());
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(grove.coordinator);
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
            grove.context->mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
        });
    Branch::cast(other->objectWithID(root->objectID()))->setTitle(u"stem"_s);
    ASSERT_TRUE(other->save());
    EXPECT_EQ(cell(1, 2).data(), u"stem"_s);
    EXPECT_GE(changed.size(), 2);

    model.setPredicate(KXPredicate::predicateWithFormat("position > 5"));
    EXPECT_EQ(model.rowCount(), 1);
    EXPECT_EQ(model.object(0)->objectID(), leaf->objectID());
    EXPECT_FALSE(model.object(1));
    EXPECT_THROW(KXLiveListModel(grove.context, u"Twig"_s, {}), KXException);
}

TEST(LiveListModel, takesNumbersAsTheUserWritesThem)
{
    const KXClockPin pin;
    KXClock::setLocale(QLocale(QLocale::German, QLocale::Germany));
    Grove grove;
    const auto branch = grove.branch(u"a"_s);
    KXLiveListModel model(grove.context, u"Branch"_s,
        { { .keyPath = u"height"_s, .isEditable = true }, { .keyPath = u"price"_s, .isEditable = true } });
    const auto after = [&](const QString &text) {
        branch->setHeight(std::nullopt);
        branch->setPrice(std::nullopt);
        QStringList values;
        for (int column = 0; column < 2; ++column) {
            if (!model.setData(model.index(0, column), text))
                values.append(u"refused"_s);
            else if (column == 0)
                values.append(QString::number(branch->height().value_or(0)));
            else
                values.append(branch->price().value_or(KXDecimal()).toString());
        }
        return values.constFirst() == values.constLast() ? values.constFirst() : values.join(u" and "_s);
    };
    EXPECT_EQ(after(u" 1.234,5 "_s), u"1234.5"_s);
    EXPECT_EQ(after(u"1.234"_s), u"1234"_s);
    EXPECT_EQ(after(u"-0,25"_s), u"-0.25"_s);
    EXPECT_EQ(after(u"1.5"_s), u"1.5"_s) << "no group of three digits";
    for (const QString &wrong : { u"12,3,4"_s, u"nan"_s, u"-inf"_s, u"x"_s })
        EXPECT_EQ(after(wrong), u"refused"_s) << wrong.toStdString();
    KXClock::setLocale(QLocale(QLocale::Swedish, QLocale::Sweden));
    EXPECT_EQ(after(u"\u22120,25"_s), u"-0.25"_s);
    EXPECT_TRUE(grove.context->save());
}

TEST(LiveListModel, equalsItsFetchThroughRandomChanges)
{
    KXTestRandom random;
    Grove grove;
    KXLiveListModel model(grove.context, u"Branch"_s, columnsOfBranches(), { { u"position"_s } });
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    std::vector<std::pair<QPersistentModelIndex, KXRef<KXManagedObject>>> held;
    for (int step = 0; step < KXTestRandom::scaled(2000); ++step) {
        for (int edits = random.below(5); edits >= 0; --edits) {
            const auto any
                = model.rowCount() ? Branch::cast(model.object(random.below(model.rowCount()))) : KXRef<Branch>();
            const int kind = random.below(6);
            if (!any || kind < 2)
                grove.branch(u"b%1"_s.arg(random.below(50)), any && random.chance(0.5) ? any : KXRef<Branch>(),
                    random.below(30));
            else if (kind == 2 && !any->isDeleted())
                grove.context->removeManagedObject(any);
            else if (!any->isDeleted())
                kind < 5 ? any->setPosition(random.below(30)) : any->setTitle(u"t%1"_s.arg(random.below(50)));
        }
        if (random.chance(0.2))
            model.sort(random.below(4), random.chance(0.5) ? Qt::AscendingOrder : Qt::DescendingOrder);
        if (random.chance(0.1))
            model.setPredicate(random.chance(0.5) ? KXPredicate::predicateWithFormat("position < 20") : KXPredicate());
        grove.context->processPendingChanges();
        if (random.chance(0.2)) {
            ASSERT_TRUE(grove.context->save());
        }
        ASSERT_EQ(model.list().keys(), grove.context->fetch(model.list().request()).keys());
        for (const auto &[index, object] : held) {
            if (index.isValid()) {
                ASSERT_EQ(model.object(index.row()), object);
            }
        }
        held.clear();
        for (int row = 0; row < std::min(5, model.rowCount()); ++row) {
            const auto branch = Branch::cast(model.object(row));
            ASSERT_EQ(model.index(row, 0).data(), branch->title());
            ASSERT_EQ(model.index(row, 2).data(), branch->parent() ? branch->parent()->title() : QString());
            held.emplace_back(model.index(row, 0), branch);
        }
    }
}

TEST(LiveListModel, looksAtNoRowThatIsNotAskedFor)
{
    Grove grove;
    for (int i = 0; i < 30'000; ++i)
        grove.branch(QString::number(i), {}, i);
    ASSERT_TRUE(grove.context->save());
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(grove.coordinator);
    int asked = 0;
    auto columns = columnsOfBranches();
    columns[0].formatter = [&asked](const QVariant &value) {
        ++asked;
        return value.toString();
    };
    KXLiveListModel model(context, u"Branch"_s, columns, { { u"position"_s } });
    EXPECT_EQ(model.rowCount(), 30'000);
    EXPECT_EQ(model.index(29'999, 0).data(), u"29999"_s);
    EXPECT_EQ(model.index(29'999, 0).data(), u"29999"_s);
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(model.match(model.index(0, 0), Qt::DisplayRole, u"2"_s, 1, Qt::MatchStartsWith).isEmpty());
    EXPECT_EQ(asked, 1);
}

/// Rows that somebody else saved while the store does not answer have neither come nor gone.
TEST(LiveListModel, keepsRowsThatCannotBeRead)
{
    Grove grove;
    for (int i = 0; i < 3; ++i)
        grove.branch(u"b%1"_s.arg(i), {}, i);
    ASSERT_TRUE(grove.context->save());
    KXLiveListModel model(grove.context, u"Branch"_s, columnsOfBranches(), { { u"position"_s } });
    const auto titles = [&] {
        QStringList list;
        for (int row = 0; row < model.rowCount(); ++row)
            list.append(model.index(row, 0).data().toString());
        return list;
    };
    const QStringList before = titles();
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(grove.coordinator);
    std::shared_ptr<const KXStoreChange> change;
    const auto token = KXNotificationCenter::defaultCenter().addObserver(
        QString(KXManagedObjectContextDidSaveNotification), other.get(),
        [&](const KXNotification &saved) { change = *saved.payloadAs<std::shared_ptr<const KXStoreChange>>(); });
    Branch::cast(other->objectWithID(model.object(0)->objectID()))->setPosition(7);
    const auto added = Branch::createInContext(*other);
    added->setTitle(u"new"_s);
    added->setPosition(5);
    ASSERT_TRUE(other->save());

    sqlite3 *file = nullptr;
    ASSERT_EQ(sqlite3_open(grove.folder.filePath(u"grove.db"_s).toUtf8().constData(), &file), SQLITE_OK);
    const auto run = [file](const char *sql) { return sqlite3_exec(file, sql, nullptr, nullptr, nullptr); };
    ASSERT_EQ(run("ALTER TABLE Branch RENAME TO Away"), SQLITE_OK);
    grove.context->mergeChangesFromStoreChange(change);
    EXPECT_EQ(model.rowCount(), 3);
    ASSERT_EQ(run("ALTER TABLE Away RENAME TO Branch"), SQLITE_OK);
    sqlite3_close(file);
    EXPECT_EQ(titles(), before);
    grove.branch(u"last"_s, {}, 9);
    grove.context->processPendingChanges();
    EXPECT_EQ(titles(), QStringList({ u"b1"_s, u"b2"_s, u"new"_s, u"b0"_s, u"last"_s }));
}

/// Rows of a large merge come in several turns, of which one may fail.
TEST(LiveListModel, rowsOfATurnThatCouldNotBeReadComeWithTheNext)
{
    Grove grove;
    grove.branch(u"first"_s, {}, 0);
    ASSERT_TRUE(grove.context->save());
    KXLiveList list(grove.context, KXFetchRequest(u"Branch"_s).setSortDescriptors({ { u"position"_s } }));
    list.setArrivalsPerTurn(10);
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(grove.coordinator);
    std::shared_ptr<const KXStoreChange> change;
    const auto token = grove.coordinator->addChangeObserver([&](const auto &news) { change = news; });
    for (int i = 1; i <= 20; ++i)
        Branch::createInContext(*other)->setPosition(i);
    ASSERT_TRUE(other->save());
    sqlite3 *file = nullptr;
    ASSERT_EQ(sqlite3_open(grove.folder.filePath(u"grove.db"_s).toUtf8().constData(), &file), SQLITE_OK);
    const auto run = [file](const char *sql) { return sqlite3_exec(file, sql, nullptr, nullptr, nullptr); };
    grove.context->mergeChangesFromStoreChange(change);
    ASSERT_TRUE(list.isSettling());
    ASSERT_EQ(run("ALTER TABLE Branch RENAME TO Away"), SQLITE_OK);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !list.isValid(); }));
    ASSERT_EQ(run("ALTER TABLE Away RENAME TO Branch"), SQLITE_OK);
    sqlite3_close(file);
    EXPECT_TRUE(QTest::qWaitFor([&] { return list.isValid(); }));
    EXPECT_EQ(list.size(), 21);
}

TEST(LiveListModel, keepsAnEditThatCannotBeSaved)
{
    FaultVfs vfs;
    Grove grove(vfs.name());
    grove.branch(u"a"_s);
    ASSERT_TRUE(grove.context->save());
    KXLiveListModel model(grove.context, u"Branch"_s, columnsOfBranches());
    QSignalSpy failed(&model, &KXLiveListModel::saveDidFail);
    vfs.failAt(1, SQLITE_FULL, true, FaultVfs::Write);
    EXPECT_TRUE(model.setData(model.index(0, 0), u"b"_s));
    vfs.heal();
    EXPECT_EQ(failed.size(), 1);
    EXPECT_EQ(model.index(0, 0).data(), u"b"_s);
    EXPECT_TRUE(grove.context->hasChanges());
    EXPECT_TRUE(grove.context->save());
}
