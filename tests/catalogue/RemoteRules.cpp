#include "RemoteRules.h"

#include <limits>

#include <QDateTime>

#include <kestrixkit/foundation/KXDecimal.h>

using namespace Qt::StringLiterals;

KXCatalogueSchema RemoteRules::schema()
{
    using Type = KXCatalogueType;
    const auto folded = [](QByteArray name) {
        return QMap<int, QByteArray> { { 1, name + "_c" }, { 2, name + "_d" }, { 3, name + "_cd" } };
    };
    return { "kx test", "tracks \"all\"",
        {
            { .keyPath = u"id"_s, .name = "id", .type = Type::Integer, .notNull = true },
            { .keyPath = u"title"_s, .name = "title", .folded = folded("title"), .words = "title_words" },
            { .keyPath = u"comment"_s, .name = "comment", .folded = folded("comment"), .words = "comment_words" },
            { .keyPath = u"artists.name"_s,
                .name = "artists",
                .isList = true,
                .folded = folded("artists"),
                .words = "artists_words" },
            { .keyPath = u"marks"_s, .name = "marks", .type = Type::Integer, .isList = true },
            { .keyPath = u"bpm"_s, .name = "bpm", .type = Type::Real },
            { .keyPath = u"tempo"_s, .name = "tempo", .type = Type::Real },
            { .keyPath = u"plays"_s, .name = "plays", .type = Type::Integer },
            { .keyPath = u"price"_s, .name = "price", .type = Type::Decimal },
            { .keyPath = u"released"_s, .name = "released", .type = Type::Date },
            { .keyPath = u"loved"_s, .name = "loved", .type = Type::Boolean },
        } };
}

QVariantList RemoteRules::loaded(const RemoteRow &row)
{
    QVariantList values;
    static const KXCatalogueSchema known = schema();
    for (const KXCatalogueColumn &column : known.columns()) {
        QVariant value = row.values.value(column.keyPath.section(u'.', 0, 0));
        if (column.keyPath == u"artists.name"_s) {
            QVariantList names;
            for (const QVariant &artist : value.toList())
                names.append(artist.toMap().value(u"name"_s));
            value = names;
        }
        values.append(value);
    }
    return values;
}

QVariant RemoteRules::value(Kind kind, bool forRow)
{
    static const QStringList texts { u""_s, u"a"_s, u"A"_s, u"á"_s, u"Áb"_s, u"ab"_s, u"abc"_s, u"b*"_s, u"\\"_s,
        u"ß"_s, u"SS"_s, u"ss"_s, u"\u017F\u212A"_s, u"sk"_s, u"\U0001F3B5"_s, u"\uFF5E"_s, u"e\u0301"_s, u"İ"_s,
        u"5"_s, u"100%_a"_s, u"a\nb"_s, u"Deep House"_s, u"house, deep"_s, u"{\"a\",NULL}"_s, u"null"_s, u"'; --"_s };
    static const QStringList strange { u"a\u0000b"_s, QString(QChar(0xD83C)) };
    static const QVariantList numbers { 0, 1, 2, -1, 3, 100, 0.0, 0.1, 2.5, -1.0, 3.0, 1e20,
        qint64(9'007'199'254'740'993), 9'007'199'254'740'992.0, std::numeric_limits<qint64>::max(),
        std::numeric_limits<qint64>::min(), 9.3e18 };
    static const QVariantList unbounded { std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(), true, false };
    static const QStringList decimals { u"0"_s, u"0.1"_s, u"2.50"_s, u"-1"_s, u"100"_s,
        u"0.1000000000000000055511151231257827"_s, u"-2.5"_s, u"9007199254740993"_s,
        u"123456789012345678901234567890"_s, u"1E+400"_s, u"-1E+400"_s };
    switch (kind) {
    case Text:
        return !forRow && m_random.chance(0.01) ? m_random.oneOf(strange) : m_random.oneOf(texts);
    case Number:
        if (m_random.chance(0.3))
            return QVariant::fromValue(*KXDecimal::fromString(m_random.oneOf(decimals)));
        return !forRow && m_random.chance(0.15) ? m_random.oneOf(unbounded) : m_random.oneOf(numbers);
    case Date:
        return QDateTime::fromMSecsSinceEpoch(qint64(m_random.below(5) - 2) * 1001, Qt::UTC);
    default:
        return m_random.chance(0.5);
    }
}

std::vector<std::unique_ptr<RemoteRow>> RemoteRules::rows(int count)
{
    std::vector<std::unique_ptr<RemoteRow>> rows;
    const auto whole = [this] {
        const QVariant number = maybe(Number);
        return number.typeId() == QMetaType::Int || number.typeId() == QMetaType::LongLong
            ? QVariant(number.toLongLong())
            : QVariant(3LL);
    };
    const auto real = [this] {
        const QVariant number = maybe(Number);
        return number.typeId() == QMetaType::Double ? number : m_random.chance(0.2) ? QVariant() : QVariant(2.5);
    };
    for (int id = 1; id <= count; ++id) {
        auto row = std::make_unique<RemoteRow>();
        QVariantMap &values = row->values;
        values[u"id"_s] = qint64(id);
        values[u"title"_s] = maybe(Text);
        values[u"comment"_s] = maybe(Text);
        QVariantList artists;
        QVariantList marks;
        for (int i = m_random.below(4); i > 0; --i) {
            artists.append(QVariantMap { { u"name"_s, maybe(Text) } });
            marks.append(whole());
        }
        values[u"artists"_s] = artists;
        values[u"marks"_s] = marks;
        values[u"bpm"_s] = real();
        values[u"tempo"_s] = real();
        values[u"plays"_s] = whole();
        const QVariant price = maybe(Number);
        values[u"price"_s] = price.typeId() == qMetaTypeId<KXDecimal>() ? price : QVariant();
        values[u"released"_s] = maybe(Date);
        values[u"loved"_s] = maybe(Flag);
        rows.push_back(std::move(row));
    }
    return rows;
}

QString RemoteRules::pathOf(int kind)
{
    static const QStringList texts { u"title"_s, u"comment"_s, u"artists.name"_s };
    static const QStringList numbers { u"bpm"_s, u"plays"_s, u"price"_s, u"marks"_s, u"tempo"_s, u"artists.@count"_s };
    switch (kind) {
    case Text:
        return m_random.oneOf(texts);
    case Number:
        return m_random.oneOf(numbers);
    case Date:
        return u"released"_s;
    default:
        return u"loved"_s;
    }
}

QStringList RemoteRules::ownPatterns() const
{
    return { u"(?is).*s.*"_s, u"(?i)SK|ss"_s, u"(?is).*\\.(a|b?)"_s, u"(?is).*\\Á.*"_s, u".*b"_s, u"(?s).*b"_s,
        u"(?:a|b)*c?"_s, u"[a-c%]*?"_s, u"100%_*"_s, u"de ho"_s, u"HOUSE"_s };
}
