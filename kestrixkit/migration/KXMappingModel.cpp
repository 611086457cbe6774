#include <kestrixkit/migration/KXMappingModel.h>

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/model/KXModelFile_p.h>
#include <kestrixkit/store/KXSQLite_p.h>

using namespace Qt::StringLiterals;

namespace {

using MappingProperty = KXPropertyDescription;

KXError mappingError(const QString &text)
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::NoMapping, text);
}

QString mappingNameOf(const KXEntityDescription *entity, const MappingProperty &property)
{
    return entity->name() + u'.' + property.name();
}

/// Whether every value of the one type is one of the other, too.
bool mappingKeepsAll(KXAttributeType from, KXAttributeType to)
{
    using enum KXAttributeType;
    const auto isInteger = [](KXAttributeType type) { return type >= Integer16 && type <= Integer64; };
    if (from == to || to == Variant)
        return true;
    if (isInteger(to))
        return from == Boolean || (isInteger(from) && from < to);
    if (to == Double)
        return from == Boolean || from == Integer16 || from == Integer32;
    if (to == Decimal)
        return from == Boolean || isInteger(from);
    return to == String && (isInteger(from) || from == Decimal || from == UUID || from == URI);
}

/// The entry of a mapping-model file for the entity or property of that name; empty where it has none.
QJsonObject mappingEntry(const QJsonArray &entries, const QString &destination)
{
    for (const QJsonValue &entry : entries) {
        if (entry["destination"_L1].toString() == destination)
            return entry.toObject();
    }
    return {};
}

/// Finds each destination its source: what did not change at all first, then what says that it was renamed, then what
/// has the same identifier or name. A source serves one destination.
template <typename Item, typename Acceptable>
QHash<const Item *, const Item *> mappingMatch(const QList<const Item *> &destinations,
    const QList<const Item *> &sources, QHash<const Item *, const Item *> matches, Acceptable &&acceptable,
    const Item **ambiguous)
{
    QSet<const Item *> taken;
    for (const Item *source : std::as_const(matches))
        taken.insert(source);
    const auto pass = [&](auto &&fits, bool mustBeUnique) {
        QSet<const Item *> inThisPass;
        for (const Item *destination : destinations) {
            if (matches.contains(destination))
                continue;
            for (const Item *source : sources) {
                if (!fits(*destination, *source) || !acceptable(destination, source))
                    continue;
                if (mustBeUnique && inThisPass.contains(source))
                    *ambiguous = destination;
                if (taken.contains(source))
                    continue;
                taken.insert(source);
                inThisPass.insert(source);
                matches.insert(destination, source);
                break;
            }
        }
    };
    pass(
        [](const Item &to, const Item &from) {
            return to.name() == from.name() && to.renamingIdentifier() == from.renamingIdentifier();
        },
        false);
    pass(
        [](const Item &to, const Item &from) {
            return to.renamingIdentifier() != to.name() && to.renamingIdentifier() == from.name();
        },
        true);
    pass([](const Item &to, const Item &from) { return to.renamingIdentifier() == from.renamingIdentifier(); }, false);
    pass([](const Item &to, const Item &from) { return to.name() == from.name(); }, false);
    return matches;
}

KXManagedObjectModel::Ref mappingNamedModel(const QList<const KXBundle *> &bundles, const QJsonValue &names)
{
    QList<KXManagedObjectModel::Ref> models;
    for (const QJsonValue &name : names.isArray() ? names.toArray() : QJsonArray { names }) {
        for (const KXBundle *bundle : bundles) {
            for (const QString &path : KXModelFile::allModelFiles(*bundle)) {
                if (!path.endsWith(u'/' + name.toString()))
                    continue;
                if (auto model = KXManagedObjectModel::modelWithContentsOfFile(path))
                    models.append(std::move(model));
            }
        }
    }
    return models.isEmpty() ? nullptr : KXManagedObjectModel::modelByMergingModels(models);
}

}

bool KXPropertyMapping::converts() const
{
    return source && source->isAttribute() && source->type() != destination->type();
}

const KXPropertyMapping *KXEntityMapping::mappingTo(const KXPropertyDescription *destinationProperty) const
{
    const auto found = std::find_if(properties.begin(), properties.end(),
        [=](const auto &each) { return each.destination == destinationProperty; });
    return found == properties.end() ? nullptr : &*found;
}

const KXPropertyMapping *KXEntityMapping::mappingFrom(const KXPropertyDescription *sourceProperty) const
{
    const auto found = std::find_if(
        properties.begin(), properties.end(), [=](const auto &each) { return each.source == sourceProperty; });
    return found == properties.end() ? nullptr : &*found;
}

KXMappingModel::Ref KXMappingModel::inferredMappingModel(
    const KXManagedObjectModel::Ref &source, const KXManagedObjectModel::Ref &destination, KXError *error)
{
    return make(source, destination, {}, error);
}

KXMappingModel::Ref KXMappingModel::mappingModelWithJSON(const QByteArray &json,
    const KXManagedObjectModel::Ref &source, const KXManagedObjectModel::Ref &destination, KXError *error)
{
    QJsonParseError problem;
    const QJsonDocument document = QJsonDocument::fromJson(json, &problem);
    if (!document.isObject()) {
        KXSetError(error,
            mappingError(
                KXStringWithFormat("Not a mapping model: %@ at byte %d", problem.errorString(), problem.offset)));
        return nullptr;
    }
    return make(source, destination, document.object(), error);
}

KXMappingModel::Ref KXMappingModel::mappingModelFromBundles(const QList<const KXBundle *> &given,
    const KXManagedObjectModel::Ref &source, const KXManagedObjectModel::Ref &destination, KXError *error)
{
    const auto bundles = given.isEmpty() ? QList<const KXBundle *> { &KXBundle::mainBundle() } : given;
    for (const KXBundle *bundle : bundles) {
        for (const QString &path : bundle->resourcePaths(u"cdm"_s)) {
            QByteArray json;
            KXError problem = KXModelFile::readFile(path, json);
            const QJsonObject file = QJsonDocument::fromJson(json).object();
            if (!problem && file.isEmpty())
                (void)mappingModelWithJSON(json, source, destination, &problem); // says what is wrong
            const auto isFor = [&](QLatin1StringView end, const KXManagedObjectModel::Ref &model) {
                const auto named = mappingNamedModel(bundles, file[end]);
                return named && named->versionHashes() == model->versionHashes();
            };
            if (!problem && (!isFor("source"_L1, source) || !isFor("destination"_L1, destination)))
                continue;
            Ref mapping = problem ? nullptr : make(source, destination, file, &problem);
            if (!mapping)
                KXSetError(error, mappingError(KXStringWithFormat("%@: %@", path, problem.localizedDescription())));
            return mapping;
        }
    }
    return nullptr;
}

const KXEntityMapping *KXMappingModel::mappingFrom(const KXEntityDescription *sourceEntity) const
{
    const auto found = std::find_if(
        m_entities.begin(), m_entities.end(), [=](const auto &each) { return each.source == sourceEntity; });
    return found == m_entities.end() ? nullptr : &*found;
}

const KXEntityMapping *KXMappingModel::mappingTo(const KXEntityDescription *destinationEntity) const
{
    const auto found = std::find_if(
        m_entities.begin(), m_entities.end(), [=](const auto &each) { return each.destination == destinationEntity; });
    return found == m_entities.end() ? nullptr : &*found;
}

bool KXMappingModel::carriesLinks(
    const KXPropertyDescription *destinationRelationship, const KXEntityDescription *otherSourceEntity) const
{
    const KXEntityMapping *mapping = mappingFrom(otherSourceEntity);
    return mapping && mapping->destination->isKindOf(destinationRelationship->destinationEntity());
}

KXMappingModel::Ref KXMappingModel::make(const KXManagedObjectModel::Ref &source,
    const KXManagedObjectModel::Ref &destination, const QJsonObject &file, KXError *error)
{
    std::shared_ptr<KXMappingModel> model(new KXMappingModel);
    model->m_source = source;
    model->m_destination = destination;
    KXError problem = destination->entities().isEmpty() ? mappingError(u"The destination has no entities"_s)
                                                        : model->matchEntities(file);
    for (KXEntityMapping &mapping : model->m_entities) {
        if (!problem)
            problem = model->matchProperties(
                mapping, mappingEntry(file["entities"_L1].toArray(), mapping.destination->name()));
    }
    if (!problem)
        model->followInverses();
    for (const KXEntityMapping &mapping : std::as_const(model->m_entities)) {
        if (!problem)
            problem = model->check(mapping);
    }
    if (!problem)
        return model;
    KXSetError(error, problem);
    return nullptr;
}

KXError KXMappingModel::matchEntities(const QJsonObject &file)
{
    QHash<const KXEntityDescription *, const KXEntityDescription *> given;
    for (const QJsonValue &entry : file["entities"_L1].toArray()) {
        const QString name = entry["destination"_L1].toString();
        const KXEntityDescription *const destination = m_destination->entity(name);
        if (!destination)
            return mappingError(KXStringWithFormat("The destination has no entity \"%@\"", name));
        const QJsonValue from = entry["source"_L1];
        if (from.isUndefined())
            continue;
        const KXEntityDescription *const source = m_source->entity(from.toString());
        if (!source && !from.isNull())
            return mappingError(KXStringWithFormat("The source has no entity \"%@\"", from.toString()));
        if (source && std::find(given.begin(), given.end(), source) != given.end())
            return mappingError(KXStringWithFormat("Two entities come from \"%@\"", source->name()));
        given.insert(destination, source);
    }
    const KXEntityDescription *ambiguous = nullptr;
    const auto matches = mappingMatch(
        m_destination->entities(), m_source->entities(), given, [](auto, auto) { return true; }, &ambiguous);
    if (ambiguous)
        return mappingError(KXStringWithFormat("\"%@\" and another entity were both renamed from \"%@\"",
            ambiguous->name(), ambiguous->renamingIdentifier()));
    for (const KXEntityDescription *destination : m_destination->entities()) {
        if (const KXEntityDescription *source = matches.value(destination))
            m_entities.append({ source, destination, {} });
    }
    return {};
}

KXError KXMappingModel::matchProperties(KXEntityMapping &mapping, const QJsonObject &file)
{
    QList<const MappingProperty *> destinations;
    QList<const MappingProperty *> sources;
    for (const MappingProperty &property : mapping.destination->properties())
        destinations.append(&property);
    for (const MappingProperty &property : mapping.source->properties()) {
        if (!property.isTransient())
            sources.append(&property);
    }
    QHash<const MappingProperty *, const MappingProperty *> given;
    const QJsonArray entries = file["properties"_L1].toArray();
    for (const QJsonValue &entry : entries) {
        const QString name = entry["destination"_L1].toString();
        const MappingProperty *const to = mapping.destination->property(name);
        if (!to)
            return mappingError(KXStringWithFormat("\"%@\" has no property \"%@\"", mapping.destination->name(), name));
        const QJsonValue from = entry["source"_L1];
        if (from.isUndefined() && entry["value"_L1].isUndefined())
            continue;
        const MappingProperty *const source = mapping.source->property(from.toString());
        if (from.isString() && (!source || source->isTransient() || source->isRelationship() != to->isRelationship()))
            return mappingError(KXStringWithFormat(
                "\"%@\" cannot come from \"%@\"", mappingNameOf(mapping.destination, *to), from.toString()));
        given.insert(to, source);
        m_given.append(to);
    }
    const auto acceptable = [this](const MappingProperty *to, const MappingProperty *from) {
        if (to->isTransient() || to->isRelationship() != from->isRelationship())
            return false;
        const auto carried = [&](const KXEntityDescription *other) { return carriesLinks(to, other); };
        const auto &others
            = from->isRelationship() ? from->destinationEntity()->family() : QList<const KXEntityDescription *>();
        return from->isAttribute() || std::any_of(others.begin(), others.end(), carried);
    };
    const MappingProperty *ambiguous = nullptr;
    const auto matches = mappingMatch(destinations, sources, given, acceptable, &ambiguous);
    if (ambiguous) {
        return mappingError(KXStringWithFormat("\"%@\" and another property were both renamed from \"%@\"",
            mappingNameOf(mapping.destination, *ambiguous), ambiguous->renamingIdentifier()));
    }
    for (const MappingProperty *to : destinations) {
        const MappingProperty *const from = matches.value(to);
        const QJsonObject entry = mappingEntry(entries, to->name());
        KXPropertyMapping property { to, from, {} };
        if (to->isAttribute() && !to->isTransient()) {
            const QJsonValue value = entry["value"_L1];
            if (!value.isUndefined())
                property.value = KXValueConversion::convert(KXModelFile::valueFromJSON(value, to->type()), to->type());
            else if (!from || (from->isOptional() && !to->isOptional()))
                property.value = KXValueConversion::convert(to->defaultValue(), to->type());
            if (!value.isUndefined() && !value.isNull() && !property.value.isValid())
                return mappingError(KXStringWithFormat(
                    "\"%@\" cannot have the value that the mapping gives", mappingNameOf(mapping.destination, *to)));
            if (property.converts() && !mappingKeepsAll(from->type(), to->type()) && !entry["lossy"_L1].toBool()) {
                return mappingError(KXStringWithFormat(
                    "\"%@\" changes its type in a way that may lose values", mappingNameOf(mapping.destination, *to)));
            }
        }
        mapping.properties.append(property);
    }
    return {};
}

/// A relationship that has a new name takes its links from the other end, where that kept its own.
void KXMappingModel::followInverses()
{
    for (KXEntityMapping &mapping : m_entities) {
        for (KXPropertyMapping &property : mapping.properties) {
            if (property.source || !property.destination->inverse() || m_given.contains(property.destination))
                continue;
            const KXEntityMapping *const other = mappingTo(property.destination->destinationEntity());
            const KXPropertyMapping *const back = other ? other->mappingTo(property.destination->inverse()) : nullptr;
            const MappingProperty *const inverse = back && back->source ? back->source->inverse() : nullptr;
            const MappingProperty *const source = inverse ? mapping.source->property(inverse->name()) : nullptr;
            if (source && source->isRelationship() && source->inverseName() == back->source->name()
                && !mapping.mappingFrom(source))
                property.source = source;
        }
    }
}

/// Refuses relationships whose new form has no room for all links, or whose two ends come from different ones.
KXError KXMappingModel::check(const KXEntityMapping &mapping) const
{
    for (const KXPropertyMapping &property : mapping.properties) {
        const MappingProperty *const to = property.destination;
        const MappingProperty *const from = property.source;
        if (!from || from->isAttribute())
            continue;
        const QString name = mappingNameOf(mapping.destination, *to);
        if (to->isToOne() && from->isToMany())
            return mappingError(KXStringWithFormat("\"%@\" leads to one object and has led to many", name));
        if (!to->inverse() || (to->isToMany() && to->inverse()->isToMany()))
            continue;
        for (const KXEntityDescription *otherSource : from->destinationEntity()->family()) {
            if (!carriesLinks(to, otherSource))
                continue;
            const KXEntityMapping *const other = mappingFrom(otherSource);
            const KXPropertyMapping *const back = other->mappingTo(other->destination->property(to->inverseName()));
            const bool agrees = back->source && from->inverseName() == back->source->name()
                && back->source->inverseName() == from->name();
            if (!agrees && (back->source || to->inverse()->isToOne()))
                return mappingError(
                    KXStringWithFormat("\"%@\" and its inverse do not come from both ends of one relationship", name));
        }
    }
    return {};
}
