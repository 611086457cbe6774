#pragma once

#include <memory>

#include <QJsonObject>
#include <QList>
#include <QVariant>

#include <kestrixkit/model/KXManagedObjectModel.h>

/// Where the values of a property come from.
struct KX_CORE_EXPORT KXPropertyMapping
{
    const KXPropertyDescription *destination = nullptr;
    /// nullptr for a property that the source model does not have.
    const KXPropertyDescription *source = nullptr;
    /// What rows get that have no value of their own, in the attribute's public type: the default of a new attribute or
    /// of one that has become required. Invalid for none.
    QVariant value;

    /// Whether values are stored in another form than before.
    [[nodiscard]] bool converts() const;
};

/// Where the rows of an entity come from.
struct KX_CORE_EXPORT KXEntityMapping
{
    const KXEntityDescription *source = nullptr;
    const KXEntityDescription *destination = nullptr;
    /// In the order of the destination's properties, transient ones included.
    QList<KXPropertyMapping> properties;

    /// nullptr where the property is not one of the destination's.
    [[nodiscard]] const KXPropertyMapping *mappingTo(const KXPropertyDescription *destinationProperty) const;
    /// nullptr where the source's property is not carried over.
    [[nodiscard]] const KXPropertyMapping *mappingFrom(const KXPropertyDescription *sourceProperty) const;
};

/// How a store of one model becomes a store of another.
///
/// Entities and properties are matched by their renaming identifiers and names. What only the source model has is given
/// up, what only the destination has is new. An inferred mapping takes values over as they are or in a type
/// that holds them all (integers into wider ones, into doubles and decimals that hold them, into texts; UUIDs and URIs
/// into texts; anything into a variant); a mapping-model file may say more (docs/formats/mapping.md).
///
/// Never changes once made; any thread.
class KX_CORE_EXPORT KXMappingModel
{
public:
    using Ref = std::shared_ptr<const KXMappingModel>;

    /// nullptr and an error that names what cannot be inferred.
    [[nodiscard]] static Ref inferredMappingModel(const KXManagedObjectModel::Ref &source,
        const KXManagedObjectModel::Ref &destination, KXError *error = nullptr);

    /// From the text of a mapping-model file; what it does not mention is inferred. Which models the file is for is not
    /// looked at.
    [[nodiscard]] static Ref mappingModelWithJSON(const QByteArray &json, const KXManagedObjectModel::Ref &source,
        const KXManagedObjectModel::Ref &destination, KXError *error = nullptr);

    /// Of the mapping-model files ("Name.cdm") in the bundles (the main bundle's where the list is empty), by name, the
    /// first that leads from the one model to the other: that names model files of the bundles with the same version
    /// hashes. nullptr without an error where there is none, with one where that file is wrong.
    [[nodiscard]] static Ref mappingModelFromBundles(const QList<const KXBundle *> &bundles,
        const KXManagedObjectModel::Ref &source, const KXManagedObjectModel::Ref &destination,
        KXError *error = nullptr);

    [[nodiscard]] const KXManagedObjectModel::Ref &sourceModel() const { return m_source; }
    [[nodiscard]] const KXManagedObjectModel::Ref &destinationModel() const { return m_destination; }
    /// One for each destination entity that has a source, in the order of names.
    [[nodiscard]] const QList<KXEntityMapping> &entityMappings() const { return m_entities; }
    /// nullptr for an entity that is given up or, below, new.
    [[nodiscard]] const KXEntityMapping *mappingFrom(const KXEntityDescription *sourceEntity) const;
    [[nodiscard]] const KXEntityMapping *mappingTo(const KXEntityDescription *destinationEntity) const;
    /// Whether a link of the source's relationship to a row of the other entity is still one in the destination's.
    [[nodiscard]] bool carriesLinks(
        const KXPropertyDescription *destinationRelationship, const KXEntityDescription *otherSourceEntity) const;

private:
    KXMappingModel() = default;
    static Ref make(const KXManagedObjectModel::Ref &source, const KXManagedObjectModel::Ref &destination,
        const QJsonObject &file, KXError *error);
    KXError matchEntities(const QJsonObject &file);
    KXError matchProperties(KXEntityMapping &mapping, const QJsonObject &file);
    void followInverses();
    KXError check(const KXEntityMapping &mapping) const;

    KXManagedObjectModel::Ref m_source;
    KXManagedObjectModel::Ref m_destination;
    QList<KXEntityMapping> m_entities;
    QList<const KXPropertyDescription *> m_given; // whose source a file names, or denies
};
