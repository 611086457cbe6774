#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <kestrixkit/entity/KXPropertyDescription.h>

/// Whether a context keeps clean objects of an entity that nobody holds.
enum class KXResidence : quint8 {
    Released, ///< kept while dirty, held, observed or lately touched: mass data such as tracks
    Resident, ///< kept once made: objects with in-memory state such as counts or controllers
};

/// One kind of stored object: its name, C++ class, parent and properties.
///
/// Built by a host or read from a model file, then given to a KXManagedObjectModel, which adds the inherited
/// properties and resolves names. Entities of a model never change and may be read on any thread.
class KX_CORE_EXPORT KXEntityDescription
{
public:
    /// Of one entity, those of its parents included.
    static constexpr int MostProperties = 256;

    explicit KXEntityDescription(const QString &name = {}, const QString &parentName = {});

    KXEntityDescription &add(const KXPropertyDescription &property);
    KXEntityDescription &resident()
    {
        m_residence = KXResidence::Resident;
        return *this;
    }
    /// The C++ class registered for the entity's objects; the entity's name where none is given.
    KXEntityDescription &className(const QString &name)
    {
        m_className = name;
        return *this;
    }
    KXEntityDescription &renamedFrom(const QString &identifier)
    {
        m_renamingIdentifier = identifier;
        return *this;
    }

    [[nodiscard]] const QString &name() const { return m_name; }
    [[nodiscard]] const QString &parentName() const { return m_parentName; }
    [[nodiscard]] const QString &className() const { return m_className.isEmpty() ? m_name : m_className; }
    [[nodiscard]] const QString &renamingIdentifier() const
    {
        return m_renamingIdentifier.isEmpty() ? m_name : m_renamingIdentifier;
    }
    [[nodiscard]] KXResidence residence() const { return m_residence; }

    /// Inherited properties first, in the order of their index; before a model took the entity, its own alone.
    [[nodiscard]] const QList<KXPropertyDescription> &properties() const { return m_properties; }
    /// nullptr when there is none of that name.
    [[nodiscard]] const KXPropertyDescription *property(QStringView name) const;

    // What follows is known once a model has taken the entity.

    [[nodiscard]] const KXEntityDescription *parent() const { return m_parent; }
    /// The topmost ancestor: its table holds the rows of the whole family.
    [[nodiscard]] const KXEntityDescription *root() const { return m_root; }
    /// Whether this is the entity or one of its descendants.
    [[nodiscard]] bool isKindOf(const KXEntityDescription *entity) const;
    /// The entity itself and all its descendants.
    [[nodiscard]] const QList<const KXEntityDescription *> &family() const { return m_family; }
    /// Name of the root's table, quoted for SQL.
    [[nodiscard]] const QByteArray &table() const { return m_root->m_table; }
    /// Whether rows of the table name their entity (in the column kx_entity), because the root has sub-entities.
    [[nodiscard]] bool hasDiscriminator() const { return m_root->m_family.size() > 1; }
    /// Unique in its model; the value of the column kx_entity. Stored: a model gives it by order of names.
    [[nodiscard]] int number() const { return m_number; }
    /// SHA-256 over the canonical form of all that decides how rows are stored.
    [[nodiscard]] const QByteArray &versionHash() const { return m_versionHash; }
    /// Never reused in a process; equal for all entities of one root. Lets accessors remember a property's place.
    [[nodiscard]] quint32 layoutSerial() const { return m_layoutSerial; }
    /// Size in bytes of an object's value block.
    [[nodiscard]] int blockSize() const { return m_blockSize; }

private:
    friend class KXManagedObjectModel;
    QString m_name;
    QString m_parentName;
    QString m_className;
    QString m_renamingIdentifier;
    KXResidence m_residence = KXResidence::Released;
    QList<KXPropertyDescription> m_properties;
    const KXEntityDescription *m_parent = nullptr;
    const KXEntityDescription *m_root = nullptr;
    QList<const KXEntityDescription *> m_family;
    QByteArray m_table;
    QByteArray m_versionHash;
    int m_number = 0;
    quint32 m_layoutSerial = 0;
    int m_blockSize = 0;
};
