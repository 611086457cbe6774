#include <kestrixkit/filters/KXValueAxis_p.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>

using namespace Qt::StringLiterals;

namespace {

KXPredicateValue axisInteger(qint64 value) { return KXPredicateValue(QVariant(value)); }
KXPredicateValue axisDouble(double value) { return KXPredicateValue(QVariant(value)); }

double axisNearestDouble(const KXPredicateValue &number)
{
    switch (number.kind()) {
    case KXPredicateValue::Integer:
        return double(number.integer());
    case KXPredicateValue::Real:
        return number.real();
    default:
        return number.decimal().toDouble();
    }
}

/// The least integer from `least` on that is above the number; nothing where there is none.
std::optional<qint64> axisIntegerAbove(const KXPredicateValue *number, qint64 least)
{
    if (!number || KXPredicateValue::compare(axisInteger(least), *number) > 0)
        return least;
    if (KXPredicateValue::compare(axisInteger(std::numeric_limits<qint64>::max()), *number) <= 0)
        return {};
    if (number->kind() == KXPredicateValue::Integer)
        return number->integer() + 1;
    qint64 above = number->kind() == KXPredicateValue::Real ? qint64(number->real()) : number->decimal().toInt64();
    while (KXPredicateValue::compare(axisInteger(above), *number) <= 0) // cut off towards zero: at most once
        ++above;
    return above;
}

enum AxisGroup { AxisNumbers, AxisTexts, AxisDates, AxisBinaries, AxisObjects };

}

KXValueDomain KXValueDomain::ofKeyPath(const KXEntityDescription *entity, const QStringList &keys)
{
    KXValueDomain domain;
    if (keys.contains(QString()))
        return { AbsentOnly };
    if (!entity)
        return domain;
    const KXModelPath path(*entity, keys);
    bool passesObject = false;
    for (const KXModelPath::Step &step : path.steps()) {
        const KXPropertyDescription *property = step.property;
        const bool isLast = &step == &path.steps().back() && path.isKnown() && !path.isCount();
        if (step.entity->property(property->name()) != property) { // a sub-entity's
            domain.type = Anything;
            return domain;
        }
        if (property->isRelationship()) {
            domain.isToMany = domain.isToMany || property->isToMany();
            if (!property->isToMany() && !isLast)
                passesObject = true;
            domain.type = Objects;
            domain.canBeAbsent = passesObject || property->isOptional();
            continue;
        }
        domain.canBeAbsent = passesObject || property->isOptional();
        const auto integers = [&](qint64 least, qint64 most) {
            domain.type = Integers;
            domain.least = least;
            domain.most = most;
        };
        switch (property->type()) {
        case KXAttributeType::Integer16:
            integers(-0x8000, 0x7fff);
            break;
        case KXAttributeType::Integer32:
            integers(std::numeric_limits<qint32>::min(), std::numeric_limits<qint32>::max());
            break;
        case KXAttributeType::Integer64:
            integers(std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max());
            break;
        case KXAttributeType::Boolean:
            integers(0, 1);
            break;
        case KXAttributeType::Double:
            domain.type = Doubles;
            break;
        case KXAttributeType::Decimal:
            domain.type = Decimals;
            break;
        case KXAttributeType::String:
        case KXAttributeType::URI:
        case KXAttributeType::UUID:
            domain.type = Texts;
            break;
        case KXAttributeType::Date:
            domain.type = Dates;
            break;
        case KXAttributeType::Binary:
            domain.type = Binaries;
            break;
        case KXAttributeType::Variant:
            domain.type = Anything;
            break;
        }
    }
    if (path.isCount())
        return { Integers, passesObject, false, 0, std::numeric_limits<qint64>::max() };
    if (!path.isKnown())
        domain.type = Anything;
    return domain;
}

KXValueRegion::KXValueRegion(std::vector<Run> runs)
{
    std::erase_if(runs, [](const Run &run) { return run.first > run.second; });
    std::sort(runs.begin(), runs.end());
    for (const Run &run : runs) {
        if (m_runs.empty() || run.first > m_runs.back().second + 1)
            m_runs.push_back(run);
        else
            m_runs.back().second = std::max(m_runs.back().second, run.second);
    }
}

KXValueRegion KXValueRegion::intersected(const KXValueRegion &other) const
{
    KXValueRegion both;
    for (auto mine = m_runs.begin(), theirs = other.m_runs.begin();
         mine != m_runs.end() && theirs != other.m_runs.end();) {
        const Run run { std::max(mine->first, theirs->first), std::min(mine->second, theirs->second) };
        if (run.first <= run.second)
            both.m_runs.push_back(run);
        (mine->second < theirs->second ? mine : theirs)++;
    }
    return both;
}

int KXValueAxis::groupOf(const KXPredicateValue &value)
{
    switch (value.kind()) {
    case KXPredicateValue::Integer:
    case KXPredicateValue::Decimal:
        return AxisNumbers;
    case KXPredicateValue::Real:
        return std::isnan(value.real()) ? -1 : int(AxisNumbers);
    case KXPredicateValue::Text:
        return AxisTexts;
    case KXPredicateValue::Date:
        return AxisDates;
    case KXPredicateValue::Binary:
        return AxisBinaries;
    case KXPredicateValue::Object:
        return AxisObjects;
    case KXPredicateValue::Null:
    case KXPredicateValue::Other:
        break;
    }
    return -1;
}

bool KXValueAxis::isBefore(const KXPredicateValue &a, const KXPredicateValue &b)
{
    if (const int left = groupOf(a), right = groupOf(b); left != right)
        return left < right;
    const std::partial_ordering order = KXPredicateValue::compare(a, b);
    // Objects are only equal or not; their order here does not matter.
    return order == std::partial_ordering::unordered ? a.objectKey().key < b.objectKey().key : order < 0;
}

bool KXValueAxis::isDecidable(const KXPredicate &comparison)
{
    return comparison.type() == KXPredicateType::Comparison && comparison.options() == 0
        && comparison.leftExpression().type() == KXExpressionType::KeyPath && comparison.rightExpression().isConstant()
        && comparison.rightExpression().constantValue().typeId() != QMetaType::QVariantList
        && comparison.comparisonOperator() >= KXPredicateOperator::LessThan
        && comparison.comparisonOperator() <= KXPredicateOperator::NotEqual;
}

KXValueAxis::KXValueAxis(std::vector<KXPredicateValue> constants, const KXValueDomain &domain)
    : m_domain(domain)
    , m_constants(std::move(constants))
{
    std::erase_if(m_constants, [](const KXPredicateValue &value) { return groupOf(value) < 0; });
    std::sort(m_constants.begin(), m_constants.end(), isBefore);
    m_constants.erase(std::unique(m_constants.begin(), m_constants.end(),
                          [](const auto &a, const auto &b) { return !isBefore(a, b); }),
        m_constants.end());

    std::vector<KXValueRegion::Run> possible;
    const auto add = [&possible](int cell, bool isPossible) {
        if (isPossible)
            possible.emplace_back(cell, cell);
    };
    add(0, domain.canBeAbsent || domain.type == KXValueDomain::AbsentOnly);
    m_lastCell = 1;
    bool isCovered = false; // whether a group holds all values of the domain
    for (size_t first = 0; first < m_constants.size();) {
        Group group { groupOf(m_constants[first]), first, 0, m_lastCell };
        while (first < m_constants.size() && groupOf(m_constants[first]) == group.group)
            ++first;
        group.count = first - group.first;
        const bool isOfKind = this->isOfKind(m_constants[group.first]);
        isCovered = isCovered || (isOfKind && domain.type != KXValueDomain::Anything);
        for (size_t i = 0; i <= group.count; ++i) {
            const KXPredicateValue *low = i > 0 ? &m_constants[group.first + i - 1] : nullptr;
            const KXPredicateValue *high = i < group.count ? &m_constants[group.first + i] : nullptr;
            add(group.firstCell + int(i) * 2, isOfKind && mayHoldBetween(low, high));
            if (high)
                add(group.firstCell + int(i) * 2 + 1, isOfKind && mayHold(*high));
        }
        m_lastCell = group.lastCell() + 1;
        m_groups.push_back(group);
    }
    add(m_lastCell, !isCovered && domain.type != KXValueDomain::AbsentOnly);
    m_possible = KXValueRegion(std::move(possible));
}

bool KXValueAxis::isOfKind(const KXPredicateValue &value) const
{
    const int group = groupOf(value);
    switch (m_domain.type) {
    case KXValueDomain::Anything:
        return true;
    case KXValueDomain::AbsentOnly:
        return false;
    case KXValueDomain::Integers:
    case KXValueDomain::Doubles:
    case KXValueDomain::Decimals:
        return group == AxisNumbers;
    case KXValueDomain::Texts:
        return group == AxisTexts;
    case KXValueDomain::Dates:
        return group == AxisDates;
    case KXValueDomain::Binaries:
        return group == AxisBinaries;
    case KXValueDomain::Objects:
        return group == AxisObjects;
    }
    return false;
}

bool KXValueAxis::mayHold(const KXPredicateValue &value) const
{
    if (m_domain.type == KXValueDomain::Doubles)
        return KXPredicateValue::isEqual(axisDouble(axisNearestDouble(value)), value);
    if (m_domain.type != KXValueDomain::Integers)
        return true;
    const qint64 cut = value.kind() == KXPredicateValue::Integer ? value.integer()
        : value.kind() == KXPredicateValue::Decimal              ? value.decimal().toInt64()
                                                                 : qint64(std::clamp(value.real(), -9.2e18, 9.2e18));
    return cut >= m_domain.least && cut <= m_domain.most && KXPredicateValue::isEqual(axisInteger(cut), value);
}

bool KXValueAxis::mayHoldBetween(const KXPredicateValue *low, const KXPredicateValue *high) const
{
    const auto isBelowHigh
        = [high](const KXPredicateValue &value) { return !high || KXPredicateValue::compare(value, *high) < 0; };
    switch (groupOf(low ? *low : *high)) {
    case AxisNumbers:
        if (m_domain.type == KXValueDomain::Integers) {
            const auto above = axisIntegerAbove(low, m_domain.least);
            return above && *above <= m_domain.most && isBelowHigh(axisInteger(*above));
        }
        if (m_domain.type == KXValueDomain::Doubles) {
            constexpr double infinity = std::numeric_limits<double>::infinity();
            double above = low ? axisNearestDouble(*low) : -infinity;
            if (low && KXPredicateValue::compare(axisDouble(above), *low) <= 0)
                above = std::nextafter(above, infinity);
            return (!low || KXPredicateValue::compare(axisDouble(above), *low) > 0) && isBelowHigh(axisDouble(above));
        }
        return true;
    case AxisTexts: // right behind a text comes the same with a zero
        return low ? !high || KXTextFolding::compare(low->text() + QChar(u'\0'), high->text()) < 0
                   : !high->text().isEmpty();
    case AxisDates:
        return !low || !high || low->integer() + 1 < high->integer();
    case AxisBinaries:
        return low ? !high || QByteArrayView(low->bytes() + '\0').compare(high->bytes()) < 0 : !high->bytes().isEmpty();
    default:
        return true;
    }
}

KXValueRegion KXValueAxis::region(KXPredicateOperator comparisonOperator, const KXPredicateValue &constant) const
{
    using Region = KXValueRegion;
    const bool isEquality = comparisonOperator == KXPredicateOperator::Equal;
    const bool isInequality = comparisonOperator == KXPredicateOperator::NotEqual;
    if (constant.isNull())
        return isEquality ? Region({ { 0, 0 } }) : isInequality ? Region({ { 1, m_lastCell } }) : Region();
    const auto found = std::lower_bound(m_constants.begin(), m_constants.end(), constant, isBefore);
    const int kind = groupOf(constant);
    const auto group = std::find_if(
        m_groups.begin(), m_groups.end(), [kind](const Group &candidate) { return candidate.group == kind; });
    if (kind < 0 || group == m_groups.end())
        return isInequality ? Region({ { 0, m_lastCell } }) : Region();
    const int cell = group->firstCell + int(size_t(found - m_constants.begin()) - group->first) * 2 + 1;
    if (isEquality)
        return Region({ { cell, cell } });
    if (isInequality)
        return Region({ { 0, cell - 1 }, { cell + 1, m_lastCell } });
    if (kind == AxisObjects) // in no order
        return {};
    switch (comparisonOperator) {
    case KXPredicateOperator::LessThan:
        return Region({ { group->firstCell, cell - 1 } });
    case KXPredicateOperator::LessThanOrEqual:
        return Region({ { group->firstCell, cell } });
    case KXPredicateOperator::GreaterThan:
        return Region({ { cell + 1, group->lastCell() } });
    default:
        return Region({ { cell, group->lastCell() } });
    }
}
