// Very many objects deleted in the background with all that belongs to them, and brought back.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/context/KXBatchEditor.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using namespace Qt::StringLiterals;

namespace {

using Object = KXRef<KXManagedObject>;

/// Songs by artists, in lists; a note is made of each song that goes, and albums count theirs.
class BatchRemovalTest : public ::testing::Test
{
protected:
    static constexpr int songs = 4'000;

    static KXManagedObjectModel::Ref songModel()
    {
        using Property = KXPropertyDescription;
        using Type = KXAttributeType;
        return KXManagedObjectModel::make({
            KXEntityDescription(u"Song"_s)
                .add(Property::attribute(u"name"_s, Type::String).required())
                .add(Property::attribute(u"stars"_s, Type::Integer16))
                .add(Property::toOne(u"album"_s, u"Album"_s, u"songs"_s))
                .add(Property::toMany(u"artists"_s, u"Artist"_s, u"songs"_s))
                .add(Property::toMany(u"entries"_s, u"Entry"_s, u"song"_s).deleteRule(KXDeleteRule::Cascade)),
            KXEntityDescription(u"Album"_s)
                .add(Property::attribute(u"count"_s, Type::Integer32).required())
                .add(Property::toMany(u"songs"_s, u"Song"_s, u"album"_s)),
            KXEntityDescription(u"Artist"_s).add(Property::toMany(u"songs"_s, u"Song"_s, u"artists"_s)),
            KXEntityDescription(u"Entry"_s)
                .add(Property::attribute(u"place"_s, Type::Integer32).required())
                .add(Property::toOne(u"song"_s, u"Song"_s, u"entries"_s))
                .add(Property::toOne(u"list"_s, u"List"_s, u"entries"_s)),
            KXEntityDescription(u"List"_s).add(
                Property::toMany(u"entries"_s, u"Entry"_s, u"list"_s).deleteRule(KXDeleteRule::Cascade)),
            KXEntityDescription(u"Note"_s).add(Property::attribute(u"name"_s, Type::String).required()),
        });
    }
    void SetUp() override
    {
        coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"songs.db"_s)), songModel());
        ASSERT_TRUE(coordinator);
        context = newContext();
        std::map<QString, QList<Object>> some;
        for (const QString &name : { u"Album"_s, u"Artist"_s, u"List"_s }) {
            for (int i = 0; i < 5; ++i)
                some[name].append(context->managedObjectForEntity(name));
        }
        for (const Object &album : some[u"Album"_s])
            album->setValueForKey(u"count"_s, songs / 5);
        for (int i = 0; i < songs; ++i) {
            const Object song = context->managedObjectForEntity(u"Song"_s);
            song->setValueForKey(u"name"_s, u"song %1"_s.arg(i));
            song->setValueForKey(u"album"_s, KXVariantFromRef(some[u"Album"_s][i % 5]));
            song->setValueForKey(u"artists"_s,
                QVariantList {
                    KXVariantFromRef(some[u"Artist"_s][i % 5]), KXVariantFromRef(some[u"Artist"_s][i % 3]) });
            for (int list = 0; list < i % 3; ++list) {
                const Object entry = context->managedObjectForEntity(u"Entry"_s);
                entry->setValueForKey(u"place"_s, i);
                entry->setValueForKey(u"song"_s, KXVariantFromRef(song));
                entry->setValueForKey(u"list"_s, KXVariantFromRef(some[u"List"_s][(i + list) % 5]));
            }
            keys.push_back(song->objectID().key());
        }
        ASSERT_TRUE(context->save());
        context = newContext(); // with nothing in memory
        context->setUndoManager(std::make_shared<KXUndoManager>());
        editor = std::make_unique<KXBatchEditor>(context);
        QObject::connect(editor.get(), &KXBatchEditor::finished, [this](const KXBatchOutcome &done) {
            outcome = done;
            ++finished;
        });
    }
    KXManagedObjectContext::Ref newContext() const
    {
        return KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    }
    bool waitFor(int count)
    {
        QElapsedTimer clock;
        clock.start();
        while (finished < count && clock.elapsed() < 60'000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return finished == count;
    }
    /// What a window sees of it from now on: cancels once so many are done.
    void cancelAfter(qint64 count)
    {
        connection = QObject::connect(editor.get(), &KXBatchEditor::progressed, [this, count](qint64 done, qint64) {
            if (done >= count) {
                QObject::disconnect(connection);
                editor->cancel();
            }
        });
    }
    Object object(KXManagedObjectContext &of, const QString &entity, qint64 key) const
    {
        return of.objectWithID(
            KXManagedObjectID(coordinator->store()->identity(), coordinator->model()->entity(entity), key));
    }
    void remove(const std::vector<qint64> &some)
    {
        const auto change = [](KXManagedObjectContext &of, const QList<Object> &gone) {
            for (const Object &song : gone) {
                of.managedObjectForEntity(u"Note"_s)->setValueForKey(u"name"_s, song->valueForKey(u"name"_s));
                const auto album = song->valueForKey(u"album"_s).value<Object>();
                if (album)
                    album->setValueForKey(u"count"_s, album->valueForKey(u"count"_s).toInt() - 1);
            }
            of.deleteObjects(gone);
        };
        editor->change(change, u"Song"_s, some, u"Remove"_s);
    }
    static QString textOf(const QVariant &value)
    {
        if (value.metaType() == QMetaType::fromType<Object>())
            return value.value<Object>() ? QString::number(value.value<Object>()->objectID().key()) : u"-"_s;
        if (value.metaType() != QMetaType::fromType<QVariantList>())
            return value.toString();
        QStringList texts;
        for (const QVariant &each : value.toList())
            texts.append(textOf(each));
        texts.sort();
        return texts.join(u',');
    }
    /// Everything, as a context sees it.
    QStringList all(KXManagedObjectContext &of) const
    {
        QStringList rows;
        for (const KXEntityDescription *entity : coordinator->model()->entities()) {
            for (const Object &row : of.fetchAllForEntity(entity->name())) {
                QStringList texts { entity->name(), QString::number(row->objectID().key()) };
                for (const KXPropertyDescription &property : entity->properties())
                    texts.append(textOf(row->valueForKey(property.name())));
                rows.append(texts.join(u' '));
            }
        }
        rows.sort();
        return rows;
    }
    /// Of the file; the window's context has to see the same.
    QStringList stored() const
    {
        const QStringList rows = all(*newContext());
        EXPECT_TRUE(all(*context) == rows) << "the main context sees something else";
        return rows;
    }
    qint64 count(const QString &entity) const { return newContext()->countForEntity(entity); }

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
    std::unique_ptr<KXBatchEditor> editor;
    QMetaObject::Connection connection;
    std::vector<qint64> keys;
    KXBatchOutcome outcome;
    int finished = 0;
};

}

TEST_F(BatchRemovalTest, whatWentComesBackWithAllThatBelongedToItAndGoesAgain)
{
    const QStringList before = stored(); // and everything is in memory
    const Object held = object(*context, u"Song"_s, keys[7]);
    std::vector<qint64> some(keys.begin(), keys.begin() + 3'500);
    some.push_back(987'654); // nobody's
    remove(some);
    EXPECT_EQ(context->undoManager()->undoActionName(), u"Remove"_s);
    ASSERT_TRUE(waitFor(1));
    EXPECT_EQ(outcome.changed, 3'500);
    EXPECT_TRUE(held->isDeleted() || !held->managedObjectContext());
    EXPECT_EQ(count(u"Note"_s), 3'500);
    EXPECT_EQ(count(u"Entry"_s), 500) << "those of the last 500 songs";
    const QStringList without = stored();
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(2));
    EXPECT_EQ(outcome.changed, 3'500);
    EXPECT_EQ(outcome.kept, 0);
    EXPECT_TRUE(stored() == before);
    context->undoManager()->redo();
    context->undoManager()->undo(); // before the redo is done
    context->undoManager()->redo();
    ASSERT_TRUE(waitFor(5));
    EXPECT_EQ(count(u"Song"_s), songs - 3'500);
    EXPECT_EQ(count(u"Note"_s), 3'500);
    EXPECT_EQ(without.size(), stored().size());
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(6));
    EXPECT_TRUE(stored() == before);
    EXPECT_FALSE(context->hasChanges());
}

TEST_F(BatchRemovalTest, anUndoLeavesAloneWhatOthersDidAndBringsNothingBackToWhatIsGone)
{
    const std::vector<qint64> some(keys.begin(), keys.begin() + 1'500);
    remove(some);
    ASSERT_TRUE(waitFor(1));
    const auto other = newContext();
    const auto first = [&other](const QString &entity) { return other->fetchAllForEntity(entity).first(); };
    first(u"Album"_s)->setValueForKey(u"count"_s, 7);
    const qint64 album = first(u"Album"_s)->objectID().key(), list = first(u"List"_s)->objectID().key();
    const qint64 artist = first(u"Artist"_s)->objectID().key();
    other->removeManagedObject(first(u"List"_s));
    other->removeManagedObject(first(u"Artist"_s));
    ASSERT_TRUE(other->save());
    const qint64 entries = count(u"Entry"_s);
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(2));
    EXPECT_FALSE(outcome.error) << outcome.error.localizedDescription().toStdString();
    EXPECT_EQ(outcome.changed, 1'500);
    EXPECT_GE(outcome.kept, 1) << "the album's count";
    const auto fresh = newContext();
    EXPECT_EQ(object(*fresh, u"Album"_s, album)->valueForKey(u"count"_s).toInt(), 7);
    EXPECT_EQ(fresh->countForEntity(u"Song"_s), songs);
    EXPECT_EQ(fresh->countForEntity(u"Note"_s), 0);
    EXPECT_EQ(fresh->countForEntity(u"Entry"_s, KXPredicate::predicateWithFormat("list == nil OR song == nil")), 0);
    EXPECT_EQ(fresh->countForEntity(u"Entry"_s), entries + 1'500 * 4 / 5) << "without those of the list that is gone";
    EXPECT_TRUE(object(*fresh, u"List"_s, list)->isMissing() || !object(*fresh, u"List"_s, list)->entity());
    EXPECT_EQ(object(*fresh, u"Song"_s, keys[0])->valueForKey(u"artists"_s).toList().size(), 0) << artist;
    EXPECT_EQ(object(*fresh, u"Song"_s, keys[1])->valueForKey(u"artists"_s).toList().size(), 1);
}

TEST_F(BatchRemovalTest, halfOfItIsAStepAndHalfAnUndoIsNotTheEnd)
{
    const QStringList before = stored();
    cancelAfter(1'000);
    remove(keys);
    ASSERT_TRUE(waitFor(1));
    EXPECT_TRUE(outcome.cancelled);
    const qint64 part = outcome.changed;
    EXPECT_TRUE(part >= 1'000 && part < songs) << part;
    EXPECT_EQ(count(u"Song"_s), songs - part);
    EXPECT_EQ(count(u"Note"_s), part);
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(2));
    EXPECT_TRUE(stored() == before);
    context->undoManager()->redo();
    ASSERT_TRUE(waitFor(3));
    EXPECT_EQ(outcome.changed, part) << "what was spared stays spared";
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(4));

    remove(keys);
    ASSERT_TRUE(waitFor(5));
    EXPECT_EQ(count(u"Song"_s), 0);
    cancelAfter(1);
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(6));
    EXPECT_TRUE(outcome.cancelled);
    EXPECT_EQ(count(u"Song"_s), outcome.changed);
    EXPECT_LT(outcome.changed, songs);
    context->undoManager()->redo();
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(8));
    EXPECT_TRUE(stored() == before) << "redone and undone, all is back";

    remove(keys);
    QCoreApplication::processEvents();
    editor.reset(); // as when the window closes
    QCoreApplication::processEvents();
    EXPECT_EQ(count(u"Song"_s) + count(u"Note"_s), songs);
    EXPECT_EQ(newContext()->countForEntity(u"Entry"_s, KXPredicate::predicateWithFormat("song == nil")), 0);
    context->undoManager()->undo(); // its step went with it
}

TEST_F(BatchRemovalTest, whatCannotBeSavedIsAnErrorAndEarlierStepsFindTheirObjectsAgain)
{
    const Object song = object(*context, u"Song"_s, keys[3]);
    song->setValueForKey(u"stars"_s, 4);
    ASSERT_TRUE(context->save());
    const QStringList before = stored();
    const auto change = [last = keys.back()](KXManagedObjectContext &of, const QList<Object> &gone) {
        if (gone.last()->objectID().key() == last)
            (void)of.managedObjectForEntity(u"Note"_s); // has no name
        of.deleteObjects(gone);
    };
    editor->change(change, u"Song"_s, keys, u"Remove"_s);
    ASSERT_TRUE(waitFor(1));
    EXPECT_TRUE(outcome.error);
    EXPECT_FALSE(outcome.cancelled);
    EXPECT_EQ(count(u"Song"_s), songs - outcome.changed);
    EXPECT_GT(outcome.changed, 0);
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor(2));
    EXPECT_TRUE(stored() == before);
    context->undoManager()->undo();
    EXPECT_FALSE(object(*context, u"Song"_s, keys[3])->valueForKey(u"stars"_s).isValid())
        << "was rated as another object";
    ASSERT_TRUE(context->save());
    context->undoManager()->redo();
    ASSERT_TRUE(context->save());
    EXPECT_TRUE(stored() == before);
}
