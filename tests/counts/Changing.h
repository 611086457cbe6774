#pragma once

#include <gtest/gtest.h>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "store/Library.h"
#include "store/RandomPredicates.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

/// A library that changes at random, in its main context and behind its back.
class Changing
{
public:
    using Context = KXManagedObjectContext;

    explicit Changing(KXTestRandom &randomNumbers)
        : random(randomNumbers)
        , predicates(randomNumbers)
    {
        library.context->setUndoManager(std::make_shared<KXUndoManager>());
        for (const auto *name : { "House", "Techno", "Jungle" })
            library.genre(QString::fromLatin1(name));
        for (int i = 0; i < 3; ++i) {
            auto person = Person::createInContext(*library.context);
            person->setName(u"p%1"_s.arg(i));
            auto album = Album::createInContext(*library.context);
            album->setTitle(u"a%1"_s.arg(i));
            album->setArtist(person);
        }
        for (int i = 0; i < 30; ++i)
            fill(*Track::createInContext(*library.context));
        EXPECT_TRUE(library.context->save());
        library.context->undoManager()->removeAllActions();
        other = library.otherContext();
    }

    void fill(Track &track)
    {
        const auto maybe = [this](auto value) {
            return random.chance(0.2) ? std::optional<decltype(value)>() : std::optional(value);
        };
        track.setTitle(predicates.value(RandomPredicates::Text).toString());
        track.setComment(maybe(predicates.value(RandomPredicates::Text).toString()));
        track.setBpm(maybe(random.between(-2, 5) * 0.5));
        track.setYear(maybe(random.between(-2, 6)));
        track.setPlays(random.between(-1, 5));
        track.setLoved(random.chance(0.5));
        track.setAdded(maybe(KXClock::now().addSecs(random.between(-20 * 86400, 86400))));
        track.setPrice(maybe(*KXDecimal::fromString(QString::number(random.between(0, 4)))));
    }

    template <class T> KXRef<T> any(Context &context)
    {
        const auto list = context.fetch(KXFetchRequest(QString(T::entityName)));
        return list.isEmpty() ? KXRef<T>() : list.as<T>(random.below(int(list.size())));
    }

    /// Objects that lead others go by one context alone: a link to what is gone is settled when it is saved, not
    /// before.
    void edit(Context &context)
    {
        const bool isMain = &context == library.context.get();
        const auto track = any<Track>(context);
        const int what = track ? random.below(11) : 0;
        switch (!isMain && what == 8 ? 0 : what) {
        case 0:
        case 1: {
            const auto made = Track::createInContext(context);
            fill(*made);
            made->setAlbum(any<Album>(context));
            if (const auto genre = any<Genre>(context))
                made->addToGenres(genre);
            break;
        }
        case 2:
            context.removeManagedObject(track);
            if (isMain && random.chance(0.5)) {
                EXPECT_TRUE(context.save());
                other = library.otherContext();
            }
            break;
        case 3:
            track->setAlbum(random.chance(0.2) ? KXRef<Album>() : any<Album>(context));
            break;
        case 4:
            if (const auto genre = any<Genre>(context))
                random.chance(0.6) ? track->addToGenres(genre) : track->removeFromGenres(genre);
            break;
        case 5:
            if (const auto genre = any<Genre>(context))
                genre->setName(random.oneOf(QStringList { u"House"_s, u"Techno"_s, u"a"_s, u""_s }));
            break;
        case 6:
            if (const auto album = any<Album>(context))
                random.chance(0.5) ? album->setArtist(any<Person>(context))
                                   : album->setTitle(predicates.value(RandomPredicates::Text).toString());
            break;
        case 7:
            if (const auto person = any<Person>(context))
                person->setName(predicates.value(RandomPredicates::Text).toString());
            break;
        case 8:
            // For good: neither an undo nor a context that does not know yet shall lead to what is gone.
            if (!random.chance(0.2))
                break;
            context.removeManagedObject(random.chance(0.5) ? KXRef<KXManagedObject>(any<Genre>(context))
                                                           : KXRef<KXManagedObject>(any<Album>(context)));
            EXPECT_TRUE(context.save());
            context.undoManager()->removeAllActions();
            other = library.otherContext();
            break;
        default:
            fill(*track);
        }
    }

    /// Edits, merges, saves, undoes or gives up, and announces it.
    void step()
    {
        Context &context = *library.context;
        const int kind = random.below(16);
        if (kind < 7) {
            for (int edits = random.below(4); edits >= 0; --edits)
                edit(context);
        } else if (kind < 11) {
            for (int edits = random.below(4); edits >= 0; --edits)
                edit(*other);
            const auto token = KXNotificationCenter::defaultCenter().addObserver(
                QString(KXManagedObjectContextDidSaveNotification), other.get(), [&](const KXNotification &saved) {
                    context.mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
                });
            EXPECT_TRUE(other->save());
        } else if (kind < 13) {
            EXPECT_TRUE(context.save());
            other = library.otherContext();
        } else if (kind < 14) {
            context.undoManager()->undo();
        } else if (kind < 15) {
            context.undoManager()->redo();
        } else {
            context.rollback();
        }
        context.processPendingChanges();
    }

    KXTestRandom &random;
    RandomPredicates predicates;
    LibraryTest library;
    Context::Ref other;
};
