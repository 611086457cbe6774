#include "StoreCommands.h"

#include <chrono>
#include <cstdio>

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/migration/KXMigrationPlan.h>
#include <kestrixkit/store/KXPersistentStore.h>

using namespace Qt::StringLiterals;
using Coordinator = KXPersistentStoreCoordinator;

namespace {

/// The arguments of a command, and how its result is printed.
class Call
{
public:
    Call(QStringList arguments, qsizetype wanted)
        : m_arguments(std::move(arguments))
    {
        m_isJSON = m_arguments.removeAll(u"--json"_s) > 0;
        if (m_arguments.size() != wanted)
            throw Ending { WrongInput, u"wrong number of arguments (kxtool --help tells which)"_s };
    }

    [[nodiscard]] const QString &operator[](qsizetype place) const { return m_arguments[place]; }
    [[nodiscard]] QUrl file(qsizetype place) const
    {
        return QUrl::fromLocalFile(QFileInfo(m_arguments[place]).absoluteFilePath());
    }

    /// The one or the other, after the arguments.
    template <typename JSON> void print(const JSON &json, const QStringList &lines) const
    {
        const QByteArray text = m_isJSON ? QJsonDocument(json).toJson()
            : lines.isEmpty()            ? QByteArray()
                                         : lines.join(u'\n').toUtf8() + '\n';
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
    }

private:
    QStringList m_arguments;
    bool m_isJSON = false;
};

[[noreturn]] void fail(ExitStatus status, const KXError &error)
{
    throw Ending { status, error.localizedDescription() };
}

/// Tells of long work on standard error, at most once a second.
KXStoreProgress progressOf(const char *what)
{
    using Clock = std::chrono::steady_clock;
    return [what, last = Clock::now()](double done) mutable {
        if (Clock::now() - last < std::chrono::seconds(1))
            return;
        last = Clock::now();
        std::fprintf(stderr, "kxtool: %s, %d %%\n", what, int(100 * done));
    };
}

KXStoreMetadata metadataOf(const QUrl &store)
{
    KXError error;
    const auto metadata = KXPersistentStore::metadataForStoreURL(store, &error);
    if (!metadata)
        fail(WrongInput, error);
    return *metadata;
}

KXManagedObjectModel::Ref ownModel(const QUrl &store)
{
    KXError error;
    auto model = KXManagedObjectModel::modelWithJSON(metadataOf(store).modelJSON, &error);
    if (!model)
        fail(WrongInput, error);
    return model;
}

/// Opens a store that exists with the model that it was written with.
Coordinator::Ref open(const QUrl &store)
{
    KXError error;
    auto coordinator = Coordinator::persistentStoreCoordinatorWithStoreURL(store, ownModel(store), &error);
    if (!coordinator)
        fail(WrongInput, error);
    return coordinator;
}

ExitStatus info(const QStringList &arguments)
{
    const Call call(arguments, 1);
    const auto coordinator = open(call.file(0));
    const KXStoreMetadata metadata = metadataOf(call.file(0));
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    QStringList lines { u"uuid %1"_s.arg(metadata.uuid),
        u"%1 bytes"_s.arg(QFileInfo(call.file(0).toLocalFile()).size()) };
    QJsonArray entities;
    for (const KXEntityDescription *entity : coordinator->model()->entities()) {
        const qint64 rows = context->count(KXFetchRequest(entity->name()));
        const QString hash = QString::fromLatin1(entity->versionHash().toHex());
        entities.append(QJsonObject { { "name"_L1, entity->name() }, { "rows"_L1, rows }, { "hash"_L1, hash } });
        lines.append(u"%1: %2 rows, %3"_s.arg(entity->name()).arg(rows).arg(hash));
    }
    QJsonArray backups;
    for (const QUrl &backup : coordinator->store()->existingBackupFileURLs()) {
        backups.append(backup.toLocalFile());
        lines.append(u"backup %1"_s.arg(backup.toLocalFile()));
    }
    call.print(QJsonObject { { "uuid"_L1, metadata.uuid }, { "bytes"_L1, QFileInfo(call.file(0).toLocalFile()).size() },
                   { "entities"_L1, entities }, { "backups"_L1, backups },
                   { "model"_L1, QJsonDocument::fromJson(metadata.modelJSON).object() } },
        lines);
    return Done;
}

ExitStatus verify(const QStringList &arguments)
{
    const Call call(arguments, 1);
    KXError error;
    const auto problems
        = KXPersistentStore::problemsOfStoreURL(call.file(0), &error, progressOf("reading the whole store"));
    if (!problems)
        fail(WrongInput, error);
    call.print(QJsonObject { { "problems"_L1, QJsonArray::fromStringList(*problems) } },
        problems->isEmpty() ? QStringList { u"sound"_s } : *problems);
    return problems->isEmpty() ? Done : Failed;
}

KXMigrationPlan planFor(const QUrl &store, const QString &modelPath)
{
    KXError error;
    const auto model = KXManagedObjectModel::modelWithContentsOfFile(modelPath, &error);
    if (!model)
        fail(WrongInput, error);
    metadataOf(store);
    const auto plan = KXMigrationPlan::planForStoreURL(store, model, &error);
    if (!plan)
        fail(Failed, error);
    return *plan;
}

QJsonObject jsonOf(const KXMigrationPlan &plan)
{
    QJsonArray changes;
    for (const KXMigrationChange &change : plan.changes()) {
        static constexpr QLatin1StringView kinds[] = { "entityAdded"_L1, "entityRenamed"_L1, "entityRemoved"_L1,
            "propertyAdded"_L1, "propertyRenamed"_L1, "propertyConverted"_L1, "propertyFilled"_L1, "propertyRemoved"_L1,
            "linksLost"_L1, "valueMissing"_L1 };
        QJsonObject json { { "kind"_L1, kinds[change.kind] }, { "entity"_L1, change.entity },
            { "count"_L1, change.count }, { "lost"_L1, change.lost }, { "description"_L1, change.description() } };
        for (const auto &[key, text] : { std::pair("property"_L1, change.property),
                 { "formerEntity"_L1, change.formerEntity }, { "formerProperty"_L1, change.formerProperty } }) {
            if (!text.isEmpty())
                json[key] = text;
        }
        changes.append(json);
    }
    return { { "needed"_L1, plan.isNeeded() }, { "possible"_L1, plan.isPossible() },
        { "losesData"_L1, plan.losesData() }, { "changes"_L1, changes } };
}

ExitStatus plan(const QStringList &arguments)
{
    const Call call(arguments, 2);
    const KXMigrationPlan plan = planFor(call.file(0), call[1]);
    QStringList lines { plan.isNeeded() ? u"the store needs to be migrated"_s : u"the store fits the model"_s };
    for (const KXMigrationChange &change : plan.changes())
        lines.append(change.description());
    call.print(jsonOf(plan), lines);
    return plan.isPossible() ? Done : Failed;
}

ExitStatus migrate(const QStringList &arguments)
{
    const Call call(arguments, 2);
    const KXMigrationPlan plan = planFor(call.file(0), call[1]);
    if (!plan.isPossible())
        throw Ending { Failed, u"the store cannot be migrated to this model (kxtool plan tells why)"_s };
    KXError error;
    if (plan.isNeeded()
        && !Coordinator::migrateURL(call.file(0), plan.mapping()->sourceModel(), plan.mapping()->destinationModel(),
            progressOf("migrating"), &error))
        fail(Failed, error);
    QJsonObject json = jsonOf(plan);
    json["migrated"_L1] = plan.isNeeded();
    call.print(
        json, { plan.isNeeded() ? u"migrated, the old store is kept beside it"_s : u"the store fits the model"_s });
    return Done;
}

ExitStatus backup(const QStringList &arguments)
{
    const Call call(arguments, 1);
    const auto coordinator = open(call.file(0));
    KXError error;
    const bool made = coordinator->store()->createBackup(progressOf("archiving and checking"), &error);
    if (!made && error.code() != KXStoreErrorCode::BackupExists)
        fail(Failed, error);
    const QList<QUrl> after = coordinator->store()->existingBackupFileURLs();
    const QString archive = after.isEmpty() ? QString() : after.last().toLocalFile();
    call.print(QJsonObject { { "made"_L1, made }, { "archive"_L1, archive } },
        { made ? archive : u"there is a backup of today already: "_s + archive });
    return Done;
}

ExitStatus restore(const QStringList &arguments)
{
    const Call call(arguments, 2);
    if (!QFileInfo::exists(call[0]))
        throw Ending { WrongInput, u"%1: no such file"_s.arg(call[0]) };
    KXError error;
    QUrl copy;
    if (!KXPersistentStore::restoreBackup(
            call.file(0), call.file(1), &error, &copy, progressOf("unpacking and checking")))
        fail(Failed, error);
    call.print(QJsonObject { { "copy"_L1, copy.isEmpty() ? QJsonValue() : QJsonValue(copy.toLocalFile()) } },
        { copy.isEmpty() ? u"restored"_s : u"restored, the old store is "_s + copy.toLocalFile() });
    return Done;
}

QJsonValue jsonOf(const QVariant &value)
{
    if (value.typeId() == qMetaTypeId<KXRef<KXManagedObject>>())
        return value.value<KXRef<KXManagedObject>>()->objectID().URIRepresentation().toString();
    if (value.typeId() == qMetaTypeId<KXDecimal>())
        return value.value<KXDecimal>().toString();
    if (value.typeId() == QMetaType::QByteArray)
        return QString::fromLatin1(value.toByteArray().toBase64());
    if (value.typeId() == QMetaType::QDateTime)
        return value.toDateTime().toUTC().toString(Qt::ISODateWithMs);
    return QJsonValue::fromVariant(value);
}

ExitStatus query(const QStringList &arguments)
{
    const Call call(arguments, 3);
    const auto coordinator = open(call.file(0));
    if (!coordinator->model()->entity(call[1]))
        throw Ending { WrongInput, u"the store has no entity \"%1\""_s.arg(call[1]) };
    KXError error;
    const KXPredicate predicate = KXPredicate::predicateWithText(call[2], &error);
    if (error)
        fail(WrongInput, error);
    const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
    const KXFetchRequest request(call[1], predicate);
    KXFetchedList found;
    try {
        found = context->fetch(request, &error);
    } catch (const KXException &mistake) {
        throw Ending { WrongInput, mistake.reason() };
    }
    if (error.code() == KXStoreErrorCode::UnknownKey || error.code() == KXStoreErrorCode::NotComparable)
        fail(WrongInput, error);
    if (error)
        fail(Failed, error);
    QJsonArray objects;
    QStringList lines;
    for (qsizetype i = 0; i < found.size(); ++i) {
        const auto object = found[i];
        QJsonObject json { { "id"_L1, object->objectID().URIRepresentation().toString() } };
        QString line = object->entity()->name() + " p"_L1 + QString::number(object->objectID().key());
        for (const KXPropertyDescription &property : object->entity()->properties()) {
            const QVariant value
                = property.isToMany() || property.isTransient() ? QVariant() : object->valueForKey(property.name());
            if (!value.isValid() || (property.isToOne() && !value.value<KXRef<KXManagedObject>>()))
                continue;
            json[property.name()] = jsonOf(value);
            line += u"  "_s + property.name() + u'='
                + (property.isToOne() ? jsonOf(value).toString() : KXStringWithFormat("%@", value));
        }
        objects.append(json);
        lines.append(line);
    }
    call.print(objects, lines);
    return Done;
}

} // namespace

QList<Command> storeCommands()
{
    return {
        { u"info"_s, u"STORE [--json]"_s, u"the store's identity, entities with rows and version hashes, and backups"_s,
            info },
        { u"verify"_s, u"STORE [--json]"_s,
            u"looks for damage and broken relationships; exit status 1 where there is any"_s, verify },
        { u"plan"_s, u"STORE MODEL [--json]"_s,
            u"what migrating to the model file would add, convert and lose; exit status 1 where it is not possible"_s,
            plan },
        { u"migrate"_s, u"STORE MODEL [--json]"_s,
            u"migrates the store to the model file, keeping the old one beside it"_s, migrate },
        { u"backup"_s, u"STORE [--json]"_s, u"makes today's archive and removes all but the newest five"_s, backup },
        { u"restore"_s, u"ARCHIVE STORE [--json]"_s,
            u"puts an archive, or a store that was kept, in the store's place, and keeps that one"_s, restore },
        { u"query"_s, u"STORE ENTITY PREDICATE [--json]"_s,
            u"the objects that match, for instance \"bpm > 120 AND title LIKE 'night*'\""_s, query },
    };
}
