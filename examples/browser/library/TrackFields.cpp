#include "library/TrackFields.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "library/TrackNames.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype fieldMark = 4; // bytes

struct FieldKind
{
    const char *name;
    QLatin1StringView key;
};

constexpr FieldKind fieldKinds[TrackFields::count] {
    { QT_TRANSLATE_NOOP("TrackFields", "Title"), "title"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "Artist"), "artistText"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "Album"), "albumText"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "Genre"), "genreText"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "Label"), "labelText"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "Year"), "year"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "Key"), "keyOrder"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "BPM"), "bpm"_L1 },
    { QT_TRANSLATE_NOOP("TrackFields", "Comment"), "comment"_L1 },
};

QString keyName(int order) { return MusicalKey { order / 2, order % 2 == 0 }.name(); }

QString plainNumber(double number) { return QString::number(number, 'g', QLocale::FloatingPointShortest); }

QByteArray markOf(const QString &text)
{
    return text.isEmpty() ? QByteArray(fieldMark, '\0')
                          : QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha1).first(fieldMark);
}

template <class Source> QByteArray marksOf(const Source &source)
{
    QByteArray marks;
    for (const TrackFields::Field field : TrackFields::all())
        marks += markOf(TrackFields::plainText(source, field));
    return marks;
}

} // namespace

const QList<TrackFields::Field> &TrackFields::all()
{
    static const QList<Field> fields { Field::Title, Field::Artist, Field::Album, Field::Genre, Field::Label,
        Field::Year, Field::Key, Field::Tempo, Field::Comment };
    return fields;
}

QString TrackFields::name(Field field)
{
    return QCoreApplication::translate("TrackFields", fieldKinds[int(field)].name);
}

QString TrackFields::key(Field field) { return fieldKinds[int(field)].key; }

// Texts

QString TrackFields::plainText(const Track &track, Field field)
{
    const QVariant value = track.valueForKey(key(field));
    if (!value.isValid() || value.isNull())
        return {};
    if (field == Field::Key)
        return keyName(value.toInt());
    return field == Field::Tempo ? plainNumber(value.toDouble()) : value.toString();
}

QString TrackFields::text(const Track &track, Field field)
{
    if (const auto tempo = track.bpm(); tempo && field == Field::Tempo)
        return KXClock::locale().toString(*tempo, 'f', QLocale::FloatingPointShortest);
    return plainText(track, field);
}

QString TrackFields::plainText(const TrackTags &tags, Field field)
{
    switch (field) {
    case Field::Title:
        return tags.title;
    case Field::Artist:
        return tags.artistText;
    case Field::Album:
        return tags.album;
    case Field::Genre:
        return tags.genres.join(", "_L1);
    case Field::Label:
        return tags.labels.join(", "_L1);
    case Field::Year:
        return tags.year ? QString::number(*tags.year) : QString();
    case Field::Key:
        return tags.key ? tags.key->name() : QString();
    case Field::Tempo:
        return tags.bpm ? plainNumber(*tags.bpm) : QString();
    case Field::Comment:
        return tags.comment;
    }
    return {};
}

// Values

std::optional<TrackFields::Value> TrackFields::value(Field field, const QString &text)
{
    const QString entered = TagValues::clean(text, maximumTagLength);
    Value value { field, {}, {}, {} };
    const auto take = [&](const auto &number) {
        if (number)
            value.attribute = *number;
        return number.has_value() || entered.isEmpty();
    };
    switch (field) {
    case Field::Title:
        if (entered.isEmpty())
            return std::nullopt; // it has one, always
        value.attribute = entered;
        break;
    case Field::Artist:
        value.names = TagValues::artists({ entered });
        value.attribute = entered.isEmpty() ? QVariant() : QVariant(entered);
        break;
    case Field::Genre:
    case Field::Label:
        value.names = TagValues::names({ entered });
        value.attribute = value.names.isEmpty() ? QVariant() : QVariant(value.names.join(", "_L1));
        break;
    case Field::Year:
        if (!take(TagValues::year(entered)))
            return std::nullopt;
        break;
    case Field::Tempo:
        if (!take(TagValues::tempo(entered)))
            return std::nullopt;
        break;
    case Field::Key:
        value.key = TagValues::key(entered);
        if (!take(value.key ? std::optional(value.key->number * 2 + !value.key->minor) : std::nullopt))
            return std::nullopt;
        break;
    case Field::Album:
    case Field::Comment:
        value.attribute = entered.isEmpty() ? QVariant() : QVariant(entered);
        break;
    }
    return value;
}

bool TrackFields::has(const Track &track, const Value &value)
{
    if (isAnalysed(track, value.field))
        return false; // setting it confirms it
    const QVariant now = track.valueForKey(key(value.field));
    const bool isAbsent = !now.isValid() || now.isNull();
    return isAbsent || !value.attribute.isValid() ? isAbsent && !value.attribute.isValid() : now == value.attribute;
}

TrackFields::Properties TrackFields::properties(
    const Value &value, TrackNames &names, const QString &albumArtist, KXError *error)
{
    Properties properties { { key(value.field), value.attribute } };
    const auto refer = [&](const QString &relationship, const QList<KXRef<KXManagedObject>> &objects) {
        QVariantList list;
        for (const KXRef<KXManagedObject> &object : objects)
            list.append(KXVariantFromRef(object));
        properties.append({ relationship, list });
    };
    if (value.field == Field::Artist)
        refer(u"artists"_s, names.artists.objects(value.names, error));
    else if (value.field == Field::Genre)
        refer(u"genres"_s, names.genres.objects(value.names, error));
    else if (value.field == Field::Label)
        refer(u"labels"_s, names.labels.objects(value.names, error));
    else if (value.field == Field::Album)
        properties.append({ u"album"_s,
            KXVariantFromRef(KXRef<KXManagedObject>(names.album(value.attribute.toString(), albumArtist, error))) });
    else if (value.field == Field::Key)
        properties.append({ u"key"_s, KXVariantFromRef(KXRef<KXManagedObject>(names.key(value.key, error))) });
    if (value.field == Field::Key || value.field == Field::Tempo)
        properties.append({ value.field == Field::Key ? u"analysedKey"_s : u"analysedBpm"_s, QVariant() });
    return properties;
}

void TrackFields::set(Track &track, const Value &value, TrackNames &names, KXError *error)
{
    if (!track.fileTags())
        track.setFileTags(marks(track)); // what it had until now is what its file says, as far as is known
    const KXRef<Album> album = track.album();
    for (const auto &[key, news] : properties(value, names, album ? album->artistText() : QString(), error))
        track.setValueForKey(key, news);
}

// What was found by listening

bool TrackFields::isAnalysed(const Track &track, Field field)
{
    return field == Field::Tempo ? track.analysedBpm() && track.analysedBpm() == track.bpm()
        : field == Field::Key    ? track.analysedKey() && track.analysedKey() == track.keyOrder()
                                 : false;
}

void TrackFields::forgetAnalysed(Track &track)
{
    if (!track.analysedBpm() && !track.analysedKey() && !track.analysisNote())
        return; // most tracks
    if (isAnalysed(track, Field::Tempo))
        track.setBpm({});
    if (isAnalysed(track, Field::Key)) {
        track.setKeyOrder({});
        track.setKey({});
    }
    track.setAnalysedBpm({});
    track.setAnalysedKey({});
    track.setAnalysisNote({});
}

// Marks

QByteArray TrackFields::marks(const TrackTags &tags) { return marksOf(tags); }
QByteArray TrackFields::marks(const Track &track) { return marksOf(track); }

bool TrackFields::differs(const QByteArray &marks, const QByteArray &others, Field field)
{
    const qsizetype at = int(field) * fieldMark;
    return marks.size() < at + fieldMark || others.size() < at + fieldMark
        || marks.sliced(at, fieldMark) != others.sliced(at, fieldMark);
}

QList<TrackFields::Field> TrackFields::unwritten(const Track &track)
{
    const QByteArray now = marks(track);
    const QByteArray inFile = track.fileTags().value_or(QByteArray(count * fieldMark, '\0'));
    QList<Field> fields;
    for (const Field field : all()) {
        if (differs(now, inFile, field) && !isAnalysed(track, field))
            fields.append(field);
    }
    return fields;
}
