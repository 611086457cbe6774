#include <kestrixkit/source_list/KXSourceListView.h>

#include <QContextMenuEvent>
#include <QDrag>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPainter>

#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/source_list/KXSourceListRowDelegate_p.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXControlPainter.h>
#include <kestrixkit/theme/controls/KXDragImage.h>
#include <kestrixkit/toolkit/KXTreeController.h>

using namespace Qt::StringLiterals;

KXSourceListViewDelegate::~KXSourceListViewDelegate() = default;
QMimeData *KXSourceListViewDelegate::mimeDataForRows(KXSourceListView &, const QModelIndexList &) { return nullptr; }
KXSourceListDropTarget KXSourceListViewDelegate::validateDrop(KXSourceListView &, const KXSourceListDrop &)
{
    return {};
}
bool KXSourceListViewDelegate::acceptDrop(KXSourceListView &, const KXSourceListDrop &, const KXSourceListDropTarget &)
{
    return false;
}
bool KXSourceListViewDelegate::didReceiveKeyDownEvent(KXSourceListView &, QKeyEvent &) { return false; }
QMenu *KXSourceListViewDelegate::contextMenuForRow(KXSourceListView &, const QModelIndex &) { return nullptr; }
void KXSourceListViewDelegate::setTitle(KXSourceListView &view, const QModelIndex &row, const QString &title)
{
    view.model()->setData(row, title);
}
void KXSourceListViewDelegate::didEndEditing(KXSourceListView &, const QModelIndex &) { }

KXSourceListView::KXSourceListView(QWidget *parent)
    : KXThemeableOutlineView(parent)
    , m_badges { new KXBadgeCell(this), new KXBadgeCell(this) }
{
    setItemDelegate(new KXSourceListRowDelegate(this));
    setThemeStyleName(KXOutlineStyles);
    rowView()->setThemeStyleName(KXSourceListRowStyles);
    groupRowView()->setThemeStyleName(KXSourceListGroupRowStyles);
    setBadgeStyleNames(KXSourceListBadgeStyles, KXSourceListSelectedBadgeStyles);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(ScrollPerPixel);
    setSelectionMode(ExtendedSelection);
    setEditTriggers(EditKeyPressed);
    setIndentation(16);
    setTabKeyNavigation(false);
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(false); // painted here
    setDefaultDropAction(Qt::MoveAction);
    setAutoExpandDelay(700);
    for (KXBadgeCell *badge : m_badges)
        badge->setProperty("cornerRadius", 8.0);
}

KXSourceListView::~KXSourceListView() = default;

int KXSourceListView::contentHeight() const
{
    QModelIndex last;
    for (int rows = model() ? model()->rowCount() : 0; rows > 0; rows = isExpanded(last) ? model()->rowCount(last) : 0)
        last = model()->index(rows - 1, 0, last);
    return last.isValid() ? visualRect(last).bottom() + 1 + verticalOffset() : 0;
}

void KXSourceListView::setTreeController(KXTreeController *tree)
{
    setModel(tree);
    if (!tree)
        return;
    const QItemSelectionModel *const own = selectionModel(); // which every model gets
    setSelectionModel(tree->selectionModel());
    delete own;
}

KXTreeController *KXSourceListView::treeController() const { return qobject_cast<KXTreeController *>(model()); }

KXUndoManager *KXSourceListView::undoManager() const
{
    const KXTreeController *const tree = treeController();
    return m_undoManager ? m_undoManager.data() : tree ? tree->undoManager() : nullptr;
}

void KXSourceListView::setUndoManager(KXUndoManager *manager) { m_undoManager = manager; }

KXSourceListCell KXSourceListView::cellForRow(const QModelIndex &row) const
{
    const QVariant value = row.data(CellRole);
    if (value.metaType() == QMetaType::fromType<KXSourceListCell>())
        return value.value<KXSourceListCell>();
    KXSourceListCell cell;
    cell.title = row.data().toString();
    cell.image = row.data(Qt::DecorationRole).value<QIcon>();
    cell.isGroup = row.data(GroupRole).toBool();
    cell.isEditable = row.flags() & Qt::ItemIsEditable;
    return cell;
}

void KXSourceListView::setBadgeStyleNames(const QString &normal, const QString &selected)
{
    m_badges[0]->setThemeStyleName(normal);
    m_badges[1]->setThemeStyleName(selected);
}

void KXSourceListView::setPlaceholderText(const QString &text)
{
    m_placeholder = text;
    viewport()->update();
}

void KXSourceListView::expandRows(const QModelIndexList &rows)
{
    if (rows.size() > 1)
        scheduleDelayedItemsLayout();
    for (const QModelIndex &row : rows)
        expand(row);
}

// Editing

bool KXSourceListView::editTitle(const QModelIndex &row)
{
    if (!row.isValid())
        return false;
    scrollTo(row);
    // Whatever keys are held down: the control key of a shortcut would take the row out of the selection.
    selectionModel()->setCurrentIndex(row, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    return edit(row, AllEditTriggers, nullptr);
}

bool KXSourceListView::isForCheckBox(const QModelIndex &row, const QEvent &event) const
{
    const KXSourceListCell cell = cellForRow(row);
    if (!cell.isChecked)
        return false;
    if (event.type() == QEvent::KeyPress)
        return static_cast<const QKeyEvent &>(event).key() == Qt::Key_Space;
    if (event.type() != QEvent::MouseButtonPress && event.type() != QEvent::MouseButtonRelease)
        return false;
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    option.rect = visualRect(row);
    const auto &mouse = static_cast<const QMouseEvent &>(event);
    return mouse.button() == Qt::LeftButton
        && KXSourceListRowDelegate::checkRect(option, cell).adjusted(-3, -3, 3, 3).contains(mouse.position().toPoint());
}

bool KXSourceListView::edit(const QModelIndex &index, EditTrigger trigger, QEvent *event)
{
    if (event && isForCheckBox(index, *event)) {
        if (event->type() != QEvent::MouseButtonPress)
            Q_EMIT checkBoxClicked(index);
        return true;
    }
    return (trigger == NoEditTriggers || cellForRow(index).isEditable)
        && KXThemeableOutlineView::edit(index, trigger, event);
}

void KXSourceListView::commitEditing()
{
    if (QWidget *const editor = isEditing() ? indexWidget(m_edited) : nullptr) {
        commitData(editor);
        closeEditor(editor, QAbstractItemDelegate::NoHint);
    }
}

void KXSourceListView::closeEditor(QWidget *editor, QAbstractItemDelegate::EndEditHint hint)
{
    // The tab key does not go on to rename the next one.
    const bool goesOn = hint == QAbstractItemDelegate::EditNextItem || hint == QAbstractItemDelegate::EditPreviousItem;
    KXThemeableOutlineView::closeEditor(editor, goesOn ? QAbstractItemDelegate::NoHint : hint);
    const QPersistentModelIndex edited = std::exchange(m_edited, {});
    if (edited.isValid() && m_delegate)
        m_delegate->didEndEditing(*this, edited);
}

// Keys and menus

bool KXSourceListView::isDeleteKey(const QKeyEvent &event)
{
    if (event.key() == Qt::Key_Backspace || event.key() == Qt::Key_Delete)
        return true;
    // Backspace, delete, and the two function keys of that kind as some systems send them.
    const char16_t first = event.text().isEmpty() ? u'\0' : event.text().at(0).unicode();
    return first == u'\b' || first == u'\x7f' || first == u'\xF728' || first == u'\xF73E';
}

bool KXSourceListView::isMovingKey(const QKeyEvent &event)
{
    const auto modifiers = event.modifiers() & ~Qt::KeypadModifier;
    return modifiers == Qt::AltModifier && event.key() >= Qt::Key_Left && event.key() <= Qt::Key_Down;
}

bool KXSourceListView::event(QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride && !isEditing()) {
        const auto *const key = static_cast<QKeyEvent *>(event);
        const bool plain = !(key->modifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier));
        const bool types = !key->text().isEmpty() && key->text().at(0).isPrint() && key->key() != Qt::Key_Space;
        if ((plain && (types || key->key() == Qt::Key_F2 || isDeleteKey(*key))) || isMovingKey(*key)) {
            event->accept();
            return true;
        }
    }
    return KXThemeableOutlineView::event(event);
}

void KXSourceListView::keyPressEvent(QKeyEvent *event)
{
    if (m_delegate && m_delegate->didReceiveKeyDownEvent(*this, *event)) {
        event->accept();
    } else if (isDeleteKey(*event) && !isEditing()) {
        event->accept();
        Q_EMIT deletePressed();
    } else if (event->matches(QKeySequence::Copy)) {
        event->ignore(); // the base class would put the title in the place of what was copied before
    } else {
        KXThemeableOutlineView::keyPressEvent(event);
    }
}

void KXSourceListView::contextMenuEvent(QContextMenuEvent *event)
{
    const bool byKey = event->reason() == QContextMenuEvent::Keyboard;
    const QModelIndex row = byKey ? currentIndex() : indexAt(event->pos());
    QMenu *menu = m_delegate && row.isValid() ? m_delegate->contextMenuForRow(*this, row) : nullptr;
    menu = menu ? menu : m_menu.data();
    event->setAccepted(menu);
    if (menu)
        menu->popup(byKey ? viewport()->mapToGlobal(visualRect(row).bottomLeft()) : event->globalPos());
}

// Dragging and dropping

void KXSourceListView::startDrag(Qt::DropActions)
{
    const QModelIndexList rows = selectionModel() ? selectionModel()->selectedRows() : QModelIndexList();
    QMimeData *const data = m_delegate && !rows.isEmpty() ? m_delegate->mimeDataForRows(*this, rows) : nullptr;
    if (!data)
        return;
    auto *const drag = new QDrag(this);
    drag->setMimeData(data);
    drag->setPixmap(dragImage(rows));
    drag->setHotSpot({ 12, drag->pixmap().deviceIndependentSize().toSize().height() / 2 });
    drag->exec(Qt::CopyAction | Qt::MoveAction | Qt::LinkAction, Qt::MoveAction);
}

QPixmap KXSourceListView::dragImage(const QModelIndexList &rows) const
{
    const KXSourceListCell cell
        = cellForRow(rows.contains(currentIndex()) ? currentIndex() : QModelIndex(rows.first()));
    const KXDragImage image { .title = cell.title, .icon = cell.image, .count = rows.size(), .mostTitleWidth = 220 };
    return image.draw(*this, badgeCell(true));
}

KXSourceListDrop KXSourceListView::dropAt(const QPoint &place) const
{
    KXSourceListDrop drop;
    const QModelIndex index = indexAt(place).siblingAtColumn(0);
    if (!index.isValid()) {
        drop.childIndex = model() ? model()->rowCount() : 0;
        return drop;
    }
    const QRect row = visualRect(index);
    const int y = place.y() - row.top();
    drop.item = index;
    drop.height = double(y) / std::max(row.height(), 1);
    // The rows of the top level are divided by the delegate.
    const int edge = index.parent().isValid() ? std::clamp(row.height() / 5, 2, 12) : -1;
    if (y < edge) {
        drop.item = index.parent();
        drop.childIndex = index.row();
    } else if (edge >= 0 && y >= row.height() - edge) {
        const bool isOpen = isExpanded(index) && model()->hasChildren(index);
        drop.item = isOpen ? index : index.parent();
        drop.childIndex = isOpen ? 0 : index.row() + 1;
    }
    return drop;
}

KXSourceListDropTarget KXSourceListView::validate(const QDropEvent &event, KXSourceListDrop *drop) const
{
    *drop = dropAt(event.position().toPoint());
    drop->data = event.mimeData();
    drop->allowed = event.possibleActions();
    if (event.modifiers() & Qt::ControlModifier)
        drop->allowed &= Qt::CopyAction;
    else if (event.modifiers() & Qt::ShiftModifier)
        drop->allowed &= Qt::MoveAction;
    return m_delegate && drop->allowed ? m_delegate->validateDrop(const_cast<KXSourceListView &>(*this), *drop)
                                       : KXSourceListDropTarget();
}

void KXSourceListView::dragEnterEvent(QDragEnterEvent *event)
{
    setState(DraggingState);
    event->accept(); // or it would not be asked about other places
}

void KXSourceListView::dragMoveEvent(QDragMoveEvent *event)
{
    KXThemeableOutlineView::dragMoveEvent(event); // scrolls and opens what the pointer stays over
    KXSourceListDrop drop;
    const KXSourceListDropTarget target = validate(*event, &drop);
    showTarget(target);
    if (target.operation == Qt::IgnoreAction) {
        event->ignore();
    } else {
        event->setDropAction(target.operation);
        event->accept();
    }
}

void KXSourceListView::dragLeaveEvent(QDragLeaveEvent *event)
{
    KXThemeableOutlineView::dragLeaveEvent(event);
    showTarget({});
}

void KXSourceListView::dropEvent(QDropEvent *event)
{
    KXSourceListDrop drop;
    const KXSourceListDropTarget target = validate(*event, &drop);
    showTarget({});
    stopAutoScroll();
    setState(NoState);
    if (target.operation != Qt::IgnoreAction && m_delegate && m_delegate->acceptDrop(*this, drop, target)) {
        event->setDropAction(target.operation);
        event->accept();
    } else {
        event->ignore();
    }
}

void KXSourceListView::showTarget(const KXSourceListDropTarget &target)
{
    m_hasTarget = target.operation != Qt::IgnoreAction;
    m_targetItem = target.item;
    m_targetChild = target.childIndex;
    viewport()->update();
}

// Painting

void KXSourceListView::paintTarget(QPainter &painter) const
{
    const QColor colour = KXControlPainter::focusRingColour(palette());
    const QModelIndex item = m_targetItem;
    const int children = model()->rowCount(item);
    if (m_targetChild < 0 || (item.isValid() && children > 0 && !isExpanded(item))) {
        const QRect row = item.isValid() ? visualRect(item) : viewport()->rect();
        const QRectF ring(1, row.top() + 1, viewport()->width() - 2, row.height() - 2);
        KXControlPainter::plate(painter, ring, Qt::NoBrush, colour);
        KXControlPainter::plate(painter, ring.adjusted(1, 1, -1, -1), Qt::NoBrush, colour);
        return;
    }
    // A line with a knob, where the first of the dropped rows would begin.
    QRect beside = visualRect(item);
    int y = item.isValid() ? beside.bottom() + 1 : 0;
    int begin = item.isValid() ? (isRightToLeft() ? beside.right() - indentation() : beside.left() + indentation()) : 0;
    if (m_targetChild < children) {
        beside = visualRect(model()->index(m_targetChild, 0, item));
        y = beside.top();
    } else if (children > 0) {
        beside = visualRect(model()->index(children - 1, 0, item));
        QModelIndex last = model()->index(children - 1, 0, item);
        while (isExpanded(last) && model()->hasChildren(last))
            last = model()->index(model()->rowCount(last) - 1, 0, last);
        y = visualRect(last).bottom() + 1;
    }
    if (children > 0)
        begin = isRightToLeft() ? beside.right() : beside.left();
    y = std::max(y, 4);
    const int end = isRightToLeft() ? 4 : viewport()->width() - 4;
    KXControlPainter::dropLine(painter, QPointF(begin + (isRightToLeft() ? -3 : 3), y), end, palette());
}

void KXSourceListView::paintEvent(QPaintEvent *event)
{
    KXThemeableOutlineView::paintEvent(event);
    const bool isEmpty = !model() || model()->rowCount() == 0;
    if (!m_hasTarget && !(isEmpty && !m_placeholder.isEmpty()))
        return;
    QPainter painter(viewport());
    if (isEmpty && !m_placeholder.isEmpty()) {
        painter.setPen(palette().color(QPalette::PlaceholderText));
        painter.drawText(viewport()->rect().adjusted(12, 12, -12, -12),
            Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, m_placeholder);
    }
    if (m_hasTarget && model())
        paintTarget(painter);
}

void KXSourceListView::drawBranches(QPainter *painter, const QRect &rect, const QModelIndex &index) const
{
    if (cellForRow(index).isExpandable)
        KXThemeableOutlineView::drawBranches(painter, rect, index);
}
