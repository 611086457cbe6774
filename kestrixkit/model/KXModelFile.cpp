#include <kestrixkit/model/KXModelFile_p.h>

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicate.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 modelFileLimit = 16 << 20;

struct ModelTypeName
{
    KXAttributeType type;
    QLatin1StringView name;
};

constexpr ModelTypeName modelTypeNames[] = {
    { KXAttributeType::Integer16, "integer16"_L1 },
    { KXAttributeType::Integer32, "integer32"_L1 },
    { KXAttributeType::Integer64, "integer64"_L1 },
    { KXAttributeType::Boolean, "boolean"_L1 },
    { KXAttributeType::Double, "double"_L1 },
    { KXAttributeType::Decimal, "decimal"_L1 },
    { KXAttributeType::String, "string"_L1 },
    { KXAttributeType::Date, "date"_L1 },
    { KXAttributeType::URI, "uri"_L1 },
    { KXAttributeType::UUID, "uuid"_L1 },
    { KXAttributeType::Binary, "binary"_L1 },
    { KXAttributeType::Variant, "variant"_L1 },
};

constexpr QLatin1StringView modelDeleteRuleNames[] = { "nullify"_L1, "cascade"_L1, "deny"_L1 };

KXError modelError(const QString &text)
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::InvalidModel, text);
}

QJsonValue defaultToJSON(const QVariant &value, KXAttributeType type)
{
    switch (type) {
    case KXAttributeType::Decimal:
        return value.value<KXDecimal>().toString();
    case KXAttributeType::Date:
        return value.toDateTime().toUTC().toString(Qt::ISODateWithMs);
    case KXAttributeType::URI:
        return value.toUrl().toString(QUrl::FullyEncoded);
    case KXAttributeType::UUID:
        return value.toUuid().toString(QUuid::WithoutBraces);
    case KXAttributeType::Binary:
        return QString::fromLatin1(value.toByteArray().toBase64());
    default:
        return QJsonValue::fromVariant(value);
    }
}

KXError readAttribute(const QJsonObject &json, const QString &entityName, KXPropertyDescription &attribute)
{
    const QString name = json["name"_L1].toString();
    const QString typeName = json["type"_L1].toString();
    const auto type = std::find_if(
        std::begin(modelTypeNames), std::end(modelTypeNames), [&](const auto &t) { return t.name == typeName; });
    if (type == std::end(modelTypeNames))
        return modelError(
            KXStringWithFormat("Attribute \"%@\" of \"%@\" has the unknown type \"%@\"", name, entityName, typeName));
    attribute = KXPropertyDescription::attribute(name, type->type);
    if (!json["optional"_L1].toBool(true))
        attribute.required();
    if (json["indexed"_L1].toBool())
        attribute.indexed();
    attribute.indexedWith(json["indexedWith"_L1].toString());
    attribute.indexedFolded(json["indexedFolded"_L1].toInt());
    if (json["transient"_L1].toBool())
        attribute.transient();
    if (json.contains("default"_L1))
        attribute.withDefault(KXModelFile::valueFromJSON(json["default"_L1], type->type));
    attribute.renamedFrom(json["renamedFrom"_L1].toString());
    return {};
}

KXError readRelationship(const QJsonObject &json, const QString &entityName, KXPropertyDescription &relationship)
{
    const QString name = json["name"_L1].toString();
    const QString destination = json["destination"_L1].toString();
    if (destination.isEmpty())
        return modelError(KXStringWithFormat("Relationship \"%@\" of \"%@\" leads nowhere", name, entityName));
    relationship = json["toMany"_L1].toBool()
        ? KXPropertyDescription::toMany(name, destination, json["inverse"_L1].toString())
        : KXPropertyDescription::toOne(name, destination, json["inverse"_L1].toString());
    if (!json["optional"_L1].toBool(true))
        relationship.required();
    if (json["acyclic"_L1].toBool())
        relationship.acyclic();
    const QString rule = json["deleteRule"_L1].toString(modelDeleteRuleNames[0]);
    const auto found = std::find(std::begin(modelDeleteRuleNames), std::end(modelDeleteRuleNames), rule);
    if (found == std::end(modelDeleteRuleNames))
        return modelError(KXStringWithFormat(
            "Relationship \"%@\" of \"%@\" has the unknown delete rule \"%@\"", name, entityName, rule));
    relationship.deleteRule(KXDeleteRule(found - std::begin(modelDeleteRuleNames)));
    relationship.indexedWith(json["indexedWith"_L1].toString());
    relationship.renamedFrom(json["renamedFrom"_L1].toString());
    return {};
}

QJsonObject writeProperty(const KXPropertyDescription &property)
{
    QJsonObject json { { "name"_L1, property.name() } };
    if (!property.isOptional())
        json["optional"_L1] = false;
    if (property.renamingIdentifier() != property.name())
        json["renamedFrom"_L1] = property.renamingIdentifier();
    if (!property.secondInIndex().isEmpty())
        json["indexedWith"_L1] = property.secondInIndex();
    if (property.isRelationship()) {
        json["destination"_L1] = property.destinationName();
        if (!property.inverseName().isEmpty())
            json["inverse"_L1] = property.inverseName();
        if (property.isToMany())
            json["toMany"_L1] = true;
        if (property.isAcyclic())
            json["acyclic"_L1] = true;
        json["deleteRule"_L1] = modelDeleteRuleNames[int(property.deleteRule())];
        return json;
    }
    for (const ModelTypeName &type : modelTypeNames) {
        if (type.type == property.type())
            json["type"_L1] = type.name;
    }
    if (property.isIndexed())
        json["indexed"_L1] = true;
    if (property.foldedIndex() != 0)
        json["indexedFolded"_L1] = property.foldedIndex();
    if (property.isTransient())
        json["transient"_L1] = true;
    if (property.defaultValue().isValid())
        json["default"_L1] = defaultToJSON(property.defaultValue(), property.type());
    return json;
}

}

QVariant KXModelFile::valueFromJSON(const QJsonValue &value, KXAttributeType type)
{
    if (value.isUndefined() || value.isNull())
        return {};
    switch (type) {
    case KXAttributeType::Integer16:
    case KXAttributeType::Integer32:
    case KXAttributeType::Integer64:
        return value.isDouble() ? QVariant(value.toInteger()) : QVariant();
    case KXAttributeType::Decimal: {
        const auto decimal = KXDecimal::fromString(value.isString() ? value.toString() : value.toVariant().toString());
        return decimal ? QVariant::fromValue(*decimal) : QVariant();
    }
    case KXAttributeType::Date:
        return QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    case KXAttributeType::URI:
        return QUrl(value.toString());
    case KXAttributeType::UUID:
        return QUuid::fromString(value.toString());
    case KXAttributeType::Binary:
        return QByteArray::fromBase64(value.toString().toLatin1());
    default:
        return value.toVariant();
    }
}

KXError KXModelFile::readFile(const QString &path, QByteArray &json)
{
    QFile file(path);
    if (QFileInfo info(path); info.exists() && !info.isFile()) // a pipe would be waited for
        return modelError(u"It is not a file"_s);
    if (!file.open(QIODevice::ReadOnly))
        return modelError(file.errorString());
    if (file.size() > modelFileLimit)
        return modelError(u"The file is too large for a model"_s);
    json = file.readAll();
    return {};
}

KXError KXModelFile::read(const QByteArray &json, Content &content)
{
    QJsonParseError problem;
    const QJsonDocument document = QJsonDocument::fromJson(json, &problem);
    if (!document.isObject())
        return modelError(KXStringWithFormat("Not a model: %@ at byte %d", problem.errorString(), problem.offset));

    for (const auto &value : document["entities"_L1].toArray()) {
        const QJsonObject object = value.toObject();
        KXEntityDescription entity(object["name"_L1].toString(), object["parent"_L1].toString());
        entity.className(object["class"_L1].toString()).renamedFrom(object["renamedFrom"_L1].toString());
        if (object["residence"_L1].toString() == "resident"_L1)
            entity.resident();
        KXPropertyDescription property;
        for (const auto &attribute : object["attributes"_L1].toArray()) {
            if (KXError error = readAttribute(attribute.toObject(), entity.name(), property))
                return error;
            entity.add(property);
        }
        for (const auto &relationship : object["relationships"_L1].toArray()) {
            if (KXError error = readRelationship(relationship.toObject(), entity.name(), property))
                return error;
            entity.add(property);
        }
        content.entities.append(entity);
    }
    for (const auto &value : document["templates"_L1].toArray()) {
        const QJsonObject object = value.toObject();
        KXError error;
        const KXPredicate predicate = KXPredicate::predicateWithText(object["predicate"_L1].toString(), &error);
        if (error)
            return modelError(
                KXStringWithFormat("Template \"%@\": %@", object["name"_L1].toString(), error.localizedDescription()));
        content.templates.append({ object["name"_L1].toString(), object["entity"_L1].toString(), predicate });
    }
    return {};
}

QByteArray KXModelFile::write(
    const QList<const KXEntityDescription *> &entities, const QList<KXFetchTemplate> &templates)
{
    QJsonArray entityList;
    for (const KXEntityDescription *entity : entities) {
        QJsonArray attributes;
        QJsonArray relationships;
        for (qsizetype i = entity->parent() ? entity->parent()->properties().size() : 0;
             i < entity->properties().size(); ++i) {
            const KXPropertyDescription &property = entity->properties()[i];
            (property.isRelationship() ? relationships : attributes).append(writeProperty(property));
        }
        QJsonObject json { { "name"_L1, entity->name() }, { "attributes"_L1, attributes },
            { "relationships"_L1, relationships } };
        if (entity->parent())
            json["parent"_L1] = entity->parentName();
        if (entity->className() != entity->name())
            json["class"_L1] = entity->className();
        if (entity->residence() == KXResidence::Resident)
            json["residence"_L1] = u"resident"_s;
        if (entity->renamingIdentifier() != entity->name())
            json["renamedFrom"_L1] = entity->renamingIdentifier();
        entityList.append(json);
    }
    QJsonArray templateList;
    for (const KXFetchTemplate &fetch : templates) {
        templateList.append(QJsonObject { { "name"_L1, fetch.name }, { "entity"_L1, fetch.entityName },
            { "predicate"_L1, fetch.predicate.predicateFormat() } });
    }
    return QJsonDocument(QJsonObject { { "entities"_L1, entityList }, { "templates"_L1, templateList } }).toJson();
}

QString KXModelFile::hashedLine(const KXPropertyDescription &property)
{
    if (property.isRelationship())
        return KXStringWithFormat("relationship %@ %@ %@ %d %d", property.name(), property.destinationName(),
            property.inverseName(), int(property.isToMany()), int(property.isOptional()));
    return KXStringWithFormat("attribute %@ %d %d", property.name(), int(property.type()), int(property.isOptional()));
}

QByteArray KXModelFile::versionHash(const KXEntityDescription &entity)
{
    // One line a property, sorted: the order of declaration does not matter to a store.
    QStringList lines;
    for (const KXPropertyDescription &property : entity.properties()) {
        if (property.isRelationship() || !property.isTransient())
            lines.append(hashedLine(property));
    }
    lines.sort();
    lines.prepend(KXStringWithFormat("entity %@ %@", entity.name(), entity.parentName()));
    return QCryptographicHash::hash(lines.join(u'\n').toUtf8(), QCryptographicHash::Sha256);
}

QStringList KXModelFile::allModelFiles(const KXBundle &bundle)
{
    QStringList files;
    for (const QString &folder : bundle.resourcePaths(u"momd"_s))
        files += bundle.resourcePaths(u"mom"_s, QFileInfo(folder).fileName());
    files += bundle.resourcePaths(u"mom"_s);
    files.removeDuplicates();
    return files;
}

QStringList KXModelFile::currentModelFiles(const KXBundle &bundle)
{
    QStringList files;
    QStringList folders = bundle.resourcePaths(u"momd"_s);
    folders.sort();
    for (const QString &folder : folders) {
        const QStringList versions = QDir(folder).entryList({ u"*.mom"_s }, QDir::Files, QDir::Name);
        if (versions.isEmpty())
            continue;
        QFile current(folder + "/current"_L1);
        QString name = current.open(QIODevice::ReadOnly) ? QString::fromUtf8(current.read(1024)).trimmed() : QString();
        if (!versions.contains(name))
            name = versions.last();
        files.append(folder + u'/' + name);
    }
    QStringList single = bundle.resourcePaths(u"mom"_s);
    single.sort();
    return files + single;
}
