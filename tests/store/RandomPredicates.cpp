#include "store/RandomPredicates.h"

#include <limits>

#include <QDateTime>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/foundation/KXDecimal.h>

using namespace Qt::StringLiterals;

QVariant RandomPredicates::value(Kind kind)
{
    static const QStringList texts { u""_s, u"a"_s, u"A"_s, u"á"_s, u"Áb"_s, u"ab"_s, u"abc"_s, u"b*"_s, u"\\"_s,
        u"ß"_s, u"SS"_s, u"\U0001F3B5"_s, u"\uFF5E"_s, u"a\u0000b"_s, u"e\u0301"_s, u"İ"_s, u"5"_s,
        u"x-a://b/c%20d"_s };
    static const QVariantList numbers { 0, 1, 2, -1, 3, 100, true, false, 0.0, 0.1, 2.5, -1.0, 3.0, 1e20,
        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        qint64(9'007'199'254'740'993), 9'007'199'254'740'992.0, std::numeric_limits<qint64>::max(),
        std::numeric_limits<qint64>::min(), 9.3e18 };
    static const QStringList decimals { u"0"_s, u"0.1"_s, u"2.50"_s, u"-1"_s, u"100"_s,
        u"0.1000000000000000055511151231257827"_s, u"-2.5"_s, u"9007199254740993"_s,
        u"123456789012345678901234567890"_s, u"1E+400"_s, u"-1E+400"_s };
    static const QStringList uris { u"x-a://b/c%20d"_s, u"file:///a"_s, u"a"_s };
    switch (kind) {
    case Text:
        return m_random.oneOf(texts);
    case Number:
        return m_random.chance(0.3) ? QVariant::fromValue(*KXDecimal::fromString(m_random.oneOf(decimals)))
                                    : m_random.oneOf(numbers);
    case Date:
        return QDateTime::fromMSecsSinceEpoch(qint64(m_random.below(5) - 2) * 1001, Qt::UTC);
    case Binary:
        return QByteArray("\0\xff\x80", m_random.below(4));
    case Uri:
        return QUrl(m_random.oneOf(uris));
    case Uuid:
        return QUuid(quint32(m_random.below(3)), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    case Object:
    case Kinds:
        break;
    }
    return objects.isEmpty() ? QVariant() : m_random.oneOf(objects);
}

QString RandomPredicates::pathOf(int kind)
{
    static const QStringList prefixes { u""_s, u""_s, u""_s, u"original."_s, u"neighbours."_s, u"album.tracks."_s,
        u"genres.tracks."_s, u"neighbours.original."_s, u"original.album.tracks."_s, u"tags.members."_s };
    static const QStringList numbers { u"bpm"_s, u"year"_s, u"plays"_s, u"loved"_s, u"price"_s, u"genres.@count"_s,
        u"album.tracks.@count"_s };
    static const QStringList texts { u"title"_s, u"comment"_s, u"identifier"_s, u"album.title"_s,
        u"album.artist.name"_s, u"genres.name"_s, u"tags.name"_s, u"album.artist.albums.title"_s };
    static const QStringList others { u"album"_s, u"original"_s, u"genres"_s, u"neighbours"_s, u"album.artist"_s,
        u"tags"_s };
    const QString prefix = m_random.oneOf(prefixes);
    switch (kind) {
    case Text:
        return prefix + m_random.oneOf(texts);
    case Number:
        return prefix + m_random.oneOf(numbers);
    case Date:
        return prefix + u"added"_s;
    case Binary:
        return prefix + u"cover"_s;
    case Uri:
        return prefix + u"file"_s;
    case Uuid:
        return prefix + u"uuid"_s;
    case Object:
    case Kinds:
        break;
    }
    return prefix + m_random.oneOf(others);
}

KXExpression RandomPredicates::leftOf(int kind)
{
    if (m_random.chance(0.02))
        return KXExpression::expressionForEvaluatedObject();
    if (m_random.chance(0.02))
        return KXExpression::expressionForKeyPath(m_random.chance(0.5) ? u""_s : u"album."_s);
    return RandomRules::leftOf(kind);
}
