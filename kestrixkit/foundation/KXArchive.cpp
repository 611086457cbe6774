#include <kestrixkit/foundation/KXArchive.h>

#include <QCborMap>

using namespace Qt::StringLiterals;

QByteArray KXArchive::archive(QStringView format, int number, const QCborValue &values)
{
    const QCborMap map { { u"format"_s, format.toString() }, { u"number"_s, number }, { u"values"_s, values } };
    const QByteArray bytes = map.toCborValue().toCbor();
    return bytes.size() <= mostBytes ? bytes : QByteArray();
}

std::optional<QCborValue> KXArchive::unarchive(const QByteArray &bytes, QStringView format, int number)
{
    if (bytes.size() > mostBytes)
        return {};
    QCborParserError error;
    const QCborMap map = QCborValue::fromCbor(bytes, &error).toMap();
    if (error.error != QCborError::NoError || map.value("format"_L1) != QCborValue(format.toString())
        || map.value("number"_L1) != QCborValue(number) || !map.contains("values"_L1))
        return {};
    return map.value("values"_L1);
}
