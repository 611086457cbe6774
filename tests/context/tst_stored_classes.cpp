// Stored classes and what the model says of them; mistakes, and what one is told.

#include <gtest/gtest.h>

#include <thread>

#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXUndoManager.h>

#include "store/Library.h"
#include "support/KXTestLog.h"

using namespace Qt::StringLiterals;

namespace {

class Record : public KXManagedObjectOf<Record>
{
public:
    static constexpr QLatin1StringView entityName { "Record" };
    KX_ATTRIBUTE(QString, title, setTitle)
    KX_ATTRIBUTE(std::optional<int>, bpm, setBpm)
    KX_ATTRIBUTE(QUrl, sleeve, setSleeve)
    KX_TO_ONE(Record, reissue, setReissue)
};

class Single : public KXManagedObjectOf<Single, Record>
{
public:
    static constexpr QLatin1StringView entityName { "Single" };
    KX_ATTRIBUTE(double, length, setLength)
};

/// Never registered.
class Sleeve : public KXManagedObjectOf<Sleeve>
{
public:
    static constexpr QLatin1StringView entityName { "Sleeve" };
    KX_ATTRIBUTE(QString, colour, setColour)
};

/// A host's own kind of filter.
class EnergyFilter : public KXManagedObjectOf<EnergyFilter, KXRangeFilter>
{
public:
    static constexpr QLatin1StringView entityName { "EnergyFilter" };
    KX_ATTRIBUTE(qint64, curve, setCurve)
};

using Property = KXPropertyDescription;
using Type = KXAttributeType;

KXManagedObjectModel::Ref recordModel(Type bpm, Type sleeve, bool isToMany)
{
    const auto reissue
        = isToMany ? Property::toMany(u"reissue"_s, u"Record"_s) : Property::toOne(u"reissue"_s, u"Record"_s);
    return KXManagedObjectModel::make({ KXEntityDescription(u"Record"_s)
                                            .add(Property::attribute(u"title"_s, Type::String))
                                            .add(Property::attribute(u"bpm"_s, bpm))
                                            .add(Property::attribute(u"sleeve"_s, sleeve))
                                            .add(reissue),
        KXEntityDescription(u"Single"_s, u"Record"_s),
        KXEntityDescription(u"Sleeve"_s).add(Property::attribute(u"colour"_s, Type::String)) });
}

QString reasonOf(const std::function<void()> &function)
{
    try {
        function();
    } catch (const KXException &mistake) {
        return mistake.name() + u": "_s + mistake.reason();
    }
    return {};
}

} // namespace

TEST(StoredClasses, aModelThatDoesNotFitIsToldWithTypesAndKeys)
{
    const QTemporaryDir folder;
    const QUrl url = QUrl::fromLocalFile(folder.filePath(u"records.db"_s));
    Record::registerEntity();
    Single::registerEntity();
    const KXTestLog log;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        url, recordModel(Type::Double, Type::Decimal, true));
    EXPECT_EQ(log.lines().size(), 0) << "who only opens the store, to migrate it perhaps, is told nothing";
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const qsizetype told = log.lines().size();
    EXPECT_TRUE(KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator));
    EXPECT_EQ(log.lines().size(), told) << "once for each model";
    const QString reason = reasonOf([&] { (void)Single::createInContext(*context); });
    const QString opening = log.lines().join(u'\n');
    for (const QString &part :
        { u"\"Single\""_s, u"\"bpm\" is std::optional<int> in the class and Double in the model"_s,
            u"\"sleeve\" is QUrl in the class and Decimal in the model"_s,
            u"\"reissue\" is to-one relationship in the class and to-many relationship in the model"_s,
            u"\"length\" is double in the class and missing in the model"_s }) {
        EXPECT_TRUE(opening.contains(part)) << part.toStdString() << " in " << opening.toStdString();
        EXPECT_TRUE(reason.contains(part)) << part.toStdString() << " in " << reason.toStdString();
    }
    EXPECT_TRUE(reason.startsWith(KXInvalidClassException) && opening.contains(u"\"Record\""_s));
    EXPECT_FALSE(reason.contains(u"title"_s)) << "that one fits";
    EXPECT_FALSE(context->hasChanges());
    // Of a model that fits nothing is said, whatever another one was like.
    const auto fitting = KXManagedObjectContext::contextWithPersistentStoreCoordinator(
        KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
            QUrl::fromLocalFile(folder.filePath(u"fitting.db"_s)), recordModel(Type::Integer32, Type::URI, false)));
    EXPECT_TRUE(Record::createInContext(*fitting));
    // By keys an object can be looked into all the same; an accessor says what is wrong with it alone.
    const auto stray = context->managedObjectForEntity(u"Record"_s);
    EXPECT_TRUE(stray->setValueForKey(Record::bpmKey, 120.5));
    EXPECT_TRUE(reasonOf([&] {
        (void)Record::cast(stray)->bpm();
    }).contains(u"\"bpm\" of \"Record\" is an integer in the class and Double in the model"_s));
}

TEST(StoredClasses, aClassThatWasForgottenSaysSoAndInsertsNothing)
{
    const QTemporaryDir folder;
    const auto model = KXManagedObjectModel::make(
        { KXEntityDescription(u"Sleeve"_s).add(Property::attribute(u"colour"_s, Type::String)) });
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"sleeves.db"_s)), model);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    for (const std::function<void()> &use :
        std::vector<std::function<void()>> { [&] { (void)Sleeve::createInContext(*context); },
            [&] { (void)Sleeve::createTemporaryInstanceInContext(*context); },
            [&] { (void)Sleeve::findAllInContext(*context); },
            [&] { (void)Sleeve::findFirstUsingPredicate({}, *context); } }) {
        const QString reason = reasonOf(use);
        EXPECT_TRUE(reason.contains(u"\"Sleeve\" is not registered: call its registerEntity()"_s))
            << reason.toStdString();
    }
    EXPECT_FALSE(context->hasChanges());
    (void)context->managedObjectForEntity(u"Sleeve"_s); // nobody speaks of a class
    EXPECT_EQ(context->countForEntity(u"Sleeve"_s), 1);
    Sleeve::registerEntity(); // later than it should be, but heard of
    EXPECT_TRUE(Sleeve::createInContext(*context));
}

TEST(StoredClasses, aHostsEntityDerivesFromOneOfTheFrameworks)
{
    KXFilters::registerEntities();
    EnergyFilter::registerEntity();
    const KXEntityDescription energy = KXEntityDescription(u"EnergyFilter"_s, u"KXRangeFilter"_s)
                                           .add(Property::attribute(u"curve"_s, Type::Integer64));
    EXPECT_THROW((void)KXManagedObjectModel::make({ energy }), KXException) << "nobody brings its parent";
    const auto model = KXManagedObjectModel::make({ energy }, {}, { KXFilters::managedObjectModel() });
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"energy.db"_s)), model);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto filter = EnergyFilter::createInContext(*context);
    filter->setCurve(3);
    filter->setStartValue(5);
    KXError error;
    ASSERT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
    const auto other = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const KXRef<KXRangeFilter> found = KXRangeFilter::findFirstUsingPredicate({}, *other);
    ASSERT_TRUE(dynamic_cast<EnergyFilter *>(found.get()));
    EXPECT_EQ(found->startValue(), KXDecimal(5));
    // Both again, as two models that a bundle holds.
    EXPECT_TRUE(KXManagedObjectModel::modelByMergingModels({ model, KXFilters::managedObjectModel() }));
}

TEST(StoredClasses, aRangeIsAFilterInOneCall)
{
    KXFilters::registerEntities();
    const QTemporaryDir folder;
    const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
        QUrl::fromLocalFile(folder.filePath(u"filters.db"_s)), KXFilters::managedObjectModel());
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto range = KXRangeFilter::createWithKeyPath(Track::bpmKey, 120, 127.5, *context);
    EXPECT_EQ(range->representedLocalPredicateWithKeyPath().predicateFormat(),
        KXPredicate::predicateWithFormat("bpm >= %@ AND bpm <= %@", KXDecimal(120), KXDecimal(127.5))
            .predicateFormat());
    EXPECT_TRUE(range->enabled());
    const auto open = KXRangeFilter::createWithKeyPath(Track::bpmKey, {}, 90, *context);
    EXPECT_EQ(open->representedLocalPredicateWithKeyPath().countOfComparisons(), 1);
}

TEST(StoredClasses, keysFitWhereverAKeyIsTaken)
{
    LibraryTest library;
    const auto track = library.track(u"Night"_s);
    EXPECT_EQ(track->valueForKey(Track::titleKey), u"Night"_s);
    EXPECT_TRUE(track->setValueForKey(Track::yearKey, 1999));
    library.track(u"Day"_s);
    KXFetchRequest request(
        QString(Track::entityName), KXPredicate::predicateWithFormat("%K != %@", Track::titleKey, u"x"_s));
    request.setSortDescriptors({ { Track::titleKey } });
    EXPECT_EQ(library.context->fetch(request).as<Track>(0)->title(), u"Day"_s);
    EXPECT_TRUE(Track::titleKey == u"title"_s && u"title"_s == Track::titleKey && Track::titleKey != Track::yearKey);
}

TEST(Mistakes, unknownKeysAndTypesThatDoNotMeetAreErrorsWhereThereIsASlot)
{
    LibraryTest library;
    library.track(u"a"_s)->setBpm(120);
    const auto request = [](const char *predicate, const char *key = nullptr) {
        KXFetchRequest made(QString(Track::entityName), KXPredicate::predicateWithFormat(predicate));
        return key ? made.setSortDescriptors({ { QString::fromLatin1(key) } }) : made;
    };
    using namespace KXStoreErrorCode;
    const struct
    {
        KXFetchRequest request;
        int code;
    } rows[] {
        { request("nothing == 1"), UnknownKey },
        { request("title == 'a'", "nothing"), UnknownKey },
        { request("title.length == 1"), UnknownKey },
        { request("bpm >= 'fast'"), NotComparable },
        { request("loved == 1 OR NOT (year IN {1999, '2000'})"), NotComparable },
        { request("title == 5"), NotComparable },
        { request("'5' == plays"), NotComparable },
        { request("title == year"), NotComparable },
        { request("album.title > 3"), NotComparable },
        { request("ANY genres.name == 3"), NotComparable },
        { request("genres.@count == 'many'"), NotComparable },
        { request("added > '2020-01-01'"), NotComparable },
        { request("bpm BETWEEN {'1', '2'}"), NotComparable },
        { request("bpm == nil AND price > 1 AND extra == 'x' AND extra == 1 AND loved == 1"), 0 },
        { request("plays BEGINSWORD '1' AND title IN {'a', nil}"), 0 },
    };
    for (const auto &row : rows) {
        KXError error, counting;
        const bool failed = library.context->fetch(row.request, &error).isNull();
        EXPECT_EQ(failed, row.code != 0) << row.request.predicate().predicateFormat().toStdString();
        EXPECT_EQ(error.code(), row.code) << error.localizedDescription().toStdString();
        EXPECT_EQ(library.context->count(row.request, &counting) < 0, row.code != 0);
    }
    EXPECT_THROW((void)library.context->fetch(rows[0].request), KXException) << "without a slot";
    EXPECT_THROW((void)library.context->fetch(rows[1].request), KXException);
    const KXTestLog log;
    EXPECT_EQ(Track::countOfUsingPredicate(KXPredicate::predicateWithFormat("bpm >= 'fast'"), *library.context), 0);
    EXPECT_TRUE(log.contains(u"\"bpm\" is a number and \"fast\" is a text"_s)) << log.lines().join(u'\n').toStdString();
}

TEST(Mistakes, whatIsRefusedIsLoggedWithItsReason)
{
    LibraryTest library;
    auto track = library.track(u"a"_s);
    {
        const KXTestLog log;
        EXPECT_FALSE(track->setValueForKey(Track::yearKey, u"fast"_s));
        EXPECT_TRUE(log.contains(u"\"fast\" (QString) does not fit \"year\" of \"Track\", which is Integer16"_s));
        EXPECT_FALSE(track->setValueForKey(Track::albumKey, 5));
        EXPECT_TRUE(log.contains(u"\"album\" of \"Track\" takes objects"_s));
    }
    ASSERT_TRUE(library.context->save());
    library.context.reset();
    const KXTestLog log;
    track->setTitle(u"b"_s);
    EXPECT_FALSE(track->setValueForKey(Track::titleKey, u"c"_s));
    EXPECT_EQ(log.lines().filter(u"the object's context is gone"_s).size(), 2);
    EXPECT_NE(track->title(), u"b"_s);
}

TEST(Mistakes, aStoreOfAnotherModelNamesWhatDiffers)
{
    const QTemporaryDir folder;
    const QUrl url = QUrl::fromLocalFile(folder.filePath(u"a.db"_s));
    const auto model = [](Type energy, bool isLater) {
        KXEntityDescription disc(u"Disc"_s);
        disc.add(Property::attribute(u"energy"_s, energy))
            .add(Property::attribute(isLater ? u"rating"_s : u"stars"_s, Type::Integer16));
        return KXManagedObjectModel::make(isLater ? QList { disc, KXEntityDescription(u"Crate"_s) } : QList { disc });
    };
    KXError error;
    ASSERT_TRUE(KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, model(Type::Double, false)));
    EXPECT_FALSE(
        KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, model(Type::String, true), &error));
    EXPECT_EQ(error.code(), KXStoreErrorCode::IncompatibleModel);
    for (const QString &part : { u"entity \"Crate\" is new"_s, u"\"energy\" of \"Disc\" is of another type"_s,
             u"\"rating\" of \"Disc\" is new"_s, u"\"stars\" of \"Disc\" is gone"_s,
             u"persistentStoreCoordinatorByMigratingStoreURL()"_s })
        EXPECT_TRUE(error.localizedDescription().contains(part)) << error.localizedDescription().toStdString();
}

TEST(Contexts, thoseOfTheMainThreadUndoAndAreRegistered)
{
    LibraryTest library;
    const auto context = library.otherContext();
    ASSERT_TRUE(context->undoManager());
    const auto track = Track::createInContext(*context);
    EXPECT_TRUE(context->undoManager()->canUndo());
    context->undoManager()->undo();
    EXPECT_TRUE(track->isDeleted() || !track->managedObjectContext());

    const auto before = KXManagedObjectContext::mainContext();
    KXManagedObjectContext::setMainContext(context);
    EXPECT_EQ(KXManagedObjectContext::mainContext(), context);
    std::thread([&] {
        const auto background = library.otherContext();
        EXPECT_FALSE(background->undoManager());
        EXPECT_THROW(KXManagedObjectContext::setMainContext(background), KXException);
    }).join();
    KXManagedObjectContext::setMainContext(before);
    EXPECT_EQ(KXManagedObjectContext::mainContext(), before);
}
