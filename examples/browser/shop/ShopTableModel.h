#pragma once

#include <QAbstractTableModel>
#include <QSet>
#include <QUrl>

#include <kestrixkit/catalogue/KXCatalogue.h>

/// The shop's tracks that fit a rule, as far down as somebody has scrolled: pages are fetched one after the other, as
/// the view asks for more.
///
/// What is owned already is marked by whoever knows the library (markOwned).
class ShopTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { Title, Artist, Genre, Bpm, Key, Length, Label, Released, Price, Owned, ColumnCount };
    static constexpr int PageRows = 100;
    static constexpr int MostRows = 20'000; ///< nobody scrolls further; a rule finds it sooner

    explicit ShopTableModel(std::shared_ptr<KXCatalogue> catalogue, QObject *parent = nullptr);

    /// Another list, from its beginning. The rows of the one before stay until its first page is there.
    void setRule(const KXPredicate &rule);
    [[nodiscard]] const KXPredicate &rule() const { return m_rule; }
    [[nodiscard]] bool isLoading() const { return m_ticket.isPending(); }

    /// Where its preview is; empty where it has none.
    [[nodiscard]] QUrl previewOfRow(int row) const;
    /// -1 where no row has that.
    [[nodiscard]] int rowOfPreview(const QUrl &address) const;
    /// Title and artists of a row, as they are compared with the library's.
    struct Name
    {
        QString title;
        QString artists;
        friend bool operator==(const Name &, const Name &) = default;
        friend size_t qHash(const Name &name, size_t seed = 0) { return qHashMulti(seed, name.title, name.artists); }
    };
    [[nodiscard]] Name nameOfRow(int row) const;
    void markOwned(const QSet<Name> &owned);

    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    [[nodiscard]] bool canFetchMore(const QModelIndex &parent) const override;
    void fetchMore(const QModelIndex &parent) override;
    void sort(int column, Qt::SortOrder order) override;

Q_SIGNALS:
    /// A page came, with the rows from `first` on.
    void pageCame(int first);
    /// A page did not come, or lacks what some parts of the catalogue have.
    void failed(const QString &reason);

private:
    void ask(bool isFirst);
    void take(const KXCataloguePage &page, bool isFirst);

    const std::shared_ptr<KXCatalogue> m_catalogue;
    KXPredicate m_rule;
    QList<KXSortDescriptor> m_order;
    QList<KXCatalogueRow> m_rows;
    QSet<Name> m_owned;
    bool m_isLast = true;
    bool m_hasFailed = false;
    KXCatalogueTicket m_ticket;
};
