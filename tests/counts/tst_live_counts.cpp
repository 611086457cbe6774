// Live counts against plain recounting: random predicates, edits, merges and steps of the clock.

#include <QCoreApplication>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "store/Library.h"
#include "store/RandomPredicates.h"
#include "support/KXTestRandom.h"

using namespace Qt::StringLiterals;

namespace {

using Context = KXManagedObjectContext;

/// A library that changes at random, in its main context and behind its back.
class Changing
{
public:
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

    KXTestRandom &random;
    RandomPredicates predicates;
    LibraryTest library;
    Context::Ref other;
};

QString pathPredicate(KXTestRandom &random)
{
    static const QStringList texts {
        u"ANY genres.name == 'House'"_s,
        u"ALL genres.name != 'Techno'"_s,
        u"genres.@count > 1"_s,
        u"NOT ANY genres.name IN {'House', 'a'}"_s,
        u"album.title == 'a1'"_s,
        u"album.artist.name BEGINSWITH 'p'"_s,
        u"album == nil OR bpm > 1"_s,
        u"ANY genres.name == 'House' AND ANY genres.name == 'Techno'"_s,
        u"bpm > year"_s,
        u"album.artist.name == 'p0' AND (loved == TRUE OR plays < 2)"_s,
        u"ANY album.tracks.loved == TRUE"_s,
        u"remix == nil"_s,
        u"price > 1.5 AND price <= 3"_s,
        u"bpm BETWEEN {0, 1.5}"_s,
        u"year IN {1, 2, 5}"_s,
        u"comment CONTAINS[c] 'A'"_s,
        u"loved != TRUE"_s,
    };
    return random.oneOf(texts);
}

} // namespace

TEST(LiveCounts, equalARecountAfterEveryChange)
{
    KXTestRandom random;
    const KXClockPin pin(QDateTime(QDate(2024, 3, 30), QTime(22, 0), Qt::UTC));
    KXClock::setTimeZone(QTimeZone("Europe/Berlin")); // the clock goes forward in the night
    for (int walk = 0; walk < std::max(1, KXTestRandom::scaled(1000)); ++walk) {
        Changing world(random);
        Context &context = *world.library.context;
        const KXPredicate base
            = random.chance(0.3) ? KXPredicate::predicateWithFormat("plays >= 0") : KXPredicate::truePredicate();
        KXLiveCounts counts(world.library.context, u"Track"_s, { base });
        QHash<QString, KXLiveCounts::Rule> rules;
        const auto setSome = [&](const QString &name) {
            const int kind = random.below(4);
            KXPredicate fixed;
            if (kind == 0) {
                fixed = world.predicates.predicate(3);
            } else if (kind == 1) {
                fixed = KXPredicate::predicateWithText(pathPredicate(random));
            } else if (kind == 2) {
                const double from = random.between(-2, 4) * 0.5;
                fixed = KXPredicate::predicateWithFormat(
                    "bpm >= %@ AND bpm < %@ AND loved == %@", from, from + random.below(4) * 0.5, random.chance(0.5));
            } else if (random.chance(0.3)) {
                rules[name] = [] {
                    return KXPredicate::predicateWithFormat(
                        "added >= %@", KXClock::today().startOfDay(KXClock::timeZone()));
                };
            } else {
                rules[name] = [days = random.between(1, 9)] {
                    const QDateTime now = KXClock::now().toTimeZone(KXClock::timeZone());
                    return KXPredicate::predicateWithFormat("added >= %@ AND added <= %@", now.addDays(-days), now);
                };
            }
            if (kind < 3)
                rules[name] = [fixed] { return fixed; };
            kind < 3 ? counts.setRule(name, fixed) : counts.setRule(name, rules[name]);
        };
        for (int i = 0; i < 12; ++i)
            setSome(u"r%1"_s.arg(i));
        rules[u"all"_s] = [] { return KXPredicate::truePredicate(); };
        counts.setRule(u"all"_s, KXPredicate::truePredicate());

        QHash<QString, qint64> announced;
        QObject::connect(&counts, &KXLiveCounts::countsDidChange, [&](const QStringList &names) {
            for (const QString &name : names)
                announced[name] = *counts.count(name);
        });
        for (int step = 0; step < 100; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            const int kind = random.below(20);
            if (kind < 8) {
                for (int edits = random.below(4); edits >= 0; --edits)
                    world.edit(context);
            } else if (kind < 12) {
                for (int edits = random.below(4); edits >= 0; --edits)
                    world.edit(*world.other);
                const auto token = KXNotificationCenter::defaultCenter().addObserver(
                    QString(KXManagedObjectContextDidSaveNotification), world.other.get(),
                    [&](const KXNotification &saved) {
                        context.mergeChangesFromStoreChange(*saved.payloadAs<std::shared_ptr<const KXStoreChange>>());
                    });
                ASSERT_TRUE(world.other->save());
            } else if (kind < 14) {
                ASSERT_TRUE(context.save());
                world.other = world.library.otherContext();
            } else if (kind < 15) {
                context.undoManager()->undo();
            } else if (kind < 16) {
                context.undoManager()->redo();
            } else if (kind < 17) {
                setSome(u"r%1"_s.arg(random.below(12)));
            } else if (kind < 18) {
                context.rollback();
            } else {
                KXClock::advance(random.chance(0.3) ? random.between(0, 100) : random.between(0, 20000));
                counts.advance();
            }
            context.processPendingChanges();
            ASSERT_TRUE(counts.update());
            const QDateTime boundary = counts.nextBoundary();
            for (const QString &name : counts.identifiers()) {
                // Now, and until something is due.
                for (const QDateTime &moment : { counts.asOf(), boundary.addMSecs(-1) }) {
                    if (!moment.isValid() || moment < counts.asOf())
                        continue;
                    const KXClockMoment at(moment);
                    const KXPredicate predicate = KXPredicate::andPredicate({ base, rules[name]() });
                    ASSERT_EQ(counts.count(name), Track::countOfUsingPredicate(predicate, context))
                        << predicate.predicateFormat().toStdString() << " at "
                        << moment.toString(Qt::ISODateWithMs).toStdString();
                }
                ASSERT_EQ(announced.value(name, -1), *counts.count(name)) << name.toStdString();
            }
        }
    }
}
