#include <kestrixkit/counts/KXCountColumn_p.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/foundation/KXObservable.h>
#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char16_t countKindMark = 0xFFFF; // no character: texts do not begin with it

/// Stands for a row whose value is asked about.
class CountProbe : public KXObservable
{
public:
    QVariant value;
    [[nodiscard]] QVariant valueForKey(const QString &) const override { return value; }
    bool setValueForKey(const QString &, const QVariant &) override { return false; }
};

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

void countSetBit(KXCountBits &bits, size_t bit) { bits[bit >> 6] |= quint64(1) << (bit & 63); }
bool countBit(const KXCountBits &bits, size_t bit) { return bits[bit >> 6] >> (bit & 63) & 1; }
size_t countWords(size_t bits) { return (bits + 63) / 64; }

std::string countBytes(const void *data, size_t size) { return { static_cast<const char *>(data), size }; }

QList<KXPredicateValue> countConstants(const KXPredicate &test)
{
    const KXExpression &side = test.rightExpression().isConstant() ? test.rightExpression() : test.leftExpression();
    QList<KXPredicateValue> constants;
    const QVariant &value = side.constantValue();
    if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList) {
        for (const QVariant &element : value.toList())
            constants.append(KXPredicateValue(element));
    } else {
        constants.append(KXPredicateValue(value));
    }
    return constants;
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
    const auto found = m_numbers.constFind(name);
    if (found != m_numbers.constEnd())
        return *found;
    const auto number = quint32(m_values.size());
    // An object is kept as its identifier: it must not stay in memory for being counted.
    m_values.push_back(value.kind() == KXPredicateValue::Object ? KXConstantFromObject(variant) : variant);
    m_numbers.insert(name, number);
    return number;
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

bool KXCountColumn::setKeys(size_t row, const std::vector<qint64> &keys)
{
    const auto [found, isNew]
        = m_setCodes.try_emplace(countBytes(keys.data(), keys.size() * sizeof(qint64)), quint32(m_sets.size()));
    if (isNew) {
        m_sets.push_back(keys);
        if (!m_putsOff)
            readSets();
    }
    return setCode(row, found->second);
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
    CountProbe probe;
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

// Comparisons

int KXCountColumn::comparison(const KXPredicate &test, int path)
{
    const auto [found, isNew] = [&] {
        const auto known = m_testNumbers.constFind({ path, test });
        return known != m_testNumbers.constEnd() ? std::pair(*known, false) : std::pair(int(m_tests.size()), true);
    }();
    if (!isNew)
        return found;
    m_testNumbers.insert({ path, test }, found);
    m_tests.push_back({ .predicate = test, .path = path });
    if (m_kind == Kind::Number) {
        prepareCuts(m_tests.back());
    } else {
        prepareEquality(m_tests.back());
        extendTests(path);
    }
    return found;
}

/// Most rules ask whether a text is one of a few: no value needs to be looked at for that.
void KXCountColumn::prepareEquality(Test &test)
{
    const KXPredicate &predicate = test.predicate;
    const KXPredicateOperator code = predicate.comparisonOperator();
    const bool isIn = code == KXPredicateOperator::In;
    if (predicate.options() != 0 || !predicate.rightExpression().isConstant()
        || (code != KXPredicateOperator::Equal && code != KXPredicateOperator::NotEqual && !isIn))
        return;
    const QVariant &constant = predicate.rightExpression().constantValue();
    const bool isList = constant.typeId() == QMetaType::QVariantList || constant.typeId() == QMetaType::QStringList;
    if (isList != isIn)
        return;
    const QVariantList constants = isIn ? constant.toList() : QVariantList { constant };
    KXCountValues &values = m_paths[size_t(test.path)].values;
    for (const QVariant &each : constants) {
        const KXPredicateValue::Kind kind = KXPredicateValue(each).kind();
        if (kind != KXPredicateValue::Text && kind != KXPredicateValue::Null)
            return; // numbers of different kinds may be equal
        if (kind == KXPredicateValue::Text || !isIn) // absent is in no list
            test.constants.push_back(values.numberOf(each));
    }
    std::sort(test.constants.begin(), test.constants.end());
    test.isEquality = true;
    test.isNegated = code == KXPredicateOperator::NotEqual;
}

void KXCountColumn::prepareCuts(Test &test)
{
    const bool isReal = m_property.type() == KXAttributeType::Double;
    const bool isDate = m_property.type() == KXAttributeType::Date;
    const auto addPoint = [&](qint64 number) {
        test.cuts.push_back(number);
        if (number < std::numeric_limits<qint64>::max())
            test.cuts.push_back(number + 1);
    };
    for (const KXPredicateValue &constant : countConstants(test.predicate)) {
        if (isDate ? constant.kind() == KXPredicateValue::Date
                   : !isReal && constant.kind() == KXPredicateValue::Integer) {
            addPoint(constant.integer());
        } else if (isReal && constant.kind() == KXPredicateValue::Real && !std::isnan(constant.real())) {
            addPoint(numberFromDouble(constant.real()));
        } else if (!isDate && constant.isNumber()
            && !(constant.kind() == KXPredicateValue::Real && std::isnan(constant.real()))) {
            test.cuts.push_back(firstNumber(constant, false));
            test.cuts.push_back(firstNumber(constant, true));
        }
    }
    std::sort(test.cuts.begin(), test.cuts.end());
    test.cuts.erase(std::unique(test.cuts.begin(), test.cuts.end()), test.cuts.end());
    // Absent, below the first cut, from each cut on.
    test.holds.assign(countWords(test.cuts.size() + 2), 0);
    for (size_t i = 0; i < test.cuts.size() + 2; ++i) {
        const qint64 lowest = isReal ? numberFromDouble(-std::numeric_limits<double>::infinity()) : absent + 1;
        const QVariant value = i == 0 ? QVariant() : valueOfNumber(i == 1 ? lowest : test.cuts[i - 2]);
        if (ask(test, value, false))
            countSetBit(test.holds, i);
    }
}

/// The first number whose value is, or is beyond, the constant; found by asking, as that is how values compare.
qint64 KXCountColumn::firstNumber(const KXPredicateValue &constant, bool beyond) const
{
    const bool isReal = m_property.type() == KXAttributeType::Double;
    qint64 low = isReal ? numberFromDouble(-std::numeric_limits<double>::infinity()) : absent + 1;
    qint64 high
        = isReal ? numberFromDouble(std::numeric_limits<double>::infinity()) + 1 : std::numeric_limits<qint64>::max();
    while (low < high) {
        const qint64 middle = std::midpoint(low, high);
        const std::partial_ordering order
            = KXPredicateValue::compare(KXPredicateValue(valueOfNumber(middle)), constant);
        if (order > 0 || (!beyond && order == 0))
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

std::optional<qint64> KXCountColumn::numberEqualTo(const QVariant &variant) const
{
    const KXPredicateValue constant(variant);
    if (constant.isNull())
        return absent;
    const bool isReal = m_property.type() == KXAttributeType::Double;
    const bool isDate = m_property.type() == KXAttributeType::Date;
    if (isDate ? constant.kind() == KXPredicateValue::Date : !isReal && constant.kind() == KXPredicateValue::Integer)
        return constant.integer() == absent ? std::nullopt : std::optional(constant.integer());
    if (isDate || !constant.isNumber() || (constant.kind() == KXPredicateValue::Real && std::isnan(constant.real())))
        return std::nullopt;
    const qint64 number = firstNumber(constant, false);
    if (number >= firstNumber(constant, true))
        return std::nullopt;
    return isReal ? numberFromDouble(doubleFromNumber(number)) : number; // the lower zero is no row's
}

QVariant KXCountColumn::valueOfNumber(qint64 number) const
{
    switch (m_property.type()) {
    case KXAttributeType::Double:
        return doubleFromNumber(number);
    case KXAttributeType::Date:
        // Rules compare with whole milliseconds; what lies between two of them is as good as the next one.
        return QDateTime::fromMSecsSinceEpoch(number / 1000 + (number % 1000 > 0), Qt::UTC);
    default:
        return number;
    }
}

bool KXCountColumn::ask(const Test &test, const QVariant &value, bool isList) const
{
    CountProbe probe;
    probe.value = isList ? QVariant(QVariantList { value }) : value;
    return test.predicate.evaluateWithObject(&probe);
}

/// Asks the tests of the path about values that have come.
void KXCountColumn::extendTests(int path)
{
    const Path &values = m_paths[size_t(path)];
    for (Test &test : m_tests) {
        if (test.path != path || test.isEquality)
            continue;
        test.holds.resize(countWords(values.values.size()));
        for (; test.asked < values.values.size(); ++test.asked) {
            if (ask(test, values.values.value(quint32(test.asked)), values.isList))
                countSetBit(test.holds, test.asked);
        }
    }
}

bool KXCountColumn::holds(const Test &test, quint32 code) const
{
    const auto value = [&test](quint32 number) {
        if (test.isEquality)
            return std::binary_search(test.constants.begin(), test.constants.end(), number) != test.isNegated;
        return countBit(test.holds, number);
    };
    if (m_kind == Kind::Value)
        return value(code);
    const std::vector<quint32> &numbers = m_paths[size_t(test.path)].numbers[code];
    if (test.predicate.modifier() == KXPredicateModifier::All)
        return std::all_of(numbers.begin(), numbers.end(), value);
    return std::any_of(numbers.begin(), numbers.end(), value);
}

bool KXCountColumn::holds(const KXCountCondition &condition, quint32 code) const
{
    const auto part = [&](const KXCountCondition &each) { return holds(each, code); };
    switch (condition.kind) {
    case KXCountCondition::Comparison:
        return holds(m_tests[size_t(condition.comparison)], code);
    case KXCountCondition::And:
        return std::all_of(condition.parts.begin(), condition.parts.end(), part);
    case KXCountCondition::Or:
        return std::any_of(condition.parts.begin(), condition.parts.end(), part);
    case KXCountCondition::Not:
        return !part(condition.parts.front());
    }
    return false;
}

bool KXCountColumn::holdsForNumber(const KXCountCondition &condition, qint64 number) const
{
    const auto part = [&](const KXCountCondition &each) { return holdsForNumber(each, number); };
    switch (condition.kind) {
    case KXCountCondition::Comparison: {
        const Test &test = m_tests[size_t(condition.comparison)];
        if (number == absent)
            return countBit(test.holds, 0);
        return countBit(
            test.holds, size_t(std::upper_bound(test.cuts.begin(), test.cuts.end(), number) - test.cuts.begin()) + 1);
    }
    case KXCountCondition::And:
        return std::all_of(condition.parts.begin(), condition.parts.end(), part);
    case KXCountCondition::Or:
        return std::any_of(condition.parts.begin(), condition.parts.end(), part);
    case KXCountCondition::Not:
        return !part(condition.parts.front());
    }
    return false;
}

std::vector<qint64> KXCountColumn::cutsOf(const KXCountCondition &condition) const
{
    if (condition.kind == KXCountCondition::Comparison)
        return m_tests[size_t(condition.comparison)].cuts;
    std::vector<qint64> cuts;
    for (const KXCountCondition &part : condition.parts) {
        const std::vector<qint64> more = cutsOf(part);
        cuts.insert(cuts.end(), more.begin(), more.end());
    }
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());
    return cuts;
}

// Rows of bits

size_t KXCountColumn::segmentOf(qint64 number) const
{
    if (number == absent)
        return 0;
    // Without branches that the processor would have to guess.
    const qint64 *base = m_cuts.data();
    size_t left = m_cuts.size();
    while (left > 1) {
        const size_t half = left / 2;
        base += base[half - 1] <= number ? half : 0;
        left -= half;
    }
    return size_t(base - m_cuts.data()) + (left == 1 && *base <= number) + 1;
}

size_t KXCountColumn::domainSize() const
{
    switch (m_kind) {
    case Kind::Number:
        return m_cuts.size() + 2;
    case Kind::Value:
        return m_paths[0].values.size();
    case Kind::Relation:
        return m_sets.size();
    }
    return 0;
}

KXCountBits KXCountColumn::bitsOf(const Test &test) const
{
    const size_t size = domainSize();
    KXCountBits bits(countWords(size), 0);
    if (m_kind == Kind::Number) {
        if (countBit(test.holds, 0))
            countSetBit(bits, 0);
        size_t from = 1;
        for (size_t own = 0; own <= test.cuts.size(); ++own) {
            const size_t end = own == test.cuts.size() ? size : segmentOf(test.cuts[own]);
            for (; from < end; ++from) {
                if (countBit(test.holds, own + 1))
                    countSetBit(bits, from);
            }
        }
    } else if (test.isEquality && m_kind == Kind::Value) {
        for (const quint32 constant : test.constants)
            countSetBit(bits, constant);
        for (quint64 &word : bits)
            word = test.isNegated ? ~word : word;
    } else {
        for (quint32 code = 0; code < size; ++code) {
            if (holds(test, code))
                countSetBit(bits, code);
        }
    }
    return bits;
}

KXCountBits KXCountColumn::bitsOf(const KXCountCondition &condition) const
{
    if (condition.kind == KXCountCondition::Comparison)
        return bitsOf(m_tests[size_t(condition.comparison)]);
    KXCountBits bits(countWords(domainSize()), condition.kind == KXCountCondition::Or ? 0 : ~quint64(0));
    for (const KXCountCondition &part : condition.parts) {
        const KXCountBits more = bitsOf(part);
        for (size_t i = 0; i < bits.size(); ++i) {
            if (condition.kind == KXCountCondition::Or)
                bits[i] |= more[i];
            else
                bits[i] = condition.kind == KXCountCondition::And ? bits[i] & more[i] : ~more[i];
        }
    }
    return bits;
}

void KXCountColumn::rebuild(size_t words)
{
    // Tests that went with their rules.
    for (Test &test : m_tests)
        test.isUsed = false;
    const std::function<void(KXCountCondition &)> use = [&](KXCountCondition &condition) {
        if (condition.kind == KXCountCondition::Comparison)
            m_tests[size_t(condition.comparison)].isUsed = true;
        for (KXCountCondition &part : condition.parts)
            use(part);
    };
    for (auto &[slot, condition] : m_conditions)
        use(condition);
    if (size_t(std::count_if(m_tests.begin(), m_tests.end(), [](const Test &test) { return test.isUsed; })) * 2
        < m_tests.size()) {
        std::vector<int> places(m_tests.size());
        std::vector<Test> kept;
        m_testNumbers.clear();
        for (size_t i = 0; i < m_tests.size(); ++i) {
            if (!m_tests[i].isUsed)
                continue;
            places[i] = int(kept.size());
            m_testNumbers.insert({ m_tests[i].path, m_tests[i].predicate }, places[i]);
            kept.push_back(std::move(m_tests[i]));
        }
        m_tests = std::move(kept);
        const std::function<void(KXCountCondition &)> renumber = [&](KXCountCondition &condition) {
            if (condition.kind == KXCountCondition::Comparison)
                condition.comparison = places[size_t(condition.comparison)];
            for (KXCountCondition &part : condition.parts)
                renumber(part);
        };
        for (auto &[slot, condition] : m_conditions)
            renumber(condition);
    }

    m_words = words;
    m_cuts.clear();
    m_otherClass = m_kind == Kind::Value ? 0 : -1;
    for (const Test &test : m_tests) {
        m_cuts.insert(m_cuts.end(), test.cuts.begin(), test.cuts.end());
        if (!test.isEquality)
            m_otherClass = -1;
    }
    std::sort(m_cuts.begin(), m_cuts.end());
    m_cuts.erase(std::unique(m_cuts.begin(), m_cuts.end()), m_cuts.end());

    const size_t size = domainSize();
    KXCountBits rows(size * words, ~quint64(0));
    m_users.assign(words, 0);
    for (const auto &[slot, condition] : m_conditions) {
        countSetBit(m_users, size_t(slot));
        const KXCountBits bits = bitsOf(condition);
        const quint64 mask = ~(quint64(1) << (slot & 63));
        for (size_t i = 0; i < size; ++i) {
            if (!countBit(bits, i))
                rows[i * words + size_t(slot >> 6)] &= mask;
        }
    }
    m_table.clear();
    m_classNumbers.clear();
    if (m_kind == Kind::Number) {
        m_table = std::move(rows);
        return;
    }
    m_classes.resize(size);
    for (size_t i = 0; i < size; ++i)
        m_classes[i] = classOfBits(rows.data() + i * words);
    if (m_otherClass == 0) {
        // A value that no test names: as good as one that is not there yet.
        m_classes.push_back(0);
        m_otherClass = classOfCode(quint32(size));
        m_classes.pop_back();
    }
}

quint32 KXCountColumn::classOfBits(const quint64 *bits)
{
    const auto [found, isNew]
        = m_classNumbers.try_emplace(countBytes(bits, m_words * sizeof(quint64)), quint32(m_classNumbers.size()));
    if (isNew)
        m_table.insert(m_table.end(), bits, bits + m_words);
    return found->second;
}

quint32 KXCountColumn::classOfCode(quint32 code)
{
    KXCountBits row(m_words, ~quint64(0));
    for (const auto &[slot, condition] : m_conditions) {
        if (!holds(condition, code))
            row[size_t(slot >> 6)] &= ~(quint64(1) << (slot & 63));
    }
    return classOfBits(row.data());
}

void KXCountColumn::codeWasAdded()
{
    const auto code = quint32(m_classes.size());
    if (m_kind == Kind::Value)
        extendTests(0);
    m_classes.push_back(0);
    if (m_words != 0)
        m_classes.back() = m_otherClass >= 0 ? quint32(m_otherClass) : classOfCode(code);
}

void KXCountColumn::reclassify(const std::vector<quint32> &sets)
{
    for (const quint32 set : sets)
        m_classes[set] = classOfCode(set);
}
