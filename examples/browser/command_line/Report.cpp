#include "command_line/Report.h"

#include <filesystem>

#include <QJsonArray>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include "filters/Presets.h"

using namespace Qt::StringLiterals;

namespace {

// Follows a key path through the model; false where a name on the way is none.
bool isKeyPathOfTracks(const QString &keyPath)
{
    const KXEntityDescription *entity = Library::model()->entity(QString(Track::entityName));
    for (const QString &key : keyPath.split(u'.')) {
        if (!entity)
            return false;
        if (key == "@count"_L1) {
            entity = nullptr;
            continue;
        }
        const KXPropertyDescription *property = entity->property(key);
        if (!property)
            return false;
        entity = property->destinationEntity();
    }
    return true;
}

} // namespace

QJsonObject Report::ofLibrary(
    KXManagedObjectContext &context, const ImportResult &result, const std::string &folder, const QString &store)
{
    QJsonArray skipped;
    for (const SkippedFile &file : result.skipped)
        skipped.append(QJsonObject { { u"file"_s, file.file }, { u"reason"_s, file.reason } });

    const QString tracks(Track::entityName);
    QJsonObject genres;
    for (const KXRef<KXManagedObject> &object : context.fetchAllForEntity(QString(Genre::entityName))) {
        const QString name = Genre::cast(object)->name();
        const auto ofGenre = KXPredicate::predicateWithFormat("ANY genres.name == %@ AND missing == FALSE", name);
        if (const qint64 count = context.countForEntity(tracks, ofGenre); count > 0)
            genres.insert(name, count);
    }

    QJsonArray notes;
    std::error_code error;
    const std::string root = std::filesystem::canonical(folder, error).native();
    const auto noted
        = KXFetchRequest(tracks, KXPredicate::predicateWithFormat("importNotes != nil AND missing == FALSE"))
              .setSortDescriptors({ { u"location"_s, true } });
    for (const KXRef<KXManagedObject> &object : context.fetch(noted)) {
        const KXRef<Track> track = Track::cast(object);
        notes.append(QJsonObject { { u"file"_s, shownPath(pathOfUrl(track->location()), root) },
            { u"notes"_s, QJsonArray::fromStringList(track->importNotes().value_or(QString()).split(u'\n')) } });
    }

    return { { u"tracks"_s, context.countForEntity(tracks, KXPredicate::predicateWithFormat("missing == FALSE")) },
        { u"skipped"_s, skipped }, { u"genres"_s, genres }, { u"notes"_s, notes },
        { u"presets"_s, Presets::report(context) }, { u"store"_s, store } };
}

QString Report::unknownName(const KXPredicate &predicate)
{
    for (const QString &keyPath : predicate.keyPaths()) {
        if (!isKeyPathOfTracks(keyPath))
            return keyPath;
    }
    return {};
}

QJsonObject Report::ofQuery(KXManagedObjectContext &context, const KXPredicate &predicate, KXError *error)
{
    return { { u"count"_s, context.count(KXFetchRequest(QString(Track::entityName), predicate), error) } };
}
