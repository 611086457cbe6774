#pragma once

#include <QIcon>
#include <QList>
#include <QPointer>
#include <QVariant>

#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXOperationQueue.h>
#include <kestrixkit/navigation/KXSearchResultsGrouping.h>
#include <kestrixkit/toolkit/KXListController.h>
#include <kestrixkit/toolkit/KXViewController.h>

QT_BEGIN_NAMESPACE
class QLineEdit;
class QTableView;
QT_END_NAMESPACE

/// What the row of a result shows.
struct KXSearchResultCell
{
    QString title;
    QString detail; ///< below it, in a weaker colour; may be empty
    QIcon image; ///< to its left; may be null
};

/// The content of a search popover: a field, and the results below it in named groups, of which four each are shown at
/// first. While the keyboard is in the field it moves the selection among the results and confirms it.
///
/// A subclass searches in performSearch(), hands what it found to processResults() on the main thread, and opens what
/// was confirmed in showItem(). Its view is made from the interface file "KXSearch" or its own. Main thread.
class KX_UI_EXPORT KXSearchViewController : public KXViewController
{
    Q_OBJECT
    Q_PROPERTY(QString searchTerm READ searchTerm WRITE setSearchTerm NOTIFY searchTermChanged)
public:
    static constexpr qsizetype ItemsAtFirst = 4; ///< of a group, where there are several
    static constexpr int GroupRowHeight = 22; ///< points
    static constexpr int ItemRowHeight = 44; ///< points

    /// The context is kept for the subclass: the scope to search.
    explicit KXSearchViewController(QVariant context = {}, QObject *parent = nullptr);
    ~KXSearchViewController() override;

    /// Shared by all search controllers, for their work; runs at most five operations at a time. Any thread.
    [[nodiscard]] static KXOperationQueue &queue();

    [[nodiscard]] const QVariant &context() const { return m_context; }

    /// Observable under "searchTerm". From when the view is loaded, performSearch() is called when it has not changed
    /// for searchDelay() seconds. Setting it to what it is does nothing.
    [[nodiscard]] const QString &searchTerm() const { return m_searchTerm; }
    void setSearchTerm(const QString &term);
    /// Seconds, 0.3 unless set; 0 is the loop's next turn.
    [[nodiscard]] double searchDelay() const { return m_searchDelay; }
    void setSearchDelay(double seconds) { m_searchDelay = seconds; }

    /// The last complete result set. The subclass sets it, or there are no buttons to show more.
    [[nodiscard]] const QList<KXSearchResultsGrouping::Ref> &allResults() const { return m_allResults; }
    void setAllResults(const QList<KXSearchResultsGrouping::Ref> &results);
    /// The group of which all items are shown; nullptr in the overview. processResults() leaves it alone.
    [[nodiscard]] const KXSearchResultsGrouping::Ref &currentFocusedSearchResultsGrouping() const { return m_focused; }
    void setCurrentFocusedSearchResultsGrouping(const KXSearchResultsGrouping::Ref &grouping);

    // What is shown. Groups that are null are left out.

    /// A single group with all its items; of several, the first four of each.
    void processResults(const QList<KXSearchResultsGrouping::Ref> &results);
    void showResultsForGrouping(const KXSearchResultsGrouping::Ref &grouping);
    /// The overview of allResults().
    void showAllResults();
    void showAllResultsForGrouping(const KXSearchResultsGrouping::Ref &grouping);

    /// Groups (KXSearchResultsGrouping::Ref) and items as the table shows them.
    [[nodiscard]] KXListController *resultsContent() const { return m_content; }
    /// nullptr for a row that is none of a group.
    [[nodiscard]] KXSearchResultsGrouping::Ref groupingAtRow(int row) const;
    [[nodiscard]] bool isGroupRow(int row) const { return groupingAtRow(row) != nullptr; }
    [[nodiscard]] int heightOfRow(int row) const { return isGroupRow(row) ? GroupRowHeight : ItemRowHeight; }
    [[nodiscard]] bool shouldSelectRow(int row) const;
    /// What the button of a group's row says; empty where it is hidden.
    [[nodiscard]] QString buttonTitleForRow(int row) const;
    /// As a click does, and Alt with the keys up and down in the field for the group that the selection is in.
    void pressButtonOfRow(int row);
    /// -1 where none is selected.
    [[nodiscard]] int selectedRow() const;
    void selectRow(int row);
    /// Invalid where none is selected.
    [[nodiscard]] QVariant selectedItem() const;

    /// The row of a result; for subclasses. The base shows the value as a text.
    [[nodiscard]] virtual KXSearchResultCell resultCell(const QVariant &item) const;

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] QLineEdit *searchField() const;
    [[nodiscard]] QTableView *tableView() const;
    [[nodiscard]] QWidget *scrollView() const; ///< what is hidden where there are no results
    [[nodiscard]] QWidget *placeholderView() const;
    [[nodiscard]] QWidget *progressIndicator() const;

    void popoverDidShow() override;
    void popoverWillClose() override;

Q_SIGNALS:
    void searchTermChanged();

protected:
    /// For subclasses: search for searchTerm(). The base does nothing.
    virtual void performSearch() { }
    /// For subclasses: open the selected result; there may be none. The base does nothing.
    virtual void showItem(QObject *sender);

    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void show(const QVariantList &rows);
    bool doCommand(int key);
    void moveSelection(int step);
    void pressButtonOfSelectedGroup();
    void fieldDidEndEditing();

    const QVariant m_context;
    QString m_searchTerm;
    double m_searchDelay = 0.3;
    KXDelayedCall m_search;
    QList<KXSearchResultsGrouping::Ref> m_allResults;
    KXSearchResultsGrouping::Ref m_focused;
    KXListController *m_content;
    QPointer<QLineEdit> m_field;
    QPointer<QTableView> m_table;
    QPointer<QWidget> m_scroll;
    QPointer<QWidget> m_placeholder;
    QPointer<QWidget> m_progress;
    bool m_isFieldDelegate = false;
};
