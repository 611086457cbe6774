// QueueLists that hold things once and in an order, beside plain vectors of them: edited, undone, merged, reopened.

#include <algorithm>
#include <set>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/context/KXLiveList.h>
#include <kestrixkit/context/KXOrderedMembership.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

using QueueKeys = std::vector<qint64>;

KXManagedObjectModel::Ref queuesModel()
{
    using Property = KXPropertyDescription;
    static const auto model = KXManagedObjectModel::make({
        KXEntityDescription(u"Queue"_s)
            .add(Property::toMany(u"entries"_s, u"Entry"_s, u"queue"_s).deleteRule(KXDeleteRule::Cascade)),
        KXEntityDescription(u"Thing"_s)
            .add(Property::attribute(u"number"_s, KXAttributeType::Integer32))
            .add(Property::toMany(u"entries"_s, u"Entry"_s, u"thing"_s).deleteRule(KXDeleteRule::Cascade)),
        KXEntityDescription(u"Entry"_s)
            .add(Property::attribute(u"position"_s, KXAttributeType::Integer64).required().withDefault(0))
            .add(Property::toOne(u"queue"_s, u"Queue"_s, u"entries"_s).required().indexedWith(u"position"_s))
            .add(Property::toOne(u"thing"_s, u"Thing"_s, u"entries"_s).required()),
    });
    return model;
}

/// A store with things and queues, and a context that merges what others save.
class QueueLists
{
public:
    QueueLists(int things, int queues)
    {
        open();
        for (int i = 0; i < things; ++i) {
            this->things.push_back(context->managedObjectForEntity(u"Thing"_s)->objectID().key());
            context->objectWithID(id(u"Thing"_s, this->things.back()))->setValueForKey(u"number"_s, i);
        }
        for (int i = 0; i < queues; ++i)
            this->queues.push_back(context->managedObjectForEntity(u"Queue"_s)->objectID().key());
        EXPECT_TRUE(context->save());
        context->undoManager()->removeAllActions();
    }
    void open()
    {
        token.reset();
        lists.reset();
        context.reset();
        coordinator.reset();
        KXError error;
        coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"lists.db"_s)), queuesModel(), &error);
        ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
        context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        context->setUndoManager(std::make_shared<KXUndoManager>());
        lists = std::make_unique<KXOrderedMembership>(make(context));
        token = coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
            if (change->originatingContext() != context.get())
                context->mergeChangesFromStoreChange(change);
        });
    }
    static KXOrderedMembership make(const KXManagedObjectContext::Ref &context)
    {
        return KXOrderedMembership(context, { u"Entry"_s, u"queue"_s, u"thing"_s, u"position"_s });
    }
    KXManagedObjectID id(const QString &entity, qint64 key) const
    {
        return KXManagedObjectID(coordinator->store()->identity(), coordinator->model()->entity(entity), key);
    }
    KXManagedObjectID queue(int number) const { return id(u"Queue"_s, queues[size_t(number)]); }
    QueueKeys members(int number) const { return lists->members(queue(number)); }

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
    std::unique_ptr<KXOrderedMembership> lists;
    KXPersistentStoreCoordinator::ChangeToken token;
    QueueKeys things, queues;
};

/// What a membership should make of a plain vector.
void queueInsert(QueueKeys &list, const QueueKeys &members, qint64 before)
{
    // In front of what stays there of the members behind the mark, the mark included.
    const auto isMoved = [&](qint64 key) { return std::find(members.begin(), members.end(), key) != members.end(); };
    auto mark = before ? std::find(list.begin(), list.end(), before) : list.end();
    while (mark != list.end() && isMoved(*mark))
        ++mark;
    const qint64 next = mark == list.end() ? 0 : *mark;
    std::erase_if(list, isMoved);
    list.insert(std::find(list.begin(), list.end(), next), members.begin(), members.end());
}

struct QueueWalk
{
    explicit QueueWalk(KXTestRandom &random)
        : random(random)
        , all(40, 3)
        , plain(all.queues.size())
    {
        watch();
    }
    void watch()
    {
        shown.reset();
        const int number = random.below(int(plain.size()));
        shownQueue = number;
        shown = std::make_unique<KXLiveList>(all.context,
            KXFetchRequest(u"Thing"_s, all.lists->predicate(all.queue(number)))
                .setSortDescriptors({ all.lists->order(all.queue(number)) }));
    }
    QueueKeys someThings()
    {
        QueueKeys some(all.things);
        std::shuffle(some.begin(), some.end(), random.engine());
        some.resize(size_t(random.between(1, random.chance(0.2) ? 30 : 3)));
        return some;
    }
    /// The same change of a list of the store and of the plain one.
    void change(const KXOrderedMembership &given, int number, QueueKeys &list)
    {
        auto &lists = const_cast<KXOrderedMembership &>(given);
        const QueueKeys some = someThings();
        const int kind = random.below(10);
        if (kind < 3) {
            random.chance(0.5) ? lists.append(all.queue(number), some) : lists.appendAndSave(all.queue(number), some);
            std::copy_if(some.begin(), some.end(), std::back_inserter(list),
                [known = std::set<qint64>(list.begin(), list.end())](qint64 key) { return !known.contains(key); });
        } else if (kind < 8) {
            const qint64 before = list.empty() || random.chance(0.2) ? 0 : random.oneOf(list);
            lists.insert(all.queue(number), some, before);
            queueInsert(list, some, before);
        } else {
            lists.remove(all.queue(number), some);
            std::erase_if(list, [&](qint64 key) { return std::find(some.begin(), some.end(), key) != some.end(); });
        }
    }
    void step()
    {
        KXUndoManager &undo = *all.context->undoManager();
        const int kind = random.below(100);
        const int number = random.below(int(plain.size()));
        if (kind < 55) {
            const auto before = plain;
            {
                const KXUndoGroup group(&undo, u"Change"_s);
                change(*all.lists, number, plain[size_t(number)]);
            }
            if (plain != before) {
                undone.clear();
                done.push_back(before);
            }
        } else if (kind < 68 && !done.empty()) {
            undo.undo();
            undone.push_back(plain);
            plain = done.back();
            done.pop_back();
        } else if (kind < 74 && !undone.empty()) {
            undo.redo();
            done.push_back(plain);
            plain = undone.back();
            undone.pop_back();
        } else if (kind < 84) {
            ASSERT_TRUE(all.context->save());
        } else if (kind < 95) { // somebody else
            ASSERT_TRUE(all.context->save());
            const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(all.coordinator);
            const KXOrderedMembership lists = QueueLists::make(other);
            change(lists, number, plain[size_t(number)]);
            ASSERT_TRUE(other->save());
            forget();
        } else if (kind < 98) {
            watch();
        } else {
            ASSERT_TRUE(all.context->save());
            shown.reset();
            all.open();
            forget();
            watch();
        }
        if (random.chance(0.3)) // so that changes also come together
            check();
    }
    void forget()
    {
        all.context->undoManager()->removeAllActions();
        done.clear();
        undone.clear();
    }
    void check()
    {
        all.context->processPendingChanges();
        for (size_t i = 0; i < plain.size(); ++i) {
            ASSERT_EQ(all.members(int(i)), plain[i]) << "queue " << i;
            ASSERT_EQ(all.lists->count(all.queue(int(i))), qint64(plain[i].size()));
        }
        ASSERT_EQ(shown->keys(), plain[size_t(shownQueue)]) << "on the screen";
        const qint64 thing = random.oneOf(all.things);
        const qsizetype holders = std::count_if(plain.begin(), plain.end(),
            [&](const QueueKeys &list) { return std::find(list.begin(), list.end(), thing) != list.end(); });
        ASSERT_EQ(all.lists->listsOf(all.id(u"Thing"_s, thing)).size(), holders);
    }

    KXTestRandom &random;
    QueueLists all;
    std::vector<QueueKeys> plain;
    std::vector<std::vector<QueueKeys>> done, undone; // what the lists were before, and after
    std::unique_ptr<KXLiveList> shown;
    int shownQueue = 0;
};

}

TEST(OrderedMembership, agreesWithPlainListsWhileTheyAreEditedUndoneMergedAndReopened)
{
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(1'000); round > 0 && !::testing::Test::HasFatalFailure(); --round) {
        QueueWalk walk(random);
        for (int i = 0; i < 100 && !::testing::Test::HasFatalFailure(); ++i)
            walk.step();
        walk.check();
    }
}

TEST(OrderedMembership, thereIsAlwaysRoomBetweenTwoMembers)
{
    QueueLists all(200, 1);
    QueueKeys expected { all.things[0], all.things[1] };
    all.lists->append(all.queue(0), expected);
    // Always at the same place, from both sides, more often than numbers can be halved; and in front of all.
    for (size_t i = 2; i < 150; ++i) {
        const qint64 before = i % 3 == 0 ? expected.front() : expected[expected.size() / 2];
        EXPECT_EQ(all.lists->insert(all.queue(0), std::span(&all.things[i], 1), before), 1);
        queueInsert(expected, { all.things[i] }, before);
        ASSERT_EQ(all.members(0), expected);
    }
    // Positions that no arithmetic survives.
    const auto entries = all.context->fetchAllForEntity(u"Entry"_s);
    entries.at(0)->setValueForKey(u"position"_s, std::numeric_limits<qint64>::max());
    entries.at(1)->setValueForKey(u"position"_s, std::numeric_limits<qint64>::min());
    const QueueKeys now = all.members(0);
    EXPECT_EQ(all.lists->append(all.queue(0), std::span(&all.things[150], 1)), 1);
    EXPECT_EQ(all.lists->insert(all.queue(0), std::span(&all.things[151], 1), now.front()), 1);
    QueueKeys more { all.things[151] };
    more.insert(more.end(), now.begin(), now.end());
    more.push_back(all.things[150]);
    EXPECT_EQ(all.members(0), more);
    EXPECT_TRUE(all.context->save());
}

/// Two who do not see each other's changes: nothing is there twice, nothing is lost, and the lists can be edited on.
TEST(OrderedMembership, whatTwoAddAtOnceIsThereOnce)
{
    QueueLists all(12, 1);
    all.lists->append(all.queue(0), std::span(all.things).first(2));
    ASSERT_TRUE(all.context->save());
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(all.coordinator);
    KXOrderedMembership theirs = QueueLists::make(other);
    all.lists->append(all.queue(0), std::span(all.things).subspan(2, 4));
    theirs.append(all.queue(0), std::span(all.things).subspan(4, 4));
    ASSERT_TRUE(other->save());
    ASSERT_TRUE(all.context->save());
    QueueKeys seen = all.members(0);
    EXPECT_EQ(std::set<qint64>(seen.begin(), seen.end()), std::set<qint64>(all.things.begin(), all.things.begin() + 8));
    EXPECT_EQ(seen.size(), 8U);
    // One in front of each, where some have the same number.
    for (size_t i = 2; i < 6; ++i) {
        const QueueKeys moved { all.things[i + 6] };
        const qint64 before = all.members(0)[i];
        queueInsert(seen, moved, before);
        all.lists->insert(all.queue(0), moved, before);
        ASSERT_EQ(all.members(0), seen) << i;
    }
    EXPECT_EQ(all.lists->remove(all.queue(0), all.things), 12);
    EXPECT_EQ(all.context->countForEntity(u"Entry"_s), 0) << "second entries went along";
}

/// Which entries there are is asked of the store by the members, and of what is unsaved by itself.
TEST(OrderedMembership, entriesThatWereChangedWithoutItCountWhereTheyAreNow)
{
    QueueLists all(4, 2);
    const std::span<const qint64> things(all.things);
    all.lists->append(all.queue(0), things.first(3));
    ASSERT_TRUE(all.context->save());
    const auto entryOf = [&](qint64 thing) {
        const auto object = all.context->objectWithID(all.id(u"Thing"_s, thing));
        return object->objectsForKey(u"entries"_s).value(0);
    };
    entryOf(things[0])->setValueForKey(
        u"queue"_s, KXVariantFromRef(all.context->objectWithID(all.queue(1)))); // to another list
    entryOf(things[1])->setValueForKey(
        u"thing"_s, KXVariantFromRef(all.context->objectWithID(all.id(u"Thing"_s, things[3])))); // to another member
    all.context->removeManagedObject(entryOf(things[2]));
    const auto child = KXManagedObjectContext::contextWithParentContext(all.context); // sees the same
    KXOrderedMembership ofChild = QueueLists::make(child);
    for (KXOrderedMembership *lists : { &ofChild, all.lists.get() }) {
        EXPECT_EQ(lists->append(all.queue(1), things.first(1)), 0);
        EXPECT_EQ(lists->append(all.queue(0), things.last(1)), 0);
        EXPECT_EQ(lists->remove(all.queue(0), things.first(3)), 0);
        EXPECT_EQ(lists->append(all.queue(0), things.first(3)), 3);
        EXPECT_EQ(lists->members(all.queue(0)), QueueKeys({ things[3], things[0], things[1], things[2] }));
    }
    EXPECT_TRUE(all.context->save());
}

TEST(OrderedMembership, whatIsNobodysIsSkipped)
{
    QueueLists all(3, 1);
    const QueueKeys odd { 0, -5, 987'654, all.things[0], all.queues[0], all.things[0] };
    EXPECT_EQ(all.lists->append(all.queue(0), odd), 1);
    EXPECT_EQ(all.members(0), QueueKeys { all.things[0] });
    EXPECT_EQ(all.lists->append({}, all.things), 0);
    EXPECT_EQ(all.lists->append(all.id(u"Queue"_s, 987'654), all.things), 0);
    EXPECT_EQ(all.lists->insert(all.queue(0), std::span(&all.things[1], 1), 987'654), 1) << "in front of nothing: last";
    EXPECT_EQ(all.members(0), QueueKeys({ all.things[0], all.things[1] }));
    all.context->removeManagedObject(all.context->objectWithID(all.id(u"Thing"_s, all.things[0])));
    EXPECT_EQ(all.members(0), QueueKeys { all.things[1] });
    all.context->removeManagedObject(all.context->objectWithID(all.queue(0)));
    EXPECT_EQ(all.lists->append(all.queue(0), all.things), 0);
    EXPECT_TRUE(all.context->save());
    EXPECT_EQ(all.context->countForEntity(u"Entry"_s), 0);
    EXPECT_THROW(KXOrderedMembership(all.context, { u"Entry"_s, u"thing"_s, u"number"_s, u"position"_s }), KXException);
}

namespace {

/// A save as others see it, without the keys of what is new: what came, and what it was linked to.
QStringList queueNews(const KXStoreChange &change)
{
    QStringList news;
    for (const KXEntityChange &entity : change.entities()) {
        news.append(u"%1 +%2 -%3"_s.arg(entity.entity->name()).arg(entity.inserted.size()).arg(entity.deleted.size()));
        for (const KXRowChange &row : entity.updated) {
            for (const KXPropertyChange &one : row.properties)
                news.append(u"%1.%2 %3 +%4 -%5"_s.arg(row.key)
                                .arg(one.property->name())
                                .arg(row.version)
                                .arg(one.added.size())
                                .arg(one.removed.size()));
        }
    }
    news.sort();
    return news;
}

/// An entry that has something to say when it comes to be, and may not be overlooked because it says so in private.
class WakingEntry : public KXManagedObjectOf<WakingEntry>
{
public:
    static constexpr QLatin1StringView entityName { "Entry" };

private:
    void awakeFromInsert() override { ++awoken; }

public:
    static inline int awoken = 0;
};

class SleepingEntry : public KXManagedObjectOf<SleepingEntry>
{
public:
    static constexpr QLatin1StringView entityName { "Entry" };
};

class WakingChild : public KXManagedObjectOf<WakingChild, WakingEntry>
{
public:
    static constexpr QLatin1StringView entityName { "Child" };
};

static_assert(WakingEntry::awakesFromInsert() && WakingChild::awakesFromInsert());
static_assert(!SleepingEntry::awakesFromInsert());

}

/// Whether entries were objects or rows nobody can tell from the save, nor from what it did to objects that are held.
TEST(OrderedMembership, entriesWrittenAsRowsAreWhatObjectsWouldHaveBeen)
{
    QStringList news[2];
    QueueKeys members[2];
    for (const bool asRows : { false, true }) {
        QueueLists all(30, 2);
        const std::span<const qint64> things(all.things);
        all.lists->append(all.queue(0), things.first(5));
        all.lists->append(all.queue(1), things.first(9));
        ASSERT_TRUE(all.context->save());
        const auto held = all.context->objectWithID(all.id(u"Thing"_s, all.things[7]));
        ASSERT_EQ(held->objectsForKey(u"entries"_s).size(), 1);
        const auto queue = all.context->objectWithID(all.queue(0));
        ASSERT_EQ(queue->objectsForKey(u"entries"_s).size(), 5);
        KXUndoManager &undo = *all.context->undoManager();
        undo.beginUndoGrouping();
        held->setValueForKey(u"number"_s, 1'000); // unsaved: saved as well
        undo.endUndoGrouping();
        QStringList told;
        const auto observation
            = KXManagedObjectContext::onChange(all.context.get(), [&](const KXObjectsDidChange &did) {
                  for (auto each = did.changedKeys.begin(); each != did.changedKeys.end(); ++each)
                      told.append(each.key()->entity()->name() + QStringList(each->values()).join(u','));
              });
        const auto token = all.coordinator->addChangeObserver(
            [&](const std::shared_ptr<const KXStoreChange> &change) { news[asRows] += queueNews(*change); });
        KXError error;
        undo.beginUndoGrouping();
        if (asRows) {
            EXPECT_EQ(all.lists->appendAndSave(all.queue(0), things.subspan(3, 20), &error), 18);
            EXPECT_FALSE(error);
        } else {
            ASSERT_TRUE(all.context->save());
            EXPECT_EQ(all.lists->append(all.queue(0), things.subspan(3, 20)), 18);
            ASSERT_TRUE(all.context->save());
        }
        undo.endUndoGrouping();
        EXPECT_FALSE(all.context->hasChanges());
        EXPECT_EQ(held->objectsForKey(u"entries"_s).size(), 2);
        EXPECT_EQ(queue->objectsForKey(u"entries"_s).size(), 23);
        EXPECT_TRUE(told.contains(u"Thingentries"_s) && told.contains(u"Queueentries"_s))
            << told.join(u' ').toStdString();
        members[asRows] = all.members(0);
        // Taken back, unsaved, and done again; and taken back when somebody else has removed an entry.
        const QueueKeys before(things.begin(), things.begin() + 5);
        undo.undo();
        EXPECT_EQ(all.members(0), before);
        EXPECT_TRUE(all.context->hasChanges());
        undo.redo();
        EXPECT_EQ(all.members(0), members[asRows]);
        EXPECT_EQ(held->valueForKey(u"number"_s), 1'000);
        ASSERT_TRUE(all.context->save());
        const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(all.coordinator);
        other->removeManagedObject(other->objectWithID(held->objectsForKey(u"entries"_s).last()->objectID()));
        ASSERT_TRUE(other->save());
        undo.undo();
        EXPECT_EQ(all.members(0), before);
        EXPECT_TRUE(all.context->save());
    }
    EXPECT_EQ(news[0].join(u'\n').toStdString(), news[1].join(u'\n').toStdString());
    EXPECT_EQ(members[0], members[1]);
}

TEST(OrderedMembership, entriesAreObjectsWhereARowWouldNotDo)
{
    QueueLists all(8, 1);
    const std::span<const qint64> things(all.things);
    SleepingEntry::registerEntity();
    EXPECT_EQ(all.lists->appendAndSave(all.queue(0), things.first(1)), 1);
    WakingEntry::registerEntity();
    EXPECT_EQ(all.lists->appendAndSave(all.queue(0), things.first(4)), 3);
    EXPECT_EQ(WakingEntry::awoken, 3);
    SleepingEntry::registerEntity();
    // Numbers that do not tell where the end is.
    all.context->fetchAllForEntity(u"Entry"_s).at(0)->setValueForKey(u"position"_s, std::numeric_limits<qint64>::max());
    const QueueKeys before = all.members(0);
    EXPECT_EQ(all.lists->appendAndSave(all.queue(0), things.subspan(4, 1)), 1);
    QueueKeys after = before;
    after.push_back(all.things[4]);
    EXPECT_EQ(all.members(0), after);
    EXPECT_FALSE(all.context->hasChanges());
    // A child context hands them to its parent.
    const auto child = KXManagedObjectContext::contextWithParentContext(all.context);
    KXOrderedMembership ofChild = QueueLists::make(child);
    EXPECT_EQ(ofChild.appendAndSave(all.queue(0), things.subspan(5, 1)), 1);
    EXPECT_TRUE(all.context->hasChanges());
    EXPECT_EQ(all.members(0).back(), all.things[5]);
    all.context->rollback();
    EXPECT_EQ(all.lists->appendAndSave(all.id(u"Queue"_s, 987'654), things), 0);
    EXPECT_EQ(all.members(0), after);
    // What cannot be saved says why, and leaves no step behind.
    all.context->undoManager()->removeAllActions();
    ASSERT_TRUE(QFile::remove(all.folder.filePath(u"lists.db"_s)));
    KXError error;
    EXPECT_EQ(all.lists->appendAndSave(all.queue(0), things, &error), 0);
    EXPECT_TRUE(error);
    EXPECT_FALSE(all.context->hasChanges());
    EXPECT_FALSE(all.context->undoManager()->canUndo());
}
