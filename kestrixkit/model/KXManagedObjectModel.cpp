#include <kestrixkit/model/KXManagedObjectModel.h>

#include <atomic>

#include <QSet>

#include <kestrixkit/entity/KXRowValues_p.h>
#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/model/KXModelFile_p.h>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void invalidModel(const QString &reason) { throw KXException(QString(KXInvalidModelException), reason); }

QByteArray sqlQuoted(const QString &name)
{
    QByteArray text = name.toUtf8();
    text.replace('"', "\"\"");
    return '"' + text + '"';
}

/// As SQL compares names: A and a are one, Ä and ä are two.
QByteArray sqlFolded(const QString &name) { return name.toUtf8().toLower(); }

}

void KXManagedObjectModel::add(const KXEntityDescription &entity, QHash<QByteArray, QString> &tables)
{
    if (entity.name().isEmpty() || m_byName.contains(entity.name()))
        invalidModel(KXStringWithFormat("Entity \"%@\" occurs twice or has no name", entity.name()));
    const QByteArray table = sqlFolded(entity.name());
    if (table.startsWith("kx_") || table.startsWith("sqlite_") || table.contains('\0'))
        invalidModel(KXStringWithFormat("Entity \"%@\" has a reserved name", entity.name()));
    if (tables.contains(table))
        invalidModel(KXStringWithFormat(
            "Entities \"%@\" and \"%@\" differ by upper and lower case alone", tables[table], entity.name()));
    tables.insert(table, entity.name());
    m_entities.push_back(entity);
    m_byName.emplace(entity.name(), &m_entities.back());
}

KXManagedObjectModel::Ref KXManagedObjectModel::make(
    const QList<KXEntityDescription> &entities, const QList<KXFetchTemplate> &templates, const QList<Ref> &on)
{
    std::shared_ptr<KXManagedObjectModel> model(new KXManagedObjectModel);
    QHash<QByteArray, QString> tables;
    QHash<QString, QByteArray> taken;
    for (const Ref &other : on) {
        for (const KXEntityDescription *entity : other ? other->m_sorted : QList<const KXEntityDescription *>()) {
            const auto known = taken.constFind(entity->name());
            if (known != taken.constEnd() && *known != entity->versionHash())
                invalidModel(KXStringWithFormat("Two models describe the entity \"%@\" differently", entity->name()));
            if (known != taken.constEnd())
                continue;
            taken.insert(entity->name(), entity->versionHash());
            model->add(undone(*entity), tables);
        }
    }
    for (const KXEntityDescription &entity : entities)
        model->add(entity, tables);
    if (model->m_entities.size() > size_t(MostEntities))
        invalidModel(KXStringWithFormat(
            "The model has %@ entities, more than %@", qint64(model->m_entities.size()), qint64(MostEntities)));
    model->resolve();
    for (const Ref &other : on) {
        if (other)
            model->m_templates.insert(other->m_templates);
    }
    for (const KXFetchTemplate &fetch : templates) {
        if (!model->entity(fetch.entityName))
            invalidModel(
                KXStringWithFormat("Template \"%@\" fetches the unknown entity \"%@\"", fetch.name, fetch.entityName));
        model->m_templates.insert(fetch.name, fetch);
    }
    return model;
}

/// As it was before a model took it.
KXEntityDescription KXManagedObjectModel::undone(const KXEntityDescription &entity)
{
    KXEntityDescription own = entity;
    if (entity.parent())
        own.m_properties.remove(0, entity.parent()->properties().size());
    own.m_family.clear();
    return own;
}

/// Turns names into pointers and decides where everything lies: in the tables and in the value blocks.
void KXManagedObjectModel::resolve()
{
    for (KXEntityDescription &entity : m_entities)
        m_sorted.append(&entity);
    std::sort(m_sorted.begin(), m_sorted.end(), [](auto *a, auto *b) { return a->name() < b->name(); });
    const QList<KXEntityDescription *> ordered = orderByParents();
    numberEntities();
    TakenNames taken;
    for (KXEntityDescription *entity : ordered)
        resolveProperties(*entity, taken);
    for (KXEntityDescription *entity : ordered) {
        for (KXPropertyDescription &property : entity->m_properties) {
            if (property.isRelationship())
                resolveRelationship(*entity, property, taken);
        }
    }
    for (KXEntityDescription *entity : ordered)
        entity->m_versionHash = KXModelFile::versionHash(*entity);
}

/// Parents before children, so that inherited properties are complete when they are copied down.
QList<KXEntityDescription *> KXManagedObjectModel::orderByParents()
{
    QList<KXEntityDescription *> ordered;
    QSet<const KXEntityDescription *> placed;
    while (ordered.size() < m_sorted.size()) {
        const qsizetype before = ordered.size();
        for (KXEntityDescription &entity : m_entities) {
            if (!entity.m_parentName.isEmpty() && !m_byName.contains(entity.m_parentName))
                invalidModel(KXStringWithFormat(
                    "Entity \"%@\" has the unknown parent \"%@\"", entity.name(), entity.m_parentName));
            const KXEntityDescription *parent = this->entity(entity.m_parentName);
            if (placed.contains(&entity) || (parent && !placed.contains(parent)))
                continue;
            entity.m_parent = parent;
            entity.m_root = parent ? parent->m_root : &entity;
            if (parent) {
                entity.m_properties = parent->m_properties + entity.m_properties;
                if (entity.m_residence == KXResidence::Released)
                    entity.m_residence = parent->m_residence;
            }
            placed.insert(&entity);
            ordered.append(&entity);
        }
        if (ordered.size() == before)
            invalidModel(u"Entities are each other's parents"_s);
    }
    return ordered;
}

void KXManagedObjectModel::numberEntities()
{
    static std::atomic<quint32> nextLayoutSerial { 1 };
    for (qsizetype i = 0; i < m_sorted.size(); ++i) {
        auto *entity = const_cast<KXEntityDescription *>(m_sorted[i]);
        entity->m_number = int(i + 1);
        for (auto *ancestor = entity; ancestor; ancestor = const_cast<KXEntityDescription *>(ancestor->m_parent))
            ancestor->m_family.append(entity);
        if (!entity->m_parent) {
            entity->m_table = sqlQuoted(entity->name());
            entity->m_layoutSerial = nextLayoutSerial++;
        }
    }
}

void KXManagedObjectModel::resolveProperties(KXEntityDescription &entity, TakenNames &taken)
{
    entity.m_layoutSerial = entity.m_root->m_layoutSerial;
    const int inherited = entity.m_parent ? int(entity.m_parent->m_properties.size()) : 0;
    if (entity.m_properties.size() > MostProperties)
        invalidModel(KXStringWithFormat("Entity \"%@\" has %@ properties, more than %@", entity.name(),
            qint64(entity.m_properties.size()), qint64(MostProperties)));
    QSet<QString> names;
    for (int i = 0; i < entity.m_properties.size(); ++i) {
        KXPropertyDescription &property = entity.m_properties[i];
        property.m_index = i;
        if (property.name().isEmpty() || sqlFolded(property.name()).startsWith("kx_") || property.name().contains(u'\0')
            || names.contains(property.name()))
            invalidModel(KXStringWithFormat(
                "Property \"%@\" of \"%@\" occurs twice or has a reserved name", property.name(), entity.name()));
        names.insert(property.name());
        if (i < inherited)
            property.m_column = entity.m_parent->m_properties[i].m_column;
        else if (property.hasColumn())
            nameColumn(entity, property, taken);
        if (!property.m_indexedWith.isEmpty()) {
            const KXPropertyDescription *const second = entity.property(property.m_indexedWith);
            if ((!property.isIndexed() && !property.isToOne()) || !second || !second->hasColumn())
                invalidModel(KXStringWithFormat("The index of \"%@\" of \"%@\" cannot go on with \"%@\"",
                    property.name(), entity.name(), property.m_indexedWith));
        }
        if (property.m_foldedIndex != 0
            && (!property.isAttribute() || property.type() != KXAttributeType::String || property.isTransient()
                || (property.m_foldedIndex & ~(KXCaseInsensitive | KXDiacriticInsensitive)) != 0))
            invalidModel(KXStringWithFormat("\"%@\" of \"%@\" cannot have an index of folded texts with the options %d",
                property.name(), entity.name(), property.m_foldedIndex));
        if (property.isRelationship()) {
            property.m_destination = this->entity(property.m_destinationName);
            if (!property.m_destination) {
                invalidModel(KXStringWithFormat("Relationship \"%@\" of \"%@\" leads to the unknown entity \"%@\"",
                    property.name(), entity.name(), property.m_destinationName));
            }
        }
    }
    entity.m_blockSize
        = KXRowValues::layOut(entity, [&entity](int i, int offset) { entity.m_properties[i].m_offset = offset; });
}

/// Columns of one family share a table: where siblings use one name, the later one's column names its entity.
void KXManagedObjectModel::nameColumn(
    const KXEntityDescription &entity, KXPropertyDescription &property, TakenNames &taken)
{
    QSet<QString> &columns = taken.columns[entity.m_root];
    QString column = property.name();
    if (columns.contains(column.toLower())) // SQL does not tell upper from lower case in names
        column += u'@' + entity.name();
    if (columns.contains(column.toLower()))
        invalidModel(KXStringWithFormat(
            "Property \"%@\" of \"%@\" has a name that another one takes", property.name(), entity.name()));
    columns.insert(column.toLower());
    if (columns.size() > MostColumns)
        invalidModel(KXStringWithFormat("Entity \"%@\" and those below it have more than %@ stored properties",
            entity.m_root->name(), qint64(MostColumns)));
    property.m_column = sqlQuoted(column);
    const QByteArray index = sqlFolded(entity.m_root->name() + u'_' + column);
    QByteArrayList indexes;
    if (property.isIndexed() || property.isToOne())
        indexes.append(index);
    if (property.foldedIndex() != 0)
        indexes.append(index + '~' + QByteArray::number(property.foldedIndex()));
    for (const QByteArray &name : indexes) {
        if (taken.indexes.contains(name))
            invalidModel(KXStringWithFormat(
                "The index of \"%@\" of \"%@\" has a name that another one takes", property.name(), entity.name()));
        taken.indexes.insert(name);
    }
}

void KXManagedObjectModel::resolveRelationship(
    const KXEntityDescription &entity, KXPropertyDescription &property, TakenNames &taken)
{
    if (!property.m_inverseName.isEmpty()) {
        property.m_inverse = property.m_destination->property(property.m_inverseName);
        const auto *back = property.m_inverse;
        if (!back || back->m_inverseName != property.name() || !entity.isKindOf(back->m_destination)) {
            invalidModel(KXStringWithFormat("Relationship \"%@\" of \"%@\" has no inverse \"%@\" that leads back",
                property.name(), entity.name(), property.m_inverseName));
        }
    }
    // One that is its own inverse pairs rows of one table; both directions are rows.
    if (property.m_toMany && (!property.m_inverse || property.m_inverse->m_toMany))
        nameJoinTable(entity, property, taken);
}

void KXManagedObjectModel::nameJoinTable(
    const KXEntityDescription &entity, KXPropertyDescription &property, TakenNames &taken)
{
    // The entity that declares the relationship names the join table for its sub-entities too.
    const KXEntityDescription *owner = &entity;
    while (owner->m_parent && property.index() < owner->m_parent->m_properties.size())
        owner = owner->m_parent;
    QString here = owner->name() + u'.' + property.name();
    QString there;
    const KXEntityDescription *other = property.m_destination;
    if (property.m_inverse) {
        while (other->m_parent && property.m_inverse->index() < other->m_parent->m_properties.size())
            other = other->m_parent;
        there = other->name() + u'.' + property.m_inverseName;
    }
    const bool first = there.isEmpty() || here <= there;
    property.m_joinTable = sqlQuoted(u"kx_"_s + (first ? here : there));
    const std::pair<const KXEntityDescription *, int> user
        = first ? std::pair(owner, property.index()) : std::pair(other, property.m_inverse->index());
    const QByteArray table = property.m_joinTable.toLower();
    if (const auto known = taken.joins.constFind(table); known != taken.joins.constEnd() && *known != user)
        invalidModel(KXStringWithFormat(
            "Relationship \"%@\" of \"%@\" has a name that another one takes", property.name(), entity.name()));
    taken.joins.insert(table, user);
    property.m_joinSource = first ? "a" : "b";
    property.m_joinTarget = first ? "b" : "a";
}

const KXFetchTemplate &KXManagedObjectModel::fetchTemplate(const QString &name) const
{
    const auto found = m_templates.constFind(name);
    if (found == m_templates.constEnd())
        throw KXException(
            QString(KXInvalidArgumentException), KXStringWithFormat("The model has no fetch template \"%@\"", name));
    return *found;
}

QMap<QString, QByteArray> KXManagedObjectModel::versionHashes() const
{
    QMap<QString, QByteArray> hashes;
    for (const KXEntityDescription *entity : m_sorted)
        hashes.insert(entity->name(), entity->versionHash());
    return hashes;
}

QByteArray KXManagedObjectModel::toJSON() const { return KXModelFile::write(m_sorted, m_templates.values()); }

KXManagedObjectModel::Ref KXManagedObjectModel::modelWithJSON(const QByteArray &json, KXError *error)
{
    try {
        KXModelFile::Content content;
        if (KXError problem = KXModelFile::read(json, content)) {
            KXSetError(error, problem);
            return nullptr;
        }
        return make(content.entities, content.templates);
    } catch (const KXException &mistake) {
        // A file is input, not the programmer's doing.
        KXSetError(error, KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::InvalidModel, mistake.reason()));
        return nullptr;
    }
}

KXManagedObjectModel::Ref KXManagedObjectModel::modelWithContentsOfFile(const QString &path, KXError *error)
{
    QByteArray json;
    KXError problem = KXModelFile::readFile(path, json);
    Ref model = problem ? nullptr : modelWithJSON(json, &problem);
    if (!model) {
        KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::InvalidModel,
                KXStringWithFormat("%@: %@", path, problem.localizedDescription())));
    }
    return model;
}

KXManagedObjectModel::Ref KXManagedObjectModel::modelByMergingModels(const QList<Ref> &models, KXError *error)
{
    try {
        return make({}, {}, models);
    } catch (const KXException &mistake) {
        KXSetError(error, KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::InvalidModel, mistake.reason()));
        return nullptr;
    }
}
