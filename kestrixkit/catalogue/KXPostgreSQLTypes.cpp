#include <kestrixkit/catalogue/KXPostgreSQLTypes_p.h>

#include <cmath>

#include <QDateTime>
#include <QLocale>

quint32 KXPostgreSQLTypes::typeOf(KXCatalogueType type)
{
    static constexpr quint32 types[] = { 16, 20, 701, 1700, 25, 1184, Words };
    return types[int(type)];
}

quint32 KXPostgreSQLTypes::arrayTypeOf(KXCatalogueType type)
{
    static constexpr quint32 types[] = { 1000, 1016, 1022, 1231, 1009, 1185, 3645 };
    return types[int(type)];
}

QByteArray KXPostgreSQLTypes::nameOf(KXCatalogueType type)
{
    static constexpr const char *names[]
        = { "boolean", "bigint", "double precision", "numeric", "text COLLATE \"C\"", "timestamptz", "tsvector" };
    return names[int(type)];
}

QByteArray KXPostgreSQLTypes::arrayText(const QList<QByteArray> &elements)
{
    QByteArray text = "{";
    for (const QByteArray &element : elements) {
        text += text.size() > 1 ? ",\"" : "\"";
        for (const char c : element) {
            if (c == '"' || c == '\\')
                text += '\\';
            text += c;
        }
        text += '"';
    }
    return text + '}';
}

QByteArray KXPostgreSQLTypes::dateText(qint64 microseconds)
{
    const qint64 fraction = (microseconds % 1000 + 1000) % 1000;
    const QDateTime date = QDateTime::fromMSecsSinceEpoch((microseconds - fraction) / 1000, Qt::UTC);
    if (date.date().year() < 1 || date.date().year() > 9999)
        return {};
    const QByteArray text = QLocale::c().toString(date, QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")).toLatin1();
    return text + QByteArray::number(fraction).rightJustified(3, '0') + "+00";
}

QByteArray KXPostgreSQLTypes::realText(double value)
{
    if (std::isinf(value))
        return value > 0 ? "Infinity" : "-Infinity";
    return QByteArray::number(value, 'g', 17);
}
