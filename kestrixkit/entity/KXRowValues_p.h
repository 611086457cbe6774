#pragma once

#include <cstring>
#include <functional>
#include <memory>

#include <QSet>
#include <QString>
#include <QUuid>
#include <QVariant>

#include <kestrixkit/entity/KXEntityDescription.h>

/// A text in 16 bytes: QString's own shared storage without the pointer to its first character, which is known
/// because the text always starts at the beginning of its allocation. Lives inside value blocks only.
class KXTextSlot
{
public:
    [[nodiscard]] QString toString() const
    {
        if (!m_data)
            return QString(QLatin1StringView(""));
        m_data->ref();
        return QString(QString::DataPointer(m_data, start(), m_size));
    }

    [[nodiscard]] QStringView view() const { return m_data ? QStringView(start(), m_size) : QStringView(u""); }

    /// Shares the text where it owns an allocation that is not much too large, else copies it.
    void assign(QString text);
    /// The same for UTF-8 of a row. The slot must be empty.
    void assignUtf8(const char *utf8, qsizetype size);
    void release() { assign(QString()); }
    void share(const KXTextSlot &other)
    {
        *this = other;
        if (m_data)
            m_data->ref();
    }

private:
    using Data = QTypedArrayData<char16_t>;
    void take(QString &&text);
    [[nodiscard]] char16_t *start() const { return Data::dataStart(m_data, alignof(Data)); }

    Data *m_data; // nullptr: empty
    qsizetype m_size;
};

/// The members of a to-many relationship, as keys of rows.
///
/// What the context changed since its last save is kept apart, so that adding to a relationship of a hundred
/// thousand members needs none of them in memory.
struct KXToManyKeys
{
    bool loaded = false; ///< whether `members` is complete
    QSet<qint64> members; ///< with added and without removed; meaningful only when loaded
    QSet<qint64> added; ///< since the last save; never members of the store's set
    QSet<qint64> removed; ///< since the last save; always members of the store's set

    [[nodiscard]] bool isChanged() const { return !added.isEmpty() || !removed.isEmpty(); }
};

/// The values of one stored object: a block of memory that begins with this header, then a bit per property that
/// tells whether it has a value, then the properties' slots at the offsets of their descriptions.
///
/// Slots: 8 bytes for integers, booleans, dates (microseconds since 1970), doubles and keys of to-one
/// relationships; 16 for texts, URIs (as text) and UUIDs; a pointer to a QVariant for decimals, binaries and
/// variants; a pointer to a KXToManyKeys for to-many relationships. Offsets and types come from the entity,
/// so a block is only read together with the entity it was made for.
class KXRowValues
{
public:
    struct Deleter
    {
        const KXEntityDescription *entity = nullptr;
        void operator()(KXRowValues *values) const { destroy(values, *entity); }
    };
    using Owner = std::unique_ptr<KXRowValues, Deleter>;

    /// Gives every property of the entity its offset and answers the size of a block.
    static int layOut(const KXEntityDescription &entity, const std::function<void(int index, int offset)> &place);

    /// All values absent, version 0.
    [[nodiscard]] static KXRowValues *create(const KXEntityDescription &entity);
    /// A copy; to-many relationships are left out, because their changes are kept beside them.
    [[nodiscard]] static KXRowValues *clone(const KXRowValues &other, const KXEntityDescription &entity);
    static void destroy(KXRowValues *values, const KXEntityDescription &entity);

    qint64 version; ///< of the row that the values were read from; 0 for a row that is not stored yet

    [[nodiscard]] bool isPresent(int index) const { return presence()[index >> 6] >> (index & 63) & 1; }
    void setPresent(int index, bool present)
    {
        const quint64 bit = quint64(1) << (index & 63);
        quint64 &word = presence()[index >> 6];
        word = present ? word | bit : word & ~bit;
    }

    template <typename T> [[nodiscard]] T &slot(int offset)
    {
        return *reinterpret_cast<T *>(reinterpret_cast<char *>(this) + offset);
    }
    template <typename T> [[nodiscard]] const T &slot(int offset) const
    {
        return *reinterpret_cast<const T *>(reinterpret_cast<const char *>(this) + offset);
    }

    /// The value of an attribute in its public type; invalid where absent. Not for relationships.
    [[nodiscard]] QVariant attribute(const KXPropertyDescription &property) const;
    /// Converts to the attribute's type; an invalid value or one that cannot be converted makes it absent.
    /// False for the latter.
    bool setAttribute(const KXPropertyDescription &property, const QVariant &value);
    void clear(const KXPropertyDescription &property);
    /// Whether both blocks, of one entity, hold the same value. To-many relationships are not compared.
    [[nodiscard]] static bool isEqual(
        const KXRowValues &a, const KXRowValues &b, const KXPropertyDescription &property);
    /// Copies one value from another block of the same entity.
    void copy(const KXRowValues &from, const KXPropertyDescription &property);

    /// Key of the row at the other end of a to-one relationship; 0 where there is none.
    [[nodiscard]] qint64 toOne(const KXPropertyDescription &property) const
    {
        return isPresent(property.index()) ? slot<qint64>(property.offset()) : 0;
    }
    void setToOne(const KXPropertyDescription &property, qint64 key)
    {
        slot<qint64>(property.offset()) = key;
        setPresent(property.index(), key != 0);
    }
    /// Made on first use.
    [[nodiscard]] KXToManyKeys &toMany(const KXPropertyDescription &property);
    /// nullptr where the relationship was never used.
    [[nodiscard]] KXToManyKeys *existingToMany(const KXPropertyDescription &property) const
    {
        return slot<KXToManyKeys *>(property.offset());
    }

private:
    [[nodiscard]] quint64 *presence() { return reinterpret_cast<quint64 *>(this + 1); }
    [[nodiscard]] const quint64 *presence() const { return reinterpret_cast<const quint64 *>(this + 1); }
};
