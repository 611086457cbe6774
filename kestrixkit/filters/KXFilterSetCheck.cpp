#include <kestrixkit/filters/KXFilterSetCheck.h>

#include <algorithm>
#include <map>

#include <kestrixkit/filters/KXFilterSetExplanation.h>
#include <kestrixkit/filters/KXValueAxis_p.h>

namespace {

/// More regions than that are not kept apart; conditions by ALL of so many values do not come about.
constexpr qsizetype checkMostAlternatives = 256;
/// Combinations of such regions that are tried before it is assumed that one of them fits.
constexpr int checkMostAttempts = 100'000;

/// The comparisons that a part joins by OR; none for a part of another form.
QList<KXPredicate> checkComparisons(const KXPredicate &part)
{
    const QList<KXPredicate> comparisons
        = part.type() == KXPredicateType::Or ? part.subpredicates() : QList<KXPredicate> { part };
    const bool isDecidable = std::all_of(comparisons.begin(), comparisons.end(), [&](const KXPredicate &comparison) {
        return KXValueAxis::isDecidable(comparison)
            && comparison.leftExpression() == comparisons.first().leftExpression()
            && comparison.modifier() == comparisons.first().modifier();
    });
    return isDecidable ? comparisons : QList<KXPredicate>();
}

/// The parts of a set that look at one key path, as regions of its values.
class KeyPathParts
{
public:
    KeyPathParts(const KXEntityDescription *entity, const QStringList &keys)
        : m_domain(KXValueDomain::ofKeyPath(entity, keys))
    {
    }

    void add(int place, const QList<KXPredicate> &comparisons)
    {
        const KXPredicateModifier modifier = comparisons.first().modifier();
        if (m_domain.type == KXValueDomain::Anything
            && (modifier == KXPredicateModifier::All || modifier == KXPredicateModifier::Any))
            m_domain.isToMany = true;
        m_entries.push_back({ place, modifier == KXPredicateModifier::All, comparisons, {}, {} });
    }

    /// Finds what is wrong; parts that cannot be decided after all go to the second list.
    void check(QList<KXFilterSetCheck::Finding> &findings, QList<int> &undecided)
    {
        using Problem = KXFilterSetCheck::Problem;
        resolve(undecided);
        std::vector<const Entry *> satisfiable;
        for (const Entry &entry : m_entries) {
            if (isSatisfiable({ &entry }))
                satisfiable.push_back(&entry);
            else
                findings.append({ Problem::NeverMatches, { entry.place } });
            if (isAlways(entry))
                findings.append({ Problem::AlwaysMatches, { entry.place } });
        }
        bool isExplained = satisfiable.size() < m_entries.size();
        for (size_t i = 0; i < satisfiable.size(); ++i) {
            for (size_t j = i + 1; j < satisfiable.size(); ++j) {
                if (isSatisfiable({ satisfiable[i], satisfiable[j] }))
                    continue;
                findings.append({ Problem::Contradiction, { satisfiable[i]->place, satisfiable[j]->place } });
                isExplained = true;
            }
        }
        if (isExplained || isSatisfiable(satisfiable))
            return;
        // Whatever can be left out is no part of the contradiction.
        QList<int> places;
        for (size_t i = 0; i < satisfiable.size(); ++i) {
            const Entry *entry = std::exchange(satisfiable[i], nullptr);
            if (!isSatisfiable(satisfiable))
                continue;
            satisfiable[i] = entry;
            places.append(entry->place);
        }
        findings.append({ Problem::Contradiction, places });
    }

private:
    struct Entry
    {
        int place;
        bool isForAll; ///< of the values behind a to-many relationship every one has to match
        QList<KXPredicate> comparisons;
        KXValueRegion region; ///< values that fit any of the comparisons
        std::vector<KXValueRegion>
            alternatives; ///< for isForAll: each comparison's, one of which has to hold all values
    };

    void resolve(QList<int> &undecided)
    {
        if (m_domain.isToMany) {
            std::erase_if(m_entries, [&undecided](const Entry &entry) {
                const bool isTooLarge = entry.isForAll && entry.comparisons.size() > checkMostAlternatives;
                if (isTooLarge)
                    undecided.append(entry.place);
                return isTooLarge;
            });
        }
        std::vector<KXPredicateValue> constants;
        for (const Entry &entry : m_entries) {
            for (const KXPredicate &comparison : entry.comparisons)
                constants.emplace_back(comparison.rightExpression().constantValue());
        }
        const KXValueAxis axis(std::move(constants), m_domain);
        m_possible = axis.possible();
        for (Entry &entry : m_entries) {
            entry.isForAll = entry.isForAll && m_domain.isToMany;
            std::vector<KXValueRegion::Run> runs;
            for (const KXPredicate &comparison : entry.comparisons) {
                const KXValueRegion region = axis.region(
                    comparison.comparisonOperator(), KXPredicateValue(comparison.rightExpression().constantValue()));
                runs.insert(runs.end(), region.runs().begin(), region.runs().end());
                if (entry.isForAll)
                    entry.alternatives.push_back(region.intersected(m_possible));
            }
            entry.region = KXValueRegion(std::move(runs)).intersected(m_possible);
        }
    }

    [[nodiscard]] bool isAlways(const Entry &entry) const
    {
        if (!m_domain.isToMany)
            return entry.region == m_possible;
        // No values at all fit ALL and nothing else.
        return entry.isForAll
            && std::any_of(entry.alternatives.begin(), entry.alternatives.end(),
                [this](const auto &region) { return region == m_possible; });
    }

    /// Whether some value, or behind a to-many relationship some set of values, fits all the entries; null ones do not
    /// count.
    [[nodiscard]] bool isSatisfiable(const std::vector<const Entry *> &entries) const
    {
        if (!m_domain.isToMany) {
            KXValueRegion common = m_possible;
            for (const Entry *entry : entries) {
                if (entry)
                    common = common.intersected(entry->region);
            }
            return !common.isEmpty();
        }
        // A set may hold whatever it likes within the alternatives chosen for the entries with ALL; it then only has to
        // hold something for each of the others.
        std::vector<const Entry *> forAll;
        std::vector<const Entry *> forAny;
        for (const Entry *entry : entries) {
            if (entry)
                (entry->isForAll ? forAll : forAny).push_back(entry);
        }
        int attempts = 0;
        const auto fits = [&](const auto &self, const KXValueRegion &allowed, size_t next) -> bool {
            for (const Entry *entry : forAny) {
                if (entry->region.intersected(allowed).isEmpty())
                    return false;
            }
            if (next == forAll.size() || ++attempts > checkMostAttempts)
                return true;
            return std::any_of(forAll[next]->alternatives.begin(), forAll[next]->alternatives.end(),
                [&](const KXValueRegion &region) { return self(self, allowed.intersected(region), next + 1); });
        };
        return fits(fits, m_possible, 0);
    }

    KXValueDomain m_domain;
    KXValueRegion m_possible;
    std::vector<Entry> m_entries;
};

}

KXFilterSetCheck KXFilterSetCheck::check(
    const KXFilterSet &set, const KXEntityDescription *entity, const std::optional<QString> &prefix)
{
    KXFilterSetCheck check;
    std::map<QString, KeyPathParts> keyPaths;
    for (const KXRef<KXFilter> &filter : set.sortedFilters()) {
        const KXPredicate predicate
            = filter->enabled() ? filter->representedLocalPredicateWithKeyPath(prefix) : KXPredicate();
        for (const KXPredicate &part :
            predicate ? KXFilterSetExplanation::partsOfPredicate(predicate) : QList<KXPredicate>()) {
            const int place = int(check.m_parts.size());
            check.m_parts.append({ filter, part });
            if (const auto comparisons = checkComparisons(part); !comparisons.isEmpty()) {
                const KXExpression &path = comparisons.first().leftExpression();
                keyPaths.try_emplace(path.keyPath(), entity, path.keys()).first->second.add(place, comparisons);
            } else if (part.countOfComparisons() == 0) { // AND of nothing and the like
                check.m_findings.append(
                    { part.evaluateWithObject(nullptr) ? Problem::AlwaysMatches : Problem::NeverMatches, { place } });
            } else {
                check.m_undecided.append(place);
            }
        }
    }
    for (auto &[keyPath, parts] : keyPaths)
        parts.check(check.m_findings, check.m_undecided);
    std::sort(check.m_undecided.begin(), check.m_undecided.end());
    std::sort(check.m_findings.begin(), check.m_findings.end(), [](const Finding &a, const Finding &b) {
        return std::pair(a.problem, a.parts) < std::pair(b.problem, b.parts);
    });
    return check;
}

bool KXFilterSetCheck::neverMatches() const
{
    return std::any_of(m_findings.begin(), m_findings.end(),
        [](const Finding &finding) { return finding.problem != Problem::AlwaysMatches; });
}

bool KXFilterSetCheck::alwaysMatches() const
{
    return std::count_if(m_findings.begin(), m_findings.end(), [](const Finding &finding) {
        return finding.problem == Problem::AlwaysMatches;
    }) == m_parts.size();
}
