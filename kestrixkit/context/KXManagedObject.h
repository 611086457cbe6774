#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <QVariant>

#include <kestrixkit/context/KXAccessorNote.h>
#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/entity/KXIdentifiedObject.h>
#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/foundation/KXRef.h>

class KXManagedObjectContext;
class KXObjectKeeper;
class KXRowValues;

/// Where a property lies in the value blocks of its entity's family; resolved by the accessors once per model.
struct KXPropertyPlace
{
    int index;
    int offset;
};

/// One stored object: a row of the store in the memory of a context.
///
/// Counts its own references: hold it by KXRef. A context keeps one object per identifier; an object whose values
/// are not in memory yet (a fault) reads them when they are first asked for. An object whose row is gone answers
/// empty values and isMissing(); deleting it does nothing. A deleted object keeps its values until the deletion is
/// saved, whatever is set meanwhile; from then on it has no context and answers empty values.
///
/// Belongs to the thread of its context. To another thread give its objectID().
class KX_CORE_EXPORT KXManagedObject : public KXIdentifiedObject
{
public:
    KXManagedObject();
    ~KXManagedObject() override;

    void ref() const noexcept { m_references.fetch_add(1, std::memory_order_relaxed); }
    void deref() const noexcept
    {
        if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            destroyUnreferenced();
    }
    /// For weak handles: takes a reference unless the object is about to go.
    [[nodiscard]] bool tryRef() const noexcept
    {
        qint32 references = m_references.load(std::memory_order_relaxed);
        while (references > 0) {
            if (m_references.compare_exchange_weak(references, references + 1, std::memory_order_acq_rel))
                return true;
        }
        return false;
    }

    [[nodiscard]] const KXEntityDescription *entity() const { return m_entity; }
    /// Null for a temporary instance. Valid also after the object left its context.
    [[nodiscard]] KXManagedObjectID objectID() const final;
    /// nullptr for a temporary instance, for one whose deletion was saved, and after the context is gone.
    [[nodiscard]] KXManagedObjectContext *managedObjectContext() const;

    [[nodiscard]] bool isInserted() const { return m_state & Inserted; }
    /// Whether a stored object has unsaved changes.
    [[nodiscard]] bool isUpdated() const { return m_state & Updated; }
    [[nodiscard]] bool isDeleted() const { return m_state & Deleted; }
    [[nodiscard]] bool hasChanges() const { return m_state & (Inserted | Updated | Deleted); }
    /// Whether its values are not in memory yet.
    [[nodiscard]] bool isFault() const { return !m_values && !(m_state & Missing); }
    /// Whether its row turned out to be gone. Reads the row where that is not known yet.
    [[nodiscard]] bool isMissing() const;

    /// Whether it was made by a child context: that keeps it, and is kept by those who hold it.
    [[nodiscard]] bool belongsToContext() const { return m_residency & Owned; }

    /// Attributes in their public types, to-one relationships as KXRef<KXManagedObject>, to-many ones as
    /// QVariantList of such. Throws KXException for a key that the entity does not have.
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;
    /// Takes what valueForKey() answers. False, with a log line that says why, where the value cannot be converted to
    /// the property's type; the property is then left as it was. False too for a deleted object and one whose context
    /// is gone, a text with half of a surrogate pair, a date that microseconds since 1970 cannot tell, and members that
    /// cannot be connected.
    bool setValueForKey(const QString &key, const QVariant &value) override;

    /// Keys of the properties that differ from the stored row; all that have a value for an inserted object.
    [[nodiscard]] QSet<QString> changedKeys() const;
    /// The value that the property had at the last fetch, save or merge; the current one where it is unchanged.
    [[nodiscard]] QVariant committedValueForKey(const QString &key) const;

    /// Members of a to-many relationship, in the order of their keys.
    [[nodiscard]] QList<KXRef<KXManagedObject>> objectsForKey(const QString &key) const;

    /// Of a stored class's C++ class: see KXManagedObjectOf::registerEntity(). `classes` are the class and its bases,
    /// whose accessors are checked against the models that are used; without them nothing is checked. Rows of a class
    /// that does nothing in awakeFromInsert() may be made without objects.
    using Factory = KXManagedObject *(*)();
    static void registerClass(const QString &className, Factory factory,
        const QList<const std::type_info *> &classes = {}, bool awakesFromInsert = true);
    /// nullptr where none is registered.
    [[nodiscard]] static Factory registeredClass(const QString &className);
    /// Throws KXException (KXInvalidClassException) where the entity has no registered class, and where its class does
    /// not fit the context's model: names each accessor with its type here and there. `checked` is remembered by the
    /// class that asks, so that a model is looked at once.
    static void requireClass(
        const KXManagedObjectContext &context, const QString &entityName, std::atomic<quint32> &checked);

protected:
    // For subclasses; the base does nothing.
    virtual void awakeFromInsert() { }
    virtual void awakeFromFetch() { }
    virtual void prepareForDeletion() { }

    // The typed accessors' entry points.
    template <typename T> [[nodiscard]] T readAttribute(KXPropertyPlace place) const;
    template <typename T> void writeAttribute(KXPropertyPlace place, const T &value);
    [[nodiscard]] KXRef<KXManagedObject> readToOne(KXPropertyPlace place) const;
    void writeToOne(KXPropertyPlace place, KXManagedObject *object);
    [[nodiscard]] QList<KXRef<KXManagedObject>> readToMany(KXPropertyPlace place) const;
    void addToMany(KXPropertyPlace place, KXManagedObject *object);
    void removeFromMany(KXPropertyPlace place, KXManagedObject *object);
    void writeToMany(KXPropertyPlace place, const QList<KXRef<KXManagedObject>> &objects);

    /// What an accessor of the given C++ type expects of the model.
    using Kind = KXAccessorKind;
    template <typename T> static constexpr Kind kindOf();
    /// Throws KXException where the entity has no such property or one of another kind.
    [[nodiscard]] KXPropertyPlace resolve(QStringView key, Kind kind) const;
    template <class Class, auto name, Kind kind> [[nodiscard]] KXPropertyPlace placeOf() const;

    void observationDidBegin() const override;
    void observationDidEnd() const override;

private:
    /// The framework's own access; see KXObjectAccess_p.h.
    friend class KXObjectAccess;
    using StoreHolder = std::shared_ptr<const KXStoreIdentity>;

    /// What of the object the store does not know yet. Written by KXChangeLedger alone.
    enum State : quint16 {
        Inserted = 1 << 0,
        Updated = 1 << 1,
        Deleted = 1 << 2,
        Missing = 1 << 3, ///< there is no row of it
        InsertPending = 1 << 4, ///< to be named as inserted in the next objects-did-change
        DeletePending = 1 << 5, ///< to be named as deleted in the next objects-did-change
        Detached = 1 << 6, ///< in no context: see m_store
    };
    /// Why its context keeps it. Written by KXWorkingSet alone.
    enum Residency : quint16 {
        HeldAsResident = 1 << 0, ///< the context holds a reference: its entity is resident
        Touched = 1 << 1, ///< asked for since the context last considered letting it go
        Owned = 1 << 2, ///< made by a child context, which ends it
    };

    /// The value block, read from the store where it must be; nullptr where there is nothing to read.
    [[nodiscard]] const char *loadedValues() const
    {
        if (Q_UNLIKELY(!m_values))
            fireFault();
        return m_values;
    }
    void fireFault() const;
    void destroyUnreferenced() const noexcept;
    template <typename T> [[nodiscard]] const T *slotIfPresent(KXPropertyPlace place) const
    {
        // The block's layout is described in KXRowValues_p.h: version, presence bits, slots.
        const char *values = loadedValues();
        if (!values || !(reinterpret_cast<const quint64 *>(values)[1 + (place.index >> 6)] >> (place.index & 63) & 1))
            return nullptr;
        return reinterpret_cast<const T *>(values + place.offset);
    }
    [[nodiscard]] QString textAt(int offset) const;
    [[nodiscard]] QVariant attributeAt(int index) const;
    void setInteger(KXPropertyPlace place, std::optional<qint64> value);
    void setDouble(KXPropertyPlace place, std::optional<double> value);
    void setText(KXPropertyPlace place, const std::optional<QString> &value);
    void setDate(KXPropertyPlace place, const std::optional<QDateTime> &value);
    void setAttributeAt(int index, const QVariant &value);
    void announceUnchanged(const KXPropertyDescription &property);
    template <typename Write> void change(const KXPropertyDescription &property, Write &&write);
    [[nodiscard]] bool refusesChange(const KXPropertyDescription &property) const;
    void logMisfit(const KXPropertyDescription &property, const QVariant &value) const;
    /// Whether it was in a context once and is in none any more.
    [[nodiscard]] bool isAbandoned() const { return (m_state & Detached) && m_key != 0; }
    [[nodiscard]] KXRowValues *values() const { return reinterpret_cast<KXRowValues *>(m_values); }

    mutable std::atomic<qint32> m_references { 0 };
    quint16 m_state = 0;
    quint16 m_residency = 0;
    /// What keeps the entity alive: the context, or for an object without one a reference of its own.
    union {
        KXObjectKeeper *m_keeper = nullptr;
        StoreHolder *m_store;
    };
    const KXEntityDescription *m_entity = nullptr;
    qint64 m_key = 0;
    mutable char *m_values = nullptr;
};

/// Objects travel in QVariants as this.
Q_DECLARE_METATYPE(KXRef<KXManagedObject>)

template <typename T> constexpr KXManagedObject::Kind KXManagedObject::kindOf()
{
    using Value = typename KXOptionalTraits<T>::Value;
    if constexpr (std::is_same_v<Value, bool>)
        return Kind::Boolean;
    else if constexpr (std::is_integral_v<Value> || std::is_enum_v<Value>)
        return Kind::Integer;
    else if constexpr (std::is_same_v<Value, double>)
        return Kind::Double;
    else if constexpr (std::is_same_v<Value, QString>)
        return Kind::Text;
    else if constexpr (std::is_same_v<Value, QDateTime>)
        return Kind::Date;
    else if constexpr (std::is_same_v<Value, KXDecimal>)
        return Kind::Decimal;
    else if constexpr (std::is_same_v<Value, QUrl>)
        return Kind::URI;
    else if constexpr (std::is_same_v<Value, QUuid>)
        return Kind::UUID;
    else if constexpr (std::is_same_v<Value, QByteArray>)
        return Kind::Binary;
    else
        return Kind::Variant;
}

template <typename T> T KXManagedObject::readAttribute(KXPropertyPlace place) const
{
    using Value = typename KXOptionalTraits<T>::Value;
    constexpr Kind kind = kindOf<T>();
    if constexpr (kind >= Kind::Decimal) {
        const QVariant value = attributeAt(place.index);
        if constexpr (std::is_same_v<Value, QVariant>)
            return value;
        else
            return value.isValid() ? T(value.value<Value>()) : T();
    } else if constexpr (kind == Kind::Double) {
        const double *slot = slotIfPresent<double>(place);
        return slot ? T(*slot) : T();
    } else if constexpr (kind == Kind::Text) {
        return slotIfPresent<char>(place) ? T(textAt(place.offset)) : T();
    } else {
        const qint64 *slot = slotIfPresent<qint64>(place);
        if constexpr (kind == Kind::Date) // rounded down to QDateTime's milliseconds
            return slot ? T(QDateTime::fromMSecsSinceEpoch(*slot / 1000 - (*slot % 1000 < 0), Qt::UTC)) : T();
        else
            return slot ? T(static_cast<Value>(*slot)) : T();
    }
}

template <typename T> void KXManagedObject::writeAttribute(KXPropertyPlace place, const T &value)
{
    constexpr Kind kind = kindOf<T>();
    const auto present = [&] {
        if constexpr (KXOptionalTraits<T>::isOptional)
            return value.has_value();
        else if constexpr (kind == Kind::Date)
            return value.isValid();
        else
            return true;
    }();
    const auto &plain = [&value]() -> const auto &
    {
        if constexpr (KXOptionalTraits<T>::isOptional)
            return *value;
        else
            return value;
    };
    if constexpr (kind >= Kind::Decimal)
        setAttributeAt(place.index, present ? QVariant::fromValue(plain()) : QVariant());
    else if constexpr (kind == Kind::Double)
        setDouble(place, present ? std::optional<double>(plain()) : std::nullopt);
    else if constexpr (kind == Kind::Text)
        setText(place, present ? std::optional<QString>(plain()) : std::nullopt);
    else if constexpr (kind == Kind::Date)
        setDate(place, present ? std::optional<QDateTime>(plain()) : std::nullopt);
    else
        setInteger(place, present ? std::optional<qint64>(static_cast<qint64>(plain())) : std::nullopt);
}

template <class Class, auto name, KXManagedObject::Kind kind> KXPropertyPlace KXManagedObject::placeOf() const
{
    // Serial of the model's layout (32 bits), index (12) and offset (20) of the property in it. Models come and go,
    // serials are never reused; two models in use at once merely resolve more often.
    static constinit std::atomic<quint64> remembered { 0 };
    const quint64 serial = m_entity->layoutSerial();
    quint64 place = remembered.load(std::memory_order_relaxed);
    if (Q_UNLIKELY(place >> 32 != serial)) {
        const KXPropertyPlace found = resolve(name.view(), kind);
        place = serial << 32 | quint64(found.index) << 20 | quint64(found.offset);
        remembered.store(place, std::memory_order_relaxed);
    }
    return { int(place >> 20 & 0xfff), int(place & 0xfffff) };
}
