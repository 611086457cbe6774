#pragma once

#include <concepts>
#include <exception>
#include <initializer_list>
#include <optional>
#include <type_traits>
#include <variant>

#include <QAnyStringView>
#include <QList>
#include <QString>
#include <QVariant>

#include <kestrixkit/foundation/KXGlobal.h>

class QDate;
class QDateTime;
class QTime;
class QUrl;
class QUuid;

/// The text that "%@" prints for a value. A type of your own becomes printable by an overload beside it.
KX_CORE_EXPORT QString KXDescription(const QVariant &value);
KX_CORE_EXPORT QString KXDescription(const QVariantMap &map);
KX_CORE_EXPORT QString KXDescription(const QUrl &url);
KX_CORE_EXPORT QString KXDescription(const QUuid &uuid);
KX_CORE_EXPORT QString KXDescription(const QDate &date);
KX_CORE_EXPORT QString KXDescription(const QTime &time);
KX_CORE_EXPORT QString KXDescription(const QDateTime &date);
KX_CORE_EXPORT QString KXDescription(const std::exception &exception);

/// A value on its way into KXStringWithFormat: a number, a text, or nothing. A value; any thread.
class KX_CORE_EXPORT KXFormatArgument
{
public:
    /// Nothing: prints as nothing.
    KXFormatArgument() = default;

    template <typename T>
    requires(!std::same_as<std::remove_cvref_t<T>, KXFormatArgument>) KXFormatArgument(const T &value) { set(value); }

    /// As "%@" prints it: texts as they are, numbers in their shortest form.
    [[nodiscard]] QString text() const;

    /// As a conversion such as "%05.2f" or "%d" prints it; a text stays a text.
    [[nodiscard]] QString number(const QByteArray &flags, char conversion) const;

private:
    template <typename T> void set(const std::optional<T> &value)
    {
        if (value)
            set(*value);
    }

    template <typename T> void set(const QList<T> &list)
    {
        QString text;
        for (const T &value : list)
            text
                += (text.isEmpty() ? QLatin1StringView("(") : QLatin1StringView(", ")) + KXFormatArgument(value).text();
        m_value = text.isEmpty() ? QStringLiteral("()") : text + QLatin1Char(')');
    }

    template <typename T> void set(const T &value)
    {
        if constexpr (requires {
                          {
                              KXDescription(value)
                              } -> std::same_as<QString>;
                      }
            && !std::is_arithmetic_v<T> && !std::is_convertible_v<const T &, QAnyStringView> && !std::is_pointer_v<T>)
            m_value = KXDescription(value);
        else if constexpr (std::is_same_v<T, std::nullptr_t> || std::is_same_v<T, std::nullopt_t>)
            m_value = {};
        else if constexpr (std::is_enum_v<T>)
            set(static_cast<std::underlying_type_t<T>>(value));
        else if constexpr (std::is_floating_point_v<T>)
            m_value = setDouble(value);
        else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>)
            m_value = static_cast<quint64>(value);
        else if constexpr (std::is_integral_v<T>)
            m_value = static_cast<qint64>(value);
        else if constexpr (std::is_array_v<T>)
            m_value = QAnyStringView(static_cast<const std::remove_extent_t<T> *>(value)).toString();
        else if constexpr (std::is_convertible_v<const T &, QAnyStringView>)
            m_value = QAnyStringView(value).toString();
        else if constexpr (std::is_pointer_v<T>)
            m_value = setPointer(value);
        else
            static_assert(sizeof(T) == 0, "declare QString KXDescription(const T &) beside the type to print it");
    }

    using Value = std::variant<std::monostate, qint64, quint64, float, double, QString>;
    template <typename T> static Value setDouble(T value)
    {
        if constexpr (std::is_same_v<T, float>)
            return value;
        else
            return static_cast<double>(value);
    }
    static Value setPointer(const volatile void *pointer);

    Value m_value;
};

/// The text of a format with its arguments filled in.
///
/// Understands %@ (any value), %d %i %u %s %ld %lu %lld %zu %f %g %e %x %X with flags, width and precision,
/// and %%. "%2$@" takes the second argument, wherever it stands: translations need another order. Each argument
/// carries its own type: one that does not fit its conversion is printed as what it is, a missing one as nothing, one
/// too many not at all. "%@" prints numbers in their shortest form ("120",
/// "0.1"), true as 1, absent values as nothing; "%f" prints six decimals. Independent of the locale. Any thread.
[[nodiscard]] KX_CORE_EXPORT QString KXStringWithFormatArguments(
    QAnyStringView format, std::initializer_list<KXFormatArgument> arguments);

template <typename... Arguments>
[[nodiscard]] QString KXStringWithFormat(QAnyStringView format, const Arguments &...arguments)
{
    return KXStringWithFormatArguments(format, { KXFormatArgument(arguments)... });
}

/// Looks the English text up in the translation context "KestrixKit" of the application's translators;
/// a text that none of them knows is answered as it is.
[[nodiscard]] KX_CORE_EXPORT QString KXLocalizedString(const char *text);
[[nodiscard]] KX_CORE_EXPORT QString KXLocalizedString(const QString &text);
/// The form of a text for several that the language has for this count. The text is English's plural; a count of one
/// has a text of its own, since English needs no translation:
///
///     count == 1 ? KXLocalizedString("1 crate") : KXStringWithFormat(KXLocalizedString("%@ crates", count), number)
///
/// The count chooses the form and is not printed: the format's arguments are.
[[nodiscard]] KX_CORE_EXPORT QString KXLocalizedString(const char *text, qint64 count);
