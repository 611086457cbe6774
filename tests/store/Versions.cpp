#include "store/Versions.h"

#include <QDir>
#include <QDirIterator>
#include <gtest/gtest.h>
#include <sqlite3.h>

using namespace Qt::StringLiterals;
using Property = KXPropertyDescription;
using Type = KXAttributeType;
using Coordinator = KXPersistentStoreCoordinator;

KXManagedObjectModel::Ref Versions::model(int version)
{
    const QString name = version == 1 ? u"Track"_s : u"Song"_s;
    KXEntityDescription track(name);
    track.add(Property::attribute(u"title"_s, Type::String).required().indexed())
        .add(Property::attribute(u"plays"_s, Type::Integer64))
        .add(Property::toOne(u"album"_s, u"Album"_s, u"tracks"_s));
    if (version == 1) {
        track.add(Property::attribute(u"bpm"_s, Type::Double));
    } else {
        track.renamedFrom(u"Track"_s)
            .add(Property::attribute(u"tempo"_s, version == 2 ? Type::Double : Type::Integer32).renamedFrom(u"bpm"_s))
            .add(Property::attribute(u"mood"_s, Type::String).required().withDefault(u"calm"_s));
    }
    KXEntityDescription album(u"Album"_s);
    album.add(Property::attribute(u"title"_s, Type::String)).add(Property::toMany(u"tracks"_s, name, u"album"_s));
    QList<KXEntityDescription> entities { track, album };
    if (version == 3) {
        entities[0].add(Property::toMany(u"tags"_s, u"Tag"_s, u"songs"_s));
        entities.append(KXEntityDescription(u"Tag"_s).add(Property::toMany(u"songs"_s, name, u"tags"_s)));
    }
    return KXManagedObjectModel::make(entities);
}

void Versions::make(const QString &path, int tracks, int version, const QString &title)
{
    KXError error;
    const auto coordinator
        = Coordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(path), model(version), &error);
    ASSERT_TRUE(coordinator) << error.localizedDescription().toStdString();
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const KXRef<KXManagedObject> albums[]
        = { context->managedObjectForEntity(u"Album"_s), context->managedObjectForEntity(u"Album"_s) };
    for (int i = 0; i < tracks; ++i) {
        const auto track = context->managedObjectForEntity(version == 1 ? u"Track"_s : u"Song"_s);
        track->setValueForKey(u"title"_s, title + u' ' + QString::number(i));
        track->setValueForKey(
            version == 1 ? u"bpm"_s : u"tempo"_s, version == 3 ? QVariant(120 + i) : QVariant(120 + i / 2.0));
        track->setValueForKey(u"album"_s, KXVariantFromRef(albums[i % 2]));
    }
    ASSERT_TRUE(context->save(&error)) << error.localizedDescription().toStdString();
}

bool Versions::add(const Coordinator::Ref &coordinator, const QString &title)
{
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const auto track
        = context->managedObjectForEntity(coordinator->model()->entity(u"Song"_s) ? u"Song"_s : u"Track"_s);
    return track && track->setValueForKey(u"title"_s, title) && context->save();
}

QStringList Versions::tracks(const QString &path)
{
    QStringList found;
    const auto line = [](void *lines, int, char **values, char **) {
        *static_cast<QStringList *>(lines) += QString::fromUtf8(values[0]);
        return 0;
    };
    sqlite3 *database = nullptr;
    if (sqlite3_open_v2(QFile::encodeName(path).constData(), &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        for (const char *table : { "Track", "Song" }) {
            const QByteArray sql = "SELECT kx_id || ' ' || title FROM " + QByteArray(table) + " ORDER BY kx_id";
            sqlite3_exec(database, sql.constData(), line, &found, nullptr);
        }
    }
    sqlite3_close(database);
    return found;
}

int Versions::versionOf(const QString &path)
{
    const auto metadata = KXPersistentStore::metadataForStoreURL(QUrl::fromLocalFile(path));
    for (int version = 1; metadata && version <= 3; ++version) {
        if (metadata->versionHashes == model(version)->versionHashes())
            return version;
    }
    return 0;
}

Coordinator::Ref Versions::open(const QString &path)
{
    const int version = versionOf(path);
    return version ? Coordinator::persistentStoreCoordinatorWithStoreURL(QUrl::fromLocalFile(path), model(version))
                   : nullptr;
}

QStringList Versions::files(const QString &folder)
{
    QStringList names;
    for (QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
         it.hasNext();) {
        const QString name = it.next().mid(folder.size() + 1);
        if (!name.endsWith("-wal"_L1) && !name.endsWith("-shm"_L1))
            names.append(name);
    }
    names.sort();
    return names;
}
