// Child contexts: they see what the parent sees, what they save becomes the parent's unsaved changes, and they last as
// long as anybody holds one of their objects.

#include <QCoreApplication>
#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "context/Meeting.h"
#include "store/Library.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

using Context = KXManagedObjectContext;

}

TEST(ChildContext, seesTheParentsUnsavedChangesAndKeepsItsOwn)
{
    LibraryTest library;
    const auto stored = library.track(u"stored"_s);
    const auto doomed = library.track(u"doomed"_s);
    const auto house = library.genre(u"House"_s);
    stored->addToGenres(house);
    ASSERT_TRUE(library.context->save());
    stored->setTitle(u"edited"_s);
    const auto unsaved = library.track(u"unsaved"_s);
    unsaved->addToGenres(house);
    library.context->removeManagedObject(doomed);

    const auto child = Context::contextWithParentContext(library.context);
    EXPECT_EQ(child->parentContext(), library.context);
    EXPECT_EQ(Library::dump(*child), Library::dump(*library.context));
    EXPECT_TRUE(in(child, doomed)->isMissing());
    EXPECT_EQ(in(child, house)->tracks().size(), 2);
    EXPECT_EQ(child->countForEntity(
                  u"Track"_s, KXPredicate::predicateWithFormat("title == 'edited' AND ANY genres.name == 'House'")),
        1);

    // What is edited in the child is seen there alone.
    in(child, stored)->setTitle(u"scratch"_s);
    in(child, unsaved)->removeFromGenres(in(child, house));
    const auto added = Track::createInContext(*child);
    added->setTitle(u"added"_s);
    added->addToGenres(in(child, house));
    EXPECT_EQ(child->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat("ANY genres.name == 'House'")), 2);
    EXPECT_EQ(
        library.context->countForEntity(u"Track"_s, KXPredicate::predicateWithFormat("title IN {'scratch', 'added'}")),
        0);
    EXPECT_EQ(stored->title(), u"edited"_s);
    EXPECT_EQ(house->tracks().size(), 2);
    child->rollback();
    EXPECT_EQ(Library::dump(*child), Library::dump(*library.context));
}

TEST(ChildContext, aSaveIsUndoneInTheParentAsOneStep)
{
    LibraryTest library;
    library.context->setUndoManager(std::make_shared<KXUndoManager>());
    const auto track = library.track(u"one"_s);
    const auto twin = library.track(u"twin"_s);
    const auto genre = library.genre(u"Techno"_s);
    track->addToGenres(genre);
    ASSERT_TRUE(library.context->save());
    QCoreApplication::processEvents();
    library.context->undoManager()->removeAllActions();
    const QStringList before = Library::dump(*library.context);

    const auto child = Context::contextWithParentContext(library.context);
    child->setUndoManager(std::make_shared<KXUndoManager>());
    EXPECT_EQ(child->undoManager(), nullptr);
    in(child, track)->setTitle(u"two"_s);
    const auto remix = Track::createInContext(*child);
    remix->setTitle(u"remix"_s);
    remix->setOriginal(in(child, track));
    remix->addToGenres(in(child, genre));
    const int prepared = twin->prepared;
    child->removeManagedObject(in(child, twin));
    ASSERT_TRUE(child->save());
    EXPECT_FALSE(child->hasChanges());
    EXPECT_TRUE(twin->isDeleted());
    EXPECT_EQ(twin->prepared, prepared) << "only the child's object prepares";
    EXPECT_TRUE(in(library.context, remix)->isInserted());
    EXPECT_EQ(in(library.context, remix)->awakened, 0) << "it was awakened where it was made";
    EXPECT_EQ(Library::dump(*child), Library::dump(*library.context));
    QCoreApplication::processEvents();

    const QStringList after = Library::dump(*library.context);
    library.context->undoManager()->undo();
    EXPECT_EQ(Library::dump(*library.context), before);
    library.context->undoManager()->redo();
    EXPECT_EQ(Library::dump(*library.context), after);
    ASSERT_TRUE(library.context->save());
    library.reopen();
    EXPECT_EQ(Library::dump(*library.context), after);
}

TEST(ChildContext, whatTheParentChangedMeanwhileStaysConsistent)
{
    LibraryTest library;
    const auto a = library.track(u"a"_s), b = library.track(u"b"_s), c = library.track(u"c"_s);
    ASSERT_TRUE(library.context->save());
    const auto child = Context::contextWithParentContext(library.context);
    in(child, a)->setRemix(in(child, b));
    in(child, c)->setTitle(u"edited"_s);
    b->setOriginal(c); // the other end is taken
    library.context->removeManagedObject(c); // and goes
    ASSERT_TRUE(child->save());
    EXPECT_EQ(a->remix(), b);
    EXPECT_EQ(b->original(), a);
    EXPECT_TRUE(c->isDeleted());
    ASSERT_TRUE(library.context->save());
    library.reopen();
    EXPECT_EQ(in(library.context, b)->original(), in(library.context, a));
}

TEST(ChildContext, lastsAsLongAsOneOfItsObjectsIsHeld)
{
    LibraryTest library;
    const auto track = library.track(u"one"_s);
    ASSERT_TRUE(library.context->save());
    std::weak_ptr<Context> parent;
    KXWeakRef<Track> weak;
    {
        KXRef<Track> held, made;
        {
            const auto child = Context::contextWithParentContext(library.context);
            held = in(child, track);
            held->setTitle(u"scratch"_s); // dirty: the context holds it, too
            made = Track::createInContext(*child);
            made->setOriginal(held);
        }
        parent = library.context;
        library.context.reset();
        EXPECT_FALSE(parent.expired());
        ASSERT_NE(held->managedObjectContext(), nullptr);
        EXPECT_EQ(held->remix(), made);
        weak = held;
        held.reset();
        EXPECT_EQ(made->original()->title(), u"scratch"_s);
        {
            // Whoever takes the context may let go of the objects.
            const auto child = made->managedObjectContext()->shared_from_this();
            made.reset();
            QCoreApplication::processEvents();
            EXPECT_EQ(child->insertedObjects().size(), 1);
            made = Track::cast(child->insertedObjects().first());
            EXPECT_FALSE(parent.expired());
        }
        EXPECT_EQ(made->original()->title(), u"scratch"_s);
    }
    EXPECT_TRUE(parent.expired());
    EXPECT_EQ(weak.lock(), nullptr);

    // The last one goes while the context tells of changes.
    library.context = Context::contextWithPersistentStoreCoordinator(library.coordinator);
    auto last = in(Context::contextWithParentContext(library.context), track);
    ASSERT_TRUE(last);
    last->setTitle(u"going"_s);
    KXNotificationToken token
        = KXNotificationCenter::defaultCenter().addObserver(QString(KXManagedObjectContextObjectsDidChangeNotification),
            last->managedObjectContext(), [&last](const KXNotification &) { last.reset(); });
    QCoreApplication::processEvents();
    EXPECT_FALSE(last);
    EXPECT_EQ(library.context.use_count(), 1);
}

/// Titles and links alone: keys differ, since those of edits that were thrown away are not given again.
static QStringList picture(Context &context)
{
    QStringList lines;
    const auto tracks = context.fetchAllForEntity(u"Track"_s);
    for (qsizetype i = 0; i < tracks.size(); ++i) {
        const auto track = tracks.as<Track>(i);
        QStringList line { track->title(), track->remix() ? track->remix()->title() : u"-"_s,
            track->original() ? track->original()->title() : u"-"_s };
        QStringList links;
        for (const auto &genre : track->genres())
            links.append(genre->name());
        for (const auto &neighbour : track->neighbours())
            links.append(neighbour->title());
        links.sort();
        lines.append((line + links).join(u' '));
    }
    lines.sort();
    return lines;
}

TEST(ChildContext, randomEditsThroughChildrenEqualEditsInTheParent)
{
    // The same edits once in one context and once in a chain of children that save or roll back at random.
    KXTestRandom random;
    LibraryTest plain, layered;
    for (LibraryTest *library : { &plain, &layered }) {
        for (int i = 0; i < 8; ++i)
            library->track(QString::number(i));
        library->genre(u"a"_s);
        library->genre(u"b"_s);
        ASSERT_TRUE(library->context->save());
    }
    int serial = 0;
    for (int round = 0; round < KXTestRandom::scaled(400); ++round) {
        const auto child = Context::contextWithParentContext(layered.context);
        const auto grandchild = Context::contextWithParentContext(child);
        const bool keeps = random.below(4) != 0;
        for (int step = random.below(6); step >= 0; --step) {
            const auto edit = [kind = random.below(6), at = random.below(8), other = random.below(8),
                                  number = ++serial](Context &context) {
                const auto tracks
                    = context.fetch(KXFetchRequest(u"Track"_s).setSortDescriptors({ { u"title"_s, true } }));
                const auto genres
                    = context.fetch(KXFetchRequest(u"Genre"_s).setSortDescriptors({ { u"name"_s, true } }));
                const auto track = tracks.as<Track>(at % std::max<qsizetype>(1, tracks.size()));
                const auto partner = tracks.as<Track>(other % std::max<qsizetype>(1, tracks.size()));
                const auto genre = genres.as<Genre>(other % 2);
                if (kind == 0 || !track) {
                    Track::createInContext(context)->setTitle(u"n%1"_s.arg(number));
                } else if (kind == 1) {
                    if (tracks.size() > 4)
                        context.removeManagedObject(track);
                } else if (kind == 2) {
                    track->setRemix(number % 3 ? partner : KXRef<Track>());
                } else if (kind == 3) {
                    number % 2 ? track->addToGenres(genre) : track->removeFromGenres(genre);
                } else if (kind == 4) {
                    number % 2 ? track->addToNeighbours(partner) : track->removeFromNeighbours(partner);
                } else {
                    track->setTitle(u"t%1"_s.arg(number));
                }
            };
            edit(*grandchild);
            if (keeps)
                edit(*plain.context);
            if (random.below(3) == 0) {
                ASSERT_TRUE(grandchild->save());
            }
        }
        ASSERT_TRUE(grandchild->save());
        if (keeps) {
            ASSERT_TRUE(child->save());
        }
        ASSERT_EQ(picture(*layered.context), picture(*plain.context)) << "round " << round;
        if (random.below(5) == 0) {
            ASSERT_TRUE(plain.context->save());
            ASSERT_TRUE(layered.context->save());
        }
    }
}
