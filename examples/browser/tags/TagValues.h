#pragma once

#include <optional>

#include <QString>
#include <QStringList>

/// A key on the wheel of fifths: neighbours in number mix well, the two modes of one number are relatives.
struct MusicalKey
{
    int number = 0; ///< 1 to 12, clockwise in fifths; A minor and C major are 8
    bool minor = false;

    /// "Am", "F#", "Bbm".
    [[nodiscard]] QString name() const;
    /// "8A" for minor, "8B" for major keys.
    [[nodiscard]] QString wheelCode() const;
    /// Semitones from C up to the tonic, 0 to 11.
    [[nodiscard]] int tonic() const;

    bool operator==(const MusicalKey &) const = default;
};

/// Reads values out of the free text that people and programs put into tags. Each answers std::nullopt for
/// what makes no sense; all are independent of the locale.
namespace TagValues {

/// Replaces control characters by blanks, removes surplus white space, repairs broken surrogates and cuts
/// to maxLength characters, never inside a surrogate pair.
QString clean(const QString &text, int maxLength);

/// "128", "127.98", "127,98", "128 bpm": a tempo above 10 and at most 999 beats a minute.
std::optional<double> tempo(const QString &text);
/// "2019", "2019-05-03": a year from 1000 to 9999.
std::optional<int> year(const QString &text);
/// "3", "03/12": a number from 1 to 9999.
std::optional<int> trackNumber(const QString &text);
/// Stars from 0 to 5 of "4", "80" (of a hundred) or, with fraction, "0.8".
std::optional<int> stars(const QString &text, bool fraction);
/// Stars of the popularity byte of MP3 tags, in the steps that most players write.
std::optional<int> starsOfPopularity(int byte);
/// "Am", "A minor", "F♯m", "Gb", "8A" and the wheel that counts from C as "1d" / "1m".
std::optional<MusicalKey> key(const QString &text);

/// Single names of an artist credit: fields are parted at ";", " / ", "feat." and the like, but not at "&" or
/// ",", which belong to many names. Without repetitions, in order.
QStringList artists(const QStringList &fields);
/// Single genres or labels, parted at ";", "," , "|" and "/". Without repetitions, in order.
QStringList names(const QStringList &fields);

/// What names are compared by: "DEEP  house" and "Deep House" are one genre.
QString nameKey(const QString &name);

} // namespace TagValues
