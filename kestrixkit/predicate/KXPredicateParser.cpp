#include <kestrixkit/predicate/KXPredicateParser_p.h>

#include <limits>

#include <QCborValue>
#include <QDateTime>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

KXPredicateParser::Level::Level(KXPredicateParser &parser)
    : m_parser(parser)
{
    if (++m_parser.m_level > KXPredicate::MaximumDepth + 10)
        m_parser.fail(u"nested too deeply"_s);
}

KXPredicate KXPredicateParser::parse()
{
    try {
        next();
        const KXPredicate predicate = readOr();
        if (m_token != Token::End)
            fail(u"AND, OR or the end expected"_s);
        if (m_arguments && m_argumentsUsed != m_arguments->size())
            fail(KXStringWithFormat(
                "%lld arguments for %lld places", qint64(m_arguments->size()), qint64(m_argumentsUsed)));
        return predicate;
    } catch (const Failure &failure) {
        m_problem = KXStringWithFormat("Character %lld of the predicate: %@", qint64(failure.at + 1), failure.what);
    } catch (const KXException &exception) { // from making a node
        m_problem
            = KXStringWithFormat("Character %lld of the predicate: %@", qint64(m_tokenAt + 1), exception.reason());
    }
    return {};
}

void KXPredicateParser::fail(const QString &what) { throw Failure { what, m_tokenAt }; }

// Predicates

KXPredicate KXPredicateParser::readOr()
{
    QList<KXPredicate> parts { readAnd() };
    while (takeWord("or"_L1) || takeSymbol("||"_L1))
        parts.append(readAnd());
    return parts.size() == 1 ? parts.first() : KXPredicate::orPredicate(parts);
}

KXPredicate KXPredicateParser::readAnd()
{
    QList<KXPredicate> parts { readNot() };
    while (takeWord("and"_L1) || takeSymbol("&&"_L1))
        parts.append(readNot());
    return parts.size() == 1 ? parts.first() : KXPredicate::andPredicate(parts);
}

KXPredicate KXPredicateParser::readNot()
{
    if (!takeWord("not"_L1) && !takeSymbol("!"_L1))
        return readPrimary();
    const Level level(*this);
    return KXPredicate::notPredicate(readNot());
}

KXPredicate KXPredicateParser::readPrimary()
{
    if (takeWord("truepredicate"_L1))
        return KXPredicate::truePredicate();
    if (takeWord("falsepredicate"_L1))
        return KXPredicate::falsePredicate();
    if (takeWord("and"_L1))
        return readCompound(KXPredicateType::And);
    if (takeWord("or"_L1))
        return readCompound(KXPredicateType::Or);
    if (!takeSymbol("("_L1))
        return readComparison();
    const Level level(*this);
    const KXPredicate inner = readOr();
    expectSymbol(")"_L1);
    return inner;
}

/// AND and OR as calls, which any number of parts can have.
KXPredicate KXPredicateParser::readCompound(KXPredicateType type)
{
    const Level level(*this);
    QList<KXPredicate> parts;
    expectSymbol("("_L1);
    if (!takeSymbol(")"_L1)) {
        do
            parts.append(readOr());
        while (takeSymbol(","_L1));
        expectSymbol(")"_L1);
    }
    return type == KXPredicateType::And ? KXPredicate::andPredicate(parts) : KXPredicate::orPredicate(parts);
}

KXPredicate KXPredicateParser::readComparison()
{
    KXPredicateModifier modifier = KXPredicateModifier::Direct;
    bool inverted = false;
    if (takeWord("all"_L1)) {
        modifier = KXPredicateModifier::All;
    } else if (takeWord("any"_L1) || takeWord("some"_L1)) {
        modifier = KXPredicateModifier::Any;
    } else if (takeWord("none"_L1)) {
        modifier = KXPredicateModifier::Any;
        inverted = true;
    } else if (isWord("modifier"_L1) && isBeforeParenthesis()) {
        modifier = KXPredicateModifier(takeCode());
    }
    const KXExpression left = readExpression();
    inverted ^= takeWord("not"_L1); // NOT IN
    const KXPredicateOperator comparisonOperator = readOperator();
    int options = 0;
    if (takeSymbol("["_L1)) {
        for (const QChar c : m_token == Token::Word ? std::as_const(m_tokenText) : QString()) {
            if (c.toLower() != u'c' && c.toLower() != u'd')
                fail(u"[c], [d] or [cd] expected"_s);
            options |= c.toLower() == u'c' ? KXCaseInsensitive : KXDiacriticInsensitive;
        }
        next();
        expectSymbol("]"_L1);
    }
    const bool list = comparisonOperator == KXPredicateOperator::In && takeSymbol("("_L1);
    const KXExpression right = list ? readList(")"_L1) : readExpression();
    const KXPredicate comparison = KXPredicate::comparison(left, comparisonOperator, right, modifier, options);
    return inverted ? KXPredicate::notPredicate(comparison) : comparison;
}

KXPredicateOperator KXPredicateParser::readOperator()
{
    static constexpr struct
    {
        QLatin1StringView text;
        KXPredicateOperator comparisonOperator;
    } operators[] = {
        { "<"_L1, KXPredicateOperator::LessThan },
        { "<="_L1, KXPredicateOperator::LessThanOrEqual },
        { "=<"_L1, KXPredicateOperator::LessThanOrEqual },
        { ">"_L1, KXPredicateOperator::GreaterThan },
        { ">="_L1, KXPredicateOperator::GreaterThanOrEqual },
        { "=>"_L1, KXPredicateOperator::GreaterThanOrEqual },
        { "="_L1, KXPredicateOperator::Equal },
        { "=="_L1, KXPredicateOperator::Equal },
        { "!="_L1, KXPredicateOperator::NotEqual },
        { "<>"_L1, KXPredicateOperator::NotEqual },
        { "matches"_L1, KXPredicateOperator::Matches },
        { "like"_L1, KXPredicateOperator::Like },
        { "beginswith"_L1, KXPredicateOperator::BeginsWith },
        { "endswith"_L1, KXPredicateOperator::EndsWith },
        { "in"_L1, KXPredicateOperator::In },
        { "contains"_L1, KXPredicateOperator::Contains },
        { "between"_L1, KXPredicateOperator::Between },
        { "beginsword"_L1, KXPredicateOperator::BeginsWord },
    };
    if (m_token == Token::Symbol || m_token == Token::Word) {
        for (const auto &[text, comparisonOperator] : operators) {
            if (isEqual(m_tokenText, text)) {
                next();
                return comparisonOperator;
            }
        }
    }
    if (isWord("operator"_L1) && isBeforeParenthesis())
        return KXPredicateOperator(takeCode());
    fail(u"an operator expected"_s);
}

/// The number in the parentheses that follow a word.
int KXPredicateParser::takeCode()
{
    next();
    expectSymbol("("_L1);
    const QVariant code = m_token == Token::Value ? m_value : QVariant();
    if (code.typeId() != QMetaType::LongLong || code.toLongLong() != int(code.toLongLong()))
        fail(u"a code expected"_s);
    next();
    expectSymbol(")"_L1);
    return int(code.toLongLong());
}

// Expressions

KXExpression KXPredicateParser::readExpression()
{
    KXExpression expression;
    switch (m_token) {
    case Token::Value:
        expression = KXExpression::expressionForConstantValue(m_value);
        break;
    case Token::KeyPath:
        expression = KXExpression::expressionForKeyPath(m_tokenText);
        break;
    case Token::Variable:
        expression = m_variableKeyPath.isEmpty() ? KXExpression::expressionForVariable(m_tokenText)
                                                 : KXExpression::expressionForVariable(m_tokenText, m_variableKeyPath);
        break;
    case Token::Word:
        if (isWord("nil"_L1) || isWord("null"_L1)) {
            break;
        } else if (isWord("true"_L1) || isWord("yes"_L1)) {
            expression = KXExpression::expressionForConstantValue(true);
        } else if (isWord("false"_L1) || isWord("no"_L1)) {
            expression = KXExpression::expressionForConstantValue(false);
        } else if (isWord("self"_L1)) {
            expression = KXExpression::expressionForEvaluatedObject();
        } else if (isBeforeParenthesis()) {
            return readCall(m_tokenText.toUpper());
        } else if (isPlainKeyPath(m_tokenText)) {
            expression = KXExpression::expressionForKeyPath(m_tokenText);
        } else if (m_tokenText.startsWith("self."_L1, Qt::CaseInsensitive)) {
            expression = KXExpression::expressionForKeyPath(m_tokenText.sliced(5));
        } else {
            fail(KXStringWithFormat("\"%@\" is a word of the language; as a key it stands in backquotes", m_tokenText));
        }
        break;
    case Token::Symbol:
        if (takeSymbol("{"_L1))
            return readList("}"_L1);
        [[fallthrough]];
    case Token::End:
        fail(u"a key path or a value expected"_s);
    }
    next();
    return expression;
}

KXExpression KXPredicateParser::readList(QLatin1StringView closing)
{
    const Level level(*this);
    QList<KXExpression> elements;
    while (!takeSymbol(closing)) {
        elements.append(readExpression());
        if (!takeSymbol(","_L1)) {
            expectSymbol(closing);
            break;
        }
    }
    return KXExpression::expressionForAggregate(elements);
}

KXExpression KXPredicateParser::readCall(const QString &name)
{
    const Level level(*this);
    const qsizetype at = m_tokenAt;
    next();
    expectSymbol("("_L1);
    if (name == "FUNCTION"_L1) {
        const KXExpression operand = readExpression();
        expectSymbol(","_L1);
        const QString function = m_token == Token::Value ? m_value.toString() : QString();
        next();
        QList<KXExpression> arguments;
        while (takeSymbol(","_L1))
            arguments.append(readExpression());
        expectSymbol(")"_L1);
        return KXExpression::expressionForFunction(operand, function, arguments);
    }
    const QVariant argument = m_token == Token::Value ? m_value : QVariant();
    const QVariant value = valueFromCall(name, argument);
    if (!value.isValid()) {
        m_tokenAt = at;
        fail(KXStringWithFormat("%@ of this is no value", name));
    }
    next();
    expectSymbol(")"_L1);
    return KXExpression::expressionForConstantValue(value);
}

QVariant KXPredicateParser::valueFromCall(const QString &name, const QVariant &argument)
{
    const QString text = argument.toString();
    if (name == "DATE"_L1) {
        if (argument.typeId() == QMetaType::LongLong)
            return QDateTime::fromMSecsSinceEpoch(argument.toLongLong(), Qt::UTC);
        QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
        if (date.timeSpec() == Qt::LocalTime) // no zone was named
            date.setTimeSpec(Qt::UTC);
        return date.isValid() ? QVariant(date) : QVariant();
    }
    if (name == "DECIMAL"_L1) {
        const auto decimal = KXDecimal::fromString(text);
        return decimal ? QVariant::fromValue(*decimal) : QVariant();
    }
    if (name == "DOUBLE"_L1) {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        if (text == "nan"_L1)
            return std::numeric_limits<double>::quiet_NaN();
        return text == "inf"_L1 ? QVariant(infinity) : text == "-inf"_L1 ? QVariant(-infinity) : QVariant();
    }
    if (argument.typeId() != QMetaType::QString)
        return {};
    if (name == "URL"_L1)
        return QUrl(text);
    if (name == "UUID"_L1) {
        const QUuid uuid = QUuid::fromString(text);
        return uuid.isNull() && !text.startsWith("00000000-"_L1) ? QVariant() : QVariant(uuid);
    }
    if (name == "OBJECT"_L1) {
        const auto id = KXManagedObjectID::identifierForURIRepresentation(QUrl(text));
        return id ? QVariant::fromValue(id) : QVariant();
    }
    if (name != "DATA"_L1 && name != "CBOR"_L1)
        return {};
    const auto decoded = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return {};
    return name == "DATA"_L1 ? QVariant(*decoded) : QCborValue::fromCbor(*decoded).toVariant();
}

// For predicates

KXPredicate KXPredicate::predicateWithFormatArguments(QAnyStringView format, const QVariantList &arguments)
{
    KXPredicateParser parser(format.toString(), &arguments);
    const KXPredicate predicate = parser.parse();
    if (!predicate)
        throw KXException(QString(KXInvalidArgumentException), parser.problem());
    return predicate;
}

KXPredicate KXPredicate::predicateWithText(const QString &text, KXError *error)
{
    KXPredicateParser parser(text, nullptr);
    const KXPredicate predicate = parser.parse();
    if (!predicate)
        KXSetError(error, KXError(KXKestrixKitErrorDomain, TextError, parser.problem()));
    return predicate;
}
