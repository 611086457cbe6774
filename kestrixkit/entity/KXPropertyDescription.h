#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <kestrixkit/foundation/KXGlobal.h>

class KXEntityDescription;

/// What an attribute holds. The numbers are part of model files and version hashes: append only.
enum class KXAttributeType : quint8 {
    Integer16 = 1,
    Integer32 = 2,
    Integer64 = 3,
    Boolean = 4,
    Double = 5,
    Decimal = 6, ///< KXDecimal; stored as canonical text
    String = 7,
    Date = 8, ///< QDateTime; stored as microseconds since 1970 UTC
    URI = 9, ///< QUrl; stored as text
    UUID = 10, ///< QUuid; stored as text without braces
    Binary = 11, ///< QByteArray
    Variant = 12, ///< any QVariant that CBOR can hold; keeps strings and numbers apart
};

/// What happens to the objects at the other end of a relationship when its object is deleted.
enum class KXDeleteRule : quint8 {
    Nullify = 0, ///< they let go of the deleted object
    Cascade = 1, ///< they are deleted too
    Deny = 2, ///< saving fails while there are any
};

/// One attribute or relationship of an entity.
///
/// Made by attribute(), toOne() or toMany() and configured by the chained setters, then handed to a
/// KXEntityDescription. A model that takes the entity resolves names into pointers; from then on the
/// description never changes and may be read on any thread.
class KX_CORE_EXPORT KXPropertyDescription
{
public:
    KXPropertyDescription() = default;
    [[nodiscard]] static KXPropertyDescription attribute(const QString &name, KXAttributeType type);
    [[nodiscard]] static KXPropertyDescription toOne(
        const QString &name, const QString &destination, const QString &inverse = {});
    [[nodiscard]] static KXPropertyDescription toMany(
        const QString &name, const QString &destination, const QString &inverse = {});

    /// Properties are optional unless required() says that saving without a value fails. A to-many
    /// relationship is always optional.
    KXPropertyDescription &required()
    {
        m_optional = false;
        return *this;
    }
    /// The value that a new object starts with.
    KXPropertyDescription &withDefault(const QVariant &value)
    {
        m_defaultValue = value;
        return *this;
    }
    /// Keeps an index in the store, so that comparisons and sorting by the attribute are fast.
    KXPropertyDescription &indexed()
    {
        m_indexed = true;
        return *this;
    }
    /// Of an indexed attribute or a to-one relationship: its index has an attribute of the same entity behind it, so
    /// that the rows of one value are read in that order.
    KXPropertyDescription &indexedWith(const QString &attribute)
    {
        m_indexedWith = attribute;
        return *this;
    }
    /// Of a stored text: keeps an index of it as it is sorted with these options (bits of KXPredicateOption,
    /// KXCaseInsensitive and KXDiacriticInsensitive), so that lists in that order open at once however long they are.
    /// It costs what another text of that length does. Independent of indexed(), which is for comparisons.
    KXPropertyDescription &indexedFolded(int options)
    {
        m_foldedIndex = options;
        return *this;
    }
    /// Kept in memory only: never stored, empty after a fetch.
    KXPropertyDescription &transient()
    {
        m_transient = true;
        return *this;
    }
    /// Of a to-one relationship such as "parent": no object is ever its own ancestor. What would make a circle is
    /// refused; of two contexts' changes that make one together, the one that comes later is taken back.
    KXPropertyDescription &acyclic()
    {
        m_acyclic = true;
        return *this;
    }
    KXPropertyDescription &deleteRule(KXDeleteRule rule)
    {
        m_deleteRule = rule;
        return *this;
    }
    /// The name under which an older model knew the property; migration follows it.
    KXPropertyDescription &renamedFrom(const QString &identifier)
    {
        m_renamingIdentifier = identifier;
        return *this;
    }

    [[nodiscard]] const QString &name() const { return m_name; }
    [[nodiscard]] bool isRelationship() const { return !m_destinationName.isEmpty(); }
    [[nodiscard]] bool isAttribute() const { return !isRelationship(); }
    [[nodiscard]] bool isToMany() const { return m_toMany; }
    [[nodiscard]] bool isToOne() const { return isRelationship() && !m_toMany; }
    [[nodiscard]] bool isOptional() const { return m_optional; }
    [[nodiscard]] bool isIndexed() const { return m_indexed; }
    /// Empty for none.
    [[nodiscard]] const QString &secondInIndex() const { return m_indexedWith; }
    /// Options of its index for sorting; 0 for none.
    [[nodiscard]] int foldedIndex() const { return m_foldedIndex; }
    /// Whether one of its indexes has the order of its values as sorting with these options sees them.
    [[nodiscard]] bool isIndexedForSorting(int options) const
    {
        return options == 0 || m_type != KXAttributeType::String ? m_indexed : options == m_foldedIndex;
    }
    [[nodiscard]] bool isTransient() const { return m_transient; }
    /// Meaningful for attributes.
    [[nodiscard]] KXAttributeType type() const { return m_type; }
    [[nodiscard]] const QVariant &defaultValue() const { return m_defaultValue; }
    [[nodiscard]] bool isAcyclic() const { return m_acyclic; }
    [[nodiscard]] KXDeleteRule deleteRule() const { return m_deleteRule; }
    [[nodiscard]] const QString &destinationName() const { return m_destinationName; }
    [[nodiscard]] const QString &inverseName() const { return m_inverseName; }
    /// The name of the property itself where none was given.
    [[nodiscard]] const QString &renamingIdentifier() const
    {
        return m_renamingIdentifier.isEmpty() ? m_name : m_renamingIdentifier;
    }

    // What follows is known once a model has taken the entity.

    /// Place among the properties of its entity; the same in every sub-entity.
    [[nodiscard]] int index() const { return m_index; }
    [[nodiscard]] const KXEntityDescription *destinationEntity() const { return m_destination; }
    /// The relationship that leads back, or nullptr.
    [[nodiscard]] const KXPropertyDescription *inverse() const { return m_inverse; }
    /// Whether the property has a column of its own in its entity's table: stored attributes and to-one
    /// relationships (which hold the key of the other row).
    [[nodiscard]] bool hasColumn() const { return !m_transient && !m_toMany; }
    [[nodiscard]] const QByteArray &column() const { return m_column; }
    /// For a to-many relationship without to-one inverse: the table that pairs keys, and its columns for
    /// the key of this side and of the other side. Empty when the inverse's column holds the relationship.
    [[nodiscard]] const QByteArray &joinTable() const { return m_joinTable; }
    [[nodiscard]] const QByteArray &joinSource() const { return m_joinSource; }
    [[nodiscard]] const QByteArray &joinTarget() const { return m_joinTarget; }
    /// Bytes from the start of an object's value block; see KXRowValues_p.h.
    [[nodiscard]] int offset() const { return m_offset; }

private:
    friend class KXManagedObjectModel;
    QString m_name;
    QString m_destinationName;
    QString m_inverseName;
    QString m_renamingIdentifier;
    QString m_indexedWith;
    QVariant m_defaultValue;
    KXAttributeType m_type = KXAttributeType::String;
    KXDeleteRule m_deleteRule = KXDeleteRule::Nullify;
    bool m_toMany = false;
    bool m_optional = true;
    bool m_indexed = false;
    bool m_transient = false;
    bool m_acyclic = false;
    int m_foldedIndex = 0;
    int m_index = -1;
    int m_offset = 0;
    const KXEntityDescription *m_destination = nullptr;
    const KXPropertyDescription *m_inverse = nullptr;
    QByteArray m_column;
    QByteArray m_joinTable;
    QByteArray m_joinSource;
    QByteArray m_joinTarget;
};
