#pragma once

#include <map>
#include <optional>
#include <set>

#include <QMap>
#include <QVariant>

#include <kestrixkit/migration/KXMigrationPlan.h>
#include <kestrixkit/model/KXManagedObjectModel.h>

#include "support/KXTestRandom.h"

/// Makes models, changes them as hosts do from version to version, and fills stores of them.
class RandomModels
{
public:
    explicit RandomModels(KXTestRandom &random)
        : m_random(random)
    {
    }

    /// Another model each time.
    [[nodiscard]] KXManagedObjectModel::Ref model();
    /// The last one with a few changes. Some cannot be inferred.
    [[nodiscard]] KXManagedObjectModel::Ref changedModel();
    /// A new store with some rows and links, closed.
    void fill(const QString &path, const KXManagedObjectModel::Ref &model);

private:
    struct Property
    {
        QString name;
        QString former;
        KXAttributeType type = KXAttributeType::String;
        bool required = false;
        bool hasDefault = false;
        QString destination; // empty for attributes
        QString inverse;
        bool toMany = false;
    };
    struct Entity
    {
        QString name;
        QString former;
        QString parent;
        QList<Property> properties;
    };

    [[nodiscard]] KXManagedObjectModel::Ref build() const;
    [[nodiscard]] QString freshName(QChar prefix) { return prefix + QString::number(++m_names); }
    [[nodiscard]] Property attribute();
    void addRelationship();
    void removeProperty(Entity &entity, qsizetype place);
    void change();
    [[nodiscard]] QVariant value(KXAttributeType type);

    KXTestRandom &m_random;
    QList<Entity> m_entities;
    int m_names = 0;
};

/// A store's content, read by plain SQL as the format's description has it, with no help of the framework's.
struct PlainStore
{
    struct Row
    {
        const KXEntityDescription *entity = nullptr;
        qint64 version = 0;
        QMap<QString, QVariant> values; ///< in their stored forms, without those that are absent
        QMap<QString, std::set<qint64>> links; ///< without those that are empty
    };
    PlainStore(const QString &path, const KXManagedObjectModel &model);

    std::map<qint64, Row> rows; // by key
    QString uuid;
    qint64 nextKey = 0;
};

/// The changes that turn the one content into the other, as a plan should have listed them; also checks everything that
/// the mapping says stays.
QList<KXMigrationChange> recount(const PlainStore &before, const PlainStore &after, const KXMappingModel &mapping);
