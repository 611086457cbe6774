#pragma once

#include <unordered_set>
#include <vector>

#include <QElapsedTimer>
#include <QPointer>

#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXSourceListItem.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/source_list/KXSourceListDropRules.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/toolkit/KXTreeController.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXObserver;
class KXSourceListViewController;

/// Items of source lists on the pasteboard: the index paths of the rows that are dragged.
inline constexpr QLatin1StringView KXSourceListItemPasteboardType {
    "com.kestrix.kestrixkit.internal.KXSourceListItem"
};
/// Beside it the URIs of the same objects, by which they are found wherever they stand when they are dropped.
inline constexpr QLatin1StringView KXSourceListObjectPasteboardType {
    "com.kestrix.kestrixkit.internal.KXSourceListItem.objects"
};

/// What a source list tells. Items are borrowed for the call.
class KX_UI_EXPORT KXSourceListViewControllerDelegate
{
public:
    virtual ~KXSourceListViewControllerDelegate();
    /// The first of the selected items; null when nothing is selected any more. Not to change objects in.
    virtual void itemWasSelected(KXSourceListViewController &list, KXSourceListItem *item);
    /// Items were moved, or copies made, by dragging; saved already.
    virtual void didRepositionItems(KXSourceListViewController &list, const QList<KXSourceListItem *> &items);
    /// A row is about to be painted, or asked for what it shows: the last word about it.
    virtual void willDisplayCellView(KXSourceListViewController &list, KXSourceListCell &cell, KXSourceListItem *item);
    /// Its title is edited no longer, whether it was changed or not. A change is saved already.
    virtual void didEndEditingItem(KXSourceListViewController &list, KXSourceListItem *item);
};

/// Drives a source list over a tree of stored objects: which items are selected, edited, dragged, dropped where, moved
/// or copied; how the selection and what is open are remembered; and how an item's own controller is asked.
///
/// All objects of the tree are KXSourceListItems. What the user does is one step to undo, and saved. Main thread.
class KX_UI_EXPORT KXSourceListViewController : public KXViewController, private KXSourceListViewDelegate
{
    Q_OBJECT
public:
    explicit KXSourceListViewController(QObject *parent = nullptr);
    ~KXSourceListViewController() override;

    [[nodiscard]] KXSourceListViewControllerDelegate *delegate() const { return m_delegate.get(); }
    /// Borrowed. One that is a QObject may go at any time; any other must be taken away before it does.
    void setDelegate(KXSourceListViewControllerDelegate *delegate) { m_delegate.set(delegate); }

    /// The view itself. Another one after the window around it has ended.
    [[nodiscard]] KXSourceListView *sourceListView();
    [[nodiscard]] KXTreeController *treeController() const { return m_tree; }
    /// Borrowed; may go at any time.
    void setTreeController(KXTreeController *tree);

    /// What is selected where nothing is remembered.
    [[nodiscard]] KXRef<KXManagedObject> rootItem() const { return m_rootItem; }
    void setRootItem(const KXRef<KXManagedObject> &item) { m_rootItem = item; }
    /// Under which selection and open rows are remembered in the user defaults; nothing is without. What is remembered
    /// is restored in the main loop's next turn, when the tree has its content.
    [[nodiscard]] const QString &autosaveName() const { return m_autosaveName; }
    void setAutosaveName(const QString &name);
    /// Of which counts the badges of presets are.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_countsContextIdentifier; }
    void setCountsContextIdentifier(const QString &identifier);

    // Selection

    [[nodiscard]] KXSourceListItem *selectedItem() const { return selectedItems().value(0); }
    /// From top to bottom.
    [[nodiscard]] QList<KXSourceListItem *> selectedItems() const;
    /// The topmost one, as it was last selected.
    [[nodiscard]] const KXIndexPath &currentSelectedIndexPath() const { return m_currentPath; }
    void selectItem(const KXSourceListItem *item);
    /// And begins to edit its title, where it has one to edit.
    void selectForEditing(const KXSourceListItem *item);
    /// Selects the node at the path or, where that has gone, the nearest one before it, then the one above. Nothing for
    /// a path of which nothing is left.
    void setSelectionIndexPath(const KXIndexPath &path);
    /// The same with the current path: after what was selected has gone. Done by itself where that leaves the tree.
    void updateSelection() { setSelectionIndexPath(m_currentPath); }
    void saveSelection();
    void restoreSelection();

    // What is open

    void expandItem(const KXSourceListItem *item, bool expandChildren = false);
    /// Tells every item whether it is open, without a step to undo, and saves.
    void restoreExpandedState();
    /// Remembers what is due at once instead of in the next turn: before the window goes.
    void saveState();

    // Structure, with undo

    bool insertItem(const KXRef<KXManagedObject> &item, const KXIndexPath &atArrangedObjectIndexPath);
    bool removeItemAtArrangedObjectIndexPath(const KXIndexPath &path);
    /// Without a step to undo.
    bool removeItem(const KXSourceListItem *item);

    /// As by dragging: what is selected goes up or down among its siblings, out of its parent (Qt::LeftArrow, behind
    /// it) or into the sibling above (Qt::RightArrow, last). By keys: Alt with the arrows. False where that cannot be,
    /// and where not all of it has the same parent.
    bool moveSelectedItems(Qt::ArrowType direction);

    // By value, as the view asks

    [[nodiscard]] KXSourceListDropRules::Question questionForDrop(
        const KXSourceListDrop &drop, const QList<KXRef<KXManagedObject>> &dragged) const;
    /// The objects of the tree that the data is of; none where it carries none, or nothing that can be read.
    [[nodiscard]] QList<KXRef<KXManagedObject>> objectsOfMimeData(const QMimeData &data) const;

    /// The stored object as item; null for other ones.
    [[nodiscard]] static KXSourceListItem *itemOf(const KXRef<KXManagedObject> &object)
    {
        return dynamic_cast<KXSourceListItem *>(object.get());
    }

protected:
    void loadView() override;
    void viewDidLoad() override;

private:
    // As the view's delegate
    QMimeData *mimeDataForRows(KXSourceListView &view, const QModelIndexList &rows) override;
    KXSourceListDropTarget validateDrop(KXSourceListView &view, const KXSourceListDrop &drop) override;
    bool acceptDrop(
        KXSourceListView &view, const KXSourceListDrop &drop, const KXSourceListDropTarget &target) override;
    bool didReceiveKeyDownEvent(KXSourceListView &view, QKeyEvent &event) override;
    QMenu *contextMenuForRow(KXSourceListView &view, const QModelIndex &row) override;
    void setTitle(KXSourceListView &view, const QModelIndex &row, const QString &title) override;
    void didEndEditing(KXSourceListView &view, const QModelIndex &row) override;

    [[nodiscard]] const KXTreeNode *nodeOf(const KXSourceListItem *item) const;
    [[nodiscard]] KXSourceListItem *itemForRow(const QModelIndex &row) const;
    [[nodiscard]] QVariant rowData(const KXTreeNode &node, int role);
    [[nodiscard]] KXSourceListCell cellForNode(const KXTreeNode &node);
    [[nodiscard]] qint64 countForNode(const KXTreeNode &node) const;
    [[nodiscard]] QString countText(const KXTreeNode &node, const QString &count) const;
    void followBadgeOf(const KXSourceListItem &item, KXManagedObject *object);
    void followNoCounts();
    bool moveItems(const QList<KXRef<KXManagedObject>> &items, const KXIndexPath &path);
    bool copyItems(const QList<KXRef<KXManagedObject>> &items, const KXIndexPath &path);
    bool perform(const QString &actionName, const std::function<bool()> &act);
    void selectionDidChange();
    void rowDidExpand(const QModelIndex &row, bool expanded);
    void saveContextLater();
    void saveStateLater();
    void restoreStateLater();
    void restoreState();
    void rowsDidChange();
    void saveExpandedRows();
    void restoreExpandedRows();

    KXWeakDelegate<KXSourceListViewControllerDelegate> m_delegate;
    QPointer<KXTreeController> m_tree;
    QPointer<KXSourceListView> m_view;
    KXRef<KXManagedObject> m_rootItem;
    QString m_autosaveName;
    QString m_countsContextIdentifier;
    KXIndexPath m_currentPath;
    QList<KXRef<KXManagedObject>> m_selected;
    bool m_isRestored = false; // until then nothing is remembered anew
    bool m_restoreIsDue = false;
    bool m_stateIsDue = false;
    bool m_rowsAreDue = false; // of that
    KXDelayedCall m_saveSoon { this };
    QElapsedTimer m_sinceSaved;
    bool m_contextIsDue = false;
    // Of the rows that were painted lately: their counts show as they change.
    std::unordered_set<qint64> m_followed;
    std::vector<std::shared_ptr<KXObserver>> m_observers;
};
