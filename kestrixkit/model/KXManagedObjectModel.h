#pragma once

#include <deque>
#include <memory>

#include <QHash>
#include <QList>
#include <QMap>
#include <QSet>
#include <QString>

#include <kestrixkit/entity/KXEntities.h>
#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXTextMap.h>
#include <kestrixkit/model/KXStoreMetadata.h>
#include <kestrixkit/predicate/KXPredicate.h>

class KXBundle;

/// Key of the shared model in KXMainThreadDictionary.
inline constexpr QLatin1StringView KXNSManagedObjectModelMainThreadKey { "KXNSManagedObjectModelMainThreadKey" };

/// A fetch that a model keeps under a name: an entity and a predicate that may hold variables.
struct KXFetchTemplate
{
    QString name;
    QString entityName;
    KXPredicate predicate;
};

/// Entities, their relationships and named fetches: what a store file holds.
///
/// A model is made whole and never changes, so it is shared freely between threads. It comes from C++
/// descriptions (make), from JSON model files ("Name.momd/Name 2.mom", modelWithContentsOfFile) or from all
/// the models of some bundles (mergedModelFromBundles). Mistakes in C++ descriptions throw KXException;
/// mistakes in files are errors.
class KX_CORE_EXPORT KXManagedObjectModel : public KXEntities
{
public:
    using Ref = std::shared_ptr<const KXManagedObjectModel>;

    /// What a model may hold at most: entities; properties of an entity, those of its parents included; and those with
    /// a value of their own among all the entities below one, which share a table.
    static constexpr int MostEntities = 1000;
    static constexpr int MostProperties = KXEntityDescription::MostProperties;
    static constexpr int MostColumns = 1900;

    /// Throws KXException for unknown parents, destinations or inverses, for names that occur twice or differ only in
    /// what SQL takes for one (the case of Latin letters), for names that begin with "kx_" or, of entities, "sqlite_",
    /// and for more of anything than is named above.
    ///
    /// What is in the models of `on` becomes part of the model, as by modelByMergingModels(); the entities may derive
    /// from theirs and lead to them:
    ///
    ///     make({ KXEntityDescription(u"EnergyFilter"_s, u"KXRangeFilter"_s) }, {}, { KXFilters::managedObjectModel()
    ///     })
    [[nodiscard]] static Ref make(const QList<KXEntityDescription> &entities,
        const QList<KXFetchTemplate> &templates = {}, const QList<Ref> &on = {});

    /// nullptr and an error that names the file where it cannot be read, parsed or resolved.
    [[nodiscard]] static Ref modelWithContentsOfFile(const QString &path, KXError *error = nullptr);
    [[nodiscard]] static Ref modelWithJSON(const QByteArray &json, KXError *error = nullptr);
    /// The JSON form that modelWithJSON reads.
    [[nodiscard]] QByteArray toJSON() const;

    /// The models of the bundles (the main bundle's when the list is empty) in one; nullptr when there is none.
    /// Of each "Name.momd" folder the current version is taken: the one named in its "current" file, else the
    /// one whose name sorts last. A file's entities may derive from those of the others.
    [[nodiscard]] static Ref mergedModelFromBundles(const QList<const KXBundle *> &bundles, KXError *error = nullptr);
    /// Of all versions in the bundles those that a store with this metadata was written with, in one; nullptr where
    /// they do not make it up.
    [[nodiscard]] static Ref mergedModelFromBundles(
        const QList<const KXBundle *> &bundles, const KXStoreMetadata &forStoreMetadata);
    /// All entities and templates of the models; an entity that several of them hold must be the same in each.
    [[nodiscard]] static Ref modelByMergingModels(const QList<Ref> &models, KXError *error = nullptr);

    /// The process-wide model of the main bundle, made on first use. A host that builds its model in C++ sets it
    /// beforehand with setManagedObjectModel. Any thread.
    [[nodiscard]] static Ref managedObjectModel();
    static void setManagedObjectModel(const Ref &model);

    /// nullptr when the model has no entity of that name.
    [[nodiscard]] const KXEntityDescription *entity(const QString &name) const override
    {
        const auto found = m_byName.find(name);
        return found == m_byName.end() ? nullptr : found->second;
    }
    /// Sorted by name.
    [[nodiscard]] const QList<const KXEntityDescription *> &entities() const { return m_sorted; }
    /// Throws KXException when the model has no template of that name.
    [[nodiscard]] const KXFetchTemplate &fetchTemplate(const QString &name) const;
    /// Version hash by entity name.
    [[nodiscard]] QMap<QString, QByteArray> versionHashes() const;

private:
    KXManagedObjectModel() = default;
    void add(const KXEntityDescription &entity, QHash<QByteArray, QString> &tables);
    [[nodiscard]] static KXEntityDescription undone(const KXEntityDescription &entity);
    struct TakenNames
    {
        QHash<const KXEntityDescription *, QSet<QString>> columns; // by root
        QSet<QByteArray> indexes; // whose names hold the entity's and the column's
        QHash<QByteArray, std::pair<const KXEntityDescription *, int>> joins; // whose relationship has the table
    };
    void resolve();
    [[nodiscard]] QList<KXEntityDescription *> orderByParents();
    void numberEntities();
    void resolveProperties(KXEntityDescription &entity, TakenNames &taken);
    static void nameColumn(const KXEntityDescription &entity, KXPropertyDescription &property, TakenNames &taken);
    static void resolveRelationship(
        const KXEntityDescription &entity, KXPropertyDescription &property, TakenNames &taken);
    static void nameJoinTable(const KXEntityDescription &entity, KXPropertyDescription &property, TakenNames &taken);

    std::deque<KXEntityDescription> m_entities; // never moves: properties and entities point at each other
    KXTextMap<const KXEntityDescription *> m_byName;
    QList<const KXEntityDescription *> m_sorted;
    QMap<QString, KXFetchTemplate> m_templates;
};
