#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>

#include <QMouseEvent>

#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

using namespace Qt::StringLiterals;

KXFilterSetPresetsBarViewControllerDelegate::~KXFilterSetPresetsBarViewControllerDelegate() = default;

KXFilterSetPresetCountsScheduler::Provider
KXFilterSetPresetsBarViewControllerDelegate::countsProviderForFilterSetPreset(
    KXFilterSetPresetsBarViewController &, const KXRef<KXFilterSetPreset> &)
{
    return nullptr;
}

void KXFilterSetPresetsBarViewControllerDelegate::didLoadFilterSet(
    KXFilterSetPresetsBarViewController &, const KXRef<KXFilterSetPreset> &)
{
}

KXFilterSetPresetsBarViewController::KXFilterSetPresetsBarViewController(
    KXManagedObjectContext::Ref context, QObject *parent)
    : KXViewController(parent)
    , m_context(std::move(context))
    , m_manager(new KXFilterSetPresetsManagerViewController(m_context, this))
    , m_scheduler({},
          { [this] { return arePresetsOnScreen(); },
              [this](const Preset &preset) {
                  return m_delegate ? m_delegate->countsProviderForFilterSetPreset(*this, preset) : nullptr;
              } },
          u"KXFilterSetPresetsBarViewController"_s)
{
    m_manager->setDelegate(this);
    m_manager->filterSetPresetsViewController()->setDelegate(this);
}

KXFilterSetPresetsBarViewController::~KXFilterSetPresetsBarViewController()
{
    m_popover.reset();
    if (m_bar)
        m_bar->setDelegate(nullptr);
    m_manager->setDelegate(nullptr);
    m_manager->filterSetPresetsViewController()->setDelegate(nullptr);
}

KXFilterSetViewController *KXFilterSetPresetsBarViewController::filterSetViewController() const { return m_editor; }
void KXFilterSetPresetsBarViewController::setFilterSetViewController(KXFilterSetViewController *editor)
{
    m_editor = editor;
}
KXFilterSetPresetsBar *KXFilterSetPresetsBarViewController::filterSetPresetsBar() const { return m_bar; }
KXThemeableButton *KXFilterSetPresetsBarViewController::filterSetPresetsManagerButton() const
{
    return m_managerButton;
}

void KXFilterSetPresetsBarViewController::setCountsContextIdentifier(const QString &identifier)
{
    m_scheduler.setCountsContextIdentifier(identifier);
    m_manager->filterSetPresetsViewController()->setCountsContextIdentifier(identifier);
    if (m_bar)
        m_bar->setCountsContextIdentifier(identifier);
}

void KXFilterSetPresetsBarViewController::loadView()
{
    KXInterfaceLoader::shared().registerWidgetOnce<KXFilterSetPresetsBar>();
    KXViewController::loadView();
}

void KXFilterSetPresetsBarViewController::viewDidLoad()
{
    m_bar = outlet<KXFilterSetPresetsBar>(u"filterSetPresetsBar"_s);
    m_managerButton = outlet<KXThemeableButton>(u"filterSetPresetsManagerButton"_s);
    if (m_bar) {
        m_bar->setDelegate(this);
        m_bar->setContext(m_context);
        m_bar->setCountsContextIdentifier(countsContextIdentifier());
    }
    if (m_managerButton) {
        m_managerButton->setThemeStyleName(KXFilterPresetsManagerOffButtonStyles);
        m_managerButton->installEventFilter(this);
        connect(m_managerButton, &QPushButton::clicked, this, [this] {
            if (!std::exchange(m_closedByPress, false))
                m_popover && m_popover->isShown() ? m_popover->close() : showFilterSetPresetsManager();
        });
    }
    loadCountsForAllPresets();
}

// A press on the button closes the popover first, as one anywhere outside it does.
bool KXFilterSetPresetsBarViewController::eventFilter(QObject *object, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress && object == m_managerButton)
        m_closedByPress = m_hasJustClosed;
    return KXViewController::eventFilter(object, event);
}

// Loading

void KXFilterSetPresetsBarViewController::loadPreset(const Preset &given)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): whoever gave it may end
    const Preset preset = given;
    KXManagedObjectContext *const borrowed = preset ? preset->managedObjectContext() : nullptr;
    if (!borrowed || preset->isDeleted())
        return;
    const KXManagedObjectContext::Ref context = borrowed->shared_from_this();
    {
        const KXUndoRegistrationOff unrecorded(context->undoManager());
        if (!loadFilterSet(preset->filterSet()))
            return;
        if (!preset->isDeleted() && preset->managedObjectContext()) {
            preset->setLastLoaded(KXClock::now());
            context->save();
        }
    }
    tellLoaded(preset);
}

bool KXFilterSetPresetsBarViewController::loadFilterSet(const KXRef<KXFilterSet> &set)
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    if (!manager || !m_context)
        return false;
    KXRef<KXFilterSet> created;
    {
        const KXUndoRegistrationOff unrecorded(m_context->undoManager());
        created = manager->createFilterSetFromFilterSet(set, m_context);
        if (!created)
            return false;
        m_context->save();
        if (m_editor)
            m_editor->setFilterSet(created);
    }
    return true;
}

KXFilterSetPresetsBarViewController::Preset KXFilterSetPresetsBarViewController::presetOfSet(
    const KXRef<KXFilterSet> &set)
{
    KXManagedObjectContext *const context = set ? set->managedObjectContext() : nullptr;
    if (!context)
        return {};
    const auto ofSet = KXPredicate::predicateWithFormat("filterSetURI == %@", set->objectID().URIRepresentation());
    return KXFilterSetPreset::findFirstUsingPredicate(ofSet, *context);
}

void KXFilterSetPresetsBarViewController::tellLoaded(const Preset &preset)
{
    if (m_delegate)
        m_delegate->didLoadFilterSet(*this, preset);
}

// The library

void KXFilterSetPresetsBarViewController::showFilterSetPresetsManager()
{
    if (!m_managerButton)
        return;
    if (!m_popover) {
        m_popover = std::make_unique<KXPopoverController>(m_manager);
        m_popover->setDidShowAction([this] { enqueuePresetsNeedingCountUpdate(); });
        m_popover->setCloseAction([this] {
            if (m_managerButton)
                m_managerButton->setThemeStyleName(KXFilterPresetsManagerOffButtonStyles);
            m_hasJustClosed = true;
            KXMainQueue::async(this, [this] { m_hasJustClosed = false; });
            Q_EMIT managerShownChanged(false);
        });
    }
    if (m_popover->isShown())
        return;
    m_managerButton->setThemeStyleName(KXFilterPresetsManagerOnButtonStyles);
    m_popover->showRelativeTo(m_managerButton, Qt::BottomEdge);
    Q_EMIT managerShownChanged(true);
}

bool KXFilterSetPresetsBarViewController::arePresetsOnScreen() const
{
    // Whatever asks while it is made, or has no window around it, sees none.
    const QWidget *const bar = m_bar;
    return bar && bar->window()->isVisible() && m_popover && m_popover->isShown();
}

void KXFilterSetPresetsBarViewController::closeManager()
{
    if (m_popover)
        m_popover->close();
}

// As delegate

void KXFilterSetPresetsBarViewController::loadPreset(KXFilterSetPresetsBar &, const Preset &preset)
{
    loadPreset(preset);
}

bool KXFilterSetPresetsBarViewController::loadFilterSet(
    KXFilterSetPresetsManagerViewController &manager, const KXRef<KXFilterSet> &given)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): whoever gave it may end
    const KXRef<KXFilterSet> set = given;
    Preset preset = manager.selectedPreset();
    if (!preset || preset->filterSet() != set)
        preset = presetOfSet(set);
    closeManager();
    if (!loadFilterSet(set))
        return false;
    tellLoaded(preset);
    return true;
}

bool KXFilterSetPresetsBarViewController::isPresetAvailable(KXFilterSetPresetsViewController &, const Preset &preset)
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    return manager && manager->isPresetAvailable(preset, m_context);
}

std::unique_ptr<KXFilterSetPresetDetailsViewController>
KXFilterSetPresetsBarViewController::detailsViewControllerForPreset(
    KXFilterSetPresetsViewController &, const Preset &preset)
{
    auto details = std::make_unique<KXFilterSetPresetDetailsViewController>(preset);
    details->setDelegate(this);
    return details;
}

void KXFilterSetPresetsBarViewController::loadFilterSet(
    KXFilterSetPresetDetailsViewController &details, const KXRef<KXFilterSet> &given)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): whoever gave it may end
    const KXRef<KXFilterSet> set = given;
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): closing may end who has it
    const Preset preset = details.filterSetPreset();
    closeManager();
    if (loadFilterSet(set))
        tellLoaded(preset);
}

bool KXFilterSetPresetsBarViewController::isCountsFilterEnabledForFacetFilter(
    KXFilterSetPresetDetailsViewController &, const KXRef<KXFacetFilter> &)
{
    return false;
}

void KXFilterSetPresetsBarViewController::willDisplayFacetFilterValueCell(
    KXFilterSetPresetDetailsViewController &, KXFacetFilterValueCellView &)
{
}
