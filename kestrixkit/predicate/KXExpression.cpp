#include <kestrixkit/predicate/KXExpression.h>

#include <cmath>
#include <limits>

#include <QDateTime>
#include <QHash>
#include <QSharedData>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

using namespace Qt::StringLiterals;

class KXExpressionData : public QSharedData
{
public:
    KXExpressionType type = KXExpressionType::Constant;
    int depth = 1;
    QVariant value;
    QString text; ///< key path, variable or function
    QStringList keys;
    KXExpression operand;
    QList<KXExpression> arguments;
};

namespace {

const KXExpressionData &expressionDataOfNil()
{
    static const KXExpressionData data;
    return data;
}

QVariant normalisedConstant(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return {};
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::QString:
    case QMetaType::QUrl:
    case QMetaType::QUuid:
    case QMetaType::QByteArray:
        return value;
    case QMetaType::Float:
    case QMetaType::Double: // of the numbers that are none one is enough, and of zeros
        return std::isnan(value.toDouble()) ? std::numeric_limits<double>::quiet_NaN() : value.toDouble() + 0.0;
    case QMetaType::QChar:
        return value.toString();
    case QMetaType::QDate:
        return QDateTime(value.toDate(), QTime(0, 0), Qt::UTC);
    case QMetaType::QDateTime:
        return value.toDateTime().isValid() ? QVariant(value.toDateTime().toUTC()) : QVariant();
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        QVariantList list;
        for (const QVariant &element : value.toList())
            list.append(normalisedConstant(element));
        return list;
    }
    default:
        break;
    }
    const KXPredicateValue comparable(value);
    switch (comparable.kind()) {
    case KXPredicateValue::Null:
        return {};
    case KXPredicateValue::Integer:
        return comparable.integer();
    case KXPredicateValue::Decimal:
        return QVariant::fromValue(comparable.decimal());
    case KXPredicateValue::Object:
        return KXConstantFromObject(value);
    default:
        return value;
    }
}

}

KXExpression::KXExpression() = default;
KXExpression::KXExpression(const KXExpression &) = default;
KXExpression::KXExpression(KXExpression &&) noexcept = default;
KXExpression &KXExpression::operator=(const KXExpression &) = default;
KXExpression &KXExpression::operator=(KXExpression &&) noexcept = default;
KXExpression::~KXExpression() = default;
KXExpression::KXExpression(const KXExpressionData *data)
    : d(data)
{
}

KXExpression KXExpression::expressionForConstantValue(const QVariant &value)
{
    const QVariant constant = normalisedConstant(value);
    if (!constant.isValid())
        return {};
    auto *data = new KXExpressionData;
    data->value = constant;
    return KXExpression(data);
}

KXExpression KXExpression::expressionForKeyPath(const QString &keyPath)
{
    auto *data = new KXExpressionData;
    data->type = KXExpressionType::KeyPath;
    data->text = keyPath;
    data->keys = keyPath.split(u'.');
    return KXExpression(data);
}

KXExpression KXExpression::expressionForVariable(const QString &name)
{
    auto *data = new KXExpressionData;
    data->type = KXExpressionType::Variable;
    data->text = name;
    return KXExpression(data);
}

KXExpression KXExpression::expressionForVariable(const QString &name, const QString &withKeyPath)
{
    return expressionForFunction(
        expressionForVariable(name), u"valueForKeyPath:"_s, { expressionForConstantValue(withKeyPath) });
}

KXExpression KXExpression::expressionForEvaluatedObject()
{
    auto *data = new KXExpressionData;
    data->type = KXExpressionType::EvaluatedObject;
    return KXExpression(data);
}

KXExpression KXExpression::expressionForFunction(
    const KXExpression &operand, const QString &name, const QList<KXExpression> &arguments)
{
    if (name != "valueForKeyPath:"_L1 || arguments.size() != 1
        || arguments[0].constantValue().typeId() != QMetaType::QString) {
        throw KXException(QString(KXInvalidArgumentException),
            KXStringWithFormat("The function \"%@\" is not valueForKeyPath: with one constant text", name));
    }
    if (operand.depth() >= KXPredicate::MaximumDepth)
        throw KXException(QString(KXInvalidArgumentException), u"The expression is nested too deeply"_s);
    auto *data = new KXExpressionData;
    data->type = KXExpressionType::Function;
    data->depth = operand.depth() + 1;
    data->text = name;
    data->keys = arguments[0].constantValue().toString().split(u'.');
    data->operand = operand;
    data->arguments = arguments;
    return KXExpression(data);
}

KXExpression KXExpression::expressionForAggregate(const QList<KXExpression> &elements)
{
    int depth = 0;
    bool constant = true;
    for (const KXExpression &element : elements) {
        depth = std::max(depth, element.depth());
        constant = constant && element.isConstant();
    }
    if (depth >= KXPredicate::MaximumDepth)
        throw KXException(QString(KXInvalidArgumentException), u"The expression is nested too deeply"_s);
    auto *data = new KXExpressionData;
    data->depth = depth + 1;
    if (constant) {
        QVariantList list;
        for (const KXExpression &element : elements)
            list.append(element.constantValue());
        data->value = list;
    } else {
        data->type = KXExpressionType::Aggregate;
        data->arguments = elements;
    }
    return KXExpression(data);
}

KXExpressionType KXExpression::type() const { return d ? d->type : KXExpressionType::Constant; }
const QVariant &KXExpression::constantValue() const { return (d ? *d : expressionDataOfNil()).value; }
const QStringList &KXExpression::keys() const { return (d ? *d : expressionDataOfNil()).keys; }
const KXExpression &KXExpression::operand() const { return (d ? *d : expressionDataOfNil()).operand; }
const QList<KXExpression> &KXExpression::arguments() const { return (d ? *d : expressionDataOfNil()).arguments; }
int KXExpression::depth() const { return d ? d->depth : 1; }

const QString &KXExpression::keyPath() const
{
    return (type() == KXExpressionType::KeyPath ? *d : expressionDataOfNil()).text;
}
const QString &KXExpression::variable() const
{
    return (type() == KXExpressionType::Variable ? *d : expressionDataOfNil()).text;
}
const QString &KXExpression::function() const
{
    return (type() == KXExpressionType::Function ? *d : expressionDataOfNil()).text;
}

bool operator==(const KXExpression &a, const KXExpression &b)
{
    if (a.d == b.d)
        return true;
    if (!a.d || !b.d)
        return false;
    return a.d->type == b.d->type && a.d->text == b.d->text && KXConstantsAreEqual(a.d->value, b.d->value)
        && a.d->operand == b.d->operand && a.d->arguments == b.d->arguments;
}

size_t qHash(const KXExpression &expression, size_t seed)
{
    if (!expression.d)
        return seed;
    seed = qHashMulti(seed, int(expression.d->type), expression.d->text, expression.d->operand);
    return qHashRange(
        expression.d->arguments.begin(), expression.d->arguments.end(), KXConstantHash(expression.d->value, seed));
}
