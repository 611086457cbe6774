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
    static void registerEntity()
    {
        KXManagedObject::registerClass(ownEntityName(), []() -> KXManagedObject * { return new Class; });
        KXRegisterObservableHandle(KXRef<Class>()); // a handle in a variant is read as the object
    }

    /// A new object in the context; empty, with a log line, where the store gives no identifier.
    [[nodiscard]] static KXRef<Class> createInContext(KXManagedObjectContext &context, KXError *error = nullptr)
    {
        return cast(context.managedObjectForEntity(ownEntityName(), error));
    }

    /// An object that is in no context: never saved, gone with its last owner.
    [[nodiscard]] static KXRef<Class> createTemporaryInstanceInContext(KXManagedObjectContext &context)
    {
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
        return KXFetchedListOf<Class>(context.fetchAllForEntity(ownEntityName()));
    }
    [[nodiscard]] static KXRef<Class> findWithIdentifier(const QVariant &identifier, KXManagedObjectContext &inContext)
    {
        return findFirstUsingPredicate(identifierPredicate(identifier), inContext);
    }
    [[nodiscard]] static KXFetchedListOf<Class> findUsingPredicate(
        const KXPredicate &predicate, KXManagedObjectContext &inContext)
    {
        return KXFetchedListOf<Class>(inContext.fetchForEntity(ownEntityName(), predicate));
    }
    [[nodiscard]] static KXRef<Class> findFirstUsingPredicate(
        const KXPredicate &predicate, KXManagedObjectContext &inContext)
    {
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
    [[nodiscard]] static KXPredicate identifierPredicate(const QVariant &identifier)
    {
        return KXPredicate::predicateWithFormat("identifier == %@", identifier);
    }
};

/// A typed attribute: key constant, getter and setter. `Type` is a number, bool, QString, QDateTime, QUrl, QUuid,
/// KXDecimal, QByteArray, QVariant or an enumeration, or std::optional of such where absent and zero differ.
#define KX_ATTRIBUTE(Type, name, setName)                                                                              \
    static constexpr QStringView name##Key { u"" #name };                                                              \
    [[nodiscard]] Type name() const                                                                                    \
    {                                                                                                                  \
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
    static constexpr QStringView name##Key { u"" #name };                                                              \
    template <class KXOther = Destination> [[nodiscard]] KXRef<KXOther> name() const                                   \
    {                                                                                                                  \
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
    static constexpr QStringView name##Key { u"" #name };                                                              \
    template <class KXOther = Destination> [[nodiscard]] QList<KXRef<KXOther>> name() const                            \
    {                                                                                                                  \
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
