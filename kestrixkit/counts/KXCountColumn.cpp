#include <kestrixkit/counts/KXCountColumn_p.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include <kestrixkit/counts/KXCountProbe_p.h>
#include <kestrixkit/entity/KXValueConversion_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char16_t countKindMark = 0xFFFF; // no character: texts do not begin with it

bool countIsNumber(const KXPropertyDescription &property)
{
    switch (property.type()) {
    case KXAttributeType::Integer16:
    case KXAttributeType::Integer32:
    case KXAttributeType::Integer64:
    case KXAttributeType::Boolean:
    case KXAttributeType::Double:
    case KXAttributeType::Date:
        return true;
    default:
        return false;
    }
}

bool countIsWide(const KXPropertyDescription &property)
{
    return property.isAttribute()
        && (property.type() == KXAttributeType::Integer64 || property.type() == KXAttributeType::Double
            || property.type() == KXAttributeType::Date);
}

}

// Values

quint32 KXCountValues::numberOf(const QVariant &variant)
{
    const KXPredicateValue value(variant);
    QString name;
    switch (value.kind()) {
    case KXPredicateValue::Null:
        return 0;
    case KXPredicateValue::Text:
        name = value.text().startsWith(QChar(countKindMark)) ? QChar(countKindMark) + u"t"_s + value.text()
                                                             : value.text();
        break;
    case KXPredicateValue::Integer:
        name = QChar(countKindMark) + u"i"_s + QString::number(value.integer());
        break;
    case KXPredicateValue::Real:
        name = QChar(countKindMark) + u"r"_s + QString::number(std::bit_cast<quint64>(value.real()), 16);
        break;
    case KXPredicateValue::Decimal:
        name = QChar(countKindMark) + u"d"_s + value.decimal().toString();
        break;
    case KXPredicateValue::Date:
        name = QChar(countKindMark) + u"m"_s + QString::number(value.integer());
        break;
    default:
        name = QChar(countKindMark)
            + u"o%1 %2 %3"_s.arg(value.objectKey().store).arg(value.objectKey().layout).arg(value.objectKey().key);
    }
    const auto [found, isNew] = m_numbers.try_emplace(name, quint32(m_values.size()));
    if (!isNew)
        return found->second;
    // An object is kept as its identifier: it must not stay in memory for being counted.
    m_values.push_back(value.kind() == KXPredicateValue::Object ? KXConstantFromObject(variant) : variant);
    return found->second;
}

// Rows

KXCountColumn::KXCountColumn(const KXPropertyDescription &property)
    : m_property(property)
    , m_kind(property.isRelationship()  ? Kind::Relation
              : countIsNumber(property) ? Kind::Number
                                        : Kind::Value)
    , m_isWide(countIsWide(property))
{
    m_setCodes.emplace(std::string(), 0);
    if (m_kind == Kind::Value)
        m_paths.push_back({ {}, {}, false, {}, {} });
    m_classes.resize(m_kind == Kind::Number ? 0 : 1);
}

bool KXCountColumn::canHold(const KXPropertyDescription &property)
{
    return property.isRelationship()
        || (!property.isTransient() && property.type() != KXAttributeType::Binary
            && property.type() != KXAttributeType::Variant);
}

void KXCountColumn::resize(size_t rows)
{
    if (m_isWide)
        m_wide.resize(rows, absent);
    else
        m_narrow.resize(rows, m_kind == Kind::Number ? narrowAbsent : 0);
}

void KXCountColumn::copyRow(size_t from, size_t to)
{
    if (m_isWide)
        m_wide[to] = m_wide[from];
    else
        m_narrow[to] = m_narrow[from];
}

qint64 KXCountColumn::numberFromDouble(double value)
{
    const auto bits = std::bit_cast<qint64>(value == 0 ? 0.0 : value); // -0 is 0
    return bits < 0 ? std::numeric_limits<qint64>::min() ^ ~bits : bits;
}

double KXCountColumn::doubleFromNumber(qint64 number)
{
    return std::bit_cast<double>(number < 0 ? ~(number ^ std::numeric_limits<qint64>::min()) : number);
}

bool KXCountColumn::setNumber(size_t row, qint64 number)
{
    if (m_isWide)
        return std::exchange(m_wide[row], number) != number;
    const qint32 narrow = number == absent ? narrowAbsent : qint32(number);
    return std::exchange(m_narrow[row], narrow) != narrow;
}

bool KXCountColumn::setValue(size_t row, const QVariant &value)
{
    if (m_kind == Kind::Value)
        return setCode(row, codeOfValue(value));
    if (!value.isValid() || value.isNull())
        return setNumber(row, absent);
    switch (m_property.type()) {
    case KXAttributeType::Double:
        return setNumber(row, numberFromDouble(value.toDouble()));
    case KXAttributeType::Date:
        return setNumber(row, KXValueConversion::microsecondsFromDate(value.toDateTime()));
    default:
        return setNumber(row, value.toLongLong());
    }
}

quint32 KXCountColumn::codeOfValue(const QVariant &value)
{
    const quint32 code = m_paths[0].values.numberOf(value);
    while (m_classes.size() < m_paths[0].values.size()) // constants of rules are among the values, too
        codeWasAdded();
    return code;
}

quint32 KXCountColumn::numberOfConstant(int path, const QVariant &constant)
{
    if (m_kind == Kind::Value)
        return codeOfValue(constant);
    const quint32 number = m_paths[size_t(path)].values.numberOf(constant);
    extendTests(path);
    return number;
}

quint32 KXCountColumn::codeOfKeys(const std::vector<qint64> &keys)
{
    const auto [found, isNew]
        = m_setCodes.try_emplace(KXCountBytes(keys.data(), keys.size() * sizeof(qint64)), quint32(m_sets.size()));
    if (isNew) {
        m_sets.push_back(keys);
        if (!m_putsOff)
            readSets();
    }
    return found->second;
}

bool KXCountColumn::setKeys(size_t row, const std::vector<qint64> &keys) { return setCode(row, codeOfKeys(keys)); }

void KXCountColumn::takeRows(std::span<const qint64> rows, const KXCountColumn &other)
{
    const auto each = [rows](auto &ours, auto &&value) {
        for (size_t i = 0; i < rows.size(); ++i) {
            if (rows[i] >= 0)
                ours[size_t(rows[i])] = value(i);
        }
    };
    if (m_isWide)
        return each(m_wide, [&](size_t i) { return other.m_wide[i]; });
    if (m_kind == Kind::Number)
        return each(m_narrow, [&](size_t i) { return other.m_narrow[i]; });
    std::vector<quint32> codes(other.codeCount(), 0); // ours by theirs; only those that occur
    each(m_narrow, [&](size_t i) {
        const quint32 theirs = other.codeAt(i);
        if (theirs != 0 && codes[theirs] == 0)
            codes[theirs] = m_kind == Kind::Value ? codeOfValue(other.m_paths[0].values.value(theirs))
                                                  : codeOfKeys(other.m_sets[theirs]);
        return qint32(codes[theirs]);
    });
}

// Paths

void KXCountColumn::readSets()
{
    m_putsOff = false;
    for (Path &path : m_paths) {
        while (path.numbers.size() < m_sets.size())
            read(path, quint32(path.numbers.size()));
    }
    while (m_classes.size() < m_sets.size())
        codeWasAdded();
}

void KXCountColumn::forgetSets()
{
    if (m_kind != Kind::Relation)
        return;
    m_sets.resize(1); // the empty one
    std::erase_if(m_setCodes, [](const auto &set) { return set.second != 0; });
    for (Path &path : m_paths)
        path.numbers.resize(std::min<size_t>(1, path.numbers.size()));
    m_classes.resize(1);
}

int KXCountColumn::path(const QStringList &rest, bool isList)
{
    for (size_t i = 0; i < m_paths.size(); ++i) {
        if (m_paths[i].rest == rest)
            return int(i);
    }
    m_paths.push_back(
        { rest, KXExpression::expressionForKeyPath((QStringList { u"v"_s } + rest).join(u'.')), isList, {}, {} });
    if (!m_putsOff)
        readSets();
    return int(m_paths.size()) - 1;
}

void KXCountColumn::read(Path &path, quint32 set)
{
    KXCountProbe probe;
    probe.value = m_resolver(m_sets[set]);
    const QVariant reached = path.expression.expressionValueWithObject(&probe);
    if (path.numbers.size() <= set)
        path.numbers.resize(set + 1);
    std::vector<quint32> &numbers = path.numbers[set];
    numbers.clear();
    const size_t known = path.values.size();
    if (reached.typeId() == QMetaType::QVariantList) {
        for (const QVariant &element : reached.toList())
            numbers.push_back(path.values.numberOf(element));
    } else {
        numbers.push_back(path.values.numberOf(reached));
    }
    if (path.values.size() != known)
        extendTests(int(&path - m_paths.data()));
}

std::vector<quint32> KXCountColumn::reread(size_t path, const QSet<qint64> &keys)
{
    std::vector<quint32> changed;
    for (quint32 set = 0; set < m_sets.size(); ++set) {
        if (std::none_of(m_sets[set].begin(), m_sets[set].end(), [&](qint64 key) { return keys.contains(key); }))
            continue;
        const std::vector<quint32> before = m_paths[path].numbers[set];
        read(m_paths[path], set);
        if (m_paths[path].numbers[set] != before)
            changed.push_back(set);
    }
    return changed;
}

std::vector<qint64> KXCountColumn::newKeys() const
{
    size_t known = m_sets.size();
    for (const Path &path : m_paths)
        known = std::min(known, path.numbers.size());
    std::vector<qint64> keys;
    for (size_t set = known; set < m_sets.size(); ++set)
        keys.insert(keys.end(), m_sets[set].begin(), m_sets[set].end());
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    return keys;
}
