#include <kestrixkit/store/KXPredicateParser_p.h>

#include <cmath>
#include <limits>

#include <QCborValue>
#include <QDateTime>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXPredicateValue_p.h>

using namespace Qt::StringLiterals;

struct KXPredicateParser::Failure
{
    QString what;
    qsizetype at;
};

/// One more level of parentheses, lists or NOTs; ends the reading before the stack does.
class KXPredicateParser::Level
{
public:
    explicit Level(KXPredicateParser &parser) : m_parser(parser)
    {
        if (++m_parser.m_level > KXPredicate::MaximumDepth + 10)
            m_parser.fail(u"nested too deeply"_s);
    }
    ~Level() { --m_parser.m_level; }

private:
    KXPredicateParser &m_parser;
};

namespace {

constexpr QLatin1StringView parserReservedWords[] = { "and"_L1, "or"_L1, "not"_L1, "any"_L1, "some"_L1, "all"_L1, "none"_L1, "in"_L1,
    "like"_L1, "matches"_L1, "contains"_L1, "beginswith"_L1, "endswith"_L1, "between"_L1, "truepredicate"_L1, "falsepredicate"_L1,
    "nil"_L1, "null"_L1, "true"_L1, "false"_L1, "yes"_L1, "no"_L1, "self"_L1 };

bool parserIsNameCharacter(QChar c) { return c.isLetterOrNumber() || c.isMark() || c == u'_' || c.isSurrogate(); }
bool parserBeginsName(QChar c) { return parserIsNameCharacter(c) && !c.isDigit(); }

bool parserIsEqual(QStringView text, QLatin1StringView word) { return text.compare(word, Qt::CaseInsensitive) == 0; }

}

bool KXPredicateParser::isPlainName(QStringView name)
{
    return !name.isEmpty() && parserBeginsName(name.front()) && std::all_of(name.begin(), name.end(), parserIsNameCharacter);
}

bool KXPredicateParser::isPlainKeyPath(QStringView keyPath)
{
    if (keyPath.isEmpty() || !parserBeginsName(keyPath.front()))
        return false;
    const QList<QStringView> keys = keyPath.split(u'.');
    if (parserIsEqual(keys.first(), "self"_L1))
        return false;
    if (keys.size() == 1 && std::any_of(std::begin(parserReservedWords), std::end(parserReservedWords), [&](auto word) { return parserIsEqual(keyPath, word); }))
        return false;
    return std::all_of(keys.begin(), keys.end(), [](QStringView key) {
        return key == "@count"_L1 || (!key.isEmpty() && std::all_of(key.begin(), key.end(), parserIsNameCharacter));
    });
}

KXPredicate KXPredicateParser::parse()
{
    try {
        next();
        const KXPredicate predicate = readOr();
        if (m_token != Token::End)
            fail(u"AND, OR or the end expected"_s);
        if (m_arguments && m_argumentsUsed != m_arguments->size())
            fail(KXStringWithFormat("%lld arguments for %lld places", qint64(m_arguments->size()), qint64(m_argumentsUsed)));
        return predicate;
    } catch (const Failure &failure) {
        m_problem = KXStringWithFormat("Character %lld of the predicate: %@", qint64(failure.at + 1), failure.what);
    } catch (const KXException &exception) { // from making a node
        m_problem = KXStringWithFormat("Character %lld of the predicate: %@", qint64(m_tokenAt + 1), exception.reason());
    }
    return {};
}

void KXPredicateParser::fail(const QString &what) { throw Failure { what, m_tokenAt }; }

// Tokens

void KXPredicateParser::next()
{
    while (m_at < m_text.size() && m_text[m_at].isSpace())
        ++m_at;
    m_tokenAt = m_at;
    if (m_at == m_text.size()) {
        m_token = Token::End;
        return;
    }
    const QChar c = m_text[m_at];
    const QStringView rest = QStringView(m_text).sliced(m_at);
    const auto isDigit = [&rest](qsizetype i) { return i < rest.size() && rest[i] >= u'0' && rest[i] <= u'9'; };
    if (parserBeginsName(c) || rest.startsWith("%K"_L1))
        return readWord();
    if (isDigit(0) || ((c == u'-' || c == u'+' || c == u'.') && (isDigit(1) || (rest.size() > 1 && rest[1] == u'.' && isDigit(2)))))
        return readNumber();
    if (c == u'"' || c == u'\'' || c == u'`')
        return readQuoted(c);
    if (c == u'$')
        return readVariable();
    if (c == u'%')
        return readPercent();
    m_token = Token::Symbol;
    for (const QLatin1StringView symbol : { "<="_L1, ">="_L1, "=<"_L1, "=>"_L1, "=="_L1, "!="_L1, "<>"_L1, "&&"_L1, "||"_L1, "<"_L1,
             ">"_L1, "="_L1, "!"_L1, "("_L1, ")"_L1, "{"_L1, "}"_L1, "["_L1, "]"_L1, ","_L1 }) {
        if (rest.startsWith(symbol)) {
            m_tokenText = symbol;
            m_at += symbol.size();
            return;
        }
    }
    fail(KXStringWithFormat("\"%@\" means nothing here", QString(c)));
}

/// A keyword, or a key path whose keys may be arguments.
void KXPredicateParser::readWord()
{
    m_token = Token::Word;
    m_tokenText.clear();
    while (true) {
        const qsizetype from = m_at;
        if (m_arguments && QStringView(m_text).sliced(m_at).startsWith("%K"_L1)) {
            m_token = Token::KeyPath; // whatever it says, it is no keyword
            m_at += 2;
            m_tokenText += nextArgument().toString();
        } else {
            if (m_at < m_text.size() && m_text[m_at] == u'@')
                ++m_at;
            while (m_at < m_text.size() && parserIsNameCharacter(m_text[m_at]))
                ++m_at;
            const QStringView key = QStringView(m_text).sliced(from, m_at - from);
            m_tokenText += key;
            if (key.isEmpty() || (key.startsWith(u'@') && key != "@count"_L1)) {
                m_tokenAt = from;
                fail(key.isEmpty() ? u"a key expected"_s : KXStringWithFormat("%@ is not known", key.toString()));
            }
        }
        if (m_at == m_text.size() || m_text[m_at] != u'.')
            return;
        m_tokenText += u'.';
        ++m_at;
    }
}

void KXPredicateParser::readNumber()
{
    const auto digits = [this] {
        while (m_at < m_text.size() && m_text[m_at] >= u'0' && m_text[m_at] <= u'9')
            ++m_at;
    };
    const auto take = [this](QStringView characters) {
        const bool found = m_at < m_text.size() && characters.contains(m_text[m_at]);
        m_at += found;
        return found;
    };
    take(u"+-");
    digits();
    bool integer = !take(u".");
    digits();
    if (take(u"eE")) {
        integer = false;
        take(u"+-");
        digits();
    }
    m_token = Token::Value;
    const QStringView text = QStringView(m_text).sliced(m_tokenAt, m_at - m_tokenAt);
    bool ok = !(m_at < m_text.size() && parserIsNameCharacter(m_text[m_at]));
    if (ok && integer) {
        m_value = text.toLongLong(&ok);
        if (ok)
            return;
        if (const auto decimal = KXDecimal::fromString((text.startsWith(u'+') ? text.sliced(1) : text).toString())) {
            m_value = QVariant::fromValue(*decimal);
            return;
        }
    } else if (ok) {
        m_value = text.toDouble(&ok);
        ok = ok && std::isfinite(m_value.toDouble());
    }
    if (!ok)
        fail(u"this is no number, or out of range"_s);
}

void KXPredicateParser::readQuoted(QChar quote)
{
    QString text;
    ++m_at;
    while (true) {
        if (m_at == m_text.size())
            fail(u"the quotation does not end"_s);
        const QChar c = m_text[m_at++];
        if (c == quote)
            break;
        if (c != u'\\' || m_at == m_text.size()) {
            text += c;
            continue;
        }
        const QChar escaped = m_text[m_at++];
        bool ok = false;
        if (escaped == u'n')
            text += u'\n';
        else if (escaped == u't')
            text += u'\t';
        else if (escaped == u'r')
            text += u'\r';
        else if (escaped == u'"' || escaped == u'\'' || escaped == u'`' || escaped == u'\\')
            text += escaped;
        else if (const uint code = QStringView(m_text).mid(m_at, 4).toUInt(&ok, 16); escaped == u'u' && ok && m_at + 4 <= m_text.size()) {
            text += QChar(char16_t(code));
            m_at += 4;
        } else { // of a pattern or a regular expression
            text += c;
            text += escaped;
        }
    }
    if (quote == u'`') {
        m_token = Token::KeyPath;
        m_tokenText = text;
    } else {
        m_token = Token::Value;
        m_value = text;
    }
}

void KXPredicateParser::readVariable()
{
    const qsizetype at = m_at++;
    m_variableKeyPath.clear();
    if (m_at < m_text.size() && m_text[m_at] == u'`') {
        readQuoted(u'`');
    } else if (m_at < m_text.size() && parserBeginsName(m_text[m_at])) {
        readWord();
        if (const qsizetype dot = m_tokenText.indexOf(u'.'); dot >= 0) {
            m_variableKeyPath = m_tokenText.sliced(dot + 1);
            m_tokenText.truncate(dot);
        }
    } else {
        fail(u"the name of a variable expected"_s);
    }
    m_tokenAt = at;
    m_token = Token::Variable;
}

void KXPredicateParser::readPercent()
{
    static constexpr QLatin1StringView places[] = { "%@"_L1, "%lld"_L1, "%llu"_L1, "%ld"_L1, "%lu"_L1, "%d"_L1, "%i"_L1, "%u"_L1,
        "%f"_L1, "%g"_L1, "%s"_L1 };
    const QStringView rest = QStringView(m_text).sliced(m_at);
    for (const QLatin1StringView place : places) {
        if (m_arguments && rest.startsWith(place)) {
            m_token = Token::Value;
            m_value = nextArgument();
            m_at += place.size();
            return;
        }
    }
    fail(u"\"%\" means nothing here"_s);
}

const QVariant &KXPredicateParser::nextArgument()
{
    if (m_argumentsUsed == m_arguments->size())
        fail(u"an argument is missing"_s);
    return m_arguments->at(m_argumentsUsed++);
}

bool KXPredicateParser::isWord(QLatin1StringView word) const { return m_token == Token::Word && parserIsEqual(m_tokenText, word); }

bool KXPredicateParser::isBeforeParenthesis() const
{
    qsizetype at = m_at;
    while (at < m_text.size() && m_text[at].isSpace())
        ++at;
    return at < m_text.size() && m_text[at] == u'(';
}

bool KXPredicateParser::takeWord(QLatin1StringView word)
{
    const bool taken = isWord(word);
    if (taken)
        next();
    return taken;
}

bool KXPredicateParser::takeSymbol(QLatin1StringView symbol)
{
    const bool taken = m_token == Token::Symbol && m_tokenText == symbol;
    if (taken)
        next();
    return taken;
}

void KXPredicateParser::expectSymbol(QLatin1StringView symbol)
{
    if (!takeSymbol(symbol))
        fail(KXStringWithFormat("\"%@\" expected", symbol));
}

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
    };
    if (m_token == Token::Symbol || m_token == Token::Word) {
        for (const auto &[text, comparisonOperator] : operators) {
            if (parserIsEqual(m_tokenText, text)) {
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

/// Invalid for an unknown name and for an argument that is no such value.
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
    if (name == "OBJECT"_L1)
        return KXPredicateObjectHooks().fromText ? KXPredicateObjectHooks().fromText(text) : QVariant();
    if (name != "DATA"_L1 && name != "CBOR"_L1)
        return {};
    const auto decoded = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return {};
    return name == "DATA"_L1 ? QVariant(*decoded) : QCborValue::fromCbor(*decoded).toVariant();
}
