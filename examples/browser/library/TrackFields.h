#pragma once

#include <optional>

#include <QList>

#include "library/Library.h"
#include "tags/TrackTags.h"

class TrackNames;

/// What the user may change of a track: each is a text to people, whatever it is in the store.
///
/// A track remembers a mark of each field as its file had it when it was read. So an edit stays until the file says
/// something new, and a field whose mark is another one is what the file does not say yet.
namespace TrackFields {

/// The marks are stored in this order: new ones at the end.
enum class Field : int { Title, Artist, Album, Genre, Label, Year, Key, Tempo, Comment };
inline constexpr int count = 9;

[[nodiscard]] const QList<Field> &all();
/// For people: "Title".
[[nodiscard]] QString name(Field field);
/// The attribute that holds it: "artistText".
[[nodiscard]] QString key(Field field);

/// As it is edited; numbers as the user's language writes them, a key as "F#m". Empty for what is absent.
[[nodiscard]] QString text(const Track &track, Field field);
/// As it is compared and written into files, in no language.
[[nodiscard]] QString plainText(const Track &track, Field field);
[[nodiscard]] QString plainText(const TrackTags &tags, Field field);

/// What a text stands for. Related objects come to be when it is set.
struct Value
{
    Field field;
    QVariant attribute; ///< invalid: absent
    QStringList names; ///< of artists, genres or labels
    std::optional<MusicalKey> key;
};
/// Absent where the text makes none: a tempo "fast", an empty title. An empty text takes other values away.
[[nodiscard]] std::optional<Value> value(Field field, const QString &text);
/// Whether the track has it already, and not only by guess.
[[nodiscard]] bool has(const Track &track, const Value &value);
/// By key: the attribute, and what the track refers to by that name, which is made where it is new.
using Properties = QList<std::pair<QString, QVariant>>;
[[nodiscard]] Properties properties(
    const Value &value, TrackNames &names, const QString &albumArtist = {}, KXError *error = nullptr);
/// Sets these.
void set(Track &track, const Value &value, TrackNames &names, KXError *error = nullptr);

/// Marks of all fields, four bytes each.
[[nodiscard]] QByteArray marks(const TrackTags &tags);
[[nodiscard]] QByteArray marks(const Track &track);
/// Whether two marks differ in a field; where one of them is missing they do.
[[nodiscard]] bool differs(const QByteArray &marks, const QByteArray &others, Field field);
/// Whether the value, a tempo or a key, was found by listening and nobody has confirmed it.
[[nodiscard]] bool isAnalysed(const Track &track, Field field);
/// The track sounds different by now: what was found by listening, and not confirmed, is taken away.
void forgetAnalysed(Track &track);

/// What the track's file does not say, but for values that nobody has confirmed; all that is not empty, where it is not
/// known what the file says.
[[nodiscard]] QList<Field> unwritten(const Track &track);

} // namespace TrackFields
