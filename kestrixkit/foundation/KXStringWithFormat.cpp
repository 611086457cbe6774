#include <kestrixkit/foundation/KXStringWithFormat.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QLocale>
#include <QUrl>
#include <QUuid>

#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXError.h>

using namespace Qt::StringLiterals;

namespace {

// What may stand between '%' and the letter; lengths (l, ll, z …) are skipped, since arguments know their type.
struct FormatConversion
{
    QByteArray flags;
    char letter = 0;
    qsizetype argument = 0; // from 1; 0: the next one
    qsizetype end = 0;
};

/// Reads the "2$" of "%2$@", if it is there.
qsizetype formatArgumentAt(QStringView format, qsizetype *at)
{
    constexpr qsizetype mostDigits = 2;
    qsizetype end = *at;
    while (end < format.size() && end - *at < mostDigits && format[end] >= u'0' && format[end] <= u'9')
        ++end;
    if (end == *at || end >= format.size() || format[end] != u'$')
        return 0;
    const qsizetype argument = format.sliced(*at, end - *at).toInt();
    *at = end + 1;
    return argument;
}

FormatConversion formatConversionAt(QStringView format, qsizetype at)
{
    FormatConversion conversion;
    conversion.argument = formatArgumentAt(format, &at);
    const qsizetype start = at;
    // More than this is no format that anybody writes, and a width of a million digits would be a trap.
    constexpr qsizetype longestFlags = 8;
    while (at < format.size() && at - start < longestFlags && QStringView(u"-+ #0123456789.").contains(format[at]))
        conversion.flags += char(format[at++].unicode());
    while (at < format.size() && QStringView(u"hlqzjt").contains(format[at]))
        ++at;
    if (at < format.size() && QStringView(u"@diusfFgGeExXc%").contains(format[at])) {
        conversion.letter = char(format[at].unicode());
        conversion.end = at + 1;
    }
    // Width and precision in the range of sensible columns only.
    for (const QByteArray &digits : conversion.flags.split('.')) {
        if (digits.size() > 4)
            conversion.flags.clear();
    }
    return conversion;
}

}

QString KXFormatArgument::text() const
{
    struct Printer
    {
        QString operator()(std::monostate) const { return {}; }
        QString operator()(qint64 value) const { return QString::number(value); }
        QString operator()(quint64 value) const { return QString::number(value); }
        QString operator()(float value) const // the shortest text that reads back as this float
        {
            for (int digits = 6; digits < 9; ++digits) {
                const QString text = QString::number(double(value), 'g', digits);
                if (text.toFloat() == value)
                    return text;
            }
            return QString::number(double(value), 'g', 9);
        }
        QString operator()(double value) const
        {
            // Whole numbers as people write them: 1200000, not 1.2e+06.
            if (std::abs(value) < 1e15 && value == std::trunc(value))
                return QString::number(qint64(value));
            return QString::number(value, 'g', QLocale::FloatingPointShortest);
        }
        QString operator()(const QString &value) const { return value; }
    };
    return std::visit(Printer {}, m_value);
}

QString KXFormatArgument::number(const QByteArray &flags, char conversion) const
{
    const bool wantsFraction = QByteArrayView("fFgGeE").contains(conversion);
    const auto print = [&](auto value) {
        using Number = decltype(value);
        if (wantsFraction)
            return QString::asprintf(("%" + flags + conversion).constData(), double(value));
        const char letter = QByteArrayView("xX").contains(conversion) ? conversion
            : std::is_signed_v<Number>                                ? 'd'
                                                                      : 'u';
        return QString::asprintf(("%" + flags + "ll" + letter).constData(), value);
    };
    if (const auto *integer = std::get_if<qint64>(&m_value))
        return print(*integer);
    if (const auto *integer = std::get_if<quint64>(&m_value))
        return print(*integer);
    const auto *single = std::get_if<float>(&m_value);
    const auto *real = std::get_if<double>(&m_value);
    if (single || real) {
        const double value = single ? double(*single) : *real;
        if (wantsFraction)
            return QString::asprintf(("%" + flags + conversion).constData(), value);
        if (std::abs(value) < 9.2e18)
            return print(qint64(value));
    }
    return text();
}

KXFormatArgument::Value KXFormatArgument::setPointer(const volatile void *pointer)
{
    if (!pointer)
        return {};
    return "0x"_L1 + QString::number(quintptr(pointer), 16);
}

QString KXStringWithFormatArguments(QAnyStringView formatView, std::initializer_list<KXFormatArgument> arguments)
{
    const QString format = formatView.toString();
    QString text;
    text.reserve(format.size() + 16 * qsizetype(arguments.size()));
    const auto count = qsizetype(arguments.size());
    qsizetype next = 0;
    for (qsizetype at = 0; at < format.size();) {
        if (format[at] != u'%') {
            text += format[at++];
            continue;
        }
        const FormatConversion conversion = formatConversionAt(format, at + 1);
        if (!conversion.letter) { // not ours: print it as it stands
            text += format[at++];
            continue;
        }
        at = conversion.end;
        if (conversion.letter == '%')
            text += u'%';
        else if (const qsizetype number = conversion.argument > 0 ? conversion.argument - 1 : next++; number < count) {
            const KXFormatArgument &argument = arguments.begin()[number];
            const bool asText = conversion.letter == '@' || conversion.letter == 's' || conversion.letter == 'c';
            text += asText ? argument.text() : argument.number(conversion.flags, conversion.letter);
        }
    }
    return text;
}

QString KXDescription(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::UnknownType:
        return {};
    case QMetaType::Bool:
        return value.toBool() ? u"1"_s : u"0"_s;
    case QMetaType::Float:
        return KXFormatArgument(value.toFloat()).text();
    case QMetaType::Double:
        return KXFormatArgument(value.toDouble()).text();
    case QMetaType::QVariantList:
        return KXFormatArgument(value.toList()).text();
    case QMetaType::QStringList:
        return KXFormatArgument(value.toStringList()).text();
    case QMetaType::QVariantMap:
        return KXDescription(value.toMap());
    case QMetaType::QUrl:
        return KXDescription(value.toUrl());
    case QMetaType::QDateTime:
        return KXDescription(value.toDateTime());
    case QMetaType::QDate:
        return KXDescription(value.toDate());
    default:
        break;
    }
    if (value.metaType() == QMetaType::fromType<KXDecimal>())
        return value.value<KXDecimal>().toString();
    if (value.metaType() == QMetaType::fromType<KXError>())
        return KXDescription(value.value<KXError>());
    if (value.canConvert<QString>())
        return value.toString();
    return u"<%1>"_s.arg(QLatin1StringView(value.typeName()));
}

QString KXDescription(const QVariantMap &map)
{
    QStringList pairs;
    for (auto pair = map.begin(); pair != map.end(); ++pair)
        pairs.append(pair.key() + " = "_L1 + KXDescription(pair.value()));
    return u'{' + pairs.join("; "_L1) + u'}';
}

QString KXDescription(const QUrl &url) { return url.toString(); }
QString KXDescription(const QUuid &uuid) { return uuid.toString(QUuid::WithoutBraces); }
QString KXDescription(const QDate &date) { return date.toString(Qt::ISODate); }
QString KXDescription(const QTime &time) { return time.toString(Qt::ISODate); }
QString KXDescription(const QDateTime &date) { return date.toString(Qt::ISODateWithMs); }
QString KXDescription(const std::exception &exception) { return QString::fromUtf8(exception.what()); }

QString KXLocalizedString(const char *text) { return QCoreApplication::translate("KestrixKit", text); }

QString KXLocalizedString(const char *text, qint64 count)
{
    // The forms of all languages go by the last digits, and by whether there are more.
    constexpr qint64 enough = 1'000'000;
    const qint64 size = std::abs(count);
    return QCoreApplication::translate(
        "KestrixKit", text, nullptr, int(size < 2 * enough ? size : enough + size % enough));
}

QString KXLocalizedString(const QString &text) { return KXLocalizedString(text.toUtf8().constData()); }
