#pragma once

#include <QObject>

#include <kestrixkit/counts/KXWhatIfCounts.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

/// What every offered value would make of the list of a filter set: how many objects it would have if the value were
/// added, and if it were excluded, whatever else the set asks for.
///
/// Both are counts of the set's local predicate with the value put, enabled, into the set's facet filter for that key
/// path by "=" or "!=", in place of the same value; where the set has no such filter, into a new one. Of several
/// filters for one key path it is the first by position. What is put into a filter that is switched off makes no
/// difference to the list.
///
/// Follows the set, its filters and values as their context announces them, and the counted objects as the live counts
/// do. A set that is gone finds nothing. Belongs to the thread of both contexts.
class KX_CORE_EXPORT KXFilterSetWhatIfCounts : public QObject
{
    Q_OBJECT

public:
    using ValueCounts = KXWhatIfCounts::ValueCounts;

    /// Uses the columns of the counts, which must outlive it; their base predicates hold here, too.
    explicit KXFilterSetWhatIfCounts(KXLiveCounts &counts, QObject *parent = nullptr);
    ~KXFilterSetWhatIfCounts() override;

    [[nodiscard]] const KXRef<KXFilterSet> &filterSet() const { return m_set; }
    /// Of any context; an empty handle for none, which lets everything through. Distributions end with it.
    void setFilterSet(const KXRef<KXFilterSet> &set);

    /// Offers values for a key path, in place of those that were. The modifier is that of a filter that would have to
    /// be made; an existing filter keeps its own. Where a filter is named, it is that one that values are put into, as
    /// long as it is in the set, and not the first for the key path.
    void setFacet(const QString &keyPath, const QVariantList &values,
        KXPredicateModifier modifier = KXPredicateModifier::Direct, const KXRef<KXFacetFilter> &filter = {});
    void removeFacet(const QString &keyPath);
    [[nodiscard]] QStringList facets() const { return m_facets.keys(); }
    /// The filter that the key path's values would be put into; empty where one would have to be made.
    [[nodiscard]] KXRef<KXFacetFilter> filterOfFacet(const QString &keyPath) const;

    /// Watches how the values of a filter's key path are spread over the objects that fit all other filters.
    void addDistribution(const KXRef<KXFilter> &filter);
    void removeDistribution(const KXRef<KXFilter> &filter);

    // The answers; see KXWhatIfCounts.

    [[nodiscard]] std::optional<qint64> count() const { return m_counts.count(); }
    [[nodiscard]] QList<ValueCounts> valueCounts(const QString &keyPath) const;
    [[nodiscard]] std::optional<ValueCounts> valueCounts(const QString &keyPath, const QVariant &value) const;
    [[nodiscard]] QList<KXWhatIfCounts::NumberCount> distribution(const KXRef<KXFilter> &filter) const;
    /// The list's predicate, base predicates included, with the value put in.
    [[nodiscard]] KXPredicate predicateWithValue(
        const QString &keyPath, const QVariant &value, KXPredicateOperator comparisonOperator) const;
    /// Takes over what changed in the set and counts at once. False with an error where the store does not answer.
    bool update(KXError *error = nullptr);

Q_SIGNALS:
    void countsDidChange();

private:
    struct Facet
    {
        QVariantList values;
        KXPredicateModifier modifier;
        KXRef<KXFacetFilter> filter; ///< empty: the first for the key path
    };

    [[nodiscard]] QList<KXRef<KXFilter>> filters() const;
    [[nodiscard]] KXPredicate rest() const;
    void follow(const KXObjectsDidChange &did);
    void takeOver();

    KXWhatIfCounts m_counts;
    KXRef<KXFilterSet> m_set;
    QMap<QString, Facet> m_facets;
    QHash<QString, KXRef<KXFilter>> m_spread; // by identifier
    KXNotificationToken m_changes;
};
