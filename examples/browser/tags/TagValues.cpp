#include "tags/TagValues.h"

#include <array>
#include <cmath>

#include <QRegularExpression>
#include <QSet>

using namespace Qt::StringLiterals;

namespace {

// Names by number on the wheel, the first standing for 1.
constexpr std::array<QLatin1StringView, 12> minorNames { "Abm"_L1, "Ebm"_L1, "Bbm"_L1, "Fm"_L1, "Cm"_L1, "Gm"_L1,
    "Dm"_L1, "Am"_L1, "Em"_L1, "Bm"_L1, "F#m"_L1, "C#m"_L1 };
constexpr std::array<QLatin1StringView, 12> majorNames { "B"_L1, "F#"_L1, "Db"_L1, "Ab"_L1, "Eb"_L1, "Bb"_L1, "F"_L1,
    "C"_L1, "G"_L1, "D"_L1, "A"_L1, "E"_L1 };

// Nobody has more genres, and each of them becomes an object.
constexpr qsizetype maximumNames = 32;

// The leading number of a tag text; what may follow it is the caller's business.
std::optional<double> tagNumber(QString text)
{
    text = text.trimmed().replace(u',', u'.');
    bool ok = false;
    const double value = text.toDouble(&ok);
    return ok && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

int wheelNumber(int semitone, bool minor)
{
    // Seven is its own inverse modulo twelve: semitones to fifths and back. A minor and C major are number 8.
    const int fifths = 7 * (semitone - (minor ? 9 : 0) + 12) % 12;
    return (8 + fifths - 1) % 12 + 1;
}

QStringList split(const QStringList &fields, const QRegularExpression &separator)
{
    QStringList result;
    QSet<QString> seen;
    for (const QString &field : fields) {
        for (const QString &part : field.split(separator)) {
            const QString name = TagValues::clean(part, 200);
            const QString key = TagValues::nameKey(name);
            if (key.isEmpty() || seen.contains(key) || result.size() == maximumNames)
                continue;
            seen.insert(key);
            result.append(name);
        }
    }
    return result;
}

} // namespace

QString MusicalKey::name() const
{
    return number < 1 || number > 12 ? QString() : QString((minor ? minorNames : majorNames)[size_t(number - 1)]);
}

QString MusicalKey::wheelCode() const { return QString::number(number) + QChar(minor ? u'A' : u'B'); }

int MusicalKey::tonic() const
{
    return ((minor ? 9 : 0) + 7 * (number + 4)) % 12; // number + 4 is number - 8 without a negative remainder
}

QString TagValues::clean(const QString &text, int maxLength)
{
    // Megabytes in a tag are never worth cleaning whole: a wide margin for white space that goes away.
    QString result = text.left(maxLength * 4);
    for (QChar &c : result) {
        if (c.category() == QChar::Other_Control)
            c = u' ';
    }
    result = QString::fromUtf8(result.simplified().toUtf8());
    if (result.size() > maxLength) {
        result.truncate(result.at(maxLength - 1).isHighSurrogate() ? maxLength - 1 : maxLength);
        result = result.trimmed();
    }
    return result;
}

std::optional<double> TagValues::tempo(const QString &text)
{
    QString number = text.trimmed();
    if (number.endsWith("bpm"_L1, Qt::CaseInsensitive))
        number.chop(3);
    const std::optional<double> value = tagNumber(number);
    return value && *value > 10 && *value <= 999 ? value : std::nullopt;
}

std::optional<int> TagValues::year(const QString &text)
{
    static const QRegularExpression pattern(u"^\\s*([1-9][0-9]{3})(?![0-9])"_s);
    const QRegularExpressionMatch match = pattern.match(text.left(64));
    return match.hasMatch() ? std::optional(match.captured(1).toInt()) : std::nullopt;
}

std::optional<int> TagValues::trackNumber(const QString &text)
{
    bool ok = false;
    const int number = text.section(u'/', 0, 0).trimmed().toInt(&ok);
    return ok && number >= 1 && number <= 9999 ? std::optional(number) : std::nullopt;
}

std::optional<int> TagValues::stars(const QString &text, bool fraction)
{
    const std::optional<double> value = tagNumber(text);
    if (!value || *value < 0 || *value > (fraction ? 1 : 100))
        return std::nullopt;
    const double stars = fraction ? *value * 5 : *value <= 5 ? *value : *value <= 10 ? *value / 2 : *value / 20;
    return int(std::lround(stars));
}

std::optional<int> TagValues::starsOfPopularity(int byte)
{
    if (byte <= 0 || byte > 255) // 0 says "not rated"
        return std::nullopt;
    return byte < 32 ? 1 : byte < 96 ? 2 : byte < 160 ? 3 : byte < 224 ? 4 : 5;
}

std::optional<MusicalKey> TagValues::key(const QString &text)
{
    QString key = text.trimmed().left(32);
    key.replace(u'♯', u'#').replace(u'♭', u'b');

    static const QRegularExpression wheel(
        u"^0?([1-9]|1[0-2])\\s*([ABdm])$"_s, QRegularExpression::CaseInsensitiveOption);
    if (const auto match = wheel.match(key); match.hasMatch()) {
        const int number = match.captured(1).toInt();
        const QChar mode = match.captured(2).at(0).toLower();
        if (mode == u'a' || mode == u'b')
            return MusicalKey { number, mode == u'a' };
        return MusicalKey { (number + 6) % 12 + 1, mode == u'm' };
    }

    static const QRegularExpression written(
        u"^([A-Ga-g])\\s*(#|b|(?i:sharp|flat))?[\\s-]*([mM]|(?i:min|minor|moll|maj|major|dur))?$"_s);
    const auto match = written.match(key);
    if (!match.hasMatch())
        return std::nullopt;
    constexpr std::array<int, 7> semitones { 9, 11, 0, 2, 4, 5, 7 }; // of A to G
    const int letter = match.captured(1).at(0).toUpper().unicode() - u'A';
    const QString sign = match.captured(2).toLower();
    const int shift = sign.isEmpty() ? 0 : sign == u'#' || sign == "sharp"_L1 ? 1 : -1;
    const QString mode = match.captured(3); // a single letter is minor or major by its case
    const bool minor = mode == u'm' || mode.startsWith("min"_L1, Qt::CaseInsensitive)
        || mode.compare("moll"_L1, Qt::CaseInsensitive) == 0;
    return MusicalKey { wheelNumber((semitones[size_t(letter)] + shift + 12) % 12, minor), minor };
}

QStringList TagValues::artists(const QStringList &fields)
{
    static const QRegularExpression separator(
        u"\\s*;\\s*|\\s+/\\s+|\\s*[\\(\\[]?\\b(?:feat\\.|ft\\.|featuring)\\s+|(?<=\\S)\\s+vs\\.?\\s+"_s,
        QRegularExpression::CaseInsensitiveOption);
    QStringList names = split(fields, separator);
    for (QString &name : names) {
        // The bracket that "(feat. Somebody)" leaves behind.
        if ((name.endsWith(u')') && !name.contains(u'(')) || (name.endsWith(u']') && !name.contains(u'[')))
            name.chop(1);
    }
    return names;
}

QStringList TagValues::names(const QStringList &fields)
{
    static const QRegularExpression separator(u"[;,|/]"_s);
    return split(fields, separator);
}

QString TagValues::nameKey(const QString &name) { return name.simplified().toCaseFolded(); }
