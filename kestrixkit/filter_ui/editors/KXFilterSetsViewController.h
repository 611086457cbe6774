#pragma once

#include <kestrixkit/filters/KXFilter.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

class KXMenu;
class KXThemeableButton;
class KXThemeableTextField;

/// Columns of the source list of filters: the title, and the check box whether the filter takes part.
inline constexpr QLatin1StringView KXFilterSetsTitleColumnIdentifier { "title" };
inline constexpr QLatin1StringView KXFilterSetsEnabledColumnIdentifier { "enabled" };

/// The other editor of filters: all filters of a context as a source list, filters below filters, each with a check
/// box.
///
/// Deleting is a step to undo, switching on and off is not. A host subclasses it to say which filters can be added and
/// how they are edited. Return and a double click edit, Space switches, the keys for deleting delete. Main thread.
class KX_UI_EXPORT KXFilterSetsViewController : public KXViewController, public KXSourceListViewControllerDelegate
{
    Q_OBJECT
public:
    /// A null context shows nothing.
    explicit KXFilterSetsViewController(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~KXFilterSetsViewController() override;

    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    [[nodiscard]] KXSourceListViewController *sourceListViewController() const { return m_sourceList; }
    [[nodiscard]] KXRef<KXFilter> selectedFilter() const { return selectedFilters().value(0); }
    [[nodiscard]] QList<KXRef<KXFilter>> selectedFilters() const;
    /// Of the filter that is edited; nullptr for none.
    [[nodiscard]] KXPopoverController *filterPopover() const { return m_popover.get(); }

    // Outlets; nullptr before the view is loaded.

    /// Leaves the filters of the top level whose name holds what is typed.
    [[nodiscard]] KXThemeableTextField *searchField() const;
    [[nodiscard]] KXThemeableButton *addFilterButton() const;

    /// Adds an item for each filter that can be added, which ends in insertFilter(). None unless overridden.
    virtual void addFilterMenuItems(KXMenu &menu);
    /// A new editor, which the caller owns; null unless overridden.
    [[nodiscard]] virtual std::unique_ptr<KXViewController> filterViewControllerForFilter(
        const KXRef<KXFilter> &filter);

    /// Has the list remember what is selected and open, under the name of the class.
    void restoreSourceListState();
    /// Selects the filter and opens its editor beside its row, where it has one.
    void showFilter(const KXRef<KXFilter> &filter);
    /// Edits the selected filter.
    void doubleClick() { showFilter(selectedFilter()); }
    /// Puts the filter last below the selected one, or last at the top, and opens its editor. Not saved.
    void insertFilter(const KXRef<KXFilter> &filter);
    /// Deletes all that are selected.
    void deleteFilter();
    /// Switches the filter of the row.
    void enabledStateChanged(const QModelIndex &row);
    /// Fills the menu of the add button, or the context menu of the list. Any other is left alone.
    void menuNeedsUpdate(KXMenu &menu);

    void willDisplayCellView(KXSourceListViewController &list, KXSourceListCell &cell, KXSourceListItem *item) override;

protected:
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void search(const QString &text);
    void closeFilterPopover();

    const KXManagedObjectContext::Ref m_context;
    KXTreeController *m_tree;
    KXSourceListViewController *m_sourceList;
    std::unique_ptr<KXPopoverController> m_popover; // goes before its content
    KXRef<KXFilter> m_editedFilter;
    QPointer<KXThemeableTextField> m_searchField;
    QPointer<KXThemeableButton> m_addFilterButton;
    QPointer<KXMenu> m_addMenu, m_contextMenu;
    KXNotificationToken m_changes;
};
