#pragma once

#include <QKeyEvent>
#include <QMenu>
#include <QPersistentModelIndex>
#include <QPointer>

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/source_list/KXSourceListCell.h>
#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>

class KXSourceListView;
class KXTreeController;
class QMimeData;

/// Something that is dragged over a source list, and where it would be dropped by the place of the pointer alone. Main
/// thread.
struct KXSourceListDrop
{
    const QMimeData *data = nullptr;
    Qt::DropActions allowed; ///< by the source, and by the modifier keys that are held down
    QModelIndex item; ///< invalid: the top level
    int childIndex = -1; ///< in front of which row below the item; -1: onto the item itself
    double height = 0.5; ///< of the pointer in the item's row, from 0 (top) to 1 (bottom)
};

/// What comes of it. Main thread.
struct KXSourceListDropTarget
{
    Qt::DropAction operation = Qt::IgnoreAction; ///< IgnoreAction: it cannot be dropped there
    QModelIndex item;
    int childIndex = -1;
};

/// Who decides for a source list. All indexes are of its model; nothing is kept of them. Main thread.
class KX_UI_EXPORT KXSourceListViewDelegate
{
public:
    virtual ~KXSourceListViewDelegate();
    /// What is dragged for the rows, for the caller to own; nullptr: they cannot be dragged.
    [[nodiscard]] virtual QMimeData *mimeDataForRows(KXSourceListView &view, const QModelIndexList &rows);
    [[nodiscard]] virtual KXSourceListDropTarget validateDrop(KXSourceListView &view, const KXSourceListDrop &drop);
    /// Carries it out. False where nothing was done after all.
    virtual bool acceptDrop(KXSourceListView &view, const KXSourceListDrop &drop, const KXSourceListDropTarget &target);
    /// True for a key that is dealt with.
    virtual bool didReceiveKeyDownEvent(KXSourceListView &view, QKeyEvent &event);
    /// For the current row; nullptr: the view's own one. Borrowed.
    [[nodiscard]] virtual QMenu *contextMenuForRow(KXSourceListView &view, const QModelIndex &row);
    /// The user has given the row another title. The model takes it unless this is overridden.
    virtual void setTitle(KXSourceListView &view, const QModelIndex &row, const QString &title);
    /// The title is edited no longer, whether it was changed or not.
    virtual void didEndEditing(KXSourceListView &view, const QModelIndex &row);
};

/// An outline of named things, such as the left column of a browser: rows with image, title and a badge with a count,
/// below headings. Its model gives a KXSourceListCell under CellRole, or the usual roles.
///
/// The user drags rows and drops onto them, renames in place (F2), finds rows by typing, opens and closes them by the
/// arrow keys. All decisions are its delegate's. While it has the focus, keys that begin a search and those that it
/// uses itself are not shortcuts of the window. Main thread.
class KX_UI_EXPORT KXSourceListView : public KXThemeableOutlineView
{
    Q_OBJECT
public:
    /// A KXSourceListCell.
    static constexpr int CellRole = GroupRole + 1;

    explicit KXSourceListView(QWidget *parent = nullptr);
    ~KXSourceListView() override;

    /// Shows the tree and shares its selection; nullptr shows nothing.
    void setTreeController(KXTreeController *tree);
    [[nodiscard]] KXTreeController *treeController() const;

    [[nodiscard]] KXSourceListViewDelegate *delegate() const { return m_delegate.get(); }
    /// Held as by KXWeakDelegate.
    void setDelegate(KXSourceListViewDelegate *delegate) { m_delegate.set(delegate); }

    /// For what is done by dragging: the tree's, unless another is set.
    [[nodiscard]] KXUndoManager *undoManager() const;
    void setUndoManager(KXUndoManager *manager);

    [[nodiscard]] KXSourceListCell cellForRow(const QModelIndex &row) const;
    /// Styles of the badges, in ordinary and in selected rows; those of the source list unless set.
    void setBadgeStyleNames(const QString &normal, const QString &selected);
    [[nodiscard]] const KXBadgeCell &badgeCell(bool selected) const { return *m_badges[selected]; }

    /// The view's own context menu, for where the delegate has none. Borrowed.
    void setContextMenu(QMenu *menu) { m_menu = menu; }
    /// What an empty list says.
    void setPlaceholderText(const QString &text);

    /// Of all rows that are open, seen or not, in pixels.
    [[nodiscard]] int contentHeight() const;
    /// Opens all of them, with one new layout.
    void expandRows(const QModelIndexList &rows);

    /// Begins to edit the title of the row, if it can be; false otherwise.
    bool editTitle(const QModelIndex &row);
    [[nodiscard]] bool isEditing() const { return m_edited.isValid() && indexWidget(m_edited); }
    /// Takes over what has been typed so far and ends the editing.
    void commitEditing();

    /// Whether the key stands for deleting: backspace, delete and their kin.
    [[nodiscard]] static bool isDeleteKey(const QKeyEvent &event);
    /// Whether it stands for moving rows: an arrow with Alt.
    [[nodiscard]] static bool isMovingKey(const QKeyEvent &event);

    /// Where something dropped at that place of the viewport would go by the place alone.
    [[nodiscard]] KXSourceListDrop dropAt(const QPoint &place) const;

Q_SIGNALS:
    /// A key that stands for deleting was pressed, and the delegate did not deal with it.
    void deletePressed();
    /// The row's check box was clicked, or Space pressed on the row. What it shows is the model's affair.
    void checkBoxClicked(const QModelIndex &row);

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void startDrag(Qt::DropActions supportedActions) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void drawBranches(QPainter *painter, const QRect &rect, const QModelIndex &index) const override;
    bool edit(const QModelIndex &index, EditTrigger trigger, QEvent *event) override;
    void closeEditor(QWidget *editor, QAbstractItemDelegate::EndEditHint hint) override;

private:
    friend class KXSourceListRowDelegate;
    [[nodiscard]] KXSourceListDropTarget validate(const QDropEvent &event, KXSourceListDrop *drop) const;
    [[nodiscard]] bool isForCheckBox(const QModelIndex &row, const QEvent &event) const;
    void showTarget(const KXSourceListDropTarget &target);
    void paintTarget(QPainter &painter) const;
    [[nodiscard]] QPixmap dragImage(const QModelIndexList &rows) const;

    KXWeakDelegate<KXSourceListViewDelegate> m_delegate;
    QPointer<QMenu> m_menu;
    QPointer<KXUndoManager> m_undoManager;
    KXBadgeCell *m_badges[2]; // of ordinary rows, of selected ones
    QString m_placeholder;
    QPersistentModelIndex m_edited;
    bool m_hasTarget = false;
    QPersistentModelIndex m_targetItem;
    int m_targetChild = -1;
};
