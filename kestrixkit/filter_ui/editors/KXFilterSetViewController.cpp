#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>

#include <QAction>

#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>
#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filters/KXFilterSetCheck.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

using namespace Qt::StringLiterals;

namespace {

bool editedFilterIsThere(const KXRef<KXFilter> &filter)
{
    return filter && !filter->isDeleted() && filter->managedObjectContext();
}

/// Whoever shows a popover may be called from within it.
void popoverEnd(std::unique_ptr<KXPopoverController> &popover)
{
    if (KXPopoverController *const ended = popover.release())
        ended->deleteLater();
}

}

KXFilterSetViewController::KXFilterSetViewController(KXManagedObjectContext::Ref context, QObject *parent)
    : KXViewController(parent)
    , m_context(std::move(context))
    , m_typeGrid(new KXFilterSetManagerViewController(this))
{
    m_typeGrid->setDelegate(this);
    m_changes
        = KXManagedObjectContext::onChange(m_context.get(), [this](const KXObjectsDidChange &did) { follow(did); });
}

KXFilterSetViewController::~KXFilterSetViewController()
{
    m_changes = {};
    if (m_filterBar)
        m_filterBar->setDelegate(nullptr);
    m_typePopover.reset();
    m_filterPopover.reset();
    m_savePopover.reset();
}

KXFilterSetPresetSaveViewController *KXFilterSetViewController::filterSetPresetSaveViewController() const
{
    return m_saveController.get();
}
KXFilterBar *KXFilterSetViewController::filterBar() const { return m_filterBar; }
KXThemeableButton *KXFilterSetViewController::addButton() const { return m_addButton; }
KXThemeableButton *KXFilterSetViewController::clearButton() const { return m_clearButton; }
KXThemeableButton *KXFilterSetViewController::saveButton() const { return m_saveButton; }

void KXFilterSetViewController::loadView()
{
    KXInterfaceLoader::shared().registerWidgetOnce<KXFilterBar>();
    KXViewController::loadView();
}

void KXFilterSetViewController::viewDidLoad()
{
    m_filterBar = outlet<KXFilterBar>(u"filterBar"_s);
    m_addButton = outlet<KXThemeableButton>(u"addButton"_s);
    m_clearButton = outlet<KXThemeableButton>(u"clearButton"_s);
    m_saveButton = outlet<KXThemeableButton>(u"saveButton"_s);
    if (m_filterBar) {
        m_filterBar->setDelegate(this);
        m_filterBar->setPlaceholderText(KXLocalizedString("No filters"));
        m_filterBar->setFilterSet(m_set);
        connect(m_filterBar, &KXFilterBar::filtersChanged, this, &KXFilterSetViewController::updateButtons);
    }
    if (m_addButton)
        connect(m_addButton, &QPushButton::clicked, this, &KXFilterSetViewController::showFilterSetManager);
    if (m_clearButton)
        connect(m_clearButton, &QPushButton::clicked, this, &KXFilterSetViewController::deleteAllFilters);
    if (m_saveButton)
        connect(m_saveButton, &QPushButton::clicked, this, [this] { saveAsPreset(m_saveButton); });
    updateButtons();
    check();
}

// The set

bool KXFilterSetViewController::canEdit() const
{
    return m_context && m_set && !m_set->isDeleted() && m_set->managedObjectContext();
}

void KXFilterSetViewController::setFilterSet(const KXRef<KXFilterSet> &set)
{
    closeFilterPopover();
    if (m_savePopover && set != m_set)
        m_savePopover->close();
    m_set = set;
    if (m_filterBar)
        m_filterBar->setFilterSet(set);
    setDidChange();
}

void KXFilterSetViewController::follow(const KXObjectsDidChange &did)
{
    if (m_editedFilter && !editedFilterIsThere(m_editedFilter))
        closeFilterPopover();
    if (!m_set)
        return;
    if (did.deleted.contains(KXRef<KXManagedObject>(m_set))) {
        setFilterSet({});
        return;
    }
    // A filter that is deleted leaves its set, which is updated by that.
    for (const auto *list : { &did.inserted, &did.updated, &did.refreshed }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            if (KXFilterSet::filterSetOfObject(object) == m_set) {
                setDidChange();
                return;
            }
        }
    }
}

void KXFilterSetViewController::setDidChange()
{
    updateButtons();
    check();
    Q_EMIT filterSetDidChange();
}

void KXFilterSetViewController::updateButtons()
{
    if (m_addButton)
        m_addButton->setEnabled(canEdit());
    if (m_saveButton)
        m_saveButton->setEnabled(canEdit() && KXFilterSetPresetsManager::sharedManager());
    if (m_clearButton)
        m_clearButton->setEnabled(validateMenuItem(MenuItem::DeleteAll));
}

// What is wrong with it

void KXFilterSetViewController::setFilteredEntity(const KXEntityDescription *entity)
{
    m_filteredEntity = entity;
    check();
}

void KXFilterSetViewController::check()
{
    if (!m_filterBar)
        return;
    QHash<const KXFilter *, QString> problems;
    if (m_filteredEntity && canEdit()) {
        const KXFilterSetCheck check = KXFilterSetCheck::check(*m_set, m_filteredEntity);
        for (const KXFilterSetCheck::Finding &finding : check.findings()) {
            if (finding.problem == KXFilterSetCheck::Problem::AlwaysMatches)
                continue; // it does no harm, and one that was just added is of that kind
            for (const int part : finding.parts) {
                const KXRef<KXFilter> &filter = check.parts()[part].filter;
                QStringList others;
                for (const int other : finding.parts) {
                    const KXRef<KXFilter> &against = check.parts()[other].filter;
                    const QString name = against->name().value_or(against->label());
                    if (against != filter && !others.contains(name))
                        others.append(name);
                }
                problems.insert(filter.get(),
                    others.isEmpty()
                        ? KXLocalizedString("Nothing can fit this filter.")
                        : KXStringWithFormat(
                            KXLocalizedString("Nothing can fit this filter and %@ at once."), others.join(u", "_s)));
            }
        }
    }
    for (KXFilterBarFilterView *const view : m_filterBar->filterViews()) {
        const QString problem = problems.value(view->filter().get());
        if (view->problem() != problem)
            view->setProblem(problem);
    }
}

// Filters

void KXFilterSetViewController::showFilterSetManager()
{
    if (!m_addButton || !canEdit() || (m_typePopover && m_typePopover->isShown()))
        return;
    if (!m_typePopover)
        m_typePopover = std::make_unique<KXPopoverController>(m_typeGrid);
    m_typePopover->setCloseAction({});
    m_typePopover->showRelativeTo(m_addButton, Qt::BottomEdge);
}

void KXFilterSetViewController::addFilterOfType(const KXFilterTypeItem &) { }

void KXFilterSetViewController::addFilterOfType(KXFilterSetManagerViewController &, const KXFilterTypeItem &type)
{
    addFilterOfType(type);
}

void KXFilterSetViewController::insertFilter(const KXRef<KXFilter> &filter)
{
    if (!filter || !canEdit())
        return;
    filter->setPosition(m_set->filters().size());
    m_set->addToFilters(filter);
}

bool KXFilterSetViewController::isOwn(const KXRef<KXFilter> &filter) const
{
    return canEdit() && editedFilterIsThere(filter) && filter->filterSet() == m_set;
}

void KXFilterSetViewController::removeFilter(const KXRef<KXFilter> &given)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): whoever gave it may end
    const KXRef<KXFilter> filter = given;
    if (!isOwn(filter))
        return;
    const KXRef<KXFilterSet> set = settled(filter == m_editedFilter);
    if (!set || !isOwn(filter))
        return;
    const KXManagedObjectContext::Ref context = m_context;
    {
        const KXUndoGroup group(context->undoManager(), KXLocalizedString("Delete Filter"));
        set->removeFromFilters(filter);
        context->removeManagedObject(filter);
        qint64 position = 0;
        for (const KXRef<KXFilter> &left : set->sortedFilters()) {
            if (left->position() != position)
                left->setPosition(position);
            ++position;
        }
    }
    context->save();
}

void KXFilterSetViewController::removeAllFilters()
{
    const KXRef<KXFilterSet> set = canEdit() ? settled(true) : KXRef<KXFilterSet>();
    const QList<KXRef<KXFilter>> filters = set ? set->filters() : QList<KXRef<KXFilter>>();
    if (filters.isEmpty())
        return;
    const KXManagedObjectContext::Ref context = m_context;
    {
        const KXUndoGroup group(context->undoManager(), KXLocalizedString("Delete Filters"));
        for (const KXRef<KXFilter> &filter : filters)
            context->removeManagedObject(filter);
        for (const KXRef<KXFilter> &filter : set->filters())
            set->removeFromFilters(filter);
    }
    context->save();
}

/// The set, once nothing is being typed and nothing waits to be told; none where whoever was told shows another one.
KXRef<KXFilterSet> KXFilterSetViewController::settled(bool closesPopover)
{
    const KXRef<KXFilterSet> set = m_set;
    const KXManagedObjectContext::Ref context = m_context;
    const QPointer<KXFilterSetViewController> alive(this);
    if (closesPopover)
        closeFilterPopover();
    context->processPendingChanges();
    return alive && m_set == set && canEdit() ? set : KXRef<KXFilterSet>();
}

std::unique_ptr<KXViewController> KXFilterSetViewController::filterViewControllerForFilter(const KXRef<KXFilter> &)
{
    return nullptr;
}

void KXFilterSetViewController::showFilter(const KXRef<KXFilter> &given)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): whoever gave it may end
    const KXRef<KXFilter> filter = given;
    if (!editedFilterIsThere(filter) || !m_filterBar)
        return;
    const KXFilterBarFilterView *view = m_filterBar->viewOfFilter(filter.get());
    if (!view)
        return;
    closeFilterPopover(); // what it looks at, such as counts, may be the next one's, too
    if (!editedFilterIsThere(filter))
        return;
    auto editor = filterViewControllerForFilter(filter);
    view = m_filterBar ? m_filterBar->viewOfFilter(filter.get()) : nullptr;
    if (!editor || !view)
        return;
    KXViewController *const content = editor.release();
    m_filterPopover = std::make_unique<KXPopoverController>(content);
    content->setParent(m_filterPopover.get());
    m_editedFilter = filter;
    const QPointer<QWidget> button(view->button());
    m_filterPopover->setCloseAction([this, button] {
        m_editedFilter = {};
        popoverEnd(m_filterPopover);
        if (button)
            button->setFocus(Qt::PopupFocusReason); // back to where the keyboard came from
    });
    m_filterPopover->showRelativeTo(view->button(), Qt::BottomEdge);
}

void KXFilterSetViewController::closeFilterPopover()
{
    if (m_filterPopover)
        m_filterPopover->close();
}

// Actions

KXRef<KXFilter> KXFilterSetViewController::filterOfSender(const QVariant &sender)
{
    const auto *const action = sender.value<QAction *>();
    return KXRef<KXFilter>(dynamic_cast<KXFilter *>(KXObservableFromVariant(action ? action->data() : sender)));
}

void KXFilterSetViewController::deleteFilter(const QVariant &sender) { removeFilter(filterOfSender(sender)); }

void KXFilterSetViewController::toggleFilterEnabledState(const QVariant &sender)
{
    const KXRef<KXFilter> filter = filterOfSender(sender);
    if (!isOwn(filter))
        return;
    const KXUndoRegistrationOff unrecorded(m_context->undoManager());
    filter->setEnabled(!filter->enabled());
    m_context->save();
}

void KXFilterSetViewController::setAllEnabled(bool enabled)
{
    if (!canEdit())
        return;
    const KXUndoRegistrationOff unrecorded(m_context->undoManager());
    for (const KXRef<KXFilter> &filter : m_set->filters())
        filter->setEnabled(enabled);
    m_context->save();
}

bool KXFilterSetViewController::validateMenuItem(MenuItem item, QAction *action) const
{
    switch (item) {
    case MenuItem::ToggleFilter: {
        const KXRef<KXFilter> filter = filterOfSender(QVariant::fromValue(action));
        if (action && filter)
            action->setText(filter->enabled() ? KXLocalizedString("Disable") : KXLocalizedString("Enable"));
        return true;
    }
    case MenuItem::DisableAll:
    case MenuItem::EnableAll:
    case MenuItem::DeleteAll:
        return canEdit() && !m_set->filters().isEmpty();
    case MenuItem::Other:
        break;
    }
    return true;
}

// As delegate

void KXFilterSetViewController::showFilter(KXFilterBar &, const KXRef<KXFilter> &filter) { showFilter(filter); }

void KXFilterSetViewController::toggleEnabledStateForFilter(KXFilterBar &, const KXRef<KXFilter> &filter)
{
    toggleFilterEnabledState(KXVariantFromRef(filter));
}

void KXFilterSetViewController::deleteFilter(KXFilterBar &, const KXRef<KXFilter> &filter) { removeFilter(filter); }

std::unique_ptr<KXMenu> KXFilterSetViewController::contextMenuForFilter(KXFilterBar &, const KXRef<KXFilter> &filter)
{
    auto menu = std::make_unique<KXMenu>();
    menu->setAccessibleName(KXLocalizedString("Filter"));
    menu->setUpdater([this, filter](KXMenu &items) {
        const QVariant sender = KXVariantFromRef(filter);
        items.addItem(KXLocalizedString("Delete"), this, [this, sender] { deleteFilter(sender); })->setData(sender);
        items.addSeparator();
        QAction *const toggle = items.addItem(
            KXLocalizedString("Enable / Disable"), this, [this, sender] { toggleFilterEnabledState(sender); });
        toggle->setData(sender);
        (void)validateMenuItem(MenuItem::ToggleFilter, toggle);
    });
    return menu;
}

// Saving as a preset

void KXFilterSetViewController::saveAsPreset(QWidget *sender)
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    if (!sender || !canEdit() || !manager || (m_savePopover && m_savePopover->isShown()))
        return;
    if (!m_saveController || m_saveController->context() != manager->context()) {
        popoverEnd(m_savePopover);
        m_saveController = std::make_unique<KXFilterSetPresetSaveViewController>(manager->context());
        m_saveController->filterSetPresetsViewController()->setAutosaveName(m_autosaveName);
        connect(m_saveController.get(), &KXFilterSetPresetSaveViewController::didSave, this,
            &KXFilterSetViewController::presetWasSaved);
    }
    closeFilterPopover();
    m_saveController->setFilterSet(m_set);
    popoverEnd(m_savePopover);
    m_savePopover = std::make_unique<KXPopoverController>(m_saveController.get());
    m_savePopover->showRelativeTo(sender, Qt::BottomEdge);
}

void KXFilterSetViewController::presetWasSaved(const KXRef<KXFilterSetPreset> &preset)
{
    // One that is edited in place and saved over itself went with the old preset.
    if (!canEdit() && preset && preset->managedObjectContext() == m_context.get())
        setFilterSet(preset->filterSet());
    Q_EMIT didSavePreset(preset);
}
