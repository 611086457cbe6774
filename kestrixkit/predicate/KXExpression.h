#pragma once

#include <QExplicitlySharedDataPointer>
#include <QList>
#include <QStringList>
#include <QVariant>

#include <kestrixkit/foundation/KXGlobal.h>

class KXExpressionData;
class KXObservable;

/// What an expression stands for. The numbers are part of stored trees: append only.
enum class KXExpressionType : quint8 {
    Constant = 0,
    EvaluatedObject = 1, ///< SELF, the object that the predicate is asked about
    Variable = 2, ///< $NAME, replaced before or while evaluating
    KeyPath = 3,
    Function = 4, ///< "valueForKeyPath:" applied to an expression
    Aggregate = 5, ///< a list whose elements are not all constants
};

/// One side of a comparison: an immutable, implicitly shared value of the size of a pointer.
///
/// A default-constructed expression is the absent constant ("nil"). Expressions may be read and copied on any
/// thread; that holds for a constant that is an object only as far as the object is not looked at.
class KX_CORE_EXPORT KXExpression
{
public:
    KXExpression();
    KXExpression(const KXExpression &other);
    KXExpression(KXExpression &&other) noexcept;
    KXExpression &operator=(const KXExpression &other);
    KXExpression &operator=(KXExpression &&other) noexcept;
    ~KXExpression();

    /// A text, number, boolean, KXDecimal, QDateTime, QUrl, QUuid, QByteArray, object or object identifier, a list
    /// of those, or an invalid QVariant for an absent value.
    ///
    /// Integers become qint64 (KXDecimal beyond its range), dates UTC, and a stored object its identifier; any
    /// other type is kept, compares with nothing and prints only as far as CBOR can hold it.
    [[nodiscard]] static KXExpression expressionForConstantValue(const QVariant &value);
    /// Keys joined by dots. An empty key anywhere makes the value absent; the text is kept as it is.
    [[nodiscard]] static KXExpression expressionForKeyPath(const QString &keyPath);
    [[nodiscard]] static KXExpression expressionForVariable(const QString &name);
    /// The function "valueForKeyPath:" applied to a variable, with the key path as its constant argument.
    [[nodiscard]] static KXExpression expressionForVariable(const QString &name, const QString &withKeyPath);
    [[nodiscard]] static KXExpression expressionForEvaluatedObject();
    /// The only function is "valueForKeyPath:" with one constant text; throws KXException for any other.
    [[nodiscard]] static KXExpression expressionForFunction(
        const KXExpression &operand, const QString &name, const QList<KXExpression> &arguments);
    /// A constant list where all the elements are constants.
    [[nodiscard]] static KXExpression expressionForAggregate(const QList<KXExpression> &elements);

    [[nodiscard]] KXExpressionType type() const;
    [[nodiscard]] bool isConstant() const { return type() == KXExpressionType::Constant; }
    /// Of a constant; invalid for an absent value and for other expressions.
    [[nodiscard]] const QVariant &constantValue() const;
    /// Of a key path; empty for others.
    [[nodiscard]] const QString &keyPath() const;
    /// The keys of a key path, or of the argument of "valueForKeyPath:".
    [[nodiscard]] const QStringList &keys() const;
    /// Name of a variable, without "$".
    [[nodiscard]] const QString &variable() const;
    /// Name of a function.
    [[nodiscard]] const QString &function() const;
    /// What a function is applied to.
    [[nodiscard]] const KXExpression &operand() const;
    /// The arguments of a function or the elements of an aggregate.
    [[nodiscard]] const QList<KXExpression> &arguments() const;
    /// Levels of expressions inside each other, 1 for most.
    [[nodiscard]] int depth() const;

    /// What the expression stands for: a list where it reaches through a to-many relationship, as
    /// KXPredicate describes it. Throws KXException for a variable that is not among those given.
    [[nodiscard]] QVariant expressionValueWithObject(
        const KXObservable *object, const QVariantMap &variables = {}) const;

    /// Text that reads back as an equal expression; see KXPredicate::predicateFormat.
    [[nodiscard]] QString expressionFormat() const;

    /// The expression with the variables replaced by constants, and functions of constants by their values.
    /// Throws KXException for a variable that is not among them.
    [[nodiscard]] KXExpression expressionWithSubstitutionVariables(const QVariantMap &variables) const;

    /// Same tree, same constants: the integer 5, the number 5.0 and the decimal 5 are three constants.
    friend KX_CORE_EXPORT bool operator==(const KXExpression &a, const KXExpression &b);
    friend KX_CORE_EXPORT size_t qHash(const KXExpression &expression, size_t seed);

private:
    explicit KXExpression(const KXExpressionData *data);
    QExplicitlySharedDataPointer<const KXExpressionData> d; // none for the absent constant
};

Q_DECLARE_TYPEINFO(KXExpression, Q_RELOCATABLE_TYPE);

KX_CORE_EXPORT size_t qHash(const KXExpression &expression, size_t seed = 0);
