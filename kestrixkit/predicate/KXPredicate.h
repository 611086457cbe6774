#pragma once

#include <optional>
#include <type_traits>

#include <QAnyStringView>
#include <QVariant>

#include <kestrixkit/predicate/KXExpression.h>

class KXError;
class KXObservable;
class KXPredicateData;
class QJsonObject;

enum class KXPredicateType : quint8 { And, Or, Not, Comparison, True, False };

/// Codes as they are stored and sent; a code without a name here is kept and never matches.
enum class KXPredicateOperator : int {
    LessThan = 0,
    LessThanOrEqual = 1,
    GreaterThan = 2,
    GreaterThanOrEqual = 3,
    Equal = 4,
    NotEqual = 5,
    Matches = 6, ///< a regular expression, the whole text
    Like = 7, ///< "*" any characters, "?" one, a backslash takes the next as it is
    BeginsWith = 8,
    EndsWith = 9,
    In = 10,
    Contains = 99,
    Between = 100,
    BeginsWord = 101, ///< each word of the right side begins a word of the left, as a search finds it
};

/// Which elements of the left side must match; a code without a name here counts as Direct.
enum class KXPredicateModifier : int {
    Direct = 0, ///< the value itself; of a to-many key path, some element
    All = 1, ///< every element, true when there is none
    Any = 2, ///< some element
};

/// Bits of a comparison's options.
enum KXPredicateOption : int {
    KXCaseInsensitive = 1, ///< [c]
    KXDiacriticInsensitive = 2, ///< [d]
};

/// A condition on objects: comparisons joined by AND, OR and NOT, as an immutable, implicitly shared value of the
/// size of a pointer. A default-constructed predicate is absent and lets everything through.
///
/// What a comparison means, in memory and in SQL alike:
/// - It is true or false, never unknown. "=" and "!=" treat an absent value as a value; every other operator is
///   false when either side is absent. NOT inverts. AND of nothing is true, OR of nothing false.
/// - Numbers (integers, booleans as 0 and 1, doubles, decimals) compare by value, a double by the shortest
///   decimal that reads back as it when the other side is a decimal. Texts, URLs and UUIDs (without braces)
///   compare by code points, dates by their instant, bytes as they are; objects are only equal or not. Values
///   of different kinds are not equal and in no order; a number that is none equals nothing.
/// - A key path through a to-many relationship stands for all the values it reaches. A missing object on the way
///   is one absent value. "@count" is the number of objects of the to-many relationship before it.
/// - ANY asks for one matching element, ALL for all, and no modifier counts as ANY. On the right side of a
///   comparison some element must match. A list is its elements.
/// - "text BEGINSWORD term" holds when every word of the term begins a word of the text, whatever the case, diacritics
///   and punctuation; a number counts as it is written. A term without words fits every text.
/// - "x IN list" asks for an equal element; "text IN text" for a part. CONTAINS is IN with its sides exchanged;
///   with ANY or ALL it looks into each element's text.
///
/// Predicates may be read and copied on any thread. Nesting is limited to MaximumDepth levels. Of the many ways that
/// to-many relationships may offer to an object one is gone, and after MaximumSteps looks at objects and values a
/// predicate is given up.
class KX_CORE_EXPORT KXPredicate
{
public:
    static constexpr int MaximumDepth = 500;
    static constexpr qint64 MaximumSteps = 10'000'000;

    KXPredicate();
    KXPredicate(const KXPredicate &other);
    KXPredicate(KXPredicate &&other) noexcept;
    KXPredicate &operator=(const KXPredicate &other);
    KXPredicate &operator=(KXPredicate &&other) noexcept;
    ~KXPredicate();

    /// Reads a predicate from text. "%@" stands for the next argument as a value (text, number, date, object, list
    /// for IN, absent optional…), "%K" for it as a key path or a part of one, "%d", "%ld", "%f" and their like
    /// for numbers.
    /// Throws KXException that names the position for text that does not parse and for arguments that do not
    /// fit it: the text is the programmer's.
    template <typename... Arguments>
    [[nodiscard]] static KXPredicate predicateWithFormat(QAnyStringView format, const Arguments &...arguments)
    {
        return predicateWithFormatArguments(format, QVariantList { variantFromArgument(arguments)... });
    }
    [[nodiscard]] static KXPredicate predicateWithFormatArguments(QAnyStringView format, const QVariantList &arguments);
    /// Reads a predicate that somebody typed or that a file holds; absent and an error (code TextError) that names
    /// the position when it does not parse. "%" has no meaning here.
    [[nodiscard]] static KXPredicate predicateWithText(const QString &text, KXError *error = nullptr);
    static constexpr int TextError = 1560;

    [[nodiscard]] static KXPredicate comparison(const KXExpression &left, KXPredicateOperator comparisonOperator,
        const KXExpression &right, KXPredicateModifier modifier = KXPredicateModifier::Direct, int options = 0);
    /// A key path compared with a constant.
    [[nodiscard]] static KXPredicate comparison(const QString &keyPath, KXPredicateOperator comparisonOperator,
        const QVariant &constant, KXPredicateModifier modifier = KXPredicateModifier::Direct, int options = 0);
    // Compounds keep their shape, also with one part or none; absent parts are left out. They throw KXException
    // where they would nest too deeply.
    [[nodiscard]] static KXPredicate andPredicate(const QList<KXPredicate> &parts);
    [[nodiscard]] static KXPredicate orPredicate(const QList<KXPredicate> &parts);
    /// Absent for an absent part.
    [[nodiscard]] static KXPredicate notPredicate(const KXPredicate &part);
    [[nodiscard]] static KXPredicate truePredicate();
    [[nodiscard]] static KXPredicate falsePredicate();

    [[nodiscard]] bool isNull() const { return !d; }
    explicit operator bool() const { return d; }

    /// True for an absent predicate.
    [[nodiscard]] KXPredicateType type() const;
    /// The parts of a compound.
    [[nodiscard]] const QList<KXPredicate> &subpredicates() const;
    // Of a comparison.
    [[nodiscard]] const KXExpression &leftExpression() const;
    [[nodiscard]] const KXExpression &rightExpression() const;
    [[nodiscard]] KXPredicateOperator comparisonOperator() const;
    [[nodiscard]] KXPredicateModifier modifier() const;
    [[nodiscard]] int options() const;

    /// Whether the object fits. An absent object has absent values. Throws KXException for a variable that is not
    /// among those given. False and an error (code StepsError) when it takes more than MaximumSteps, and, with the
    /// code of a query that was cancelled, when the operation that asks is cancelled meanwhile; without `error` that
    /// is logged.
    [[nodiscard]] bool evaluateWithObject(
        const KXObservable *object, const QVariantMap &variables = {}, KXError *error = nullptr) const;
    static constexpr int StepsError = 1562;

    /// Text that predicateWithText reads back as an equal tree; empty when absent. Key paths that are no plain
    /// names stand in backquotes, values without a literal of their own as DATE("…"), DECIMAL("…"), URL("…"),
    /// UUID("…"), DATA("base64"), DOUBLE("nan"), objects as OBJECT("URI").
    [[nodiscard]] QString predicateFormat() const;

    /// The tree as JSON, for programs to make and take apart; an empty object when absent. predicateWithJSON reads it
    /// back as an equal tree. docs/formats/predicate-json.md describes it.
    [[nodiscard]] QJsonObject toJSON() const;
    /// Absent for an empty object; absent and an error (code JSONError) that names the place for anything that is no
    /// predicate.
    [[nodiscard]] static KXPredicate predicateWithJSON(const QJsonObject &json, KXError *error = nullptr);
    static constexpr int JSONError = 1561;

    /// The predicate with the variables replaced. Throws KXException for a variable that is not among them.
    [[nodiscard]] KXPredicate predicateWithSubstitutionVariables(const QVariantMap &variables) const;

    /// All key paths that the predicate looks at, each once, sorted.
    [[nodiscard]] QStringList keyPaths() const;
    [[nodiscard]] int countOfComparisons() const;
    /// Levels of predicates inside each other; 0 when absent.
    [[nodiscard]] int depth() const;

    /// "<", "<=", ">", ">=", "=", "!=" for the codes 0 to 5, empty for others.
    [[nodiscard]] static QString stringForOperatorType(int code);

    friend KX_CORE_EXPORT bool operator==(const KXPredicate &a, const KXPredicate &b);
    friend KX_CORE_EXPORT size_t qHash(const KXPredicate &predicate, size_t seed);

private:
    friend class KXPredicateEvaluator;
    explicit KXPredicate(const KXPredicateData *data);
    [[nodiscard]] static KXPredicate compound(KXPredicateType type, const QList<KXPredicate> &parts);

    template <typename T> static QVariant variantFromArgument(const T &argument)
    {
        if constexpr (std::is_same_v<T, QVariant> || std::is_same_v<T, QByteArray> || std::is_same_v<T, QVariantList>)
            return argument;
        else if constexpr (std::is_same_v<T, std::nullptr_t> || std::is_same_v<T, std::nullopt_t>)
            return {};
        else if constexpr (std::is_enum_v<T>)
            return QVariant::fromValue(qint64(argument));
        else if constexpr (std::is_arithmetic_v<T>)
            return QVariant::fromValue(argument);
        else if constexpr (std::is_convertible_v<const T &, QAnyStringView>)
            return QAnyStringView(argument).toString();
        else if constexpr (std::is_convertible_v<T, const KXObservable *>)
            return variantFromObject(argument);
        else if constexpr (requires {
                               {
                                   argument.get()
                                   } -> std::convertible_to<const KXObservable *>;
                           })
            return variantFromObject(argument.get());
        else if constexpr (requires {
                               argument.has_value();
                               *argument;
                           })
            return argument.has_value() ? variantFromArgument(*argument) : QVariant();
        else if constexpr (requires {
                               argument.begin();
                               argument.end();
                           }) {
            QVariantList list;
            for (const auto &element : argument)
                list.append(variantFromArgument(element));
            return list;
        } else
            return QVariant::fromValue(argument);
    }
    static QVariant variantFromObject(const KXObservable *object);

    QExplicitlySharedDataPointer<const KXPredicateData> d;
};

Q_DECLARE_TYPEINFO(KXPredicate, Q_RELOCATABLE_TYPE);

KX_CORE_EXPORT size_t qHash(const KXPredicate &predicate, size_t seed = 0);
