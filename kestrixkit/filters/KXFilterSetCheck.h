#pragma once

#include <kestrixkit/filters/KXFilterSet.h>

class KXEntityDescription;

/// What is wrong with a filter set by itself, whatever the library holds: conditions that no object can fit, conditions
/// that every object fits, and conditions that contradict each other.
///
/// Looks at the local predicates of the enabled filters as they are at this moment, so that spans of dates count from
/// now. It is exact for comparisons of a key path with a constant by "<", "<=", ">", ">=", "=" and "!=", joined by OR
/// or not: it takes types of attributes into account, absent values, and any number of values behind a to-many
/// relationship. Conditions of other forms are left out and named as undecided(). Each key path is looked at by itself:
/// what two of them have to do with each other is not known here. Belongs to the thread of the set's context.
class KX_CORE_EXPORT KXFilterSetCheck
{
public:
    /// One of the conditions that the set joins by AND: a bound, the included or the excluded values of a filter.
    struct Part
    {
        KXRef<KXFilter> filter;
        KXPredicate predicate;
    };
    enum class Problem {
        NeverMatches, ///< one part, which nothing can fit
        AlwaysMatches, ///< one part, which everything fits
        Contradiction, ///< parts of which nothing can fit all, though it can fit all but any one of them
    };
    /// One thing that is wrong, and which parts of the set it takes to be so.
    struct Finding
    {
        Problem problem;
        QList<int> parts; ///< places in parts(), ascending
        friend bool operator==(const Finding &, const Finding &) = default;
    };

    /// The entity is that of the objects to be filtered; null where it is not known: then attributes may hold anything,
    /// and a key path stands for many values if it is compared with ANY or ALL.
    [[nodiscard]] static KXFilterSetCheck check(
        const KXFilterSet &set, const KXEntityDescription *entity, const std::optional<QString> &prefix = {});

    [[nodiscard]] const QList<Part> &parts() const { return m_parts; }
    /// All single parts that never or always match and all pairs that contradict each other; for each key path where
    /// nothing of that kind explains that nothing fits, one larger group.
    [[nodiscard]] const QList<Finding> &findings() const { return m_findings; }
    /// Places of the parts that are not understood.
    [[nodiscard]] const QList<int> &undecided() const { return m_undecided; }

    /// Whether no object at all can be in the set. False also where undecided parts might see to that.
    [[nodiscard]] bool neverMatches() const;
    /// Whether every object is in the set.
    [[nodiscard]] bool alwaysMatches() const;

private:
    QList<Part> m_parts;
    QList<Finding> m_findings;
    QList<int> m_undecided;
};
