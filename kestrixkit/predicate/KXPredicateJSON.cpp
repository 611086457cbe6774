// Predicates as JSON. docs/formats/predicate-json.md describes the form.

#include <cmath>

#include <QJsonArray>
#include <QJsonObject>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicateParser_p.h>
#include <kestrixkit/predicate/KXPredicatePrinter_p.h>

using namespace Qt::StringLiterals;

namespace {

// Operators that have a name in JSON: those with a name in text. Append only: files hold them.
constexpr KXPredicateOperator jsonOperators[] = { KXPredicateOperator::LessThan, KXPredicateOperator::LessThanOrEqual,
    KXPredicateOperator::GreaterThan, KXPredicateOperator::GreaterThanOrEqual, KXPredicateOperator::Equal,
    KXPredicateOperator::NotEqual, KXPredicateOperator::Matches, KXPredicateOperator::Like,
    KXPredicateOperator::BeginsWith, KXPredicateOperator::EndsWith, KXPredicateOperator::In,
    KXPredicateOperator::Contains, KXPredicateOperator::Between, KXPredicateOperator::BeginsWord };

// Writing

QJsonValue jsonFromConstant(const QVariant &value)
{
    if (const auto call = KXPredicatePrinter::callForConstant(value))
        return QJsonObject { { QString(call->name).toLower(), QJsonValue::fromVariant(call->argument) } };
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::Double: // JSON does not tell 5.0 from 5
        return QJsonObject { { u"double"_s, value.toDouble() } };
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QVariantList: {
        QJsonArray list;
        for (const QVariant &element : value.toList())
            list.append(jsonFromConstant(element));
        return list;
    }
    default:
        return QJsonValue::Null;
    }
}

QJsonValue jsonFromExpression(const KXExpression &expression)
{
    switch (expression.type()) {
    case KXExpressionType::EvaluatedObject:
        return QJsonObject { { u"self"_s, true } };
    case KXExpressionType::Variable:
        return QJsonObject { { u"variable"_s, expression.variable() } };
    case KXExpressionType::KeyPath:
        return QJsonObject { { u"keyPath"_s, expression.keyPath() } };
    case KXExpressionType::Function:
        return QJsonObject { { u"valueForKeyPath"_s, expression.keys().join(u'.') },
            { u"of"_s, jsonFromExpression(expression.operand()) } };
    case KXExpressionType::Aggregate: {
        QJsonArray list;
        for (const KXExpression &element : expression.arguments())
            list.append(jsonFromExpression(element));
        return QJsonObject { { u"list"_s, list } };
    }
    case KXExpressionType::Constant:
        break;
    }
    return jsonFromConstant(expression.constantValue());
}

QJsonObject jsonFromComparison(const KXPredicate &predicate)
{
    const QLatin1StringView name = KXPredicatePrinter::operatorName(predicate.comparisonOperator());
    QJsonObject json { { u"left"_s, jsonFromExpression(predicate.leftExpression()) },
        { u"operator"_s,
            name.isEmpty() ? QJsonValue(int(predicate.comparisonOperator())) : QJsonValue(QString(name).toLower()) },
        { u"right"_s, jsonFromExpression(predicate.rightExpression()) } };
    if (predicate.modifier() == KXPredicateModifier::All)
        json.insert(u"modifier"_s, u"all"_s);
    else if (predicate.modifier() == KXPredicateModifier::Any)
        json.insert(u"modifier"_s, u"any"_s);
    else if (predicate.modifier() != KXPredicateModifier::Direct)
        json.insert(u"modifier"_s, int(predicate.modifier()));
    if (predicate.options() & KXCaseInsensitive)
        json.insert(u"caseInsensitive"_s, true);
    if (predicate.options() & KXDiacriticInsensitive)
        json.insert(u"diacriticInsensitive"_s, true);
    return json;
}

// Reading

class PredicateJSONReader
{
public:
    struct Failure
    {
        QString what;
    };

    KXPredicate predicate(const QJsonValue &json)
    {
        const QJsonObject object = json.toObject();
        if (object.contains("left"_L1))
            return comparison(object);
        if (object.size() != 1)
            fail(u"a predicate expected"_s);
        const QString key = object.begin().key();
        const QJsonValue value = *object.begin();
        if (key == "always"_L1 && value.isBool())
            return value.toBool() ? KXPredicate::truePredicate() : KXPredicate::falsePredicate();
        const Step step(*this, key);
        if (key == "not"_L1)
            return KXPredicate::notPredicate(predicate(value));
        if ((key != "and"_L1 && key != "or"_L1) || !value.isArray())
            fail(u"\"and\" or \"or\" with a list, \"not\", \"always\" or a comparison expected"_s);
        QList<KXPredicate> parts;
        for (const QJsonValue &part : value.toArray()) {
            const Step place(*this, QString::number(parts.size()));
            parts.append(predicate(part));
        }
        return key == "and"_L1 ? KXPredicate::andPredicate(parts) : KXPredicate::orPredicate(parts);
    }

    [[nodiscard]] QString place() const { return u'/' + m_place.join(u'/'); }

private:
    /// One more step into the tree; bounds it, too, so that reading ends before the stack does.
    class Step
    {
    public:
        Step(PredicateJSONReader &reader, const QString &name)
            : m_reader(reader)
        {
            m_reader.m_place.append(name);
            if (m_reader.m_place.size() > 3 * KXPredicate::MaximumDepth)
                m_reader.fail(u"nested too deeply"_s);
        }
        ~Step() { m_reader.m_place.resize(m_reader.m_place.size() - 1 + m_reader.m_failed); }

    private:
        PredicateJSONReader &m_reader;
    };

    [[noreturn]] void fail(const QString &what)
    {
        m_failed = true; // the place stays as it is
        throw Failure { what };
    }

    KXPredicate comparison(const QJsonObject &object)
    {
        for (const QString &key : object.keys()) {
            static const QStringList known { u"left"_s, u"operator"_s, u"right"_s, u"modifier"_s, u"caseInsensitive"_s,
                u"diacriticInsensitive"_s };
            if (!known.contains(key))
                fail(KXStringWithFormat("a comparison has no \"%@\"", key));
        }
        if (!object.contains("right"_L1))
            fail(u"\"right\" is missing"_s);
        const KXExpression left = expression(object, "left"_L1);
        const KXExpression right = expression(object, "right"_L1);
        int options = 0;
        options |= flag(object, "caseInsensitive"_L1) ? KXCaseInsensitive : 0;
        options |= flag(object, "diacriticInsensitive"_L1) ? KXDiacriticInsensitive : 0;
        return KXPredicate::comparison(
            left, comparisonOperator(object["operator"_L1]), right, modifier(object["modifier"_L1]), options);
    }

    bool flag(const QJsonObject &object, QLatin1StringView key)
    {
        const QJsonValue value = object[key];
        if (!value.isUndefined() && !value.isBool())
            fail(KXStringWithFormat("\"%@\" is true or false", key));
        return value.toBool();
    }

    KXPredicateOperator comparisonOperator(const QJsonValue &json)
    {
        for (const KXPredicateOperator candidate : jsonOperators) {
            const QLatin1StringView name = KXPredicatePrinter::operatorName(candidate);
            if (json.toString().compare(name, Qt::CaseInsensitive) == 0
                || (candidate == KXPredicateOperator::Equal && json == "="_L1))
                return candidate;
        }
        return KXPredicateOperator(code(json, "\"operator\" is the name of one, or a code"_L1));
    }

    KXPredicateModifier modifier(const QJsonValue &json)
    {
        if (json.isUndefined())
            return KXPredicateModifier::Direct;
        if (json == "all"_L1)
            return KXPredicateModifier::All;
        return json == "any"_L1 ? KXPredicateModifier::Any
                                : KXPredicateModifier(code(json, "\"modifier\" is \"all\", \"any\" or a code"_L1));
    }

    int code(const QJsonValue &json, QLatin1StringView what)
    {
        const int code = json.toInt();
        if (!json.isDouble() || json.toDouble() != code)
            fail(QString(what));
        return code;
    }

    KXExpression expression(const QJsonObject &object, QLatin1StringView key)
    {
        const Step step(*this, QString(key));
        return expression(object[key]);
    }

    KXExpression expression(const QJsonValue &json)
    {
        if (!json.isObject())
            return KXExpression::expressionForConstantValue(constant(json));
        const QJsonObject object = json.toObject();
        const QJsonValue keyPath = object["valueForKeyPath"_L1];
        if (object.size() == 2 && keyPath.isString() && object.contains("of"_L1)) {
            return KXExpression::expressionForFunction(expression(object, "of"_L1), u"valueForKeyPath:"_s,
                { KXExpression::expressionForConstantValue(keyPath.toString()) });
        }
        if (object.size() != 1)
            fail(u"an expression expected"_s);
        const QString key = object.begin().key();
        const QJsonValue value = *object.begin();
        if (key == "keyPath"_L1 && value.isString())
            return KXExpression::expressionForKeyPath(value.toString());
        if (key == "variable"_L1 && value.isString())
            return KXExpression::expressionForVariable(value.toString());
        if (key == "self"_L1 && value.isBool() && value.toBool())
            return KXExpression::expressionForEvaluatedObject();
        if (key == "list"_L1 && value.isArray()) {
            const Step step(*this, key);
            QList<KXExpression> elements;
            for (const QJsonValue &element : value.toArray()) {
                const Step place(*this, QString::number(elements.size()));
                elements.append(expression(element));
            }
            return KXExpression::expressionForAggregate(elements);
        }
        return KXExpression::expressionForConstantValue(constant(json));
    }

    QVariant constant(const QJsonValue &json)
    {
        if (json.isArray()) {
            QVariantList list;
            for (const QJsonValue &element : json.toArray()) {
                const Step place(*this, QString::number(list.size()));
                list.append(constant(element));
            }
            return list;
        }
        if (!json.isObject())
            return json.isNull() || json.isUndefined() ? QVariant() : json.toVariant();
        const QJsonObject object = json.toObject();
        const QString key = object.size() == 1 ? object.begin().key() : QString();
        const QJsonValue value = object.isEmpty() ? QJsonValue() : *object.begin();
        if (key == "double"_L1 && value.isDouble())
            return value.toDouble();
        const QVariant constant
            = key == key.toLower() ? KXPredicateParser::valueFromCall(key.toUpper(), value.toVariant()) : QVariant();
        if (!constant.isValid())
            fail(key.isEmpty() ? u"an expression expected"_s : KXStringWithFormat("\"%@\" of this is no value", key));
        return constant;
    }

    QStringList m_place;
    bool m_failed = false;
};

}

QJsonObject KXPredicate::toJSON() const
{
    if (!d)
        return {};
    switch (type()) {
    case KXPredicateType::True:
    case KXPredicateType::False:
        return { { u"always"_s, type() == KXPredicateType::True } };
    case KXPredicateType::Not:
        return { { u"not"_s, subpredicates().first().toJSON() } };
    case KXPredicateType::Comparison:
        return jsonFromComparison(*this);
    case KXPredicateType::And:
    case KXPredicateType::Or:
        break;
    }
    QJsonArray parts;
    for (const KXPredicate &part : subpredicates())
        parts.append(part.toJSON());
    return { { type() == KXPredicateType::And ? u"and"_s : u"or"_s, parts } };
}

KXPredicate KXPredicate::predicateWithJSON(const QJsonObject &json, KXError *error)
{
    if (json.isEmpty())
        return {};
    PredicateJSONReader reader;
    QString problem;
    try {
        return reader.predicate(json);
    } catch (const PredicateJSONReader::Failure &failure) {
        problem = failure.what;
    } catch (const KXException &exception) { // from making a node
        problem = exception.reason();
    }
    KXSetError(error,
        KXError(KXKestrixKitErrorDomain, JSONError,
            KXStringWithFormat("%@ of the predicate: %@", reader.place(), problem)));
    return {};
}
