#include <kestrixkit/catalogue/KXPostgreSQLPattern_p.h>

#include <algorithm>

#include <QRegularExpression>

#include <kestrixkit/catalogue/KXPostgreSQLRule_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void patternRefuse()
{
    KXPostgreSQLRule::refuse(KXLocalizedString("a regular expression asks for more than the catalogue can"));
}

/// All characters that have another case, each once.
const QString &patternCasedCharacters()
{
    static const QString all = [] {
        QString text;
        for (char32_t c = 0; c <= 0x10FFFF; ++c) {
            if (QChar::toLower(c) != c || QChar::toUpper(c) != c || QChar::toTitleCase(c) != c
                || QChar::toCaseFolded(c) != c)
                text += QString::fromUcs4(&c, 1);
        }
        return text;
    }();
    return all;
}

/// A translation of one expression, by recursive descent.
class Translation
{
public:
    Translation(const QString &pattern, bool caseInsensitive)
        : m_caseInsensitive(caseInsensitive)
    {
        for (const uint c : pattern.toUcs4())
            m_pattern.append(c);
    }

    QString whole()
    {
        takeFlags();
        const QString text = alternatives();
        if (!isAtEnd())
            patternRefuse();
        return u"^(?:%1)$"_s.arg(text);
    }

private:
    static constexpr int MostNested = 50;
    static constexpr qsizetype MostInClass = 300;

    [[nodiscard]] bool isAtEnd() const { return m_at >= m_pattern.size(); }
    [[nodiscard]] char32_t next() const { return isAtEnd() ? 0 : m_pattern[m_at]; }
    bool take(char32_t c)
    {
        if (isAtEnd() || m_pattern[m_at] != c)
            return false;
        ++m_at;
        return true;
    }

    /// "(?is)" at the very beginning.
    void takeFlags()
    {
        if (m_pattern.size() < 3 || m_pattern[0] != '(' || m_pattern[1] != '?')
            return;
        for (qsizetype at = 2; at < m_pattern.size(); ++at) {
            if (m_pattern[at] == ')') {
                for (qsizetype flag = 2; flag < at; ++flag) {
                    m_caseInsensitive = m_caseInsensitive || m_pattern[flag] == 'i';
                    m_dotTakesLines = m_dotTakesLines || m_pattern[flag] == 's';
                }
                m_at = at + 1;
                return;
            }
            if (m_pattern[at] != 'i' && m_pattern[at] != 's')
                return;
        }
    }

    QString alternatives()
    {
        if (++m_nesting > MostNested)
            patternRefuse();
        QString text = sequence();
        while (take('|'))
            text += u'|' + sequence();
        --m_nesting;
        return text;
    }

    QString sequence()
    {
        QString text;
        while (!isAtEnd() && next() != '|' && next() != ')') {
            text += atom();
            if (next() == '*' || next() == '+' || next() == '?') {
                text += QChar(char16_t(next()));
                ++m_at;
                take('?'); // how much is taken first changes nothing for a whole text
                if (next() == '*' || next() == '+' || next() == '?')
                    patternRefuse();
            }
        }
        return text;
    }

    QString atom()
    {
        const char32_t c = m_pattern[m_at++];
        switch (c) {
        case '.':
            return m_dotTakesLines ? u"."_s : u"[^\n]"_s;
        case '(': {
            if (take('?') && !take(':'))
                patternRefuse();
            const QString text = alternatives();
            if (!take(')') || text.isEmpty())
                patternRefuse();
            return u"(?:%1)"_s.arg(text);
        }
        case '[':
            return characterClass();
        case '\\':
            if (isAtEnd())
                patternRefuse();
            return set({ escaped() });
        case '^':
        case '$':
        case '*':
        case '+':
        case '?':
        case '{':
            patternRefuse();
        default:
            return set({ c });
        }
    }

    /// What follows a backslash: punctuation and what is no ASCII stand for themselves, letters and digits for much
    /// that differs.
    char32_t escaped()
    {
        const char32_t c = m_pattern[m_at++];
        if (c < 0x80 && QChar(char16_t(c)).isLetterOrNumber())
            patternRefuse();
        return c;
    }

    QString characterClass()
    {
        QList<char32_t> characters;
        while (true) {
            if (isAtEnd() || next() == '^' || next() == '[' || (next() == ']' && characters.isEmpty()))
                patternRefuse();
            if (take(']'))
                break;
            const char32_t first = take('\\') && !isAtEnd() ? escaped() : m_pattern[m_at++];
            characters.append(first);
            if (next() == '-' && m_at + 1 < m_pattern.size() && m_pattern[m_at + 1] != ']') {
                const char32_t last = m_pattern[m_at + 1];
                m_at += 2;
                if (last == '\\' || last == '[' || last < first || last - first > char32_t(MostInClass))
                    patternRefuse();
                for (char32_t c = first + 1; c <= last; ++c)
                    characters.append(c);
            }
            if (characters.size() > MostInClass)
                patternRefuse();
        }
        return set(characters);
    }

    /// One of the characters, or of those that are the same but for their case.
    QString set(const QList<char32_t> &characters) const
    {
        QList<char32_t> all;
        for (const char32_t c : characters) {
            all.append(c);
            if (!m_caseInsensitive)
                continue;
            const QRegularExpression same(QRegularExpression::escape(QString::fromUcs4(&c, 1)),
                QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);
            auto matches = same.globalMatch(patternCasedCharacters());
            while (matches.hasNext())
                all.append(matches.next().captured().toUcs4().first());
        }
        std::sort(all.begin(), all.end());
        all.erase(std::unique(all.begin(), all.end()), all.end());
        QString text;
        for (const char32_t c : all) {
            if (!text.isEmpty())
                text += u'|';
            if (c < 0x80 && !QChar(char16_t(c)).isLetterOrNumber() && c > ' ')
                text += u'\\';
            text += QString::fromUcs4(&c, 1);
        }
        return all.size() == 1 ? text : u"(?:%1)"_s.arg(text);
    }

    QList<char32_t> m_pattern;
    qsizetype m_at = 0;
    int m_nesting = 0;
    bool m_caseInsensitive;
    bool m_dotTakesLines = false;
};

}

std::optional<QString> KXPostgreSQLPattern::ofLike(const QString &pattern)
{
    QString text;
    for (qsizetype at = 0; at < pattern.size(); ++at) {
        QChar c = pattern[at];
        if (c == u'*' || c == u'?') {
            text += c == u'*' ? u'%' : u'_';
            continue;
        }
        if (c == u'\\' && at + 1 < pattern.size())
            c = pattern[++at];
        if (c == u'%' || c == u'_' || c == u'\\')
            text += u'\\';
        text += c;
    }
    return text;
}

std::optional<QString> KXPostgreSQLPattern::ofRegularExpression(const QString &pattern, bool caseInsensitive)
{
    if (!QRegularExpression(QRegularExpression::anchoredPattern(pattern)).isValid())
        return std::nullopt;
    if (pattern.contains(QChar::Null))
        patternRefuse();
    return Translation(pattern, caseInsensitive).whole();
}
