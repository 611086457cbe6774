#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QStringList>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/model/KXManagedObjectModel.h>

class KXBundle;

/// The JSON form of models: files "Name.momd/Name 2.mom" in a bundle, and the metadata of store files.
namespace KXModelFile {

struct Content
{
    QList<KXEntityDescription> entities;
    QList<KXFetchTemplate> templates;
};

/// An error that says what is wrong and where, or none.
[[nodiscard]] KXError read(const QByteArray &json, Content &content);
[[nodiscard]] KXError readFile(const QString &path, QByteArray &json);
[[nodiscard]] QByteArray write(
    const QList<const KXEntityDescription *> &entities, const QList<KXFetchTemplate> &templates);

/// SHA-256 over the names, types, optionality and relationships of the entity's properties: what decides how its
/// rows are stored. Defaults, indexes, delete rules and classes may change without making a store incompatible.
[[nodiscard]] QByteArray versionHash(const KXEntityDescription &entity);
/// What of a property goes into it.
[[nodiscard]] QString hashedLine(const KXPropertyDescription &property);

/// A value of an attribute as models write it; types that JSON has no form for are texts. Invalid where it is none.
[[nodiscard]] QVariant valueFromJSON(const QJsonValue &value, KXAttributeType type);

/// All versions: the files in the model folders, folder by folder, then the model files beside the folders.
[[nodiscard]] QStringList allModelFiles(const KXBundle &bundle);
/// The current version of each model folder of the bundle, then the model files beside the folders.
[[nodiscard]] QStringList currentModelFiles(const KXBundle &bundle);

}
