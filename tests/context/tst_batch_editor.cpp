// Very many objects edited in the background, with what others do meanwhile.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <kestrixkit/context/KXBatchEditor.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>

using namespace Qt::StringLiterals;

namespace {

class BatchEditorTest : public ::testing::Test
{
protected:
    static constexpr int things = 5'500;

    void SetUp() override
    {
        using Property = KXPropertyDescription;
        const auto model
            = KXManagedObjectModel::make({ KXEntityDescription(u"Thing"_s)
                                               .add(Property::attribute(u"stars"_s, KXAttributeType::Integer16))
                                               .add(Property::attribute(u"name"_s, KXAttributeType::String)) });
        coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"things.db"_s)), model);
        ASSERT_TRUE(coordinator);
        context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        for (int i = 0; i < things; ++i) {
            const auto thing = context->managedObjectForEntity(u"Thing"_s);
            if (i % 4)
                thing->setValueForKey(u"stars"_s, i % 4);
            keys.push_back(thing->objectID().key());
        }
        ASSERT_TRUE(context->save());
        context->setUndoManager(std::make_shared<KXUndoManager>());
        editor = std::make_unique<KXBatchEditor>(context);
        QObject::connect(editor.get(), &KXBatchEditor::finished, [this](const KXBatchOutcome &done) {
            outcome = done;
            ++finished;
        });
    }
    bool waitFor(const std::function<bool()> &condition)
    {
        QElapsedTimer clock;
        clock.start();
        while (!condition() && clock.elapsed() < 60'000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return condition();
    }
    KXRef<KXManagedObject> thing(KXManagedObjectContext &of, size_t number) const
    {
        return of.objectWithID(KXManagedObjectID(
            coordinator->store()->identity(), coordinator->model()->entity(u"Thing"_s), keys[number]));
    }
    qint64 with(const char *format) const
    {
        const auto fresh = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        const qint64 stored = fresh->countForEntity(u"Thing"_s, KXPredicate::predicateWithFormat(format));
        EXPECT_EQ(context->countForEntity(u"Thing"_s, KXPredicate::predicateWithFormat(format)), stored) << format;
        return stored;
    }

    QTemporaryDir folder;
    KXPersistentStoreCoordinator::Ref coordinator;
    KXManagedObjectContext::Ref context;
    std::unique_ptr<KXBatchEditor> editor;
    std::vector<qint64> keys;
    KXBatchOutcome outcome;
    int finished = 0;
};

}

TEST_F(BatchEditorTest, whatIsEditedIsUndoneAndRedoneExceptWhatOthersHaveChanged)
{
    KXUndoManager &undo = *context->undoManager();
    const auto seen = thing(*context, 5); // held with its values
    EXPECT_EQ(seen->valueForKey(u"stars"_s).toInt(), 1);
    keys.push_back(987'654); // nobody's
    qint64 told = 0;
    const auto progress = QObject::connect(editor.get(), &KXBatchEditor::progressed, [&](qint64 done, qint64 total) {
        EXPECT_GT(done, told);
        EXPECT_EQ(total, things + 1);
        told = done;
    });
    editor->setValue(3, u"stars"_s, u"Thing"_s, keys, u"Rate"_s);
    EXPECT_TRUE(editor->isBusy());
    EXPECT_EQ(undo.undoActionName(), u"Rate"_s);
    ASSERT_TRUE(waitFor([&] { return finished == 1; }));
    EXPECT_EQ(outcome.changed, things * 3 / 4);
    EXPECT_EQ(told, things + 1);
    QObject::disconnect(progress);
    EXPECT_EQ(with("stars == 3"), things);
    EXPECT_EQ(seen->valueForKey(u"stars"_s).toInt(), 3) << "merged into what is held";
    EXPECT_FALSE(context->hasChanges());

    // Somebody changes two of them; undoing leaves these alone. Asked for twice, it is done in order.
    thing(*context, 9)->setValueForKey(u"stars"_s, 5);
    ASSERT_TRUE(context->save());
    undo.undo();
    context->save();
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    thing(*other, 10)->setValueForKey(u"stars"_s, 5);
    ASSERT_TRUE(other->save());
    undo.undo();
    ASSERT_TRUE(waitFor([&] { return finished == 2; }));
    EXPECT_TRUE(outcome.isUndo);
    EXPECT_EQ(outcome.kept, 1) << "the edit of 9 was undone before, that of 10 is not ours";
    EXPECT_EQ(outcome.changed, things * 3 / 4 - 1);
    EXPECT_EQ(with("stars == nil"), things / 4);
    EXPECT_EQ(with("stars == 5"), 1);
    EXPECT_EQ(undo.redoActionName(), u"Rate"_s);
    undo.redo();
    undo.undo();
    undo.redo();
    ASSERT_TRUE(waitFor([&] { return finished == 5; }));
    EXPECT_FALSE(outcome.isUndo);
    EXPECT_EQ(with("stars == 3"), things - 1);
    EXPECT_EQ(outcome.kept, 0);

    editor->setValue({}, u"stars"_s, u"Thing"_s, keys, u"No Stars"_s);
    ASSERT_TRUE(waitFor([&] { return finished == 6; }));
    EXPECT_EQ(with("stars == nil"), things);
    EXPECT_THROW(editor->setValue(1, u"moons"_s, u"Thing"_s, keys, {}), KXException);
}

TEST_F(BatchEditorTest, cancelledItsPartIsAStepAndWhatEndsWithTheEditorIsWhole)
{
    QObject::connect(editor.get(), &KXBatchEditor::progressed, [&](qint64 done, qint64) {
        if (done >= 2'000)
            editor->cancel();
    });
    editor->setValue(u"x"_s, u"name"_s, u"Thing"_s, keys, u"Rename"_s);
    ASSERT_TRUE(waitFor([&] { return finished == 1; }));
    EXPECT_TRUE(outcome.cancelled);
    const qint64 part = with("name == 'x'");
    EXPECT_EQ(part, outcome.changed);
    EXPECT_TRUE(part >= 2'000 && part < things) << part;
    editor->disconnect();
    context->undoManager()->undo();
    ASSERT_TRUE(waitFor([&] { return !editor->isBusy(); }));
    EXPECT_EQ(with("name == nil"), things);

    editor->setValue(u"y"_s, u"name"_s, u"Thing"_s, keys, u"Rename"_s);
    QCoreApplication::processEvents();
    editor.reset(); // in the middle, with merges on their way
    QCoreApplication::processEvents();
    EXPECT_LE(with("name == 'y'"), things);
    context->undoManager()->undo(); // its step went with it
    context->undoManager()->redo();
}
