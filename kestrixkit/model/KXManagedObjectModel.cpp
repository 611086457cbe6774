#include <kestrixkit/model/KXManagedObjectModel.h>

#include <atomic>
#include <mutex>

#include <QSet>

#include <kestrixkit/entity/KXRowValues_p.h>
#include <kestrixkit/entity/KXStoreErrorCode.h>
#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainThreadDictionary.h>
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

std::mutex sharedModelMutex;

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
    m_byName.insert(entity.name(), &m_entities.back());
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
    static std::atomic<quint32> nextLayoutSerial { 1 };

    for (KXEntityDescription &entity : m_entities)
        m_sorted.append(&entity);
    std::sort(m_sorted.begin(), m_sorted.end(), [](auto *a, auto *b) { return a->name() < b->name(); });

    // Parents before children, so that inherited properties are complete when they are copied down.
    QList<KXEntityDescription *> ordered;
    QSet<const KXEntityDescription *> placed;
    while (ordered.size() < m_sorted.size()) {
        const qsizetype before = ordered.size();
        for (KXEntityDescription &entity : m_entities) {
            if (!entity.m_parentName.isEmpty() && !m_byName.contains(entity.m_parentName))
                invalidModel(KXStringWithFormat(
                    "Entity \"%@\" has the unknown parent \"%@\"", entity.name(), entity.m_parentName));
            const KXEntityDescription *parent = m_byName.value(entity.m_parentName);
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

    // Columns of one family share a table: where siblings use one name, the later one's column names its entity.
    QHash<const KXEntityDescription *, QSet<QString>> columns;
    QSet<QByteArray> indexes; // whose names hold the entity's and the column's
    for (KXEntityDescription *entity : ordered) {
        entity->m_layoutSerial = entity->m_root->m_layoutSerial;
        const int inherited = entity->m_parent ? int(entity->m_parent->m_properties.size()) : 0;
        if (entity->m_properties.size() > MostProperties)
            invalidModel(KXStringWithFormat("Entity \"%@\" has %@ properties, more than %@", entity->name(),
                qint64(entity->m_properties.size()), qint64(MostProperties)));
        QSet<QString> names;
        for (int i = 0; i < entity->m_properties.size(); ++i) {
            KXPropertyDescription &property = entity->m_properties[i];
            property.m_index = i;
            if (property.name().isEmpty() || sqlFolded(property.name()).startsWith("kx_")
                || property.name().contains(u'\0') || names.contains(property.name()))
                invalidModel(KXStringWithFormat(
                    "Property \"%@\" of \"%@\" occurs twice or has a reserved name", property.name(), entity->name()));
            names.insert(property.name());
            if (i < inherited) {
                property.m_column = entity->m_parent->m_properties[i].m_column;
            } else if (property.hasColumn()) {
                QSet<QString> &taken = columns[entity->m_root];
                QString column = property.name();
                if (taken.contains(column.toLower())) // SQL does not tell upper from lower case in names
                    column += u'@' + entity->name();
                if (taken.contains(column.toLower()))
                    invalidModel(KXStringWithFormat("Property \"%@\" of \"%@\" has a name that another one takes",
                        property.name(), entity->name()));
                taken.insert(column.toLower());
                if (taken.size() > MostColumns)
                    invalidModel(
                        KXStringWithFormat("Entity \"%@\" and those below it have more than %@ stored properties",
                            entity->m_root->name(), qint64(MostColumns)));
                property.m_column = sqlQuoted(column);
                const QByteArray index = sqlFolded(entity->m_root->name() + u'_' + column);
                if ((property.isIndexed() || property.isToOne()) && indexes.contains(index))
                    invalidModel(KXStringWithFormat("The index of \"%@\" of \"%@\" has a name that another one takes",
                        property.name(), entity->name()));
                if (property.isIndexed() || property.isToOne())
                    indexes.insert(index);
            }
            if (!property.m_indexedWith.isEmpty()) {
                const KXPropertyDescription *const second = entity->property(property.m_indexedWith);
                if ((!property.isIndexed() && !property.isToOne()) || !second || !second->hasColumn())
                    invalidModel(KXStringWithFormat("The index of \"%@\" of \"%@\" cannot go on with \"%@\"",
                        property.name(), entity->name(), property.m_indexedWith));
            }
            if (property.isRelationship()) {
                property.m_destination = m_byName.value(property.m_destinationName);
                if (!property.m_destination) {
                    invalidModel(KXStringWithFormat("Relationship \"%@\" of \"%@\" leads to the unknown entity \"%@\"",
                        property.name(), entity->name(), property.m_destinationName));
                }
            }
        }
        entity->m_blockSize
            = KXRowValues::layOut(*entity, [entity](int i, int offset) { entity->m_properties[i].m_offset = offset; });
    }

    QHash<QByteArray, std::pair<const KXEntityDescription *, int>> joins; // whose relationship has the table
    for (KXEntityDescription *entity : ordered) {
        for (KXPropertyDescription &property : entity->m_properties) {
            if (!property.isRelationship())
                continue;
            // The entity that declares the relationship names the join table for its sub-entities too.
            const KXEntityDescription *owner = entity;
            while (owner->m_parent && property.index() < owner->m_parent->m_properties.size())
                owner = owner->m_parent;
            if (!property.m_inverseName.isEmpty()) {
                property.m_inverse = property.m_destination->property(property.m_inverseName);
                const auto *back = property.m_inverse;
                if (!back || back->m_inverseName != property.name() || !entity->isKindOf(back->m_destination)) {
                    invalidModel(
                        KXStringWithFormat("Relationship \"%@\" of \"%@\" has no inverse \"%@\" that leads back",
                            property.name(), entity->name(), property.m_inverseName));
                }
            }
            if (!property.m_toMany || (property.m_inverse && !property.m_inverse->m_toMany))
                continue;
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
            if (const auto known = joins.constFind(table); known != joins.constEnd() && *known != user)
                invalidModel(KXStringWithFormat("Relationship \"%@\" of \"%@\" has a name that another one takes",
                    property.name(), entity->name()));
            joins.insert(table, user);
            property.m_joinSource = first ? "a" : "b";
            property.m_joinTarget = first ? "b" : "a";
            // A relationship that is its own inverse pairs rows of one table; both directions are rows.
        }
    }
    for (KXEntityDescription *entity : ordered)
        entity->m_versionHash = KXModelFile::versionHash(*entity);
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

namespace {

/// The files of some bundles: those that make a model by themselves, and those whose entities need the others'.
struct ModelFiles
{
    QList<KXManagedObjectModel::Ref> models;
    QList<KXModelFile::Content> dependent;
    KXError dependence; // of the first of those: what it lacks
    KXError damage; // of the first that is none at all

    void read(const QString &path)
    {
        KXError problem;
        if (const auto model = KXManagedObjectModel::modelWithContentsOfFile(path, &problem)) {
            models.append(model);
            return;
        }
        QByteArray json;
        KXModelFile::Content content;
        const bool isReadable = !KXModelFile::readFile(path, json) && !KXModelFile::read(json, content);
        if (isReadable)
            dependent.append(content);
        if (KXError &first = isReadable ? dependence : damage; !first)
            first = problem;
    }
};

/// nullptr where they do not fit together.
KXManagedObjectModel::Ref modelOn(const QList<KXManagedObjectModel::Ref> &models, const KXModelFile::Content &content)
{
    try {
        return KXManagedObjectModel::make(content.entities, content.templates, models);
    } catch (const KXException &) {
        return nullptr;
    }
}

const QList<const KXBundle *> bundlesOrMain(const QList<const KXBundle *> &bundles)
{
    return bundles.isEmpty() ? QList<const KXBundle *> { &KXBundle::mainBundle() } : bundles;
}

}

KXManagedObjectModel::Ref KXManagedObjectModel::mergedModelFromBundles(
    const QList<const KXBundle *> &bundles, KXError *error)
{
    ModelFiles files;
    for (const KXBundle *bundle : bundlesOrMain(bundles)) {
        for (const QString &path : KXModelFile::currentModelFiles(*bundle))
            files.read(path);
    }
    KXModelFile::Content dependent;
    for (const KXModelFile::Content &content : files.dependent) {
        dependent.entities += content.entities;
        dependent.templates += content.templates;
    }
    if (files.models.isEmpty() && files.dependent.isEmpty() && !files.damage)
        files.damage = KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::InvalidModel, u"The bundles hold no model"_s);
    if (!files.damage && files.dependent.isEmpty())
        return modelByMergingModels(files.models, error);
    Ref model = files.damage ? nullptr : modelOn(files.models, dependent);
    if (!model)
        KXSetError(error, files.damage ? files.damage : files.dependence);
    return model;
}

KXManagedObjectModel::Ref KXManagedObjectModel::mergedModelFromBundles(
    const QList<const KXBundle *> &bundles, const KXStoreMetadata &forStoreMetadata)
{
    const auto &wanted = forStoreMetadata.versionHashes;
    const auto fits = [&wanted](const Ref &model) {
        return std::all_of(model->m_sorted.begin(), model->m_sorted.end(),
            [&wanted](auto *entity) { return wanted.value(entity->name()) == entity->versionHash(); });
    };
    ModelFiles files;
    for (const KXBundle *bundle : bundlesOrMain(bundles)) {
        for (const QString &path : KXModelFile::allModelFiles(*bundle))
            files.read(path);
    }
    QList<Ref> models;
    std::copy_if(files.models.begin(), files.models.end(), std::back_inserter(models), fits);
    for (const Ref &model : models) {
        if (model->versionHashes() == wanted)
            return model;
    }
    Ref merged = modelByMergingModels(models);
    for (const KXModelFile::Content &content : files.dependent) {
        if (const Ref more = modelOn({ merged }, content); more && fits(more))
            merged = more;
    }
    return merged && merged->versionHashes() == wanted ? merged : nullptr;
}

KXManagedObjectModel::Ref KXManagedObjectModel::managedObjectModel()
{
    // Held while the model is read, so that whoever asks meanwhile waits for the one instead of making a second.
    const std::lock_guard lock(sharedModelMutex);
    Ref model = KXMainThreadDictionary::get<Ref>(KXNSManagedObjectModelMainThreadKey);
    if (!model) {
        KXError error;
        model = mergedModelFromBundles({}, &error);
        if (model)
            KXMainThreadDictionary::setValue(KXNSManagedObjectModelMainThreadKey, model);
        else
            KXLogError(store, "Failed to load the object model - %@", error);
    }
    return model;
}

void KXManagedObjectModel::setManagedObjectModel(const Ref &model)
{
    const std::lock_guard lock(sharedModelMutex);
    KXMainThreadDictionary::setValue(KXNSManagedObjectModelMainThreadKey, model);
}
