#include <kestrixkit/counts/KXFacetCounts_p.h>

#include <algorithm>
#include <bit>

using FacetChoice = KXWhatIfCounts::Choice;

namespace {

bool facetIsPlain(const KXCountTable::Place &place)
{
    if (!place.last || !place.last->isAttribute())
        return false;
    const KXAttributeType type = place.last->type();
    return type == KXAttributeType::String || type == KXAttributeType::URI || type == KXAttributeType::UUID;
}

}

KXFacetCounts::KXFacetCounts(const KXCountTable::Place &place, KXPredicateModifier modifier)
    : m_column(place.column)
    , m_path(place.path)
    , m_isList(place.isList)
    , m_isAll(modifier == KXPredicateModifier::All)
    , m_isNumber(place.column->kind() == KXCountColumn::Kind::Number)
    , m_isSet(place.column->kind() == KXCountColumn::Kind::Relation)
    , m_isPlain(facetIsPlain(place))
{
}

bool KXFacetCounts::canHold(const QList<FacetChoice> &choices)
{
    return std::all_of(choices.begin(), choices.end(), [](const FacetChoice &choice) {
        const int type = choice.value.typeId();
        return (choice.comparisonOperator == KXPredicateOperator::Equal
                   || choice.comparisonOperator == KXPredicateOperator::NotEqual)
            && type != QMetaType::QVariantList && type != QMetaType::QStringList;
    });
}

// Elements

quint32 KXFacetCounts::intern(const KXPredicateValue &value,
    std::unordered_multimap<size_t, std::pair<KXPredicateValue, quint32>> &known, quint32 next)
{
    const auto [from, to] = known.equal_range(value.hash());
    for (auto entry = from; entry != to; ++entry) {
        if (KXPredicateValue::isEqual(entry->second.first, value))
            return entry->second.second;
    }
    known.emplace(value.hash(), std::pair(value, next));
    return next;
}

/// Of a value by its number in the column.
quint32 KXFacetCounts::elementOfNumber(quint32 number)
{
    if (m_isPlain)
        return number;
    while (m_elementsOfNumbers.size() <= number) {
        const QVariant &value = m_column->values(m_path).value(quint32(m_elementsOfNumbers.size()));
        m_elementsOfNumbers.push_back(intern(KXPredicateValue(value), m_known, quint32(m_known.size())));
    }
    return m_elementsOfNumbers[number];
}

quint32 KXFacetCounts::codeOfNumber(qint64 number)
{
    const auto [found, isNew] = m_codesOfNumbers.try_emplace(number, quint32(m_numbers.size()));
    if (isNew)
        m_numbers.push_back(number);
    return found->second;
}

quint32 KXFacetCounts::elementOf(const QVariant &constant)
{
    if (m_isNumber) {
        if (const std::optional<qint64> number = m_column->numberEqualTo(constant))
            return codeOfNumber(*number);
        return nowhere + intern(KXPredicateValue(constant), m_unknown, quint32(m_unknown.size()));
    }
    return elementOfNumber(m_column->numberOfConstant(m_path, constant));
}

void KXFacetCounts::readSet(quint32 code)
{
    std::vector<quint32> &set = m_sets[code];
    set.clear();
    for (const quint32 number : m_column->reachedFrom(m_path, code))
        set.push_back(elementOfNumber(number));
    std::sort(set.begin(), set.end());
    set.erase(std::unique(set.begin(), set.end()), set.end());
}

void KXFacetCounts::growElements(quint32 element)
{
    if (element < m_gains.size())
        return;
    m_gains.resize(size_t(element) + 1 + element / 4);
    m_losses.resize(m_gains.size());
}

/// Takes in codes that have come.
void KXFacetCounts::extend()
{
    const size_t size = m_isNumber ? m_numbers.size() : m_column->codeCount();
    for (auto code = quint32(m_flags.size()); code < size; ++code) {
        if (m_isSet) {
            m_sets.emplace_back();
            readSet(code);
        } else {
            m_elements.push_back(m_isNumber ? code : elementOfNumber(code));
        }
        for (const quint32 element : elements(code))
            growElements(element);
        m_rows.push_back(0);
        m_flags.push_back(flagsOf(code));
    }
}

void KXFacetCounts::setsDidChange(const KXCountColumn &column, const std::vector<quint32> &sets)
{
    if (&column != m_column || !m_isSet)
        return;
    for (const quint32 set : sets) {
        if (set >= m_flags.size())
            continue;
        readSet(set);
        for (const quint32 element : elements(set))
            growElements(element);
        m_flags[set] = flagsOf(set);
    }
}

// What is equal to what

bool KXFacetCounts::isEqual(quint32 code, quint32 element) const
{
    const auto own = elements(code);
    if (!m_isList)
        return own.front() == element;
    if (m_isAll)
        return own.empty() || (own.size() == 1 && own.front() == element);
    return std::binary_search(own.begin(), own.end(), element);
}

bool KXFacetCounts::isUnequal(quint32 code, quint32 element) const
{
    const auto own = elements(code);
    if (!m_isList)
        return own.front() != element;
    if (m_isAll)
        return !std::binary_search(own.begin(), own.end(), element);
    return own.size() > 1 || (own.size() == 1 && own.front() != element);
}

/// How many of the included choices the values of the code are equal to.
qint64 KXFacetCounts::countOfIncluded(quint32 code) const
{
    const auto own = elements(code);
    if (m_isList && m_isAll && own.size() != 1)
        return own.empty() ? m_included : 0;
    qint64 count = 0;
    for (const quint32 element : own) {
        if (const auto chosen = m_chosen.find(element); chosen != m_chosen.end())
            count += chosen->second.included;
    }
    return count;
}

/// How many of the excluded choices they differ from.
qint64 KXFacetCounts::countOfExcluded(quint32 code) const
{
    const auto own = elements(code);
    if (m_isList && !m_isAll && own.size() != 1)
        return own.empty() ? 0 : m_excluded;
    qint64 count = m_excluded;
    for (const quint32 element : own) {
        if (const auto chosen = m_chosen.find(element); chosen != m_chosen.end())
            count -= chosen->second.excluded;
    }
    return count;
}

quint8 KXFacetCounts::flagsOf(quint32 code) const
{
    if (m_chosen.empty() || !m_takesPart)
        return Gains | Loses;
    const bool isIncluded = countOfIncluded(code) > 0, isApart = countOfExcluded(code) > 0;
    const bool fitsIncluded = m_included == 0 || isIncluded, fitsExcluded = m_excluded == 0 || isApart;
    return quint8((fitsIncluded && fitsExcluded ? 0 : Fails)
        | (fitsExcluded && (m_included == 0 || !isIncluded) ? Gains : 0)
        | (fitsIncluded && (m_excluded == 0 || !isApart) ? Loses : 0));
}

// Choices

void KXFacetCounts::setChoices(const QList<FacetChoice> &choices, bool takesPart)
{
    m_chosen.clear();
    m_included = m_excluded = 0;
    m_takesPart = takesPart;
    for (const FacetChoice &choice : choices) {
        Chosen &chosen = m_chosen[elementOf(choice.value)];
        const bool isExcluded = choice.comparisonOperator == KXPredicateOperator::NotEqual;
        ++(isExcluded ? chosen.excluded : chosen.included);
        ++(isExcluded ? m_excluded : m_included);
    }
    m_letsAllIn = choices.isEmpty() || !takesPart;
    extend();
    for (quint32 code = 0; code < m_flags.size(); ++code)
        m_flags[code] = flagsOf(code);
}

std::vector<quint8> KXFacetCounts::failing() const
{
    std::vector<quint8> failing(m_flags.size());
    std::transform(m_flags.begin(), m_flags.end(), failing.begin(), [](quint8 flags) { return flags & Fails; });
    return failing;
}

// Rows

void KXFacetCounts::readRows(size_t count)
{
    if (m_isNumber) {
        m_ownCodes.resize(count);
        for (size_t row = 0; row < count; ++row)
            m_ownCodes[row] = codeOfNumber(m_column->numberAt(row));
    }
    extend();
}

void KXFacetCounts::readRow(size_t row)
{
    if (!m_isNumber) {
        if (m_column->codeAt(row) >= m_flags.size())
            extend();
        return;
    }
    if (row >= m_ownCodes.size())
        m_ownCodes.resize(row + 1 + row / 8);
    m_ownCodes[row] = codeOfNumber(m_column->numberAt(row));
    if (m_ownCodes[row] >= m_flags.size())
        extend();
}

// Counting

void KXFacetCounts::begin()
{
    std::fill(m_rows.begin(), m_rows.end(), 0);
    std::fill(m_gains.begin(), m_gains.end(), 0);
    std::fill(m_losses.begin(), m_losses.end(), 0);
    m_gainsOfEmpty = m_lossesOfEmpty = m_sumOfLosses = 0;
    for (auto &[element, chosen] : m_chosen)
        chosen.counts = {};
}

void KXFacetCounts::finish()
{
    for (quint32 code = 0; code < m_rows.size(); ++code) {
        if (m_rows[code] != 0)
            apply(code, m_rows[code]);
    }
}

void KXFacetCounts::apply(quint32 code, qint64 difference)
{
    const auto own = elements(code);
    const quint8 flags = m_flags[code];
    // A value is equal to those that are it, and, where all have to be, to none.
    if (flags & Gains) {
        if (m_isList && m_isAll && own.size() != 1) {
            m_gainsOfEmpty += own.empty() ? difference : 0;
        } else {
            for (const quint32 element : own)
                m_gains[element] += difference;
        }
    }
    if (flags & Loses) {
        m_sumOfLosses += difference;
        if (m_isList && !m_isAll && own.size() != 1) {
            m_lossesOfEmpty += own.empty() ? difference : 0;
        } else {
            for (const quint32 element : own)
                m_losses[element] += difference;
        }
    }
    if (m_chosen.empty() || !m_takesPart)
        return;
    const qint64 included = countOfIncluded(code), excluded = countOfExcluded(code);
    for (auto &[element, chosen] : m_chosen) {
        const bool equal = isEqual(code, element), unequal = isUnequal(code, element);
        const bool fitsIncluded = included - (equal ? chosen.included : 0) > 0;
        const bool fitsExcluded = excluded - (unequal ? chosen.excluded : 0) > 0;
        if ((fitsIncluded || equal) && (fitsExcluded || m_excluded == chosen.excluded))
            chosen.counts.added += difference;
        if ((fitsIncluded || m_included == chosen.included) && (fitsExcluded || unequal))
            chosen.counts.excluded += difference;
    }
}

KXWhatIfCounts::ValueCounts KXFacetCounts::valueCounts(const QVariant &value, qint64 total)
{
    if (!m_takesPart)
        return { total, total };
    const quint32 element = elementOf(value);
    extend();
    if (const auto chosen = m_chosen.find(element); chosen != m_chosen.end())
        return chosen->second.counts;
    const bool isCounted = element < m_gains.size();
    return { (m_included > 0 ? total : 0) + m_gainsOfEmpty + (isCounted ? m_gains[element] : 0),
        (m_excluded > 0 ? total : 0) + m_sumOfLosses - m_lossesOfEmpty - (isCounted ? m_losses[element] : 0) };
}

QList<KXWhatIfCounts::NumberCount> KXFacetCounts::distribution() const
{
    QList<KXWhatIfCounts::NumberCount> counts;
    if (!m_isNumber)
        return counts;
    std::vector<std::pair<qint64, quint32>> sorted;
    for (size_t code = 0; code < m_rows.size(); ++code) {
        if (m_rows[code] != 0 && m_numbers[code] != KXCountColumn::absent)
            sorted.emplace_back(m_numbers[code], m_rows[code]);
    }
    std::sort(sorted.begin(), sorted.end());
    const KXAttributeType type = m_column->property().type();
    for (const auto &[number, count] : sorted) {
        const double real = type == KXAttributeType::Double ? KXCountColumn::doubleFromNumber(number)
            : type == KXAttributeType::Date                 ? double(number) / 1000
                                                            : double(number);
        counts.append({ real, count });
    }
    return counts;
}
