#include "library/Library.h"

#include <kestrixkit/filters/KXFilters.h>

#include "crates/Crate.h"
#include "places/LibraryPlaces.h"

using namespace Qt::StringLiterals;

namespace {

using Property = KXPropertyDescription;
using Type = KXAttributeType;

// A name that tracks refer to from a to-many relationship, and the tracks.
KXEntityDescription namedEntity(const QString &name, const QString &inverse)
{
    return KXEntityDescription(name)
        .add(Property::attribute(u"name"_s, Type::String).required().indexed())
        .add(Property::toMany(u"tracks"_s, u"Track"_s, inverse));
}

KXEntityDescription trackEntity()
{
    return KXEntityDescription(u"Track"_s)
        .add(Property::attribute(u"location"_s, Type::URI).required())
        .add(Property::attribute(u"fileSize"_s, Type::Integer64).required())
        .add(Property::attribute(u"fileModified"_s, Type::Integer64).required())
        .add(Property::attribute(u"missing"_s, Type::Boolean).required().withDefault(false))
        .add(Property::attribute(u"title"_s, Type::String).required().indexed().indexedFolded(Track::textOrder))
        .add(Property::attribute(u"artistText"_s, Type::String).indexedFolded(Track::textOrder))
        .add(Property::attribute(u"albumText"_s, Type::String).indexedFolded(Track::textOrder))
        .add(Property::attribute(u"genreText"_s, Type::String))
        .add(Property::attribute(u"labelText"_s, Type::String))
        .add(Property::attribute(u"bpm"_s, Type::Double).indexed())
        .add(Property::attribute(u"keyOrder"_s, Type::Integer16))
        .add(Property::attribute(u"year"_s, Type::Integer16))
        .add(Property::attribute(u"trackNumber"_s, Type::Integer16))
        .add(Property::attribute(u"rating"_s, Type::Integer16))
        .add(Property::attribute(u"fileRating"_s, Type::Integer16))
        .add(Property::attribute(u"comment"_s, Type::String))
        .add(Property::attribute(u"duration"_s, Type::Double))
        .add(Property::attribute(u"sampleRate"_s, Type::Integer32))
        .add(Property::attribute(u"channels"_s, Type::Integer16))
        .add(Property::attribute(u"bitrate"_s, Type::Integer32))
        .add(Property::attribute(u"added"_s, Type::Date).required().indexed())
        .add(Property::attribute(u"importNotes"_s, Type::String))
        .add(Property::attribute(u"soundHash"_s, Type::Integer64).indexed())
        .add(Property::attribute(u"soundHead"_s, Type::Integer64))
        .add(Property::attribute(u"soundOutline"_s, Type::Binary))
        .add(Property::attribute(u"copies"_s, Type::Integer16))
        .add(Property::attribute(u"fileTags"_s, Type::Binary))
        .add(Property::attribute(u"analysedBpm"_s, Type::Double))
        .add(Property::attribute(u"analysedKey"_s, Type::Integer16))
        .add(Property::attribute(u"analysisNote"_s, Type::String))
        .add(Property::toOne(u"album"_s, u"Album"_s, u"tracks"_s))
        .add(Property::toOne(u"key"_s, u"Key"_s, u"tracks"_s))
        .add(Property::toMany(u"artists"_s, u"Artist"_s, u"tracks"_s))
        .add(Property::toMany(u"genres"_s, u"Genre"_s, u"tracks"_s))
        .add(Property::toMany(u"labels"_s, u"Label"_s, u"tracks"_s))
        .add(Property::toMany(u"crateEntries"_s, u"CrateEntry"_s, u"track"_s).deleteRule(KXDeleteRule::Cascade));
}

} // namespace

void Library::registerEntities()
{
    KXFilters::registerEntities();
    LibraryPlaces::registerEntity();
    Crates::registerEntities();
    Track::registerEntity();
    Artist::registerEntity();
    Album::registerEntity();
    Genre::registerEntity();
    Label::registerEntity();
    Key::registerEntity();
    LeftOutFile::registerEntity();
}

KXManagedObjectModel::Ref Library::model()
{
    static const KXManagedObjectModel::Ref music
        = KXManagedObjectModel::make(Crates::entities() << QList<KXEntityDescription> {
                                         trackEntity(),
                                         KXEntityDescription(u"LeftOutFile"_s)
                                             .add(Property::attribute(u"location"_s, Type::URI).required().indexed())
                                             .add(Property::attribute(u"fileSize"_s, Type::Integer64))
                                             .add(Property::attribute(u"fileModified"_s, Type::Integer64))
                                             .add(Property::attribute(u"duration"_s, Type::Double))
                                             .add(Property::attribute(u"soundHash"_s, Type::Integer64)),
                                         namedEntity(u"Artist"_s, u"artists"_s),
                                         namedEntity(u"Genre"_s, u"genres"_s),
                                         namedEntity(u"Label"_s, u"labels"_s),
                                         namedEntity(u"Key"_s, u"key"_s)
                                             .add(Property::attribute(u"number"_s, Type::Integer16).required())
                                             .add(Property::attribute(u"isMinor"_s, Type::Boolean).required()),
                                         KXEntityDescription(u"Album"_s)
                                             .add(Property::attribute(u"title"_s, Type::String).required().indexed())
                                             .add(Property::attribute(u"artistText"_s, Type::String))
                                             .add(Property::toMany(u"tracks"_s, u"Track"_s, u"album"_s)),
                                     });
    static const KXManagedObjectModel::Ref model
        = KXManagedObjectModel::modelByMergingModels({ music, KXFilters::managedObjectModel() });
    return model;
}

KXPersistentStoreCoordinator::Ref Library::open(const QString &path, KXError *error)
{
    return KXPersistentStoreCoordinator::persistentStoreCoordinatorByMigratingStoreURL(
        QUrl::fromLocalFile(path), model(), error);
}
