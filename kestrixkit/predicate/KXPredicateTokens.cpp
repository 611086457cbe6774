// The parser's words, numbers, quotations and symbols.

#include <kestrixkit/predicate/KXPredicateParser_p.h>

#include <cmath>

#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr QLatin1StringView parserReservedWords[] = { "and"_L1, "or"_L1, "not"_L1, "any"_L1, "some"_L1, "all"_L1,
    "none"_L1, "in"_L1, "like"_L1, "matches"_L1, "contains"_L1, "beginswith"_L1, "endswith"_L1, "between"_L1,
    "truepredicate"_L1, "falsepredicate"_L1, "nil"_L1, "null"_L1, "true"_L1, "false"_L1, "yes"_L1, "no"_L1, "self"_L1 };

bool parserIsNameCharacter(QChar c) { return c.isLetterOrNumber() || c.isMark() || c == u'_' || c.isSurrogate(); }
bool parserBeginsName(QChar c) { return parserIsNameCharacter(c) && !c.isDigit(); }

}

bool KXPredicateParser::isPlainName(QStringView name)
{
    return !name.isEmpty() && parserBeginsName(name.front())
        && std::all_of(name.begin(), name.end(), parserIsNameCharacter);
}

bool KXPredicateParser::isPlainKeyPath(QStringView keyPath)
{
    if (keyPath.isEmpty() || !parserBeginsName(keyPath.front()))
        return false;
    const QList<QStringView> keys = keyPath.split(u'.');
    if (isEqual(keys.first(), "self"_L1))
        return false;
    if (keys.size() == 1 && std::any_of(std::begin(parserReservedWords), std::end(parserReservedWords), [&](auto word) {
            return isEqual(keyPath, word);
        }))
        return false;
    return std::all_of(keys.begin(), keys.end(), [](QStringView key) {
        return key == "@count"_L1 || (!key.isEmpty() && std::all_of(key.begin(), key.end(), parserIsNameCharacter));
    });
}

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
    if (isDigit(0)
        || ((c == u'-' || c == u'+' || c == u'.')
            && (isDigit(1) || (rest.size() > 1 && rest[1] == u'.' && isDigit(2)))))
        return readNumber();
    if (c == u'"' || c == u'\'' || c == u'`')
        return readQuoted(c);
    if (c == u'$')
        return readVariable();
    if (c == u'%')
        return readPercent();
    m_token = Token::Symbol;
    for (const QLatin1StringView symbol : { "<="_L1, ">="_L1, "=<"_L1, "=>"_L1, "=="_L1, "!="_L1, "<>"_L1, "&&"_L1,
             "||"_L1, "<"_L1, ">"_L1, "="_L1, "!"_L1, "("_L1, ")"_L1, "{"_L1, "}"_L1, "["_L1, "]"_L1, ","_L1 }) {
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
        else if (const uint code = QStringView(m_text).mid(m_at, 4).toUInt(&ok, 16);
                 escaped == u'u' && ok && m_at + 4 <= m_text.size()) {
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
    static constexpr QLatin1StringView places[]
        = { "%@"_L1, "%lld"_L1, "%llu"_L1, "%ld"_L1, "%lu"_L1, "%d"_L1, "%i"_L1, "%u"_L1, "%f"_L1, "%g"_L1, "%s"_L1 };
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

bool KXPredicateParser::isWord(QLatin1StringView word) const
{
    return m_token == Token::Word && isEqual(m_tokenText, word);
}

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
