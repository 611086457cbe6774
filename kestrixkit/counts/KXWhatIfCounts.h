#pragma once

#include <memory>

#include <kestrixkit/counts/KXLiveCounts.h>

class KXWhatIfCountsPrivate;

/// How many objects a search would find if one more value were asked for, or kept out: for every offered value of any
/// number of facets, exact and always right.
///
/// A search is a condition and any number of facets, joined by AND. A facet looks at one key path and holds what was
/// chosen there, as facet filters do: an object must have one of the included values, and must differ from one of the
/// excluded ones (excluded values are joined by OR, so that a second one lets more objects in). For an offered value
/// the counts are those of the whole search with that value put into its facet by "=" or "!=", in place of what the
/// facet holds of the same value.
///
/// All facets are counted in one pass over the rows of a KXLiveCounts: a row that fails no facet counts in all of them,
/// one that fails a single facet in that one. Which facets a row fails is kept, in four bytes a row, so that another
/// choice looks at one facet alone and a changed row at itself. A row with several values counts once for each of them.
/// What columns cannot hold (see KXLiveCounts::unsupported()) is counted by the store, one fetch a value, when it is
/// asked for.
///
/// Belongs to the thread of the counts' context. Becomes right with the counts: at the end of the turn in which objects
/// changed, before a save, with a merge, and as time goes by.
class KX_CORE_EXPORT KXWhatIfCounts : public QObject
{
    Q_OBJECT

public:
    /// A value that a facet holds. "Not equal" marks an excluded one.
    struct Choice
    {
        QVariant value;
        KXPredicateOperator comparisonOperator = KXPredicateOperator::Equal;
    };
    /// One part of the search, and what is offered for it.
    struct Facet
    {
        QString keyPath;
        KXPredicateModifier modifier = KXPredicateModifier::Direct;
        QVariantList values; ///< offered; what valueCounts() answers for
        QList<Choice> choices;
        /// What must hold instead of the choices, for filters that are no choice among values, such as ranges. Made
        /// with the clock standing at KXLiveCounts::asOf().
        KXLiveCounts::Rule condition;
        /// Of a filter that is switched off: what is put into it makes no difference.
        bool takesPart = true;

        /// What the choices, or the condition, ask for; absent where that is nothing.
        [[nodiscard]] KXPredicate predicate() const;
        /// The same with the value put into it by that operator.
        [[nodiscard]] KXPredicate predicateWithValue(
            const QVariant &value, KXPredicateOperator comparisonOperator) const;
    };
    /// Of an offered value.
    struct ValueCounts
    {
        qint64 added = 0; ///< with the value put in by "="
        qint64 excluded = 0; ///< by "!="
        friend bool operator==(const ValueCounts &, const ValueCounts &) = default;
    };
    /// Objects with one value of a numeric facet.
    struct NumberCount
    {
        double number; ///< of dates: milliseconds since 1970 UTC
        qint64 count;
    };

    /// Uses the columns of the counts, which must outlive it; their base predicates hold here, too.
    explicit KXWhatIfCounts(KXLiveCounts &counts, QObject *parent = nullptr);
    ~KXWhatIfCounts() override;

    [[nodiscard]] KXLiveCounts &liveCounts() const;

    /// What holds besides the facets; nothing at first.
    void setCondition(KXLiveCounts::Rule condition);
    void setCondition(const KXPredicate &condition);
    /// Sets the facet of that identifier, in place of the one that had it. Counted in the next turn, or at once by
    /// update(). Nothing happens where it is as it was; facets with a condition always count as changed.
    void setFacet(const QString &identifier, const Facet &facet);
    void removeFacet(const QString &identifier);
    [[nodiscard]] QStringList identifiers() const;
    /// An empty one for an unknown identifier.
    [[nodiscard]] Facet facet(const QString &identifier) const;

    /// How many objects the search finds as it is; absent before the first counting and while the store does not
    /// answer. So are all counts below.
    [[nodiscard]] std::optional<qint64> count() const;
    /// Of the offered values, in their order; empty for an unknown identifier.
    [[nodiscard]] QList<ValueCounts> valueCounts(const QString &identifier) const;
    /// Of one value, which need not be among the offered ones.
    [[nodiscard]] std::optional<ValueCounts> valueCounts(const QString &identifier, const QVariant &value) const;
    /// How the numbers or dates of a facet's key path are spread over the objects that fit everything but this facet,
    /// ascending; objects without a number are left out. Empty where the key path is no attribute of that kind.
    [[nodiscard]] QList<NumberCount> distribution(const QString &identifier) const;

    /// The search with the value put into the facet, base predicates included: what valueCounts() counts.
    [[nodiscard]] KXPredicate predicateWithValue(
        const QString &identifier, const QVariant &value, KXPredicateOperator comparisonOperator) const;
    /// The search as it is.
    [[nodiscard]] KXPredicate predicate() const;

    /// Counts at once what is due. False with an error where the store does not answer.
    bool update(KXError *error = nullptr);
    /// Counts everything from the filled columns once more, for measuring.
    void recount();

Q_SIGNALS:
    /// Counts have become others, or were made for the first time.
    void countsDidChange();

private:
    const std::unique_ptr<KXWhatIfCountsPrivate> d;
};
