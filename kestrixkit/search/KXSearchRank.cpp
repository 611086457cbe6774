#include <kestrixkit/search/KXSearchRank_p.h>

#include <bit>

#include <QtEndian>

#include <kestrixkit/predicate/KXPredicateValue_p.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>
#include <kestrixkit/store/KXRowReader_p.h>

namespace {

constexpr char rankAbsent = 0;
constexpr char rankPresent = 1;

}

void KXSearchRank::invertFrom(qsizetype from)
{
    for (qsizetype i = from; i < m_bytes.size(); ++i)
        m_bytes[i] = char(~m_bytes[i]);
}

void KXSearchRank::addInteger(qint64 number)
{
    char bytes[8];
    qToBigEndian(quint64(number) ^ quint64(1) << 63, bytes);
    m_bytes.append(bytes, 8);
}

void KXSearchRank::addReal(double number)
{
    auto bits = std::bit_cast<quint64>(number == 0 ? 0.0 : number); // both zeros are one
    bits = bits >> 63 ? ~bits : bits | quint64(1) << 63;
    char bytes[8];
    qToBigEndian(bits, bytes);
    m_bytes.append(bytes, 8);
}

void KXSearchRank::addText(QByteArrayView utf8)
{
    // A text ends before all that goes on, with two zeros; one of its own is told apart from that.
    for (const char c : utf8) {
        m_bytes += c;
        if (c == 0)
            m_bytes += char(0xFF);
    }
    m_bytes.append(2, '\0');
}

void KXSearchRank::addDecimal(QByteArrayView canonical)
{
    // Sign, digits before the point, the digits; negative numbers the other way round.
    const bool isNegative = canonical.startsWith('-');
    const QByteArrayView digits = isNegative ? canonical.sliced(1) : canonical;
    const qsizetype point = digits.indexOf('.');
    QByteArrayView whole = point < 0 ? digits : digits.first(point);
    const QByteArrayView rest = point < 0 ? QByteArrayView() : digits.sliced(point + 1);
    if (whole == QByteArrayView("0"))
        whole = {};
    const bool isZero = whole.isEmpty() && rest.isEmpty();
    m_bytes += char(isZero ? 1 : isNegative ? 0 : 2);
    const qsizetype from = m_bytes.size();
    char length[4];
    qToBigEndian(quint32(whole.size()), length);
    m_bytes.append(length, 4);
    m_bytes += whole;
    m_bytes += rest;
    m_bytes += '\0';
    if (isNegative)
        invertFrom(from);
}

void KXSearchRank::add(const KXPropertyDescription &property, KXColumnValue value, bool ascending, int options)
{
    const qsizetype from = m_bytes.size();
    if (value.isNull()) {
        m_bytes += rankAbsent;
    } else {
        m_bytes += rankPresent;
        switch (property.type()) {
        case KXAttributeType::Double:
            addReal(value.real());
            break;
        case KXAttributeType::Decimal:
            addDecimal(value.utf8());
            break;
        case KXAttributeType::String:
        case KXAttributeType::URI:
        case KXAttributeType::UUID:
            if (options)
                addText(KXTextFolding::folded(value.utf8(), options));
            else
                addText(value.utf8());
            break;
        default:
            addInteger(value.integer());
        }
    }
    if (!ascending)
        invertFrom(from);
}

void KXSearchRank::add(const QVariant &value, bool ascending, int options)
{
    const qsizetype from = m_bytes.size();
    const KXPredicateValue known(value, options);
    m_bytes += known.isNull() ? rankAbsent : rankPresent;
    switch (known.kind()) {
    case KXPredicateValue::Integer:
    case KXPredicateValue::Date:
        addInteger(known.integer());
        break;
    case KXPredicateValue::Real:
        addReal(known.real());
        break;
    case KXPredicateValue::Decimal:
        addDecimal(known.decimal().toString().toLatin1());
        break;
    case KXPredicateValue::Text:
        addText(known.text().toUtf8());
        break;
    default:
        break;
    }
    if (!ascending)
        invertFrom(from);
}
