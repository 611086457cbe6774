// Libraries that another version of the browser has made.

#include <span>

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <crates/Crate.h>
#include <crates/CrateEditor.h>
#include <filters/Presets.h>
#include <library/Library.h>
#include <library/LibraryEditor.h>
#include <library/TrackFields.h>

using namespace Qt::StringLiterals;

namespace {

/// The model as it was before crates; with something new that this version does not know.
KXManagedObjectModel::Ref otherModel(bool newer)
{
    QJsonObject json = QJsonDocument::fromJson(Library::model()->toJSON()).object();
    QJsonArray entities;
    for (const QJsonValue &value : json[u"entities"_s].toArray()) {
        QJsonObject entity = value.toObject();
        const QString name = entity[u"name"_s].toString();
        if (!newer && (name == u"Crate"_s || name == u"CrateEntry"_s))
            continue;
        QJsonArray attributes = entity[u"attributes"_s].toArray(), relationships;
        if (newer && name == u"Track"_s)
            attributes.append(QJsonObject { { u"name"_s, u"mood"_s }, { u"type"_s, u"string"_s } });
        for (const QJsonValue &relationship : entity[u"relationships"_s].toArray()) {
            if (newer || relationship.toObject()[u"name"_s] != u"crateEntries"_s)
                relationships.append(relationship);
        }
        entity[u"attributes"_s] = attributes;
        entity[u"relationships"_s] = relationships;
        entities.append(entity);
    }
    json[u"entities"_s] = entities;
    return KXManagedObjectModel::modelWithJSON(QJsonDocument(json).toJson());
}

}

TEST(LibraryVersions, anOlderLibraryIsOpenedWithEverythingAndANewerOneLeftAlone)
{
    Library::registerEntities();
    for (const bool newer : { false, true }) {
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"library.db"_s);
        {
            const auto coordinator = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(
                QUrl::fromLocalFile(path), otherModel(newer));
            ASSERT_TRUE(coordinator);
            const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            const auto track = context->managedObjectForEntity(u"Track"_s);
            track->setValueForKey(u"location"_s, QUrl(u"file:///a"_s));
            for (const char *key : { "fileSize", "fileModified" })
                track->setValueForKey(QString::fromLatin1(key), 1);
            track->setValueForKey(u"title"_s, u"kept"_s);
            track->setValueForKey(u"rating"_s, 4);
            track->setValueForKey(u"comment"_s, u"mine"_s);
            track->setValueForKey(u"added"_s, QDateTime(QDate(2024, 5, 3), QTime(12, 0), Qt::UTC));
            if (newer)
                track->setValueForKey(u"mood"_s, u"dark"_s);
            Presets::install(*context);
            ASSERT_TRUE(context->save());
        }
        KXError error;
        const auto coordinator = Library::open(path, &error);
        if (newer) {
            EXPECT_FALSE(coordinator);
            EXPECT_TRUE(error.localizedDescription().contains(u"another version"_s))
                << error.localizedDescription().toStdString();
            EXPECT_EQ(QDir(folder.path()).entryList({ u"library*.db"_s }).size(), 1);
            continue;
        }
        ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
        EXPECT_EQ(QDir(folder.path()).entryList({ u"library*.db"_s }).size(), 2) << "the old one is kept";
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        const auto track = Track::findAllInContext(*context).first();
        ASSERT_TRUE(track);
        EXPECT_EQ(track->rating(), 4);
        EXPECT_EQ(track->comment(), u"mine"_s);
        EXPECT_TRUE(track->crateEntries<CrateEntry>().isEmpty());
        EXPECT_TRUE(Presets::find(*context, u"Tempo/124 to 128"_s) || !Presets::children(*context, {}).isEmpty());
        CrateEditor editor(context);
        const qint64 key = track->objectID().key();
        const auto crate = editor.make(Crate::Kind::Plain, {}, u"New"_s, std::span(&key, 1));
        EXPECT_EQ(editor.membership().members(crate->objectID()), std::vector { key });
    }
}

namespace {

/// Every value and every member of all objects, as text; of what the model knows.
QStringList everythingIn(KXManagedObjectContext &context, const KXManagedObjectModel &model)
{
    QStringList all;
    for (const KXEntityDescription *entity : model.entities()) {
        for (const KXRef<KXManagedObject> &object : context.fetchAllForEntity(entity->name())) {
            if (object->entity()->name() != entity->name())
                continue; // of a sub-entity
            QString line = u"%1 %2"_s.arg(entity->name()).arg(object->objectID().key());
            for (const KXPropertyDescription &property : entity->properties()) {
                line += u'|' + property.name() + u'=';
                if (property.isToMany()) {
                    for (const KXRef<KXManagedObject> &member : object->objectsForKey(property.name()))
                        line += QString::number(member->objectID().key()) + u',';
                } else if (property.isToOne()) {
                    const auto to = object->valueForKey(property.name()).value<KXRef<KXManagedObject>>();
                    line += to ? QString::number(to->objectID().key()) : QString();
                } else {
                    QDebug(&line) << object->valueForKey(property.name());
                }
            }
            all.append(line);
        }
    }
    all.sort();
    return all;
}

} // namespace

// A model is recorded here, as the store's file has it, with every step that changes it.
TEST(LibraryVersions, everyRecordedOneOpensWithEverythingKept)
{
    Library::registerEntities();
    const QDir models(QStringLiteral(KX_LIBRARY_MODELS));
    ASSERT_FALSE(models.entryList({ u"*.json"_s }).isEmpty());
    for (const QString &name : models.entryList({ u"*.json"_s })) {
        QFile file(models.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const auto old = KXManagedObjectModel::modelWithJSON(file.readAll());
        ASSERT_TRUE(old) << name.toStdString();
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"library.db"_s);
        QStringList before;
        {
            const auto coordinator
                = KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(path), old);
            ASSERT_TRUE(coordinator);
            const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
            const auto genre = Genre::createInContext(*context);
            genre->setName(u"House"_s);
            for (int i = 0; i < 5; ++i) {
                // By the entity: today's class has keys that older models lack.
                const auto track = Track::cast(context->managedObjectForEntity(QString(Track::entityName)));
                track->setLocation(QUrl(u"file:///music/%1%FF.flac"_s.arg(i)));
                track->setFileSize(i);
                track->setFileModified(i);
                track->setTitle(u"Title %1 ♯"_s.arg(i));
                track->setRating(i);
                track->setComment(u"mine"_s);
                track->setGenreText(u"House"_s);
                track->setBpm(120.25 + i);
                track->setAdded(QDateTime(QDate(2024, 5, 3), QTime(12, 0), Qt::UTC));
                track->addToGenres(genre);
                CrateEditor editor(context);
                const qint64 key = track->objectID().key();
                const auto crates = editor.make(Crate::Kind::Folder, {}, u"Folder"_s);
                editor.make(Crate::Kind::Plain, crates, u"Crate"_s, std::span(&key, 1));
                editor.notePlayed(key, QDate(2024, 5, 3));
            }
            ASSERT_TRUE(Presets::install(*context));
            ASSERT_TRUE(context->save());
            before = everythingIn(*KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator), *old);
        }
        EXPECT_GT(before.size(), 30);
        KXError error;
        const auto coordinator = Library::open(path, &error);
        ASSERT_TRUE(coordinator) << name.toStdString() << ": " << error.localizedDescription().toStdString();
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        const QStringList after = everythingIn(*context, *old);
        EXPECT_EQ(after.size(), before.size());
        for (const QString &line : before)
            EXPECT_TRUE(after.contains(line)) << name.toStdString() << ": " << line.toStdString();
        LibraryEditor editor(context);
        const auto tracks = Track::findAllInContext(*context);
        EXPECT_TRUE(editor.setField({ tracks.first() }, TrackFields::Field::Title, u"New"_s));
        EXPECT_EQ(TrackFields::unwritten(*tracks.first()), QList { TrackFields::Field::Title });
    }
}
