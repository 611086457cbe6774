#pragma once

#include <utility>
#include <vector>

#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>

class KXEntityDescription;

/// What values a key path can have.
struct KXValueDomain
{
    enum Type { Anything, AbsentOnly, Integers, Doubles, Decimals, Texts, Dates, Binaries, Objects };
    Type type = Anything;
    bool canBeAbsent = true;
    bool isToMany = false;
    qint64 least = 0; ///< of Integers
    qint64 most = 0;

    /// Of a key path that begins at the entity; Anything where that does not say.
    [[nodiscard]] static KXValueDomain ofKeyPath(const KXEntityDescription *entity, const QStringList &keys);
};

/// Some cells of an axis, as ascending runs that do not touch.
class KXValueRegion
{
public:
    using Run = std::pair<int, int>; ///< first and last

    KXValueRegion() = default;
    /// In any order, overlapping or not; empty ones (first behind last) are left out.
    explicit KXValueRegion(std::vector<Run> runs);

    [[nodiscard]] bool isEmpty() const { return m_runs.empty(); }
    [[nodiscard]] const std::vector<Run> &runs() const { return m_runs; }
    [[nodiscard]] KXValueRegion intersected(const KXValueRegion &other) const;
    friend bool operator==(const KXValueRegion &, const KXValueRegion &) = default;

private:
    std::vector<Run> m_runs;
};

/// All values of a key path, cut into cells in which every one of some comparisons has one answer: the absent value,
/// each constant, what lies between two constants or beyond them, for each kind of value, and whatever is of no such
/// kind.
class KXValueAxis
{
public:
    KXValueAxis(std::vector<KXPredicateValue> constants, const KXValueDomain &domain);

    /// The cells that hold any value of the domain at all.
    [[nodiscard]] const KXValueRegion &possible() const { return m_possible; }
    /// The cells in which the comparison is true, possible or not; it has to be one that isDecidable().
    [[nodiscard]] KXValueRegion region(KXPredicateOperator comparisonOperator, const KXPredicateValue &constant) const;

    [[nodiscard]] static bool isDecidable(const KXPredicate &comparison);

private:
    /// Values that are comparable with each other; -1 for those that equal nothing.
    [[nodiscard]] static int groupOf(const KXPredicateValue &value);
    [[nodiscard]] static bool isBefore(const KXPredicateValue &a, const KXPredicateValue &b);
    [[nodiscard]] bool isOfKind(const KXPredicateValue &value) const;
    /// Of a constant of the domain's kind: whether the domain has exactly that value.
    [[nodiscard]] bool mayHold(const KXPredicateValue &value) const;
    /// Whether a value of the domain lies between both; null for no bound on that side.
    [[nodiscard]] bool mayHoldBetween(const KXPredicateValue *low, const KXPredicateValue *high) const;

    struct Group
    {
        int group;
        size_t first; ///< among the constants
        size_t count;
        int firstCell; ///< what lies below the first constant; then alternately constants and what lies above
        [[nodiscard]] int lastCell() const { return firstCell + int(count) * 2; }
    };
    KXValueDomain m_domain;
    std::vector<KXPredicateValue> m_constants; ///< by group and value, each once
    std::vector<Group> m_groups;
    int m_lastCell = 0; ///< of values that are of no group here
    KXValueRegion m_possible;
};
