#pragma once

#include <QTreeWidget>

#include "filters/FilterTypes.h"
#include "shop/Shop.h"

/// The shop's genres, and keys, with how many of the shop's tracks that are shown have them: from a sample at first,
/// marked "≈", then exactly. All of them are counted by one statement.
class ShopFacets : public QTreeWidget
{
    Q_OBJECT
public:
    ShopFacets(std::shared_ptr<KXCatalogue> catalogue, KXManagedObjectContext &library, QWidget *parent = nullptr);

    /// Counts anew, for all tracks that fit.
    void setRule(const KXPredicate &rule);

Q_SIGNALS:
    /// A value was clicked.
    void picked(const QString &keyPath, const QString &name, const FilterTypes::Choice &choice);
    /// How many tracks there are, "≈ 12,300" or "12,345"; empty where nobody knows, with the reason.
    void countCame(const QString &count, const QString &problem);

private:
    struct Value
    {
        QString keyPath; ///< the library's
        FilterTypes::Choice choice;
        QTreeWidgetItem *item;
    };
    void addValues(
        const QString &title, const QString &keyPath, const QString &remote, const QList<FilterTypes::Choice> &choices);
    void count();
    void loadGenres();
    void pick(QTreeWidgetItem *item);
    void show(const KXCatalogueCounts &counts);

    const std::shared_ptr<KXCatalogue> m_catalogue;
    QList<Value> m_values;
    QList<KXPredicate> m_rules; // of the values
    bool m_isExact = false;
    KXPredicate m_rule;
    bool m_hasGenres = false;
    KXCatalogueTicket m_estimate, m_count, m_genres;
};
