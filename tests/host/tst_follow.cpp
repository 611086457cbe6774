// The table and other live lists beside fresh fetches, while two contexts change the library at random.

#include <deque>

#include <QAbstractItemModelTester>
#include <QItemSelectionModel>
#include <QTableView>
#include <QTest>

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/store/KXStoreChange.h>

#include <support/KXTestRandom.h>
#include <table/TrackTableModel.h>

#include "LibraryTest.h"

using namespace Qt::StringLiterals;

namespace {

/// A list as somebody has it who only hears of the steps.
class FollowMirror : public KXLiveListObserver
{
public:
    FollowMirror(const KXManagedObjectContext::Ref &context, const KXFetchRequest &request)
        : list(context, request, this)
        , keys(list.keys())
    {
    }

    void listWillChange(const KXListStep &) override { EXPECT_EQ(keys, list.keys()); }
    void listDidChange(const KXListStep &step) override
    {
        const auto first = keys.begin() + step.first;
        switch (step.kind) {
        case KXListStep::Insertion:
            keys.insert(first, list.keys().begin() + step.first, list.keys().begin() + step.first + step.count);
            break;
        case KXListStep::Removal:
            keys.erase(first, first + step.count);
            break;
        case KXListStep::Move: {
            const qint64 key = *first;
            keys.insert(keys.begin() + step.to, key);
            keys.erase(keys.begin() + step.first + (step.to < step.first ? 1 : 0));
            break;
        }
        case KXListStep::Reordering:
            EXPECT_TRUE(std::is_permutation(keys.begin(), keys.end(), list.keys().begin(), list.keys().end()));
            keys = list.keys();
            break;
        case KXListStep::Update:
            EXPECT_LE(step.first + step.count, list.size());
            break;
        }
        EXPECT_EQ(keys, list.keys()) << "step of kind " << step.kind;
    }

    KXLiveList list;
    std::vector<qint64> keys;
};

/// How long a list has become by what it told.
struct FollowCounter : KXLiveListObserver
{
    void listWillChange(const KXListStep &) override { }
    void listDidChange(const KXListStep &step) override
    {
        ++steps;
        size += step.kind == KXListStep::Insertion ? step.count : step.kind == KXListStep::Removal ? -step.count : 0;
    }
    qsizetype size = 0;
    int steps = 0;
};

KXFetchRequest tracksWhere(const char *format, const QList<KXSortDescriptor> &order)
{
    const KXPredicate predicate = *format ? KXPredicate::predicateWithFormat(format) : KXPredicate();
    return KXFetchRequest(u"Track"_s, predicate).setSortDescriptors(order);
}

} // namespace

class FollowTest : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        window = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        window->setUndoManager(std::make_shared<KXUndoManager>());
        token = coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
            if (change->originatingContext() != window.get())
                unmerged.push_back(change);
        });
    }

    KXRef<Track> someTrack(KXManagedObjectContext &of)
    {
        const KXFetchedList all = of.fetchAllForEntity(u"Track"_s);
        return all.isEmpty() ? KXRef<Track>() : all.as<Track>(random.below(int(all.size())));
    }
    /// Some change in the context, unsaved.
    void change(const KXManagedObjectContext::Ref &in)
    {
        const KXRef<Track> track = someTrack(*in);
        const int kind = track ? random.below(10) : 0;
        if (kind <= 1) {
            for (int i = random.chance(0.1) ? 60 : 1; i > 0; --i) {
                const KXRef<Track> added = add(*in, QString(QChar(u'A' + random.below(60))), random.below(200));
                added->setAlbum(someAlbum(in));
            }
        } else if (kind == 2) {
            in->removeManagedObject(track);
        } else if (kind == 3) {
            track->setAlbum(someAlbum(in));
        } else if (kind == 4) {
            someAlbum(in)->setTitle(QString(QChar(u'a' + random.below(26))));
        } else if (kind == 5) {
            // Only where nobody can be about to put a track into it.
            if (in == context && unmerged.empty() && !window->hasChanges() && in->countForEntity(u"Album"_s) > 2)
                in->removeManagedObject(someAlbum(in));
        } else if (kind <= 7) {
            track->setTitle(QString(QChar(u'A' + random.below(60))));
        } else {
            for (int i = random.chance(0.1) ? 40 : 1; i > 0; --i) {
                if (const KXRef<Track> one = someTrack(*in)) {
                    one->setBpm(random.below(200));
                    one->setComment(QString::number(random.below(3)));
                }
            }
        }
    }
    KXRef<Album> someAlbum(const KXManagedObjectContext::Ref &in)
    {
        const KXFetchedList all = in->fetchAllForEntity(u"Album"_s);
        // Made by one side alone, for undoing that would leave tracks of the other without their album.
        if (all.size() > 3 || in != context)
            return all.as<Album>(random.below(int(all.size())));
        const KXRef<Album> album = Album::createInContext(*in);
        album->setTitle(QString(QChar(u'a' + random.below(26))));
        return album;
    }
    void mergeNext()
    {
        if (unmerged.empty())
            return;
        const auto change = unmerged.front();
        unmerged.pop_front();
        window->mergeChangesFromStoreChange(change);
    }

    /// Saves of others may be seen by reading before they are merged; only then must all agree again.
    void mergeAll()
    {
        while (!unmerged.empty())
            mergeNext();
        window->processPendingChanges();
    }
    KXUndoManager &undo() { return *window->undoManager(); }
    void changeElsewhere()
    {
        const KXEntityDescription *albums = coordinator->model()->entity(u"Album"_s);
        context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        change(context);
        save();
        // What is read again shows the save before it is merged.
        if (random.chance(0.5)) {
            for (const KXRef<KXManagedObject> &object : window->fetchAllForEntity(u"Track"_s))
                window->refreshObject(object.get());
        }
        if (!unmerged.empty() && unmerged.back()->changeOf(albums)
            && !unmerged.back()->changeOf(albums)->deleted.isEmpty())
            mergeNext();
    }
    /// Whatever may happen to the tracks that are shown.
    void act(TrackTableModel &model)
    {
        switch (random.below(10)) {
        case 0:
        case 1:
            changeElsewhere();
            break;
        case 2:
        case 3:
        case 4: {
            {
                const KXUndoGroup group(&undo(), u"Change"_s);
                change(window);
            }
            if (random.chance(0.5))
                window->processPendingChanges();
            break;
        }
        case 5:
            undo().undo();
            break;
        case 6:
            undo().redo();
            break;
        case 7:
            EXPECT_TRUE(window->save());
            break;
        case 8:
            mergeNext();
            break;
        case 9:
            model.sort(random.below(3), random.chance(0.5) ? Qt::AscendingOrder : Qt::DescendingOrder);
            break;
        }
    }
    /// In any order where it has none.
    void expectFresh(const KXLiveList &list)
    {
        std::vector<qint64> kept = list.keys(), fresh = window->fetch(list.request()).keys();
        if (list.request().sortDescriptors().isEmpty()) {
            std::sort(kept.begin(), kept.end());
            std::sort(fresh.begin(), fresh.end());
        }
        EXPECT_EQ(kept, fresh);
    }

    KXTestRandom random;
    KXManagedObjectContext::Ref window;
    std::deque<std::shared_ptr<const KXStoreChange>> unmerged;
    KXPersistentStoreCoordinator::ChangeToken token;
};

TEST_F(FollowTest, rowsEqualAFreshFetchAndKeepTheirSelection)
{
    for (int i = 0; i < 80; ++i)
        change(context);
    save();
    mergeAll();

    LibraryEditor editor(window);
    TrackTableModel model(window, &editor);
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    QItemSelectionModel selection(&model);
    model.sort(TrackTableModel::Title, Qt::AscendingOrder);
    std::vector<std::unique_ptr<FollowMirror>> mirrors;
    for (const KXFetchRequest &request : {
             tracksWhere("bpm >= 100", { { u"bpm"_s, false } }),
             tracksWhere("bpm < 150 AND album.title > 'h'", { { u"album.title"_s }, { u"title"_s } }),
             tracksWhere("ANY album.tracks.bpm > 180", { { u"title"_s, true, KXCaseInsensitive } }),
             tracksWhere("", { { u"title"_s }, { u"bpm"_s } }).setFetchLimit(20).setFetchOffset(3),
             tracksWhere("comment == '1'", {}),
         }) {
        mirrors.push_back(std::make_unique<FollowMirror>(window, request));
        mirrors.back()->list.setArrivalsPerTurn(random.below(8));
    }

    const auto selected = [&] {
        std::set<qint64> keys;
        for (const QModelIndex &index : selection.selectedRows())
            keys.insert(model.tracks().keys()[size_t(index.row())]);
        return keys;
    };
    int resets = 0;
    QObject::connect(&model, &QAbstractItemModel::modelReset, [&] { ++resets; });

    const int steps = KXTestRandom::scaled(3000);
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        const std::vector<qint64> rowsBefore = model.tracks().keys();
        const std::set<qint64> before = selected();
        act(model);
        if (random.chance(0.3)) {
            mergeAll();
            EXPECT_EQ(model.tracks().keys(), window->fetch(model.tracks().request()).keys());
            for (const auto &mirror : mirrors) {
                while (mirror->list.isSettling())
                    QTest::qWait(1);
                expectFresh(mirror->list);
            }
            for (int row = 0; row < model.rowCount(); row += 7)
                EXPECT_EQ(model.index(row, TrackTableModel::Title).data().toString(), model.track(row)->title());
        }
        std::set<qint64> expected;
        const std::set<qint64> rowsNow(model.tracks().keys().begin(), model.tracks().keys().end());
        std::set_intersection(
            before.begin(), before.end(), rowsNow.begin(), rowsNow.end(), std::inserter(expected, expected.end()));
        EXPECT_EQ(selected(), expected);
        if (random.chance(0.2) && model.rowCount() > 0) {
            selection.clear();
            for (int i = random.below(8); i >= 0; --i)
                selection.select(model.index(random.below(model.rowCount()), 0),
                    QItemSelectionModel::Select | QItemSelectionModel::Rows);
        }
    }
    EXPECT_EQ(resets, 0);
}

// Rows of a large merge come in parts, whatever becomes of them in between.
TEST_F(FollowTest, manyRowsOfAMergeComeAPartATurn)
{
    for (int i = 0; i < 400; ++i)
        add(QString::number(i));
    save();
    mergeAll();
    FollowMirror mirror(window, tracksWhere("", { { u"title"_s } }));
    mirror.list.setArrivalsPerTurn(20);
    QList<KXRef<Track>> added;
    for (int i = 0; i < 100; ++i)
        added.append(add(QString::number(random.below(1'000))));
    save();
    mergeAll();
    EXPECT_TRUE(mirror.list.isSettling());
    EXPECT_EQ(mirror.list.size(), 400) << "those behind a merge have a turn of their own";
    while (mirror.list.size() == 400)
        QTest::qWait(1);
    const qsizetype shown = mirror.list.size(); // a slow machine has had more than one turn
    EXPECT_TRUE(shown > 400 && shown < 500 && shown % 20 == 0) << shown;
    // One goes that is still to come, one is renamed, and others come and go.
    Track::cast(window->objectWithID(added[98]->objectID()))->setTitle(u"A"_s);
    context->removeManagedObject(added[99]);
    for (int i = 0; i < 30; ++i)
        add(u"B"_s);
    save();
    mergeAll();
    EXPECT_TRUE(mirror.list.isSettling());
    EXPECT_EQ(mirror.list.size(), shown + 1) << "the renamed one";
    while (mirror.list.isSettling())
        QTest::qWait(1);
    EXPECT_EQ(mirror.list.size(), 529);
    expectFresh(mirror.list);

    for (const qsizetype perTurn : { 0, 20 }) { // none is left behind by who wants them all after all
        for (int i = 0; i < 100; ++i)
            add(u"C"_s);
        save();
        mergeAll();
        ASSERT_TRUE(mirror.list.isSettling());
        mirror.list.setArrivalsPerTurn(perTurn);
        EXPECT_TRUE(QTest::qWaitFor([&] { return !mirror.list.isSettling(); }));
        expectFresh(mirror.list);
        mirror.list.setArrivalsPerTurn(20);
    }
    for (int i = 0; i < 100; ++i)
        add(u"D"_s);
    save();
    mergeAll();
    ASSERT_TRUE(mirror.list.isSettling());
    mirror.list.setRequest(tracksWhere("", { { u"title"_s, false } }));
    EXPECT_FALSE(mirror.list.isSettling()) << "all are fetched";
    expectFresh(mirror.list);
}

TEST_F(FollowTest, listsThatOpenWithTheirFirstRowsReadTheOthersOnlyWhenTracksChange)
{
    for (int i = 0; i < 30; ++i)
        add(QString::number(10 + i));
    save();
    mergeAll();
    const KXLiveList list(window, tracksWhere("", { { u"title"_s } }).setFetchBatchSize(5));
    const auto genre = Genre::createInContext(*window);
    genre->setName(u"House"_s);
    ASSERT_TRUE(window->save());
    genre->setName(u"Techno"_s);
    ASSERT_TRUE(window->save());
    EXPECT_EQ(list.countOfFetches(), 0);
    const KXRef<Track> last
        = Track::findFirstUsingPredicate(KXPredicate::predicateWithFormat("title == %@", u"39"_s), *window);
    last->setTitle(u"00"_s); // from behind what is known to its beginning
    window->processPendingChanges();
    EXPECT_EQ(list.countOfFetches(), 1);
    expectFresh(list);
    EXPECT_EQ(list.as<Track>(0), last);
}

// What is only known by its first rows when things happen becomes right all the same, and says so row by row.
TEST_F(FollowTest, listsThatOpenWithTheirFirstRows)
{
    for (int i = 0; i < 30; ++i)
        add(QString(QChar(u'A' + random.below(20))), random.below(90))->setAlbum(someAlbum(context));
    save();
    const std::vector<QList<KXSortDescriptor>> orders { { { u"title"_s } }, { { u"bpm"_s, false } },
        { { u"added"_s }, { u"bpm"_s } }, {}, { { u"title"_s, true, Track::textOrder } },
        { { u"title"_s, false, Track::textOrder } }, { { u"albumText"_s, true, Track::textOrder, true } } };
    for (int round = 0; round < KXTestRandom::scaled(1500) && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        while (!unmerged.empty())
            mergeNext();
        (void)window->save();
        unmerged.clear();
        const KXFetchRequest request = tracksWhere("", random.oneOf(orders)).setFetchBatchSize(random.between(1, 12));
        FollowCounter counter;
        KXLiveList list(window, request, &counter);
        counter.size = list.size();
        ASSERT_EQ(list.countOfFetches(), list.size() > request.fetchBatchSize() ? 0 : 1);
        const std::vector<qint64> fresh = window->fetch(request).keys();
        ASSERT_EQ(list.size(), qsizetype(fresh.size()));
        bool quiet = true;
        for (int act = random.below(4); act > 0; --act) {
            context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            const int kind = random.below(6);
            quiet = quiet && (kind == 3 || kind == 4);
            if (kind == 0)
                change(context), save();
            else if (kind == 1)
                change(window);
            else if (kind == 2)
                mergeNext();
            else if (kind == 3)
                (void)list.at(random.below(int(fresh.size())));
            else if (kind == 4)
                QTest::qWait(
                    random.chance(0.2) ? random.between(48, 54) : 0); // the others are to come, under way, or there
            else
                list.setRequest(tracksWhere("", random.oneOf(orders)));
        }
        mergeAll();
        if (random.chance(0.1))
            continue; // it goes in the midst of whatever is under way
        QCoreApplication::processEvents();
        expectFresh(list);
        EXPECT_EQ(counter.size, list.size());
        // From the fastest to those without tempo; equal ones by their keys.
        if (const auto &order = list.request().sortDescriptors(); order.size() == 1 && order[0].key == u"bpm"_s) {
            for (qsizetype i = 1; i < list.size(); ++i) {
                const auto before = list.as<Track>(i - 1)->bpm(), after = list.as<Track>(i)->bpm();
                EXPECT_TRUE(before > after || (before == after && list.key(i - 1) < list.key(i))) << i;
            }
        }
        EXPECT_TRUE(!quiet || counter.steps == 0);
    }
}
