#include <kestrixkit/predicate/KXTextFolding_p.h>

#include <algorithm>
#include <type_traits>

#include <kestrixkit/predicate/KXPredicate.h>

namespace {

/// Units from one character to the next, which "?" and "*" must not split.
qsizetype foldingCharacterLength(QStringView text, qsizetype at)
{
    return text[at].isHighSurrogate() && at + 1 < text.size() && text[at + 1].isLowSurrogate() ? 2 : 1;
}

qsizetype foldingCharacterLength(QByteArrayView text, qsizetype at)
{
    qsizetype length = 1;
    while (at + length < text.size() && (uchar(text[at + length]) & 0xC0) == 0x80)
        ++length;
    return length;
}

/// Greedy with one point of return: only the last "*" ever needs to take more.
template <typename View> bool foldingIsLike(View text, View pattern)
{
    using Unit = typename View::value_type;
    const auto unit = [](char c) { return Unit(std::conditional_t<std::is_same_v<Unit, char>, char, char16_t>(c)); };
    qsizetype at = 0;
    qsizetype atPattern = 0;
    qsizetype resumePattern = -1;
    qsizetype resume = 0;
    while (true) {
        if (atPattern < pattern.size() && pattern[atPattern] == unit('*')) {
            resumePattern = ++atPattern;
            resume = at;
            continue;
        }
        if (at < text.size() && atPattern < pattern.size()) {
            if (pattern[atPattern] == unit('?')) {
                at += foldingCharacterLength(text, at);
                ++atPattern;
                continue;
            }
            const bool escaped = pattern[atPattern] == unit('\\') && atPattern + 1 < pattern.size();
            if (text[at] == pattern[atPattern + (escaped ? 1 : 0)]) {
                ++at;
                atPattern += escaped ? 2 : 1;
                continue;
            }
        } else if (at == text.size() && atPattern == pattern.size()) {
            return true;
        }
        if (resumePattern < 0 || resume >= text.size())
            return false;
        resume += foldingCharacterLength(text, resume);
        at = resume;
        atPattern = resumePattern;
    }
}

/// Where a long text may be cut at or before `at`, so that its parts fold to what the whole does: before a character
/// that no mark can join to the one before. Among more marks than any text has, it is cut anywhere.
qsizetype foldingCut(QStringView text, qsizetype from, qsizetype at)
{
    if (at >= text.size())
        return text.size();
    for (qsizetype cut = at; cut > from; --cut) {
        if (text[cut].isLowSurrogate())
            continue;
        const char32_t c = text[cut].isHighSurrogate() && cut + 1 < text.size()
            ? QChar::surrogateToUcs4(text[cut], text[cut + 1])
            : text[cut].unicode();
        const bool isHangulPart = c >= 0x1160 && c <= 0x11FF;
        if (QChar::combiningClass(c) == 0 && !QChar::isMark(c) && !isHangulPart)
            return cut;
    }
    return at + (text[at].isLowSurrogate() ? 1 : 0);
}

bool foldingIsASCII(QByteArrayView utf8)
{
    quint8 all = 0;
    for (const char c : utf8) // without a way out in the middle, so that many are looked at together
        all |= quint8(c);
    return all < 0x80;
}

QString foldingOfPart(const QString &text, int options)
{
    QString result = text;
    if (options & KXDiacriticInsensitive) {
        // Before the folding of case, which would turn some letters into others with marks of their own.
        result = result.normalized(QString::NormalizationForm_D);
        result.removeIf(
            [](QChar c) { return c.category() == QChar::Mark_NonSpacing || c.category() == QChar::Mark_Enclosing; });
    }
    if (options & KXCaseInsensitive)
        result = result.toCaseFolded();
    // Back to whole characters, so that "?" takes one of them.
    if (options & KXDiacriticInsensitive)
        result = result.normalized(QString::NormalizationForm_C);
    return result;
}

}

QString KXTextFolding::folded(const QString &text, int options)
{
    // Part by part: normalising and folding move all that follows for each character that grows.
    constexpr qsizetype unitsPerPart = 512;
    if (text.size() <= unitsPerPart)
        return foldingOfPart(text, options);
    QString result;
    result.reserve(text.size());
    for (qsizetype from = 0; from < text.size();) {
        const qsizetype end = foldingCut(text, from, from + unitsPerPart);
        result += foldingOfPart(text.mid(from, end - from), options);
        from = end;
    }
    return result;
}

QByteArray KXTextFolding::folded(QByteArrayView utf8, int options)
{
    QByteArray result;
    appendFolded(utf8, options, result);
    return result;
}

void KXTextFolding::appendFolded(QByteArrayView utf8, int options, QByteArray &to)
{
    if (!foldingIsASCII(utf8)) {
        to += folded(QString::fromUtf8(utf8), options).toUtf8();
        return;
    }
    const qsizetype from = to.size();
    if (from + utf8.size() > to.capacity())
        to.reserve(2 * to.capacity() + utf8.size()); // many may follow
    to.resize(from + utf8.size());
    const bool foldsCase = options & KXCaseInsensitive;
    std::transform(utf8.begin(), utf8.end(), to.data() + from,
        [foldsCase](char c) { return foldsCase && c >= 'A' && c <= 'Z' ? char(c | 0x20) : c; });
}

int KXTextFolding::rules()
{
    constexpr int ours = 1; // to be raised with every change of what is above
    return ours * 1000 + int(QChar::currentUnicodeVersion());
}

std::strong_ordering KXTextFolding::compare(QStringView a, QStringView b)
{
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (inA == a.end() || inB == b.end())
        return a.size() <=> b.size();
    // Surrogates stand for what lies above U+FFFF: move them there.
    const auto rank = [](QChar c) { return c.isSurrogate() ? c.unicode() + 0x10000 : int(c.unicode()); };
    return rank(*inA) <=> rank(*inB);
}

bool KXTextFolding::isLike(QStringView text, QStringView pattern) { return foldingIsLike(text, pattern); }

bool KXTextFolding::isLike(QByteArrayView utf8, QByteArrayView pattern) { return foldingIsLike(utf8, pattern); }
