#pragma once

#include <algorithm>
#include <type_traits>

#include <kestrixkit/context/KXManagedObject.h>
#include <kestrixkit/context/KXManagedObjectContext.h>

/// A property's name as a template argument.
template <size_t size> struct KXPropertyName
{
    char16_t text[size];
    constexpr KXPropertyName(const char16_t (&name)[size]) { std::copy_n(name, size, text); }
    [[nodiscard]] constexpr QStringView view() const { return QStringView(text, qsizetype(size - 1)); }
};

/// Base of stored classes: what each of them can be asked for as a class.
///
///     class Track : public KXManagedObjectOf<Track>
///     {
///     public:
///         static constexpr QLatin1StringView entityName { "Track" };
///         KX_ATTRIBUTE(QString, title, setTitle)
///         KX_ATTRIBUTE(std::optional<double>, bpm, setBpm)
///         KX_TO_ONE(Album, album, setAlbum)
///         KX_TO_MANY(Genre, genres, Genres)
///     };
///
/// A class of a sub-entity names its parent class second: KXManagedObjectOf<RangeFilter, Filter>.
template <class Class, class Parent = KXManagedObject> class KXManagedObjectOf : public Parent
{
public:
    using Self = Class;

    /// Makes objects of the entity instances of this class from now on. Any number of times; before the first fetch.
    /// Whatever opens a store logs which accessors its model does not fit, each with its type here and there.
    static void registerEntity()
    {
        KXManagedObject::registerClass(
            ownEntityName(), []() -> KXManagedObject * { return new Class; }, lineage(), awakesFromInsert());
        KXRegisterObservableHandle(KXRef<Class>()); // a handle in a variant is read as the object
    }
    /// The class and those that it derives from, as registerEntity() names them.
    [[nodiscard]] static QList<const std::type_info *> lineage()
    {
        QList<const std::type_info *> classes { &typeid(Class) };
        if constexpr (requires { Parent::lineage(); })
            classes += Parent::lineage();
        return classes;
    }

    /// Whether the class has an awakeFromInsert() of its own, be it a private one.
    [[nodiscard]] static constexpr bool awakesFromInsert()
    {
        if constexpr (requires { &Class::awakeFromInsert; })
            return !std::is_same_v<decltype(&Class::awakeFromInsert), void (KXManagedObject::*)()>;
        return true;
    }

    // What makes or finds objects of the class throws KXException (KXInvalidClassException) where it was not
    // registered, or where one of its accessors does not fit the context's model.

    /// A new object in the context; empty, with a log line, where the store gives no identifier.
    [[nodiscard]] static KXRef<Class> createInContext(KXManagedObjectContext &context, KXError *error = nullptr)
    {
        requireClass(context);
        return cast(context.managedObjectForEntity(ownEntityName(), error));
    }

    /// An object that is in no context: never saved, gone with its last owner.
    [[nodiscard]] static KXRef<Class> createTemporaryInstanceInContext(KXManagedObjectContext &context)
    {
        requireClass(context);
        return cast(context.temporaryInstanceOfEntity(ownEntityName()));
    }

    /// Whether there are objects with that value of "identifier". Keeps the low eight bits of their number only, so
    /// 256 of them count as none; identifiers are unique in practice.
    [[nodiscard]] static bool existsWithIdentifier(const QVariant &identifier, KXManagedObjectContext &inContext)
    {
        return quint8(countOfUsingPredicate(identifierPredicate(identifier), inContext)) != 0;
    }

    [[nodiscard]] static KXFetchedListOf<Class> findAllInContext(KXManagedObjectContext &context)
    {
        requireClass(context);
        return KXFetchedListOf<Class>(context.fetchAllForEntity(ownEntityName()));
    }
    [[nodiscard]] static KXRef<Class> findWithIdentifier(const QVariant &identifier, KXManagedObjectContext &inContext)
    {
        return findFirstUsingPredicate(identifierPredicate(identifier), inContext);
    }
    [[nodiscard]] static KXFetchedListOf<Class> findUsingPredicate(
        const KXPredicate &predicate, KXManagedObjectContext &inContext)
    {
        requireClass(inContext);
        return KXFetchedListOf<Class>(inContext.fetchForEntity(ownEntityName(), predicate));
    }
    [[nodiscard]] static KXRef<Class> findFirstUsingPredicate(
        const KXPredicate &predicate, KXManagedObjectContext &inContext)
    {
        requireClass(inContext);
        return cast(inContext.fetchFirstForEntity(ownEntityName(), predicate));
    }
    [[nodiscard]] static qint64 countOfInContext(KXManagedObjectContext &context)
    {
        return context.countForEntity(ownEntityName());
    }
    [[nodiscard]] static qint64 countOfUsingPredicate(const KXPredicate &predicate, KXManagedObjectContext &inContext)
    {
        return inContext.countForEntity(ownEntityName(), predicate);
    }

    /// The object as this class; empty where it is of another one.
    [[nodiscard]] static KXRef<Class> cast(const KXRef<KXManagedObject> &object)
    {
        return KXRef<Class>(dynamic_cast<Class *>(object.get()));
    }

private:
    [[nodiscard]] static const QString &ownEntityName()
    {
        static const QString text(Class::entityName);
        return text;
    }
    /// Else an object would be inserted that is none of this class, and a list would be one of empty handles.
    static void requireClass(const KXManagedObjectContext &context)
    {
        static constinit std::atomic<quint32> checked { 0 };
        KXManagedObject::requireClass(context, ownEntityName(), checked);
    }
    [[nodiscard]] static KXPredicate identifierPredicate(const QVariant &identifier)
    {
        return KXPredicate::predicateWithFormat("identifier == %@", identifier);
    }
};

/// What an accessor of a class expects of the model, noted for registerEntity(). Accessors refer to it, so that those
/// of a class template are noted, too.
#define KX_NOTE_ACCESSOR(name, kind, type)                                                                             \
    static constexpr KXKey name##Key { u"" #name };                                                                    \
    static inline const KXAccessorNote name##Accessor { std::type_identity<Self>(), name##Key, kind, type };

/// A typed attribute: key constant, getter and setter. `Type` is bool, an integer, an enumeration, double, QString,
/// QDateTime, QUrl, QUuid, KXDecimal, QByteArray or QVariant, or std::optional of such where absent and zero differ.
#define KX_ATTRIBUTE(Type, name, setName)                                                                              \
    static_assert(KXIsAttributeValue<Type>,                                                                            \
        "KX_ATTRIBUTE(" #Type ", " #name ", " #setName "): this type is not stored. Take double for float; bool, "     \
        "integers, enumerations, double, QString, QDateTime, QUrl, QUuid, KXDecimal, QByteArray and QVariant are, "    \
        "and std::optional of them");                                                                                  \
    KX_NOTE_ACCESSOR(name, KXManagedObject::kindOf<Type>(), #Type)                                                     \
    [[nodiscard]] Type name() const                                                                                    \
    {                                                                                                                  \
        static_cast<void>(&name##Accessor);                                                                            \
        return this->template readAttribute<Type>(                                                                     \
            this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::kindOf<Type>()>());               \
    }                                                                                                                  \
    void setName(const Type &value)                                                                                    \
    {                                                                                                                  \
        this->template writeAttribute<Type>(                                                                           \
            this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::kindOf<Type>()>(), value);        \
    }

/// A typed to-one relationship. The class at the other end need not be complete here.
#define KX_TO_ONE(Destination, name, setName)                                                                          \
    KX_NOTE_ACCESSOR(name, KXManagedObject::Kind::ToOne, "to-one relationship")                                        \
    template <class KXOther = Destination> [[nodiscard]] KXRef<KXOther> name() const                                   \
    {                                                                                                                  \
        static_cast<void>(&name##Accessor);                                                                            \
        return KXOther::cast(                                                                                          \
            this->readToOne(this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::Kind::ToOne>())); \
    }                                                                                                                  \
    template <class KXOther = Destination> void setName(const std::type_identity_t<KXRef<KXOther>> &object)            \
    {                                                                                                                  \
        this->writeToOne(                                                                                              \
            this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::Kind::ToOne>(), object.get());    \
    }

/// A typed to-many relationship: name(), addToName(), removeFromName(), setName(). Names holds the capitalised name.
#define KX_TO_MANY(Destination, name, Name)                                                                            \
    KX_NOTE_ACCESSOR(name, KXManagedObject::Kind::ToMany, "to-many relationship")                                      \
    template <class KXOther = Destination> [[nodiscard]] QList<KXRef<KXOther>> name() const                            \
    {                                                                                                                  \
        static_cast<void>(&name##Accessor);                                                                            \
        QList<KXRef<KXOther>> typed;                                                                                   \
        for (const KXRef<KXManagedObject> &object : this->readToMany(                                                  \
                 this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::Kind::ToMany>())) {          \
            if (auto other = KXOther::cast(object))                                                                    \
                typed.append(std::move(other));                                                                        \
        }                                                                                                              \
        return typed;                                                                                                  \
    }                                                                                                                  \
    void addTo##Name(KXManagedObject *object)                                                                          \
    {                                                                                                                  \
        this->addToMany(                                                                                               \
            this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::Kind::ToMany>(), object);         \
    }                                                                                                                  \
    void addTo##Name(const KXRef<KXManagedObject> &object) { addTo##Name(object.get()); }                              \
    void removeFrom##Name(KXManagedObject *object)                                                                     \
    {                                                                                                                  \
        this->removeFromMany(                                                                                          \
            this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::Kind::ToMany>(), object);         \
    }                                                                                                                  \
    void removeFrom##Name(const KXRef<KXManagedObject> &object) { removeFrom##Name(object.get()); }                    \
    template <class KXOther = Destination> void set##Name(const QList<KXRef<KXOther>> &objects)                        \
    {                                                                                                                  \
        this->writeToMany(this->template placeOf<Self, KXPropertyName(u"" #name), KXManagedObject::Kind::ToMany>(),    \
            QList<KXRef<KXManagedObject>>(objects.begin(), objects.end()));                                            \
    }
