#include <kestrixkit/filter_ui/KXFilterSetPresetsViewController.h>

#include <QAction>
#include <QBoxLayout>

#include <kestrixkit/filter_ui/KXFilterSetPresetCellView.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXPlaceholderView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableSplitView.h>
#include <kestrixkit/toolkit/KXMenu.h>
#include <kestrixkit/toolkit/KXTreeController.h>

using namespace Qt::StringLiterals;

namespace {

constexpr QMargins libraryDetailsMargins(1, 1, 1, 1);
constexpr double librarySaveDelay = 0.5; // seconds after the divider was moved last: the defaults are a file

KXTreeRequest libraryRequest()
{
    KXTreeRequest request { .entityName = QString(KXFilterSetPreset::entityName) };
    request.sortDescriptors = { { u"position"_s } };
    return request;
}

QString librarySplitKey(const QString &autosaveName) { return KXStringWithFormat("%@ Split View", autosaveName); }

}

KXFilterSetPresetsViewControllerDelegate::~KXFilterSetPresetsViewControllerDelegate() = default;

KXFilterSetPresetsViewController::KXFilterSetPresetsViewController(KXManagedObjectContext::Ref context, QObject *parent)
    : KXViewController(parent)
    , m_context(std::move(context))
    , m_tree(m_context ? new KXTreeController(m_context, libraryRequest(), this) : new KXTreeController(this))
    , m_sourceList(new KXSourceListViewController(this))
{
    setTitle(KXLocalizedString("Presets"));
    m_sourceList->setTreeController(m_tree);
    m_sourceList->setDelegate(this);
    connect(m_tree, &KXTreeController::selectionChanged, this, &KXFilterSetPresetsViewController::selectionDidChange);
    // What a preset may, and whether its set is empty, changes without the selection; the tree has followed by then.
    m_changes = KXManagedObjectContext::onChange(
        m_context.get(), [this](const KXObjectsDidChange &) { selectionDidChange(); });
}

KXFilterSetPresetsViewController::~KXFilterSetPresetsViewController()
{
    m_sourceList->saveState(); // while it has its tree and its view
    if (m_saveSplitSoon.isPending())
        saveSplit();
    m_changes = {};
    m_tree->disconnect(this);
    m_sourceList->setDelegate(nullptr);
}

KXFilterSetPresetDetailsViewController *KXFilterSetPresetsViewController::currentDetailsViewController() const
{
    return m_current;
}
KXThemeableSplitView *KXFilterSetPresetsViewController::splitView() const { return m_splitView; }
QWidget *KXFilterSetPresetsViewController::filterSetDetailsContainerView() const { return m_detailsContainer; }
KXPlaceholderView *KXFilterSetPresetsViewController::placeholderView() const { return m_placeholderView; }
KXThemeableButton *KXFilterSetPresetsViewController::countsFilterButton() const { return m_countsFilterButton; }
KXThemeableButton *KXFilterSetPresetsViewController::addButton() const { return m_addButton; }
KXThemeableButton *KXFilterSetPresetsViewController::deleteButton() const { return m_deleteButton; }
QWidget *KXFilterSetPresetsViewController::buttonBar() const { return m_buttonBar; }

void KXFilterSetPresetsViewController::viewDidLoad()
{
    m_splitView = outlet<KXThemeableSplitView>(u"splitView"_s);
    m_detailsContainer = outlet<QWidget>(u"filterSetDetailsContainerView"_s);
    m_placeholderView = outlet<KXPlaceholderView>(u"placeholderView"_s);
    m_buttonBar = outlet<QWidget>(u"buttonBar"_s);
    m_addButton = outlet<KXThemeableButton>(u"addButton"_s);
    m_deleteButton = outlet<KXThemeableButton>(u"deleteButton"_s);
    m_countsFilterButton = outlet<KXThemeableButton>(u"countsFilterButton"_s);
    if (m_addButton)
        connect(m_addButton, &QPushButton::clicked, this, &KXFilterSetPresetsViewController::addFolder);
    if (m_deleteButton)
        connect(m_deleteButton, &QPushButton::clicked, this, &KXFilterSetPresetsViewController::deletePreset);
    if (m_countsFilterButton) {
        const QString key(KXFilterSetPresetDetailsOnlyShowItemsWithCountsKey);
        const auto follow = [this, key] {
            if (m_countsFilterButton)
                m_countsFilterButton->setChecked(KXUserDefaults::standard().boolForKey(key).value_or(false));
        };
        follow();
        m_defaultsObserver = KXObserver::observerFor(
            &KXUserDefaults::standard(), key, {}, [follow](const KXKeyValueChange &) { follow(); });
        connect(m_countsFilterButton, &QPushButton::toggled, this,
            [key](bool only) { KXUserDefaults::standard().setValue(key, only); });
    }
    if (m_splitView) {
        m_splitView->setChildrenCollapsible(false);
        m_splitView->setSizes({ 4000, 5000 }); // in proportion
        connect(m_splitView, &QSplitter::splitterMoved, this,
            [this] { m_saveSplitSoon.start(librarySaveDelay, [this] { saveSplit(); }); });
    }

    if (QWidget *const container = outlet<QWidget>(u"sourceListContainerView"_s))
        m_sourceList->appearIn(container);
    KXSourceListView *const outline = m_sourceList->sourceListView();
    outline->setAccessibleName(KXLocalizedString("Presets"));
    outline->setBadgeStyleNames(KXFilterBadgeStyles, KXFilterSelectedBadgeStyles);
    outline->setPlaceholderText(KXLocalizedString("No Presets"));
    connect(outline, &KXSourceListView::deletePressed, this, &KXFilterSetPresetsViewController::deletePreset);
    auto *const menu = new KXMenu(outline);
    menu->setUpdater([this](KXMenu &items) { menuNeedsUpdate(items); });
    outline->setContextMenu(menu);
    const auto shortcut
        = [&](const QKeySequence &keys, MenuItem item, void (KXFilterSetPresetsViewController::*act)()) {
              auto *const action = new QAction(outline);
              action->setShortcut(keys);
              action->setShortcutContext(Qt::WidgetShortcut);
              outline->addAction(action);
              connect(action, &QAction::triggered, this, [this, item, act] {
                  if (m_editActionsEnabled && validateMenuItem(item))
                      (this->*act)();
              });
          };
    shortcut(QKeySequence::Copy, MenuItem::Copy, &KXFilterSetPresetsViewController::copy);
    shortcut(QKeySequence::Paste, MenuItem::Paste, &KXFilterSetPresetsViewController::paste);
    selectionDidChange();
    restoreSoon();
}

void KXFilterSetPresetsViewController::viewWillAppear()
{
    KXViewController::viewWillAppear();
    const QWidget *const loaded = view();
    if (loaded && m_countsFilterButton)
        m_countsFilterButton->setVisible(!countsContextIdentifier().isNull());
    if (m_current)
        m_current->viewWillAppear();
}

void KXFilterSetPresetsViewController::setDelegate(KXFilterSetPresetsViewControllerDelegate *delegate)
{
    m_delegate.set(delegate);
    selectionDidChange();
    if (m_sourceList->isViewLoaded())
        m_sourceList->sourceListView()->viewport()->update();
}

void KXFilterSetPresetsViewController::setLoadEnabled(bool enabled)
{
    m_loadEnabled = enabled;
    for (KXFilterSetPresetDetailsViewController *const details : std::as_const(m_details))
        details->setLoadEnabled(enabled);
}

void KXFilterSetPresetsViewController::setCountsContextIdentifier(const QString &identifier)
{
    m_sourceList->setCountsContextIdentifier(identifier);
    for (KXFilterSetPresetDetailsViewController *const details : std::as_const(m_details))
        details->setCountsContextIdentifier(identifier);
    if (m_countsFilterButton)
        m_countsFilterButton->setVisible(!countsContextIdentifier().isNull());
}

// Remembered

void KXFilterSetPresetsViewController::setAutosaveName(const QString &name)
{
    if (m_saveSplitSoon.isPending())
        saveSplit(); // which belongs to the name that it was dragged under
    m_autosaveName = name;
    if (name.isEmpty())
        m_sourceList->setAutosaveName(name); // nothing is remembered from now on
    restoreSoon();
}

void KXFilterSetPresetsViewController::restoreSoon()
{
    if (std::exchange(m_restoreIsDue, true))
        return;
    KXMainQueue::async(this, [this] {
        m_restoreIsDue = false;
        restoreState();
    });
}

void KXFilterSetPresetsViewController::saveSplit()
{
    m_saveSplitSoon.cancel();
    if (m_autosaveName.isEmpty() || !m_splitView)
        return;
    QVariantList sizes;
    for (const int size : m_splitView->sizes())
        sizes.append(size);
    KXUserDefaults::standard().setValue(librarySplitKey(m_autosaveName), sizes);
}

void KXFilterSetPresetsViewController::restoreState()
{
    if (!isViewLoaded() || m_autosaveName.isEmpty())
        return;
    const auto stored = KXUserDefaults::standard().arrayForKey(librarySplitKey(m_autosaveName));
    QList<int> sizes;
    for (const QVariant &size : stored.value_or(QVariantList()))
        sizes.append(size.toInt());
    if (m_splitView && sizes.size() == m_splitView->count()
        && std::all_of(sizes.begin(), sizes.end(), [](int size) { return size > 0; }))
        m_splitView->setSizes(sizes);
    if (m_sourceList->autosaveName() != m_autosaveName)
        m_sourceList->setAutosaveName(m_autosaveName); // which restores what the list remembers
}

// Selection and details

void KXFilterSetPresetsViewController::selectionDidChange()
{
    const Presets selected = selectedPresets();
    const bool mayDelete = !selected.isEmpty()
        && std::all_of(selected.begin(), selected.end(), [](const auto &preset) { return preset->isDeletable(); });
    const bool mayAdd
        = std::all_of(selected.begin(), selected.end(), [](const auto &preset) { return preset->isOverwritable(); });
    if (mayDelete != m_deleteEnabled || mayAdd != m_addEnabled) {
        m_deleteEnabled = mayDelete;
        m_addEnabled = mayAdd;
        Q_EMIT enablingChanged();
    }
    if (m_deleteButton)
        m_deleteButton->setEnabled(m_deleteEnabled);
    if (m_addButton)
        m_addButton->setEnabled(m_addEnabled && m_context);
    if (!m_detailsContainer)
        return;

    const KXRef<KXFilterSetPreset> preset = selected.value(0);
    const KXRef<KXFilterSet> set = preset && !preset->isFolder() ? preset->filterSet() : KXRef<KXFilterSet>();
    if (!preset || preset->isFolder()) {
        showPlaceholder(KXLocalizedString("No Filter Preset Selected"));
    } else if (!set || set->filters().isEmpty()) {
        showPlaceholder(KXLocalizedString("Empty Preset"));
    } else if (m_current && m_current->filterSetPreset() == preset && m_current->hasAppeared()) {
        m_current->setAvailable(m_delegate && m_delegate->isPresetAvailable(*this, preset));
    } else {
        showDetailsForPreset(preset);
    }
}

void KXFilterSetPresetsViewController::hideDetails()
{
    if (m_current)
        m_current->disappear();
    m_current = nullptr;
}

void KXFilterSetPresetsViewController::showPlaceholder(const QString &text)
{
    hideDetails();
    m_detailsContainer->hide();
    if (m_placeholderView) {
        m_placeholderView->setText(text);
        m_placeholderView->show();
    }
}

void KXFilterSetPresetsViewController::showDetailsForPreset(const KXRef<KXFilterSetPreset> &preset)
{
    if (!m_detailsContainer || !preset)
        return;
    hideDetails();
    KXFilterSetPresetDetailsViewController *details = m_details.value(preset->objectID());
    if (!details && m_delegate) {
        auto made = m_delegate->detailsViewControllerForPreset(*this, preset);
        details = made.release();
        if (details) {
            details->setParent(this);
            details->setCountsContextIdentifier(countsContextIdentifier());
            details->setLoadEnabled(m_loadEnabled);
            m_details.insert(preset->objectID(), details);
        }
    }
    if (m_placeholderView)
        m_placeholderView->hide();
    m_detailsContainer->show();
    if (!details)
        return;
    m_current = details;
    details->setAvailable(m_delegate && m_delegate->isPresetAvailable(*this, preset));
    details->appearIn(m_detailsContainer, libraryDetailsMargins);
}

// Rows

void KXFilterSetPresetsViewController::willDisplayCellView(
    KXSourceListViewController &, KXSourceListCell &cell, KXSourceListItem *item)
{
    const KXRef<KXFilterSetPreset> preset(dynamic_cast<KXFilterSetPreset *>(item));
    if (!preset)
        return;
    KXFilterSetPresetCellView row(cell);
    row.setCountsContextIdentifier(countsContextIdentifier());
    row.setFilterSetPreset(*preset, m_delegate && m_delegate->isPresetAvailable(*this, preset));
}
