#pragma once

#include <memory>

#include <QMenu>
#include <QPersistentModelIndex>
#include <QPointer>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/util/views/KXTableColumn.h>
#include <kestrixkit/util/views/KXTableViewDelegate.h>

class KXMenu;
class KXTableText;
struct KXTableLayout;

/// Posted by a table that has stored its layout, with itself as sender; the payload is the layout's name, a QString.
inline constexpr QLatin1StringView KXTableViewColumnPresetsDidChangeNotification {
    "KXTableViewColumnPresetsDidChangeNotification"
};

/// What a subclass paints a cell by.
struct KXTableCell
{
    QModelIndex index;
    QRect rect;
    QColor text; ///< the colour of its text
    bool selected = false;
    bool hovered = false; ///< the mouse is over its row
    bool enabled = true;
};

/// A table that remembers its columns and its order, by name, in the user defaults, and shows a million rows as fast as
/// a hundred.
///
/// Painting is its own: rows in one piece, texts measured once. Everything else is QTableView's: selection, editing (by
/// the item delegate), keyboard, accessibility. Rows have one height and are not moved. Tables with the same presets
/// name are kept in step: what the user does to the columns of one is seen in all before that call returns.
///
/// Columns can be moved, resized and, by the header's menu, hidden. A click on a head sorts by it, one with Shift adds
/// it to what is sorted by. Whatever rows come and go, the one at the top stays where it is on the screen, unless the
/// table shows its very beginning. Main thread.
class KX_UI_EXPORT KXTableView : public KXThemeableTableView
{
    Q_OBJECT
    Q_PROPERTY(QString columnPresetsName READ columnPresetsName WRITE setColumnPresetsName)
    Q_PROPERTY(QString sortOptionsAutoSaveName READ sortOptionsAutoSaveName WRITE setSortOptionsAutoSaveName)
public:
    explicit KXTableView(QWidget *parent = nullptr);
    /// Saves the sort options.
    ~KXTableView() override;

    void setModel(QAbstractItemModel *model) override;

    /// Held as by KXWeakDelegate; may be null.
    [[nodiscard]] KXTableViewDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXTableViewDelegate *delegate) { m_delegate.set(delegate); }

    // Columns

    /// Of the model's columns, in their order. Lays the table out anew.
    void setTableColumns(const QList<KXTableColumn> &columns);
    [[nodiscard]] const QList<KXTableColumn> &tableColumns() const { return m_columns; }
    /// The model's column; -1 where there is none.
    [[nodiscard]] int columnWithIdentifier(const QString &identifier) const;
    /// The last one that is shown stays.
    void setColumnShown(const QString &identifier, bool shown);
    /// As setTableColumns() said.
    void resetColumns();
    /// To choose columns and the order by: the header's context menu, for the menu bar, too. The table owns it.
    [[nodiscard]] QMenu *columnsMenu();

    /// The key of the layout in the user defaults; null or empty for none. Another name than before is loaded at once.
    [[nodiscard]] const QString &columnPresetsName() const { return m_columnPresetsName; }
    void setColumnPresetsName(const QString &name);
    /// Stores the layout and tells the other tables of that name. Done after each change of a column.
    void saveColumnPresets();
    /// Lays the columns out as stored. Columns that the layout does not name are hidden; what is no layout for this
    /// table is logged and left alone.
    void loadColumnPresets();
    /// "identifier", "position" (from 0, unsigned), "width" (in points), "hidden"; empty for a column that is not
    /// there.
    [[nodiscard]] QVariantMap columnPresetDictionary(const QString &identifier) const;

    // Order

    /// By importance; the header shows the first.
    [[nodiscard]] const QList<KXSortDescriptor> &sortDescriptors() const { return m_sortDescriptors; }
    /// Sorts, unless it is what there is, and marks the options as changed, even then.
    void setSortDescriptors(const QList<KXSortDescriptor> &descriptors);
    [[nodiscard]] bool sortDescriptorsHaveChanged() const { return m_sortDescriptorsHaveChanged; }

    /// The key of the order in the user defaults; null or empty for none. Loads nothing by itself.
    [[nodiscard]] const QString &sortOptionsAutoSaveName() const { return m_sortOptionsAutoSaveName; }
    void setSortOptionsAutoSaveName(const QString &name) { m_sortOptionsAutoSaveName = name; }
    /// Stores the order if it was set since. Done when the application ends or another becomes active.
    void saveSortOptions();
    /// Sorts as stored, by keys that columns can be sorted by.
    void loadSortOptions();

    // Pointer and menu

    /// The cell under the mouse; invalid where there is none.
    [[nodiscard]] QModelIndex currentTrackedCell() const { return m_trackedCell; }
    /// Shown for rows; borrowed.
    [[nodiscard]] QMenu *menu() const { return m_menu; }
    void setMenu(QMenu *menu) { m_menu = menu; }
    /// Where the menu was last asked for; invalid beside the rows.
    [[nodiscard]] QModelIndex clickedCell() const { return m_clickedCell; }
    /// Selects the row concerned alone, unless it is selected or may not be, and answers the menu to show.
    [[nodiscard]] virtual QMenu *menuForEvent(const QContextMenuEvent *event);

    // Dragging rows

    /// Whether a press on a row that moves on drags the selected rows, instead of selecting those that it comes by.
    /// What may be dropped between rows is the delegate's to say. Not so at first.
    void setDragsRows(bool drags);
    /// The selected rows, from top to bottom.
    [[nodiscard]] QList<int> selectedRowNumbers() const;
    /// The texts of the rows as they are shown: a line a row, columns parted by tabs.
    [[nodiscard]] QString textOfRows(const QList<int> &rows) const;

    using KXThemeableTableView::edit;
    /// Takes over what stands in a cell's open editor.
    void commitOpenEditor();

Q_SIGNALS:
    void sortDescriptorsChanged();
    void trackedCellChanged();

protected:
    /// Has the model sort its rows. This one sorts by the first descriptor with QAbstractItemModel::sort().
    virtual void sortRows(const QList<KXSortDescriptor> &descriptors);
    /// Paints a cell on its row: the model's text, and its decoration in front; an icon that is a mask in the text's
    /// colour.
    virtual void drawCell(QPainter &painter, const KXTableCell &cell) const;
    /// One line in the middle of the rectangle, cut with an ellipsis where it does not fit, in the painter's pen.
    void drawText(QPainter &painter, const QRect &rect, Qt::Alignment alignment, const QString &text) const;

    void paintEvent(QPaintEvent *event) override;
    /// The keys for copying put the selected rows on the clipboard: as the model's mime data, and as text.
    void keyPressEvent(QKeyEvent *event) override;
    void startDrag(Qt::DropActions supportedActions) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void updateGeometries() override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void dataChanged(const QModelIndex &topLeft, const QModelIndex &bottomRight, const QList<int> &roles) override;
    [[nodiscard]] QItemSelectionModel::SelectionFlags selectionCommand(
        const QModelIndex &index, const QEvent *event = nullptr) const override;
    /// Home and End are the first and the last row, with the control key or without: rows are what is selected.
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
    /// Names the editor after its column unless it has a name.
    bool edit(const QModelIndex &index, EditTrigger trigger, QEvent *event) override;

private:
    [[nodiscard]] KXTableLayout layoutOfColumns() const;
    [[nodiscard]] KXTableLayout defaultLayout() const;
    void arrange(const KXTableLayout &layout);
    void columnWasResized(int column, int oldWidth, int width);
    void saveDueColumnPresets();
    void fillColumnsMenu(KXMenu &menu);
    void columnPresetsDidChange(const KXNotification &notification);
    [[nodiscard]] const KXTableColumn *columnSortedBy(const QString &key) const;
    void sortIndicatorWasChanged(int column, Qt::SortOrder order);
    void showSortIndicator();
    [[nodiscard]] bool maySelect(int row) const;
    void track(const QPoint *position);
    void rememberTopRow();
    void drawRow(QPainter &painter, int row, int firstColumn, int lastColumn) const;
    [[nodiscard]] QMimeData *mimeDataOfRows(const QList<int> &rows) const;
    [[nodiscard]] QPixmap dragImage(const QList<int> &rows) const;
    [[nodiscard]] int dropRowAt(const QPoint &place) const;
    [[nodiscard]] Qt::DropAction validateDrop(const QDropEvent &event, int row);
    void showDropRow(int row);
    void paintDropRow(QPainter &painter) const;

    QList<KXTableColumn> m_columns;
    std::unique_ptr<KXTableLayout> m_layout; // of all of them, as last arranged or saved
    QString m_columnPresetsName;
    KXNotificationToken m_presetsToken;
    bool m_arranging = false; // what the header says is our own doing
    bool m_saveDue = false;

    QList<KXSortDescriptor> m_sortDescriptors;
    QString m_sortOptionsAutoSaveName;
    bool m_sortDescriptorsHaveChanged = false;
    bool m_showingSort = false;

    KXWeakDelegate<KXTableViewDelegate> m_delegate;
    KXMenu *m_columnsMenu = nullptr; // made when first asked for
    QMenu *m_sortMenu = nullptr; // a part of it
    QPointer<QMenu> m_menu;
    QPersistentModelIndex m_trackedCell;
    QPersistentModelIndex m_editedCell;
    QPersistentModelIndex m_clickedCell;

    int m_dropRow = -1; // in front of which something dragged would come; -1: nowhere

    std::unique_ptr<KXTableText> m_text;
    QPersistentModelIndex m_topRow; // invalid at the beginning
    int m_topOffset = 0; // points of it that are scrolled out
    QStringList m_spokenRow; // of the current one, while somebody listens
    bool m_isLayingOut = false;
};
