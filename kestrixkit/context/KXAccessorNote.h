#pragma once

#include <optional>
#include <type_traits>
#include <typeinfo>

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <QVariant>

#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXKey.h>

class KXPropertyDescription;

/// What an accessor of a stored class expects of the model.
enum class KXAccessorKind : quint8 {
    Integer,
    Boolean,
    Double,
    Date,
    Text, // up to here values are read from their slots directly, the others as QVariants
    Decimal,
    URI,
    UUID,
    Binary,
    Variant, ///< QVariant: fits every attribute that is none of the first five
    ToOne,
    ToMany,
};

/// One accessor of a stored class. The macros make one for each, before main(), so that registerEntity() knows what a
/// class expects of its entity. Any thread.
class KX_CORE_EXPORT KXAccessorNote
{
public:
    /// The class need not be complete yet. `type` is as the source has it, for messages.
    template <class Class>
    KXAccessorNote(std::type_identity<Class>, KXKey key, KXAccessorKind kind, const char *type)
        : KXAccessorNote(typeid(Class), key, kind, type)
    {
    }
    ~KXAccessorNote();
    Q_DISABLE_COPY_MOVE(KXAccessorNote)

    /// Of those classes, in no particular order.
    [[nodiscard]] static QList<const KXAccessorNote *> ofClasses(const QList<const std::type_info *> &classes);

    [[nodiscard]] KXKey key() const { return m_key; }
    [[nodiscard]] KXAccessorKind kind() const { return m_kind; }
    [[nodiscard]] QString type() const { return QString::fromUtf8(m_type); }

    [[nodiscard]] static bool fits(KXAccessorKind kind, const KXPropertyDescription &property);
    /// "Integer32", "to-one relationship": what a property is in the model, for messages.
    [[nodiscard]] static QString typeOfProperty(const KXPropertyDescription &property);
    /// The C++ type of a kind, for messages.
    [[nodiscard]] static QString nameOfKind(KXAccessorKind kind);

private:
    KXAccessorNote(const std::type_info &owner, KXKey key, KXAccessorKind kind, const char *type);

    const std::type_info &m_owner;
    const KXKey m_key;
    const char *const m_type;
    const KXAccessorKind m_kind;
    KXAccessorNote *m_next = nullptr;
};

/// What an accessor's type holds, and whether it may be absent.
template <typename T> struct KXOptionalTraits
{
    using Value = T;
    static constexpr bool isOptional = false;
};
/// Of an optional type.
template <typename T> struct KXOptionalTraits<std::optional<T>>
{
    using Value = T;
    static constexpr bool isOptional = true;
};

/// Whether a type is among others.
template <typename T, typename... Others> inline constexpr bool KXIsOneOf = (std::is_same_v<T, Others> || ...);

/// Whether KX_ATTRIBUTE takes the type.
template <typename T, typename Value = typename KXOptionalTraits<T>::Value>
inline constexpr bool KXIsAttributeValue = std::disjunction_v<std::is_integral<Value>, std::is_enum<Value>,
    std::bool_constant<KXIsOneOf<Value, double, QString, QDateTime, QUrl, QUuid, KXDecimal, QByteArray, QVariant>>>;
