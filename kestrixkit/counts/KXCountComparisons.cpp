// What a column knows of the comparisons with it: for which of its values each holds.

#include <kestrixkit/counts/KXCountColumn_p.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include <kestrixkit/counts/KXCountProbe_p.h>
#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/predicate/KXPredicateEvaluator_p.h>

using namespace Qt::StringLiterals;

namespace {

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
    test.holds.assign(KXCountWords(test.cuts.size() + 2), 0);
    for (size_t i = 0; i < test.cuts.size() + 2; ++i) {
        const qint64 lowest = isReal ? numberFromDouble(-std::numeric_limits<double>::infinity()) : absent + 1;
        const QVariant value = i == 0 ? QVariant() : valueOfNumber(i == 1 ? lowest : test.cuts[i - 2]);
        if (ask(test, value, false))
            KXCountSetBit(test.holds, i);
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
    KXCountProbe probe;
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
        test.holds.resize(KXCountWords(values.values.size()));
        for (; test.asked < values.values.size(); ++test.asked) {
            if (ask(test, values.values.value(quint32(test.asked)), values.isList))
                KXCountSetBit(test.holds, test.asked);
        }
    }
}

bool KXCountColumn::holds(const Test &test, quint32 code) const
{
    const auto value = [&test](quint32 number) {
        if (test.isEquality)
            return std::binary_search(test.constants.begin(), test.constants.end(), number) != test.isNegated;
        return KXCountBit(test.holds, number);
    };
    if (m_kind == Kind::Value)
        return value(code);
    const std::vector<quint32> &numbers = m_paths[size_t(test.path)].numbers[code];
    if (test.predicate.modifier() == KXPredicateModifier::All)
        return std::all_of(numbers.begin(), numbers.end(), value);
    return std::any_of(numbers.begin(), numbers.end(), value);
}

/// `holds` answers for a single comparison.
template <typename Holds> static bool countConditionHolds(const KXCountCondition &condition, const Holds &holds)
{
    const auto part = [&](const KXCountCondition &each) { return countConditionHolds(each, holds); };
    switch (condition.kind) {
    case KXCountCondition::Comparison:
        return holds(condition.comparison);
    case KXCountCondition::And:
        return std::all_of(condition.parts.begin(), condition.parts.end(), part);
    case KXCountCondition::Or:
        return std::any_of(condition.parts.begin(), condition.parts.end(), part);
    case KXCountCondition::Not:
        return !part(condition.parts.front());
    }
    return false;
}

bool KXCountColumn::holds(const KXCountCondition &condition, quint32 code) const
{
    return countConditionHolds(condition, [&](int comparison) { return holds(m_tests[size_t(comparison)], code); });
}

bool KXCountColumn::holdsForNumber(const KXCountCondition &condition, qint64 number) const
{
    return countConditionHolds(condition, [&](int comparison) {
        const Test &test = m_tests[size_t(comparison)];
        if (number == absent)
            return KXCountBit(test.holds, 0);
        return KXCountBit(
            test.holds, size_t(std::upper_bound(test.cuts.begin(), test.cuts.end(), number) - test.cuts.begin()) + 1);
    });
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
