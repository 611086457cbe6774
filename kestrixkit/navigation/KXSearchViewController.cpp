#include <kestrixkit/navigation/KXSearchViewController.h>

#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLineEdit>
#include <QTableView>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/navigation/KXSearchRowDelegate_p.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int mostSearches = 5;

/// Groups cannot be selected, and rows are named for whoever cannot see them.
class SearchContent : public KXListController
{
public:
    explicit SearchContent(KXSearchViewController &controller)
        : KXListController(&controller)
        , m_controller(controller)
    {
    }
    [[nodiscard]] Qt::ItemFlags flags(const QModelIndex &index) const override
    {
        return m_controller.shouldSelectRow(index.row()) ? KXListController::flags(index) : Qt::ItemIsEnabled;
    }
    [[nodiscard]] QVariant data(const QModelIndex &index, int role) const override
    {
        if (role != Qt::DisplayRole && role != Qt::AccessibleTextRole)
            return KXListController::data(index, role);
        if (const auto grouping = m_controller.groupingAtRow(index.row()))
            return grouping->name;
        const KXSearchResultCell cell = m_controller.resultCell(KXListController::data(index, ObjectRole));
        return cell.detail.isEmpty() || role == Qt::DisplayRole ? cell.title : cell.title + u", "_s + cell.detail;
    }

private:
    KXSearchViewController &m_controller;
};

/// The header keeps the heights, so that many results need not be measured; what changes is given its own.
void followRowHeights(const KXSearchViewController &controller, QTableView *table)
{
    const auto layOut = [&controller, table](int first, int last) {
        QHeaderView *const header = table->verticalHeader();
        for (int row = first; row <= last; ++row) {
            if (const int height = controller.heightOfRow(row); header->sectionSize(row) != height)
                header->resizeSection(row, height);
        }
    };
    const QAbstractItemModel *const content = controller.resultsContent();
    const auto layOutAll = [content, layOut] { layOut(0, content->rowCount() - 1); };
    QObject::connect(content, &QAbstractItemModel::rowsInserted, table,
        [layOut](const QModelIndex &, int first, int last) { layOut(first, last); });
    QObject::connect(content, &QAbstractItemModel::dataChanged, table,
        [layOut](const QModelIndex &first, const QModelIndex &last) { layOut(first.row(), last.row()); });
    QObject::connect(content, &QAbstractItemModel::rowsMoved, table, layOutAll);
    layOutAll();
}

}

KXSearchViewController::KXSearchViewController(QVariant context, QObject *parent)
    : KXViewController(parent)
    , m_context(std::move(context))
    , m_search(this)
    , m_content(new SearchContent(*this))
{
    setTitle(KXLocalizedString("Search"));
}

KXSearchViewController::~KXSearchViewController()
{
    m_search.cancel();
    if (m_field)
        m_field->removeEventFilter(this);
    if (m_table)
        m_table->setItemDelegate(nullptr);
}

KXOperationQueue &KXSearchViewController::queue()
{
    struct Shared
    {
        Shared()
        {
            queue.setMaxConcurrentOperationCount(mostSearches);
            queue.setName(u"kx-search-views"_s);
        }
        KXOperationQueue queue;
    };
    static Shared shared;
    return shared.queue;
}

// The term

void KXSearchViewController::setSearchTerm(const QString &term)
{
    if (term == m_searchTerm)
        return;
    const QPointer<KXSearchViewController> alive(this);
    willChangeValueForKey(u"searchTerm"_s);
    m_searchTerm = term;
    if (isViewLoaded())
        m_search.start(m_searchDelay, [this] { performSearch(); });
    if (m_field && m_field->text() != term)
        m_field->setText(term);
    didChangeValueForKey(u"searchTerm"_s);
    if (alive)
        Q_EMIT searchTermChanged();
}

// Results

void KXSearchViewController::setAllResults(const QList<KXSearchResultsGrouping::Ref> &results)
{
    m_allResults = results;
    if (m_table)
        m_table->viewport()->update(); // the buttons depend on it
}

void KXSearchViewController::setCurrentFocusedSearchResultsGrouping(const KXSearchResultsGrouping::Ref &grouping)
{
    m_focused = grouping;
    if (m_table)
        m_table->viewport()->update();
}

void KXSearchViewController::show(const QVariantList &rows) { m_content->setArrangedObjects(rows); }

void KXSearchViewController::processResults(const QList<KXSearchResultsGrouping::Ref> &given)
{
    QList<KXSearchResultsGrouping::Ref> results = given;
    results.removeIf([](const auto &grouping) { return !grouping; });
    QVariantList rows;
    for (const auto &grouping : std::as_const(results)) {
        rows.append(QVariant::fromValue(grouping));
        rows += results.size() == 1 ? grouping->items
                                    : grouping->items.first(std::min(ItemsAtFirst, grouping->items.size()));
    }
    show(rows);
    if (m_placeholder)
        m_placeholder->setVisible(results.isEmpty());
    if (m_scroll)
        m_scroll->setVisible(!results.isEmpty());
}

void KXSearchViewController::showResultsForGrouping(const KXSearchResultsGrouping::Ref &grouping)
{
    if (grouping)
        show(QVariantList { QVariant::fromValue(grouping) } + grouping->items);
}

void KXSearchViewController::showAllResults()
{
    m_focused.reset();
    processResults(m_allResults);
}

void KXSearchViewController::showAllResultsForGrouping(const KXSearchResultsGrouping::Ref &grouping)
{
    if (!grouping)
        return;
    m_focused = grouping;
    showResultsForGrouping(grouping);
}

KXSearchResultsGrouping::Ref KXSearchViewController::groupingAtRow(int row) const
{
    const QVariantList &rows = m_content->arrangedObjects();
    return row >= 0 && row < rows.size() ? rows[row].value<KXSearchResultsGrouping::Ref>() : nullptr;
}

bool KXSearchViewController::shouldSelectRow(int row) const
{
    return row >= 0 && row < m_content->arrangedObjects().size() && !isGroupRow(row);
}

QString KXSearchViewController::buttonTitleForRow(int row) const
{
    const auto grouping = groupingAtRow(row);
    if (!grouping)
        return {};
    if (grouping == m_focused)
        return KXLocalizedString("All results");
    if (m_allResults.size() >= 2 && grouping->items.size() > ItemsAtFirst)
        return KXStringWithFormat(KXLocalizedString("Show %ld more...", grouping->items.size() - ItemsAtFirst),
            qlonglong(grouping->items.size() - ItemsAtFirst));
    return {};
}

void KXSearchViewController::pressButtonOfRow(int row)
{
    const auto grouping = groupingAtRow(row);
    if (!grouping || buttonTitleForRow(row).isEmpty())
        return;
    if (grouping == m_focused)
        showAllResults();
    else
        showAllResultsForGrouping(grouping);
}

KXSearchResultCell KXSearchViewController::resultCell(const QVariant &item) const
{
    return { item.toString(), {}, {} };
}

void KXSearchViewController::showItem(QObject *) { }

// The selection

int KXSearchViewController::selectedRow() const
{
    const QList<int> rows = m_content->selectedRows();
    return rows.isEmpty() ? -1 : rows.constFirst();
}

QVariant KXSearchViewController::selectedItem() const { return m_content->arrangedObjects().value(selectedRow()); }

void KXSearchViewController::selectRow(int row)
{
    if (!shouldSelectRow(row))
        return;
    const QModelIndex index = m_content->index(row);
    m_content->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
    if (m_table)
        m_table->scrollTo(index);
}

void KXSearchViewController::moveSelection(int step)
{
    const int selected = selectedRow();
    if (selected < 0 && step < 0)
        return;
    for (int row = selected + step; row >= 0 && row < m_content->rowCount(); row += step) {
        if (shouldSelectRow(row)) {
            selectRow(row);
            return;
        }
    }
}

void KXSearchViewController::pressButtonOfSelectedGroup()
{
    int row = std::max(0, selectedRow());
    while (row > 0 && !isGroupRow(row))
        --row;
    if (buttonTitleForRow(row).isEmpty())
        return;
    const QVariant item = selectedItem();
    const auto grouping = groupingAtRow(row);
    const QPointer<KXSearchViewController> alive(this);
    pressButtonOfRow(row);
    if (!alive)
        return;
    // The rows lie elsewhere now; where the item is not among them its group's first one takes its place.
    const QVariantList &rows = m_content->arrangedObjects();
    const qsizetype kept = item.isValid() ? rows.indexOf(item) : -1;
    selectRow(int(kept >= 0 ? kept : rows.indexOf(QVariant::fromValue(grouping)) + 1));
}

// The field

QLineEdit *KXSearchViewController::searchField() const { return m_field; }
QTableView *KXSearchViewController::tableView() const { return m_table; }
QWidget *KXSearchViewController::scrollView() const { return m_scroll; }
QWidget *KXSearchViewController::placeholderView() const { return m_placeholder; }
QWidget *KXSearchViewController::progressIndicator() const { return m_progress; }

void KXSearchViewController::viewDidLoad()
{
    KXViewController::viewDidLoad();
    m_field = outlet<QLineEdit>(u"searchField"_s);
    m_table = outlet<QTableView>(u"tableView"_s);
    m_scroll = outlet<QWidget>(u"scrollView"_s);
    m_placeholder = outlet<QWidget>(u"placeholderView"_s);
    m_progress = outlet<QWidget>(u"progressIndicator"_s);
    if (m_progress)
        m_progress->hide();
    if (m_field) {
        m_field->setText(m_searchTerm);
        connect(m_field, &QLineEdit::textChanged, this, &KXSearchViewController::setSearchTerm);
    }
    if (m_table) {
        m_table->setModel(m_content);
        m_table->setSelectionModel(m_content->selectionModel());
        m_table->setItemDelegate(new KXSearchRowDelegate(*this, m_table));
        m_table->horizontalHeader()->hide();
        m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
        m_table->verticalHeader()->hide();
        m_table->verticalHeader()->setMinimumSectionSize(GroupRowHeight);
        m_table->verticalHeader()->setDefaultSectionSize(ItemRowHeight);
        m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
        followRowHeights(*this, m_table);
    }
    processResults(m_allResults);
}

void KXSearchViewController::popoverDidShow()
{
    KXViewController::popoverDidShow();
    if (!m_field || std::exchange(m_isFieldDelegate, true))
        return;
    m_field->installEventFilter(this);
    m_field->setFocus();
    m_field->selectAll();
}

void KXSearchViewController::popoverWillClose()
{
    m_isFieldDelegate = false;
    if (m_field)
        m_field->removeEventFilter(this);
    KXViewController::popoverWillClose();
}

bool KXSearchViewController::doCommand(int key)
{
    switch (key) {
    case Qt::Key_Up:
        moveSelection(-1);
        return true;
    case Qt::Key_Down:
        moveSelection(1);
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (m_content->rowCount() == 0)
            return false;
        showItem(m_field);
        return true;
    default:
        return false;
    }
}

void KXSearchViewController::fieldDidEndEditing()
{
    if (m_field && !m_field->hasFocus() && popoverController())
        popoverController()->close();
}

bool KXSearchViewController::eventFilter(QObject *object, QEvent *event)
{
    if (object != m_field)
        return KXViewController::eventFilter(object, event);
    if (event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        // With these the arrows are others' keys; Return confirms with whatever is held down.
        constexpr Qt::KeyboardModifiers others = Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier;
        const bool isArrow = key->key() == Qt::Key_Up || key->key() == Qt::Key_Down;
        if (!(isArrow && key->modifiers() & others) && doCommand(key->key()))
            return true;
        if (key->modifiers() & Qt::AltModifier && (key->key() == Qt::Key_Down || key->key() == Qt::Key_Up)) {
            pressButtonOfSelectedGroup();
            return true;
        }
    } else if (event->type() == QEvent::FocusOut) {
        // A menu, or another window in front, does not end the editing.
        const Qt::FocusReason reason = static_cast<QFocusEvent *>(event)->reason();
        if (reason != Qt::PopupFocusReason && reason != Qt::ActiveWindowFocusReason)
            QMetaObject::invokeMethod(
                this, [this] { fieldDidEndEditing(); }, Qt::QueuedConnection);
    }
    return KXViewController::eventFilter(object, event);
}
