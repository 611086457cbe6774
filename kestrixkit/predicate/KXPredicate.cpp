#include <kestrixkit/predicate/KXPredicate_p.h>

#include <algorithm>

#include <QSet>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

const KXPredicateData &predicateDataOfAbsent()
{
    static const KXPredicateData data;
    return data;
}

void predicateCollectKeyPaths(const KXExpression &expression, QSet<QString> &keyPaths)
{
    if (expression.type() == KXExpressionType::KeyPath) {
        keyPaths.insert(expression.keyPath());
    } else if (expression.type() == KXExpressionType::Function) {
        // Applied to the object or to a key path of it, the argument goes on from there.
        const KXExpression &operand = expression.operand();
        const QString rest = expression.keys().join(u'.');
        if (operand.type() == KXExpressionType::EvaluatedObject) {
            keyPaths.insert(rest);
        } else {
            QSet<QString> before;
            predicateCollectKeyPaths(operand, before);
            for (const QString &keyPath : std::as_const(before))
                keyPaths.insert(keyPath + u'.' + rest);
        }
    } else {
        for (const KXExpression &element : expression.arguments())
            predicateCollectKeyPaths(element, keyPaths);
    }
}

void predicateCollectKeyPaths(const KXPredicate &predicate, QSet<QString> &keyPaths)
{
    predicateCollectKeyPaths(predicate.leftExpression(), keyPaths);
    predicateCollectKeyPaths(predicate.rightExpression(), keyPaths);
    for (const KXPredicate &part : predicate.subpredicates())
        predicateCollectKeyPaths(part, keyPaths);
}

}

KXPredicate::KXPredicate() = default;
KXPredicate::KXPredicate(const KXPredicate &) = default;
KXPredicate::KXPredicate(KXPredicate &&) noexcept = default;
KXPredicate &KXPredicate::operator=(const KXPredicate &) = default;
KXPredicate &KXPredicate::operator=(KXPredicate &&) noexcept = default;
KXPredicate::~KXPredicate() = default;
KXPredicate::KXPredicate(const KXPredicateData *data)
    : d(data)
{
}

KXPredicate KXPredicate::comparison(const KXExpression &left, KXPredicateOperator comparisonOperator,
    const KXExpression &right, KXPredicateModifier modifier, int options)
{
    auto *data = new KXPredicateData;
    data->type = KXPredicateType::Comparison;
    data->comparisonOperator = comparisonOperator;
    data->modifier = modifier;
    data->options = options & (KXCaseInsensitive | KXDiacriticInsensitive);
    data->countOfComparisons = 1;
    data->left = left;
    data->right = right;
    return KXPredicate(data);
}

KXPredicate KXPredicate::comparison(const QString &keyPath, KXPredicateOperator comparisonOperator,
    const QVariant &constant, KXPredicateModifier modifier, int options)
{
    return comparison(KXExpression::expressionForKeyPath(keyPath), comparisonOperator,
        KXExpression::expressionForConstantValue(constant), modifier, options);
}

KXPredicate KXPredicate::compound(KXPredicateType type, const QList<KXPredicate> &parts)
{
    auto data = std::make_unique<KXPredicateData>();
    data->type = type;
    data->parts = parts;
    data->parts.removeIf([](const KXPredicate &part) { return part.isNull(); });
    for (const KXPredicate &part : std::as_const(data->parts)) {
        data->depth = std::max(data->depth, part.depth() + 1);
        data->countOfComparisons += part.countOfComparisons();
    }
    if (data->depth > MaximumDepth)
        throw KXException(QString(KXInvalidArgumentException),
            KXStringWithFormat("Predicates nest in more than %d levels", MaximumDepth));
    return KXPredicate(data.release());
}

KXPredicate KXPredicate::andPredicate(const QList<KXPredicate> &parts) { return compound(KXPredicateType::And, parts); }
KXPredicate KXPredicate::orPredicate(const QList<KXPredicate> &parts) { return compound(KXPredicateType::Or, parts); }

KXPredicate KXPredicate::notPredicate(const KXPredicate &part)
{
    return part ? compound(KXPredicateType::Not, { part }) : KXPredicate();
}

KXPredicate KXPredicate::truePredicate() { return KXPredicate(new KXPredicateData); }

KXPredicate KXPredicate::falsePredicate()
{
    auto *data = new KXPredicateData;
    data->type = KXPredicateType::False;
    return KXPredicate(data);
}

KXPredicateType KXPredicate::type() const { return (d ? *d : predicateDataOfAbsent()).type; }
const QList<KXPredicate> &KXPredicate::subpredicates() const { return (d ? *d : predicateDataOfAbsent()).parts; }
const KXExpression &KXPredicate::leftExpression() const { return (d ? *d : predicateDataOfAbsent()).left; }
const KXExpression &KXPredicate::rightExpression() const { return (d ? *d : predicateDataOfAbsent()).right; }
KXPredicateOperator KXPredicate::comparisonOperator() const
{
    return (d ? *d : predicateDataOfAbsent()).comparisonOperator;
}
KXPredicateModifier KXPredicate::modifier() const { return (d ? *d : predicateDataOfAbsent()).modifier; }
int KXPredicate::options() const { return d ? d->options : 0; }
int KXPredicate::countOfComparisons() const { return d ? d->countOfComparisons : 0; }
int KXPredicate::depth() const { return d ? d->depth : 0; }

KXPredicate KXPredicate::predicateWithSubstitutionVariables(const QVariantMap &variables) const
{
    switch (type()) {
    case KXPredicateType::Comparison: {
        const KXExpression left = d->left.expressionWithSubstitutionVariables(variables);
        const KXExpression right = d->right.expressionWithSubstitutionVariables(variables);
        return comparison(left, d->comparisonOperator, right, d->modifier, d->options);
    }
    case KXPredicateType::And:
    case KXPredicateType::Or:
    case KXPredicateType::Not: {
        QList<KXPredicate> parts;
        parts.reserve(d->parts.size());
        for (const KXPredicate &part : d->parts)
            parts.append(part.predicateWithSubstitutionVariables(variables));
        return compound(d->type, parts);
    }
    default:
        return *this;
    }
}

QStringList KXPredicate::keyPaths() const
{
    QSet<QString> keyPaths;
    predicateCollectKeyPaths(*this, keyPaths);
    QStringList sorted(keyPaths.begin(), keyPaths.end());
    sorted.sort();
    return sorted;
}

QString KXPredicate::stringForOperatorType(int code)
{
    static constexpr QLatin1StringView strings[] = { "<"_L1, "<="_L1, ">"_L1, ">="_L1, "="_L1, "!="_L1 };
    return code >= 0 && code < int(std::size(strings)) ? QString(strings[code]) : QString();
}

QVariant KXPredicate::variantFromObject(const KXObservable *object)
{
    return object ? QVariant::fromValue(const_cast<KXObservable *>(object)) : QVariant();
}

bool operator==(const KXPredicate &a, const KXPredicate &b)
{
    if (a.d == b.d)
        return true;
    if (!a.d || !b.d)
        return false;
    return a.d->type == b.d->type && a.d->comparisonOperator == b.d->comparisonOperator
        && a.d->modifier == b.d->modifier && a.d->options == b.d->options && a.d->left == b.d->left
        && a.d->right == b.d->right && a.d->parts == b.d->parts;
}

size_t qHash(const KXPredicate &predicate, size_t seed)
{
    if (!predicate.d)
        return seed;
    const KXPredicateData &data = *predicate.d;
    seed = qHashMulti(
        seed, int(data.type), int(data.comparisonOperator), int(data.modifier), data.options, data.left, data.right);
    return qHashRange(data.parts.begin(), data.parts.end(), seed);
}
