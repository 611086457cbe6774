#include <kestrixkit/predicate/KXTextWords_p.h>

#include <algorithm>
#include <array>

#include <QLocale>

#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>

namespace {

bool wordsAreAscii(QByteArrayView utf8)
{
    return std::none_of(utf8.begin(), utf8.end(), [](char c) { return c & 0x80; });
}

/// The character at a place of sound UTF-8, and its length.
char32_t wordsCharacter(QByteArrayView utf8, qsizetype at, qsizetype &length)
{
    const auto byte = [&](qsizetype i) { return at + i < utf8.size() ? char32_t(uchar(utf8[at + i])) : 0x80; };
    const char32_t first = byte(0);
    if (first < 0x80) {
        length = 1;
        return first;
    }
    if (first < 0xE0) {
        length = 2;
        return (first & 0x1F) << 6 | (byte(1) & 0x3F);
    }
    if (first < 0xF0) {
        length = 3;
        return (first & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    }
    length = 4;
    return (first & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
}

bool wordsIsWithoutBlanks(char32_t c)
{
    // The marks for a long vowel and for repetition belong to what they stand behind.
    if (c == 0x30FC || c == 0x3005 || c == 0x3007 || c == 0x303B)
        return true;
    switch (QChar::script(c)) {
    case QChar::Script_Han:
    case QChar::Script_Hiragana:
    case QChar::Script_Katakana:
    case QChar::Script_Bopomofo:
    case QChar::Script_Thai:
    case QChar::Script_Lao:
    case QChar::Script_Khmer:
    case QChar::Script_Myanmar:
        return QChar::isLetter(c) || QChar::isMark(c);
    default:
        return false;
    }
}

QByteArray wordsFolded(const QString &text)
{
    // Full-width letters, ligatures and the like as they are typed.
    QString folded = KXTextFolding::folded(
        text.normalized(QString::NormalizationForm_KC), KXCaseInsensitive | KXDiacriticInsensitive);
    // What looks like a letter with a mark, or like two, but is none to the tables of characters.
    static constexpr std::pair<char16_t, QLatin1StringView> letters[] = {
        { u'\u00DF', QLatin1StringView("ss") },
        { u'\u00E6', QLatin1StringView("ae") },
        { u'\u00F0', QLatin1StringView("d") },
        { u'\u00F8', QLatin1StringView("o") },
        { u'\u00FE', QLatin1StringView("th") },
        { u'\u0111', QLatin1StringView("d") },
        { u'\u0127', QLatin1StringView("h") },
        { u'\u0131', QLatin1StringView("i") },
        { u'\u0142', QLatin1StringView("l") },
        { u'\u0153', QLatin1StringView("oe") },
    };
    for (const auto &[letter, plain] : letters)
        folded.replace(QChar(letter), plain);
    return folded.toUtf8();
}

}

KXTextWords::Splitter::Class KXTextWords::Splitter::classOf(char32_t c)
{
    static const std::array<Class, 128> ascii = [] {
        std::array<Class, 128> classes {};
        for (char32_t i = 0; i < classes.size(); ++i) {
            classes[i] = QChar::isLetterOrNumber(i) ? Letter
                : QChar::isSpace(i)                 ? Space
                : i == U'\'' || i == U'`'           ? Apostrophe
                                                    : Other;
        }
        return classes;
    }();
    if (c < ascii.size())
        return ascii[c];
    if (c == 0xB4 || c == 0x2018 || c == 0x2019 || c == 0x02BC || c == 0x2032 || c == 0xFF07)
        return Apostrophe;
    if (wordsIsWithoutBlanks(c))
        return Run;
    if (QChar::isSurrogate(c) || c == QChar::ReplacementCharacter)
        return Other;
    if (QChar::isLetterOrNumber(c) || QChar::isMark(c))
        return Letter;
    return QChar::isSpace(c) ? Space : Other;
}

void KXTextWords::Splitter::addWord(qsizetype from, qsizetype to)
{
    if (to - from > LongestWord) {
        to = from + LongestWord;
        while ((uchar(m_text[size_t(to)]) & 0xC0) == 0x80)
            --to;
    }
    if (to > from)
        m_places.emplace_back(from, to);
}

void KXTextWords::Splitter::endPiece(bool isTerm)
{
    if (m_piece < 0)
        return;
    const auto end = qsizetype(m_text.size());
    addWord(m_piece, end);
    if (m_hasParts && !isTerm && m_part >= 0)
        addWord(m_part, end);
    if (end > m_piece)
        m_pieces.emplace_back(m_piece, end);
    m_piece = m_part = -1;
    m_hasParts = false;
}

void KXTextWords::Splitter::endRun(bool isTerm)
{
    const auto count = qsizetype(m_run.size());
    const auto end = qsizetype(m_text.size());
    for (qsizetype i = 0; i < count; ++i) {
        // A term's last characters are in the words before them.
        if (isTerm && i > 0 && i + LongestOfRun > count)
            break;
        addWord(m_run[size_t(i)], i + LongestOfRun < count ? m_run[size_t(i + LongestOfRun)] : end);
    }
    m_run.clear();
}

void KXTextWords::Splitter::endChunk(bool isTerm)
{
    endPiece(isTerm);
    endRun(isTerm);
    if (!isTerm && m_pieces.size() > 1) {
        std::string joined;
        for (const auto &[from, to] : m_pieces)
            joined.append(m_text, size_t(from), size_t(to - from));
        if (qsizetype(joined.size()) <= LongestWord) {
            const auto from = qsizetype(m_text.size());
            m_text += joined;
            addWord(from, qsizetype(m_text.size()));
        }
    }
    m_pieces.clear();
}

void KXTextWords::Splitter::split(QByteArrayView folded, bool isTerm)
{
    m_text.clear();
    m_places.clear();
    m_words.clear();
    for (qsizetype at = 0; at < folded.size();) {
        qsizetype length = 1;
        const char32_t c = wordsCharacter(folded, at, length);
        const Class kind = classOf(c);
        if (kind != Letter && kind != Apostrophe)
            endPiece(isTerm);
        if (kind != Run)
            endRun(isTerm);
        switch (kind) {
        case Letter:
            if (m_piece < 0)
                m_piece = qsizetype(m_text.size());
            if (m_part < 0)
                m_part = qsizetype(m_text.size());
            m_text.append(folded.data() + at, size_t(std::min(length, folded.size() - at)));
            break;
        case Apostrophe:
            if (m_piece >= 0 && m_part >= 0 && !isTerm) {
                if (m_part > m_piece) // the first part begins the word anyway
                    addWord(m_part, qsizetype(m_text.size()));
                m_hasParts = true;
                m_part = -1;
            }
            break;
        case Run:
            m_run.push_back(qsizetype(m_text.size()));
            m_text.append(folded.data() + at, size_t(std::min(length, folded.size() - at)));
            break;
        case Space:
            endChunk(isTerm);
            break;
        case Other:
            break;
        }
        at += length;
    }
    endChunk(isTerm);
    m_words.reserve(m_places.size());
    for (const auto &[from, to] : m_places)
        m_words.emplace_back(m_text.data() + from, to - from);
}

const std::vector<QByteArrayView> &KXTextWords::Splitter::ofText(QByteArrayView utf8)
{
    if (!wordsAreAscii(utf8))
        return ofText(QString::fromUtf8(utf8));
    m_folded.assign(utf8.data(), size_t(utf8.size()));
    for (char &c : m_folded)
        c = c >= 'A' && c <= 'Z' ? char(c | 0x20) : c;
    split(QByteArrayView(m_folded.data(), qsizetype(m_folded.size())), false);
    return m_words;
}

const std::vector<QByteArrayView> &KXTextWords::Splitter::ofText(const QString &text)
{
    const QByteArray folded = wordsFolded(text);
    split(folded, false);
    return m_words;
}

std::vector<QByteArray> KXTextWords::ofTerm(const QString &term)
{
    Splitter splitter;
    const QByteArray folded = wordsFolded(term);
    splitter.split(folded, true);
    std::vector<QByteArray> words;
    words.reserve(splitter.m_words.size());
    for (const QByteArrayView word : splitter.m_words)
        words.push_back(word.toByteArray());
    // In order, what begins a word stands before it.
    std::sort(words.begin(), words.end());
    size_t kept = 0;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i + 1 == words.size() || !words[i + 1].startsWith(words[i]))
            words[kept++] = words[i];
    }
    words.resize(kept);
    return words;
}

bool KXTextWords::mayBeInside(QByteArrayView word)
{
    const auto characters = std::count_if(word.begin(), word.end(), [](char c) { return (uchar(c) & 0xC0) != 0x80; });
    return characters >= ShortestInside;
}

QByteArray KXTextWords::textOfNumber(double number)
{
    return QByteArray::number(number, 'f', QLocale::FloatingPointShortest);
}

bool KXTextWords::begin(const std::vector<QByteArray> &termWords, QByteArrayView utf8)
{
    Splitter splitter;
    const std::vector<QByteArrayView> &words = splitter.ofText(utf8);
    return std::all_of(termWords.begin(), termWords.end(), [&words](const QByteArray &wanted) {
        return std::any_of(
            words.begin(), words.end(), [&wanted](QByteArrayView word) { return word.startsWith(wanted); });
    });
}

std::vector<KXTextWords::Range> KXTextWords::matches(const QString &text, const QString &term)
{
    const std::vector<QByteArray> wanted = ofTerm(term);
    std::vector<Range> ranges;
    if (wanted.empty())
        return ranges;
    // A beginning is looked for where a letter stands behind none, and in scripts without blanks everywhere.
    constexpr qsizetype longest = LongestWord * 2;
    bool wasLetter = false;
    for (qsizetype at = 0; at < text.size();) {
        const bool isPair = text[at].isHighSurrogate() && at + 1 < text.size() && text[at + 1].isLowSurrogate();
        const char32_t c = isPair ? QChar::surrogateToUcs4(text[at], text[at + 1]) : text[at].unicode();
        const bool isRun = wordsIsWithoutBlanks(c);
        const bool isLetter = !isRun && (QChar::isLetterOrNumber(c) || QChar::isMark(c));
        qsizetype step = isPair ? 2 : 1;
        if (isRun || (isLetter && !wasLetter)) {
            // As many characters as fold to the word.
            qsizetype best = 0;
            qsizetype bestWord = 0;
            for (qsizetype length = step; length <= std::min(longest, text.size() - at); ++length) {
                const std::vector<QByteArray> words = ofTerm(text.mid(at, length));
                if (words.size() != 1)
                    break;
                bool mayGrow = false;
                if (length > step && text[at + length - 1].isSpace())
                    break;
                for (const QByteArray &word : wanted) {
                    if (word.size() > bestWord && words[0].startsWith(word)) {
                        best = length;
                        bestWord = word.size();
                    }
                    mayGrow = mayGrow || (word.size() > words[0].size() && word.startsWith(words[0]));
                }
                if (!mayGrow)
                    break;
            }
            if (best > 0) {
                if (isRun && !ranges.empty() && ranges.back().from + ranges.back().length >= at)
                    ranges.back().length = at + best - ranges.back().from;
                else
                    ranges.push_back({ at, best });
                if (!isRun)
                    step = std::max(step, best);
            }
        }
        wasLetter = isLetter;
        at += step;
    }
    return ranges;
}
