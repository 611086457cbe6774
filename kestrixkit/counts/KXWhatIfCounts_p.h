#pragma once

#include <array>

#include <QPointer>

#include <kestrixkit/counts/KXFacetCounts_p.h>
#include <kestrixkit/counts/KXWhatIfCounts.h>

/// What a row fails: how many parts of the search, and the sum of the parts' numbers. Of one part alone that is its
/// number; sums that wrap around do no harm.
using KXWhatIfState = quint32;

/// The parts of a search, and of each row of the table which of them it fails.
class KXWhatIfCountsPrivate : public KXCountWatcher
{
public:
    /// A part of the search: a facet, or behind them all what holds besides them.
    struct Part
    {
        QString identifier;
        KXWhatIfCounts::Facet facet;
        std::unique_ptr<KXFacetCounts> counts; ///< none where columns do not hold the key path
        int rule = -1; ///< of the table, where that says what fits; else the counts do
        quint64 revision = 0; ///< of the rule that the states were made with
        std::vector<quint8> fits; ///< by row, what the rule said
        bool isChanged = true;
        bool isRead = false; ///< the rows' codes
        std::vector<KXWhatIfState> changes; ///< of states, by code, while these are brought up to date
    };

    explicit KXWhatIfCountsPrivate(KXWhatIfCounts *whatIf, KXLiveCounts &live)
        : q(whatIf)
        , counts(&live)
    {
        parts.push_back({});
        live.table().addWatcher(this);
    }

    [[nodiscard]] KXCountTable &table() const { return counts->table(); }
    [[nodiscard]] Part *find(const QString &identifier)
    {
        const auto found = std::find_if(
            parts.begin(), parts.end() - 1, [&identifier](const Part &part) { return part.identifier == identifier; });
        return found == parts.end() - 1 ? nullptr : &*found;
    }
    [[nodiscard]] Part &rest() { return parts.back(); }
    void setRule(Part &part, KXLiveCounts::Rule rule);
    void prepare(Part &part);
    void scheduleUpdate();
    void settle();
    [[nodiscard]] bool isByStore();
    void bringUpToDate();
    void prepareStates(size_t number);
    void updateStates(size_t from, size_t to);
    void fill(size_t from, size_t to);
    void finish();
    void count(size_t row, KXWhatIfState state, qint64 difference);
    [[nodiscard]] KXPredicate predicateWith(const Part *changed, const KXPredicate &predicate) const;
    [[nodiscard]] std::optional<qint64> countOf(const KXPredicate &predicate) const;
    [[nodiscard]] std::optional<KXWhatIfCounts::ValueCounts> valueCounts(Part &part, const QVariant &value);

    void rowLeaves(size_t row) override;
    void rowEnters(size_t row) override;
    void setsDidChange(const KXCountColumn &column, const std::vector<quint32> &sets) override;
    void rowsDidMove() override;

    // Those access what KXLiveCounts grants this class alone.
    int addCondition(KXLiveCounts::Rule rule) { return counts->addCondition(std::move(rule)); }
    void removeCondition(int number) { counts->removeCondition(number); }
    [[nodiscard]] const QList<KXPredicate> &base() const { return counts->basePredicates(); }

    KXWhatIfCounts *const q;
    const QPointer<KXLiveCounts> counts;
    KXLiveCounts::Rule condition;
    std::vector<Part> parts; // the last is no facet
    std::vector<KXWhatIfState> states; // by row
    qint64 total = 0;
    bool isReady = false;
    bool needsAll = true; // states and counts are of no use
    bool countsByStore = false;
    bool hasChanged = false;
    bool isScheduled = false;
    mutable QHash<QString, qint64> known; // what the store counted, by the predicate's text

    struct Histogram
    {
        size_t part;
        std::vector<std::array<quint32, 4>> few;
    };
    std::vector<Histogram> histograms; // while rows are counted
};
