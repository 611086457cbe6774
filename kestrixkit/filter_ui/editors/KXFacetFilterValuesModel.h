#pragma once

#include <optional>

#include <QAbstractListModel>

#include <kestrixkit/counts/KXWhatIfCounts.h>
#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/source_list/KXSourceListCell.h>

/// The values that a facet filter's editor offers: what is chosen of them, and what each would make of the list. Those
/// that bring most come first.
///
/// Counts that change later do not move rows, so that none goes from under the pointer; arrange() does. Main thread.
class KX_UI_EXPORT KXFacetFilterValuesModel : public QAbstractListModel
{
    Q_OBJECT
public:
    /// A value to choose.
    struct Offer
    {
        QString name = {};
        QVariant value = {};
        std::optional<QString> identifier = {}; ///< in the remote catalogue
        /// How an object is compared with it when it is included. What is compared otherwise than by "=", such as a
        /// pattern, cannot be excluded, and is not counted.
        KXPredicateOperator included = KXPredicateOperator::Equal;
    };
    enum class State { NotChosen, Included, Excluded };
    enum Role {
        StateRole = Qt::UserRole, ///< State
        CellRole, ///< KXSourceListCell: what is painted
        EmptiesRole, ///< bool: choosing it would leave nothing in the list
        AddedRole, ///< qint64: objects in the list with the value added; invalid where that is not known
        ExcludedRole, ///< qint64: with it excluded
        ExcludableRole, ///< bool
    };

    /// The context makes temporary values for the rows; it is that of the filter.
    explicit KXFacetFilterValuesModel(KXRef<KXFacetFilter> filter, QObject *parent = nullptr);
    ~KXFacetFilterValuesModel() override;

    [[nodiscard]] const QList<Offer> &offers() const { return m_offers; }
    /// Values of the filter that are not among them are offered as well.
    void setOffers(const QList<Offer> &offers);
    /// Of the offers and what follows them, in that order; empty where they are not known.
    void setCounts(const QList<KXWhatIfCounts::ValueCounts> &counts);
    [[nodiscard]] QVariantList values() const;
    /// Shows values whose names contain the text, without regard to case and diacritics.
    void setSearchText(const QString &text);
    [[nodiscard]] const QString &searchText() const { return m_searchText; }
    /// Without case and diacritics: what is searched in.
    [[nodiscard]] static QString foldedText(const QString &text);
    /// Puts the rows in order of their counts, then of their names.
    void arrange();
    /// Looks what the filter holds.
    void readChoices();

    [[nodiscard]] const Offer &offer(int row) const { return m_offers[m_rows[row]]; }
    [[nodiscard]] State state(int row) const { return m_entries[size_t(m_rows[row])].state; }
    /// -1 where it is not shown.
    [[nodiscard]] int rowOfValue(const QVariant &value) const;

    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    struct Entry
    {
        State state = State::NotChosen;
        std::optional<KXWhatIfCounts::ValueCounts> counts;
        QString folded; ///< the name, for searching and sorting
        KXRef<KXFacetFilterValue> shown; ///< what the cell is made of; made when it is first painted
    };

    [[nodiscard]] bool isComparedByEquality(int number) const
    {
        return m_offers[number].included == KXPredicateOperator::Equal;
    }
    [[nodiscard]] KXSourceListCell cell(int number) const;
    [[nodiscard]] QString description(int number) const;

    const KXRef<KXFacetFilter> m_filter;
    QList<Offer> m_offers;
    mutable std::vector<Entry> m_entries; // by offer
    QList<int> m_rows; // offers
    QString m_searchText;
};
