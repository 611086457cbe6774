#include <kestrixkit/predicate/KXPredicatePrinter_p.h>

#include <cmath>

#include <QCborValue>
#include <QDateTime>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/predicate/KXPredicateParser_p.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

using namespace Qt::StringLiterals;

QLatin1StringView KXPredicatePrinter::operatorName(KXPredicateOperator comparisonOperator)
{
    switch (comparisonOperator) {
    case KXPredicateOperator::LessThan:
        return "<"_L1;
    case KXPredicateOperator::LessThanOrEqual:
        return "<="_L1;
    case KXPredicateOperator::GreaterThan:
        return ">"_L1;
    case KXPredicateOperator::GreaterThanOrEqual:
        return ">="_L1;
    case KXPredicateOperator::Equal:
        return "=="_L1;
    case KXPredicateOperator::NotEqual:
        return "!="_L1;
    case KXPredicateOperator::Matches:
        return "MATCHES"_L1;
    case KXPredicateOperator::Like:
        return "LIKE"_L1;
    case KXPredicateOperator::BeginsWith:
        return "BEGINSWITH"_L1;
    case KXPredicateOperator::EndsWith:
        return "ENDSWITH"_L1;
    case KXPredicateOperator::In:
        return "IN"_L1;
    case KXPredicateOperator::Contains:
        return "CONTAINS"_L1;
    case KXPredicateOperator::Between:
        return "BETWEEN"_L1;
    case KXPredicateOperator::BeginsWord:
        return "BEGINSWORD"_L1;
    }
    return {};
}

namespace {

/// The shortest text that reads back as the number, with a mark that it is no integer.
QString printerNumber(double number)
{
    const QString text = QString::number(number, 'g', QLocale::FloatingPointShortest);
    return text.contains(u'.') || text.contains(u'e') ? text : text + ".0"_L1;
}

}

void KXPredicatePrinter::print(const KXPredicate &predicate)
{
    const QList<KXPredicate> &parts = predicate.subpredicates();
    switch (predicate.type()) {
    case KXPredicateType::True:
        m_text += "TRUEPREDICATE"_L1;
        return;
    case KXPredicateType::False:
        m_text += "FALSEPREDICATE"_L1;
        return;
    case KXPredicateType::Not:
        m_text += "NOT "_L1;
        return printPart(parts.first());
    case KXPredicateType::Comparison:
        return printComparison(predicate);
    case KXPredicateType::And:
    case KXPredicateType::Or:
        break;
    }
    const QLatin1StringView word = predicate.type() == KXPredicateType::And ? "AND"_L1 : "OR"_L1;
    if (parts.size() < 2) { // as a call: there is no place between two parts for the word
        m_text += word;
        m_text += u'(';
        if (!parts.isEmpty())
            print(parts.first());
        m_text += u')';
        return;
    }
    for (qsizetype i = 0; i < parts.size(); ++i) {
        if (i > 0) {
            m_text += u' ';
            m_text += word;
            m_text += u' ';
        }
        printPart(parts[i]);
    }
}

/// Compounds of several parts stand in parentheses, so that reading keeps their shape.
void KXPredicatePrinter::printPart(const KXPredicate &part)
{
    const bool compound = part.type() == KXPredicateType::And || part.type() == KXPredicateType::Or;
    if (!compound || part.subpredicates().size() < 2)
        return print(part);
    m_text += u'(';
    print(part);
    m_text += u')';
}

void KXPredicatePrinter::printComparison(const KXPredicate &predicate)
{
    switch (predicate.modifier()) {
    case KXPredicateModifier::Direct:
        break;
    case KXPredicateModifier::All:
        m_text += "ALL "_L1;
        break;
    case KXPredicateModifier::Any:
        m_text += "ANY "_L1;
        break;
    default:
        m_text += "MODIFIER("_L1 + QString::number(int(predicate.modifier())) + ") "_L1;
    }
    print(predicate.leftExpression());
    const QLatin1StringView name = operatorName(predicate.comparisonOperator());
    m_text += u' ';
    if (name.isEmpty())
        m_text += "OPERATOR("_L1 + QString::number(int(predicate.comparisonOperator())) + ")"_L1;
    else
        m_text += name;
    if (predicate.options()) {
        m_text += u'[';
        if (predicate.options() & KXCaseInsensitive)
            m_text += u'c';
        if (predicate.options() & KXDiacriticInsensitive)
            m_text += u'd';
        m_text += u']';
    }
    m_text += u' ';
    print(predicate.rightExpression());
}

void KXPredicatePrinter::print(const KXExpression &expression)
{
    switch (expression.type()) {
    case KXExpressionType::Constant:
        return printConstant(expression.constantValue());
    case KXExpressionType::EvaluatedObject:
        m_text += "SELF"_L1;
        return;
    case KXExpressionType::Variable:
        m_text += u'$';
        return printName(expression.variable());
    case KXExpressionType::KeyPath:
        if (KXPredicateParser::isPlainKeyPath(expression.keyPath()))
            m_text += expression.keyPath();
        else
            printQuoted(expression.keyPath(), u'`');
        return;
    case KXExpressionType::Function: {
        const KXExpression &operand = expression.operand();
        const QString keyPath = expression.keys().join(u'.');
        if (operand.type() == KXExpressionType::Variable && KXPredicateParser::isPlainName(operand.variable())
            && KXPredicateParser::isPlainKeyPath(keyPath)) {
            m_text += u'$' + operand.variable() + u'.' + keyPath;
            return;
        }
        m_text += "FUNCTION("_L1;
        print(operand);
        m_text += ", "_L1;
        printQuoted(expression.function());
        m_text += ", "_L1;
        printQuoted(keyPath);
        m_text += u')';
        return;
    }
    case KXExpressionType::Aggregate:
        m_text += u'{';
        for (qsizetype i = 0; i < expression.arguments().size(); ++i) {
            if (i > 0)
                m_text += ", "_L1;
            print(expression.arguments()[i]);
        }
        m_text += u'}';
        return;
    }
}

std::optional<KXConstantCall> KXPredicatePrinter::callForConstant(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::QString:
    case QMetaType::QVariantList:
        return {};
    case QMetaType::Double: {
        const double number = value.toDouble();
        if (std::isfinite(number))
            return {};
        return KXConstantCall { "DOUBLE"_L1, std::isnan(number) ? u"nan"_s : number > 0 ? u"inf"_s : u"-inf"_s };
    }
    case QMetaType::QDateTime: {
        const QDateTime date = value.toDateTime();
        const int year = date.date().year();
        if (year >= 1 && year <= 9999)
            return KXConstantCall { "DATE"_L1, date.toString(Qt::ISODateWithMs) };
        // beyond what ISO texts can say: milliseconds since 1970
        return KXConstantCall { "DATE"_L1, date.toMSecsSinceEpoch() };
    }
    case QMetaType::QUrl:
        return KXConstantCall { "URL"_L1, KXValueConversion::textFromUrl(value.toUrl()) };
    case QMetaType::QUuid:
        return KXConstantCall { "UUID"_L1, value.toUuid().toString(QUuid::WithoutBraces) };
    case QMetaType::QByteArray:
        return KXConstantCall { "DATA"_L1, QString::fromLatin1(value.toByteArray().toBase64()) };
    default:
        break;
    }
    const KXPredicateValue comparable(value);
    if (comparable.kind() == KXPredicateValue::Decimal)
        return KXConstantCall { "DECIMAL"_L1, comparable.decimal().toString() };
    if (comparable.kind() == KXPredicateValue::Object)
        return KXConstantCall { "OBJECT"_L1, value.value<KXManagedObjectID>().URIRepresentation().toString() };
    return KXConstantCall { "CBOR"_L1, QString::fromLatin1(QCborValue::fromVariant(value).toCbor().toBase64()) };
}

void KXPredicatePrinter::printConstant(const QVariant &value)
{
    if (const auto call = callForConstant(value)) {
        m_text += call->name;
        m_text += u'(';
        if (call->argument.typeId() == QMetaType::QString)
            printQuoted(call->argument.toString());
        else
            m_text += call->argument.toString();
        m_text += u')';
        return;
    }
    switch (value.typeId()) {
    case QMetaType::Bool:
        m_text += value.toBool() ? "TRUE"_L1 : "FALSE"_L1;
        return;
    case QMetaType::LongLong:
        m_text += QString::number(value.toLongLong());
        return;
    case QMetaType::Double:
        m_text += printerNumber(value.toDouble());
        return;
    case QMetaType::QString:
        return printQuoted(value.toString());
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        m_text += u'{';
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (i > 0)
                m_text += ", "_L1;
            printConstant(list[i]);
        }
        m_text += u'}';
        return;
    }
    default:
        m_text += "nil"_L1;
        return;
    }
}

void KXPredicatePrinter::printQuoted(const QString &text, QChar quote)
{
    m_text += quote;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        const bool paired = c.isHighSurrogate() ? i + 1 < text.size() && text[i + 1].isLowSurrogate()
                                                : i > 0 && text[i - 1].isHighSurrogate();
        if (c == quote || c == u'\\') {
            m_text += u'\\';
            m_text += c;
        } else if (c == u'\n') {
            m_text += "\\n"_L1;
        } else if (c == u'\t') {
            m_text += "\\t"_L1;
        } else if (c.category() == QChar::Other_Control || (c.isSurrogate() && !paired)) {
            m_text += "\\u"_L1 + QString::number(c.unicode(), 16).rightJustified(4, u'0');
        } else {
            m_text += c;
        }
    }
    m_text += quote;
}

void KXPredicatePrinter::printName(const QString &name)
{
    if (KXPredicateParser::isPlainName(name))
        m_text += name;
    else
        printQuoted(name, u'`');
}

// For predicates and expressions

QString KXPredicate::predicateFormat() const
{
    QString text;
    if (!isNull())
        KXPredicatePrinter(text).print(*this);
    return text;
}

QString KXExpression::expressionFormat() const
{
    QString text;
    KXPredicatePrinter(text).print(*this);
    return text;
}
