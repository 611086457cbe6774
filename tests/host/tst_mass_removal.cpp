// Very many tracks taken out of the library at once, with what goes on in the window and beside it meanwhile.

#include <QAbstractButton>
#include <QTest>

#include <crates/CratesPane.h>
#include <library/BulkEdits.h>
#include <places/SourceColumn.h>
#include <table/TrackTableView.h>

#include "WindowTest.h"

using namespace Qt::StringLiterals;

class MassRemovalTest : public WindowTest
{
protected:
    static constexpr int tracks = 2'400, inCrate = 30;

    void open()
    {
        std::vector<qint64> keys;
        for (int i = 0; i < tracks; ++i) {
            const KXRef<Track> track = add(u"t%1"_s.arg(i, 4, 10, QChar(u'0')));
            track->setSoundHash(1 + i / 2); // each is there twice
            track->setCopies(2);
            if (i % (tracks / inCrate) == 0)
                keys.push_back(track->objectID().key());
        }
        save();
        openWindow();
        window->sources()->musicDidChange();
        turns();
        crate = window->sources()->crates()->editor().make(Crate::Kind::Plain, {}, u"Night"_s, keys);
        table().setSortDescriptors({ TrackTableModel::sortDescriptor(TrackTableModel::Title) });
        table().setFocus();
        QObject::connect(&editor(), &KXBatchEditor::finished, [this](const KXBatchOutcome &done) {
            outcome = done;
            ++finished;
        });
        ASSERT_TRUE(QTest::qWaitFor([&] { return crate->count() == inCrate; }, 8'000));
    }
    KXBatchEditor &editor() const { return window->findChild<BulkEdits *>()->editor(); }
    TrackTableView &table() const { return *window->table(); }
    void select(int first, int last) const
    {
        table().selectionModel()->select({ window->model()->index(first, 0), window->model()->index(last, 0) },
            QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
    bool waitFor(int count) const
    {
        return QTest::qWaitFor([&] { return finished == count; }, 20'000);
    }
    qint64 stored(const QString &entity, const char *predicate = "TRUEPREDICATE") const
    {
        return KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator)
            ->countForEntity(entity, KXPredicate::predicateWithFormat(predicate));
    }
    KXRef<Track> titled(const QString &title) const
    {
        return Track::findFirstUsingPredicate(
            KXPredicate::predicateWithFormat("title == %@", title), *window->context());
    }

    KXRef<Crate> crate;
    KXBatchOutcome outcome;
    int finished = 0;
};

TEST_F(MassRemovalTest, goesOnBehindTheWindowAndIsUndoneWithCratesAndCopies)
{
    open();
    titled(u"t2399"_s)->setComment(u"not saved yet"_s);
    select(0, 1'998); // the copy of the last one stays
    QTest::keyClick(&table(), Qt::Key_Delete, Qt::ControlModifier);
    EXPECT_EQ(window->model()->rowCount(), tracks) << "not in this turn";
    EXPECT_TRUE(editor().isBusy());
    titled(u"t2398"_s)->setComment(u"written meanwhile"_s);
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(outcome.changed, 1'999);
    EXPECT_EQ(window->model()->rowCount(), tracks - 1'999);
    EXPECT_EQ(stored(u"LeftOutFile"_s), 1'999);
    EXPECT_EQ(stored(u"Track"_s, "copies == nil"), 1) << "one alone is no duplicate";
    EXPECT_TRUE(QTest::qWaitFor([&] { return crate->count() == 5; }, 8'000)) << crate->count();
    EXPECT_EQ(titled(u"t2398"_s)->comment(), u"written meanwhile"_s);
    EXPECT_EQ(stored(u"Track"_s, "comment == 'not saved yet'"), 1);

    press(QKeySequence(Qt::CTRL | Qt::Key_Z)); // the comment
    ASSERT_TRUE(window->context()->save());
    press(QKeySequence(Qt::CTRL | Qt::Key_Z));
    ASSERT_TRUE(waitFor(2));
    EXPECT_EQ(outcome.kept, 0);
    EXPECT_EQ(window->model()->rowCount(), tracks);
    EXPECT_EQ(window->model()->index(0, 0).data().toString(), u"t0000"_s);
    EXPECT_EQ(stored(u"LeftOutFile"_s), 0);
    EXPECT_EQ(stored(u"Track"_s, "copies == 2"), tracks);
    EXPECT_TRUE(QTest::qWaitFor([&] { return crate->count() == inCrate; }, 8'000)) << crate->count();
    press(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    ASSERT_TRUE(waitFor(3));
    EXPECT_EQ(window->model()->rowCount(), tracks - 1'999);
}

TEST_F(MassRemovalTest, isCancelledByItsButtonAndEndsWithTheWindow)
{
    open();
    table().selectAll();
    QTest::keyClick(&table(), Qt::Key_Delete, Qt::ControlModifier);
    const auto cancel = [&]() -> QAbstractButton * {
        for (auto *const button : window->findChildren<QAbstractButton *>()) {
            if (button->isVisible() && button->accessibleName() == u"Cancel the changes"_s)
                return button;
        }
        return nullptr;
    };
    ASSERT_TRUE(QTest::qWaitFor([&] { return cancel() != nullptr; }, 8'000));
    QTest::mouseClick(cancel(), Qt::LeftButton);
    ASSERT_TRUE(waitFor(1));
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_EQ(cancel(), nullptr);
    EXPECT_EQ(window->model()->rowCount(), tracks - outcome.changed);
    EXPECT_EQ(stored(u"LeftOutFile"_s), outcome.changed);
    press(QKeySequence(Qt::CTRL | Qt::Key_Z));
    ASSERT_TRUE(waitFor(2));
    EXPECT_EQ(window->model()->rowCount(), tracks);

    table().selectAll();
    QTest::keyClick(&table(), Qt::Key_Delete, Qt::ControlModifier);
    QTest::qWait(1);
    crate = {};
    window->close();
    window.reset();
    EXPECT_EQ(stored(u"LeftOutFile"_s) + stored(u"Track"_s), tracks);
    EXPECT_EQ(stored(u"CrateEntry"_s, "track == nil OR crate == nil"), 0);
}
