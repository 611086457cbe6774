#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>

#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLabel>
#include <QScrollBar>

#include <kestrixkit/filter_ui/KXFacetFilterValueCellView.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsModel_p.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/source_list/KXSourceListRowDelegate_p.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/store/KXStoreChange.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/toolkit/KXMenu.h>

using namespace Qt::StringLiterals;

namespace {

/// Rows as a source list paints them, of two heights.
class DetailsRowDelegate : public KXSourceListRowDelegate
{
public:
    using KXSourceListRowDelegate::KXSourceListRowDelegate;
    QSize sizeHint(const QStyleOptionViewItem &, const QModelIndex &index) const override
    {
        using Controller = KXFilterSetPresetDetailsViewController;
        return { 0,
            KXFilterSetPresetDetailsModel::isFilter(index) ? Controller::filterRowHeight : Controller::valueRowHeight };
    }
};

}

KXFilterSetPresetDetailsViewControllerDelegate::~KXFilterSetPresetDetailsViewControllerDelegate() = default;

KXFilterSetPresetDetailsViewController::KXFilterSetPresetDetailsViewController(
    KXRef<KXFilterSetPreset> preset, QObject *parent)
    : KXViewController(parent)
    , m_preset(std::move(preset))
    , m_set(m_preset ? m_preset->filterSet() : KXRef<KXFilterSet>())
    , m_model(new KXFilterSetPresetDetailsModel(this))
{
    setTitle(m_preset ? m_preset->title() : QString());
    m_model->setCells([this](const QModelIndex &index) { return cellFor(index); });
    m_countsObserver
        = KXObserver::observerFor(m_preset.get(), u"counts"_s, {}, [this](const KXKeyValueChange &) { reloadSoon(); });
    m_defaultsObserver = KXObserver::observerFor(&KXUserDefaults::standard(),
        QString(KXFilterSetPresetDetailsOnlyShowItemsWithCountsKey), {},
        [this](const KXKeyValueChange &) { reload(); });
    // Without context a null sender, to which nobody listens.
    const KXManagedObjectContext *const context = m_preset ? m_preset->managedObjectContext() : nullptr;
    m_saves = KXNotificationCenter::defaultCenter().addObserver(QString(KXManagedObjectContextDidSaveNotification),
        context, [this](const KXNotification &notification) { managedObjectContextDidSave(notification); });
    m_changes = KXManagedObjectContext::onChange(context, [this](const KXObjectsDidChange &did) { follow(did); });
}

KXFilterSetPresetDetailsViewController::~KXFilterSetPresetDetailsViewController()
{
    if (m_outlineView)
        m_outlineView->removeEventFilter(this);
}

KXSourceListView *KXFilterSetPresetDetailsViewController::outlineView() const { return m_outlineView; }

KXPlaceholderView *KXFilterSetPresetDetailsViewController::notAvailableMessageView() const
{
    return m_notAvailableMessageView;
}

QLabel *KXFilterSetPresetDetailsViewController::notAvailableLabel() const
{
    return m_notAvailableMessageView ? m_notAvailableMessageView->label() : nullptr;
}

void KXFilterSetPresetDetailsViewController::loadView()
{
    KXInterfaceLoader::shared().registerWidgetOnce<KXSourceListView>();
    KXViewController::loadView();
}

void KXFilterSetPresetDetailsViewController::viewDidLoad()
{
    m_notAvailableMessageView = outlet<KXPlaceholderView>(u"notAvailableMessageView"_s);
    if (m_notAvailableMessageView)
        m_notAvailableMessageView->setText(
            KXLocalizedString("This preset is not available in the current selected section."));
    m_outlineView = outlet<KXSourceListView>(u"outlineView"_s);
    if (m_outlineView) {
        KXSourceListView *const outline = m_outlineView;
        outline->setModel(m_model);
        outline->expandAll(); // rows are there where an earlier view ended with its window
        outline->setItemDelegate(new DetailsRowDelegate(outline));
        outline->setUniformRowHeights(false);
        outline->setExpandsOnDoubleClick(false);
        outline->setDragEnabled(false);
        outline->setBadgeStyleNames(KXFilterBadgeStyles, KXFilterSelectedBadgeStyles);
        outline->installEventFilter(this);
        connect(outline, &QTreeView::doubleClicked, this, &KXFilterSetPresetDetailsViewController::loadSelected);
        auto *const menu = new KXMenu(outline);
        menu->setUpdater([this](KXMenu &items) { menuNeedsUpdate(items); });
        outline->setContextMenu(menu);
    }
    reload();
    updateAvailability();
}

void KXFilterSetPresetDetailsViewController::viewWillAppear()
{
    KXViewController::viewWillAppear();
    reload(); // what happened meanwhile was not followed
}

// What is shown

void KXFilterSetPresetDetailsViewController::setDelegate(KXFilterSetPresetDetailsViewControllerDelegate *delegate)
{
    m_delegate.set(delegate);
    reload();
}

void KXFilterSetPresetDetailsViewController::setCountsContextIdentifier(const QString &identifier)
{
    m_identifier = identifier;
    reload();
}

void KXFilterSetPresetDetailsViewController::setLoadEnabled(bool enabled)
{
    m_loadEnabled = enabled;
    updateAvailability();
}

void KXFilterSetPresetDetailsViewController::setAvailable(bool available)
{
    m_available = available;
    updateAvailability();
}

void KXFilterSetPresetDetailsViewController::updateAvailability()
{
    const bool selectable = m_loadEnabled && m_available;
    m_model->setSelectable(selectable);
    if (m_outlineView && !selectable)
        m_outlineView->clearSelection();
    if (m_outlineView)
        m_outlineView->setVisible(m_available);
    if (m_notAvailableMessageView)
        m_notAvailableMessageView->setVisible(!m_available);
}

/// A preset may come to name another set. What one that is gone named is shown on.
void KXFilterSetPresetDetailsViewController::findSet()
{
    if (m_preset && m_preset->managedObjectContext())
        m_set = m_preset->filterSet();
}

void KXFilterSetPresetDetailsViewController::reloadSoon()
{
    if (std::exchange(m_reloadIsDue, true))
        return;
    KXMainQueue::async(this, [this] {
        if (m_reloadIsDue)
            reload();
    });
}

void KXFilterSetPresetDetailsViewController::reload()
{
    m_reloadIsDue = false;
    if (!m_outlineView)
        return;
    findSet();
    const bool countsOnly = KXUserDefaults::standard()
                                .boolForKey(QString(KXFilterSetPresetDetailsOnlyShowItemsWithCountsKey))
                                .value_or(false);
    std::vector<KXFilterSetPresetDetailsModel::Row> rows;
    for (const KXRef<KXFilter> &filter : m_set ? m_set->sortedFilters() : QList<KXRef<KXFilter>>()) {
        KXFilterSetPresetDetailsModel::Row row { filter, {}, {} };
        if (const auto facet = KXFacetFilter::cast(filter)) {
            row.values = facet->valuesSortedByName();
            if (countsOnly && m_delegate && m_delegate->isCountsFilterEnabledForFacetFilter(*this, facet)) {
                row.values.removeIf([this](const KXRef<KXFacetFilterValue> &value) {
                    return value->counts().value_or(KXCounts()).value(m_identifier) <= 0;
                });
            }
        } else {
            row.defaultValue = m_defaultValues.emplace_back(std::make_shared<KXFilterDefaultValue>(filter));
        }
        rows.push_back(std::move(row));
    }

    // Where rows come and go the view forgets what was open and selected.
    QSet<qint64> closed;
    for (int i = 0; i < m_model->rowCount(); ++i) {
        if (const QModelIndex filter = m_model->index(i, 0); !m_outlineView->isExpanded(filter))
            closed.insert(m_model->filterAt(filter)->objectID().key());
    }
    QList<qint64> selected;
    for (const QModelIndex &index : m_outlineView->selectionModel()->selectedIndexes())
        selected.append(m_model->valueAt(index)->objectID().key());
    const KXRef<KXFacetFilterValue> current = m_model->valueAt(m_outlineView->currentIndex());
    const int scrolled = m_outlineView->verticalScrollBar()->value();

    m_model->setRows(std::move(rows));
    for (int i = 0; i < m_model->rowCount(); ++i) {
        const QModelIndex filter = m_model->index(i, 0);
        m_outlineView->setExpanded(filter, !closed.contains(m_model->filterAt(filter)->objectID().key()));
    }
    if (current && !m_outlineView->currentIndex().isValid())
        m_outlineView->selectionModel()->setCurrentIndex(
            m_model->indexOfValue(current->objectID().key()), QItemSelectionModel::NoUpdate);
    for (const qint64 key : selected) {
        if (const QModelIndex index = m_model->indexOfValue(key); index.isValid())
            m_outlineView->selectionModel()->select(index, QItemSelectionModel::Select);
    }
    m_outlineView->verticalScrollBar()->setValue(scrolled);
}

QVariant KXFilterSetPresetDetailsViewController::cellFor(const QModelIndex &index)
{
    KXSourceListCell cell;
    if (const KXRef<KXFacetFilterValue> value = m_model->valueAt(index)) {
        KXFacetFilterValueCellView row(cell);
        row.setCountsContextIdentifier(m_identifier);
        row.setFacetFilterValue(value);
        if (m_delegate)
            m_delegate->willDisplayFacetFilterValueCell(*this, row);
    } else if (const KXRef<KXFilter> filter = m_model->filterAt(index)) {
        cell.isGroup = KXFilterSetPresetDetailsModel::isFilter(index);
        cell.isEnabled = filter->enabled();
        cell.title = cell.isGroup ? filter->name().value_or(filter->label()) : filter->label();
    }
    return QVariant::fromValue(cell);
}

// Loading

void KXFilterSetPresetDetailsViewController::menuNeedsUpdate(KXMenu &menu)
{
    menu.clear();
    if (!m_loadEnabled || !m_available)
        return;
    menu.addItem(
        KXLocalizedString("Load and Enable Selected"), this, [this] { loadSelected(); },
        [this] { return m_outlineView && m_outlineView->selectionModel()->hasSelection(); });
}

bool KXFilterSetPresetDetailsViewController::eventFilter(QObject *object, QEvent *event)
{
    // The type first: an outline that is being destroyed, and still sends events, is none any more.
    if (event->type() == QEvent::KeyPress && object == m_outlineView) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if ((key == Qt::Key_Return || key == Qt::Key_Enter) && m_outlineView->selectionModel()->hasSelection()) {
            loadSelected();
            return true;
        }
    }
    return KXViewController::eventFilter(object, event);
}

void KXFilterSetPresetDetailsViewController::loadSelected()
{
    if (!m_loadEnabled)
        return;
    QList<KXManagedObjectID> ids;
    if (m_outlineView) {
        for (const QModelIndex &index : m_outlineView->selectionModel()->selectedIndexes())
            ids.append(m_model->valueAt(index)->objectID());
    }
    loadEnablingComponents(ids);
}

void KXFilterSetPresetDetailsViewController::loadEnablingComponents(const QList<KXManagedObjectID> &valueIDs)
{
    KXManagedObjectContext *const context = m_preset ? m_preset->managedObjectContext() : nullptr;
    findSet();
    if (!context || !m_set || m_set->isDeleted() || m_set->isMissing())
        return;
    // A child sees what the presets' context has not saved yet, and nothing of what happens in it gets out.
    const auto scratch = KXManagedObjectContext::contextWithParentContext(context->shared_from_this());
    const auto set = KXFilterSet::cast(scratch->objectWithID(m_set->objectID()));
    QList<KXRef<KXFacetFilter>> filters;
    for (const KXManagedObjectID &id : valueIDs) {
        const auto value = KXFacetFilterValue::cast(scratch->objectWithID(id));
        const KXRef<KXFacetFilter> filter = value && !value->isMissing() ? value->filter() : KXRef<KXFacetFilter>();
        if (filter && !filters.contains(filter))
            filters.append(filter);
    }
    for (const KXRef<KXFacetFilter> &filter : filters) {
        for (const KXRef<KXFacetFilterValue> &value : filter->values())
            value->setEnabled(valueIDs.contains(value->objectID()));
    }
    if (m_delegate)
        m_delegate->loadFilterSet(*this, set);
}

// Staying current

bool KXFilterSetPresetDetailsViewController::isInWindow() const
{
    return m_outlineView && m_outlineView->window()->isVisible();
}

/// Whether a save touched the preset, its set, one of its filters or one of their values. Who came or went is told by
/// the object above it.
bool KXFilterSetPresetDetailsViewController::concerns(const KXStoreChange &change) const
{
    const qint64 preset = m_preset->objectID().key();
    const qint64 set = m_set ? m_set->objectID().key() : preset;
    const auto isOurs = [&](qint64 key) { return key == preset || key == set || m_model->keys().contains(key); };
    for (const KXEntityChange &entity : change.entities()) {
        if (std::any_of(entity.inserted.begin(), entity.inserted.end(), isOurs)
            || std::any_of(entity.deleted.begin(), entity.deleted.end(), isOurs)
            || std::any_of(
                entity.updated.begin(), entity.updated.end(), [&](const KXRowChange &row) { return isOurs(row.key); }))
            return true;
    }
    return false;
}

void KXFilterSetPresetDetailsViewController::managedObjectContextDidSave(const KXNotification &notification)
{
    if (!KXMainQueue::isMainThread() || !isInWindow())
        return;
    const auto *const change = notification.payloadAs<std::shared_ptr<const KXStoreChange>>();
    if (change && *change && concerns(**change))
        reload();
}

/// What another context saved comes by a merge, of which this one's saves know nothing.
void KXFilterSetPresetDetailsViewController::follow(const KXObjectsDidChange &did)
{
    if (did.merged && isInWindow() && concerns(*did.merged))
        reload();
}
