#include <QDateTime>
#include <QFileInfo>
#include <QUrl>

#include <kestrixkit/catalogue/KXCatalogueSchema.h>
#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/store/KXPersistentStore.h>

#include "Command.h"
#include "TrackSource.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype libraryBatch = 1000; // tracks whose objects are in memory at a time

/// What a library calls what a shop sells. Of genres and labels, of which a track may have several, a shop has one.
QString libraryKeyPath(const QString &keyPath)
{
    static const QHash<QString, QString> others { { u"released"_s, u"added"_s }, { u"album"_s, u"albumText"_s },
        { u"genre"_s, u"genres.name"_s }, { u"label"_s, u"labels.name"_s } };
    return others.value(keyPath, keyPath);
}

QVariant libraryValue(const KXManagedObject &track, const KXCatalogueColumn &column)
{
    const auto text = [&track](const QString &key) {
        return track.entity()->property(key) ? track.valueForKey(key).toString() : QString();
    };
    if (column.keyPath == KXCatalogueSchema::identifierKeyPath)
        return track.objectID().key();
    if (column.type == KXCatalogueType::Words)
        return QStringList { text(u"title"_s), text(u"artistText"_s), text(u"labelText"_s) };
    if (column.keyPath == "file"_L1)
        return track.entity()->property(u"location"_s)
            ? QVariant(QFileInfo(track.valueForKey(u"location"_s).toUrl().path()).fileName())
            : QVariant();
    const QString keyPath = libraryKeyPath(column.keyPath);
    if (!track.entity()->property(keyPath.section(u'.', 0, 0)))
        return column.isList ? QVariant(QVariantList()) : QVariant();
    QVariant value = track.valueForKeyPath(keyPath);
    if (!column.isList && value.typeId() == QMetaType::QVariantList) {
        QStringList names = value.toStringList();
        names.sort();
        value = names.isEmpty() ? QVariant() : QVariant(names.first());
    }
    return !value.isValid() && column.notNull && column.type == KXCatalogueType::Text ? QVariant(QString()) : value;
}

} // namespace

TrackSource TrackSources::library(const KXCatalogueSchema &schema, const QString &path)
{
    const QUrl url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
    KXError error;
    const auto metadata = KXPersistentStore::metadataForStoreURL(url, &error);
    const auto model = metadata ? KXManagedObjectModel::modelWithJSON(metadata->modelJSON, &error) : nullptr;
    const auto coordinator
        = model ? KXPersistentStoreCoordinator::persistentStoreCoordinatorWithStoreURL(url, model, &error) : nullptr;
    if (!coordinator)
        throw Ending { WrongInput, error.localizedDescription() };
    if (!model->entity(u"Track"_s))
        throw Ending { WrongInput, u"%1: no library of tracks"_s.arg(path) };
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    KXFetchRequest request(u"Track"_s);
    request.setFetchBatchSize(int(libraryBatch));
    const KXFetchedList found = context->fetch(request, &error);
    if (error)
        throw Ending { Failed, error.localizedDescription() };
    return [schema, coordinator, context, found, next = qsizetype(0)](SourceTrack &track) mutable {
        if (next >= found.size())
            return false;
        const auto object = found[next++];
        track = {};
        if (object->entity()->property(u"title"_s))
            track.name = object->valueForKey(u"title"_s).toString();
        for (const KXCatalogueColumn &column : schema.columns())
            track.values.append(libraryValue(*object, column));
        return true;
    };
}
