#include <kestrixkit/filter_ui/KXFilterSetPresetsManagerViewController.h>

#include <QAction>
#include <QBoxLayout>
#include <QKeyEvent>

#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

using namespace Qt::StringLiterals;

namespace {

KXManagedObjectContext::Ref sharedPresetsContext()
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    return manager ? manager->context() : nullptr;
}

}

KXFilterSetPresetsManagerViewControllerDelegate::~KXFilterSetPresetsManagerViewControllerDelegate() = default;

KXFilterSetPresetsManagerViewController::KXFilterSetPresetsManagerViewController(
    KXManagedObjectContext::Ref context, QObject *parent)
    : KXViewController(parent)
    , m_context(std::move(context))
    , m_library(new KXFilterSetPresetsViewController(sharedPresetsContext(), this))
{
    setTitle(KXLocalizedString("Presets"));
    m_library->setEditActionsEnabled(true);
    m_library->setLoadEnabled(true);
    connect(m_library->sourceListTreeController(), &KXTreeController::selectionChanged, this,
        &KXFilterSetPresetsManagerViewController::selectionDidChange);
    // An edit may make a preset usable, or of no use any more.
    m_changes = KXManagedObjectContext::onChange(
        m_library->context().get(), [this](const KXObjectsDidChange &) { selectionDidChange(); });
}

QWidget *KXFilterSetPresetsManagerViewController::filterSetPresetsContainerView() const { return m_container; }
KXThemeableButton *KXFilterSetPresetsManagerViewController::loadButton() const { return m_loadButton; }

void KXFilterSetPresetsManagerViewController::viewDidLoad()
{
    m_container = outlet<QWidget>(u"filterSetPresetsContainerView"_s);
    m_loadButton = outlet<KXThemeableButton>(u"loadButton"_s);
    m_library->setAutosaveName(QString::fromLatin1(staticMetaObject.className()));
    if (m_container)
        m_library->appearIn(m_container);
    KXSourceListView *const outline = m_library->sourceListViewController()->sourceListView();
    outline->setExpandsOnDoubleClick(false);
    outline->installEventFilter(this);
    connect(outline, &QTreeView::doubleClicked, this, &KXFilterSetPresetsManagerViewController::load);
    if (m_loadButton) {
        connect(m_loadButton, &QPushButton::clicked, this, &KXFilterSetPresetsManagerViewController::load);
        // Last in the library's own row of buttons.
        if (auto *const bar
            = m_library->buttonBar() ? qobject_cast<QBoxLayout *>(m_library->buttonBar()->layout()) : nullptr) {
            bar->addSpacing(loadButtonDistance);
            bar->addWidget(m_loadButton);
        }
    }
    // The window that a popover belongs to does not get its keys.
    if (KXUndoManager *const undo = m_library->context() ? m_library->context()->undoManager() : nullptr) {
        const std::pair<QAction *, QKeySequence> actions[] { { undo->createUndoAction(view()),
                                                                 QKeySequence(Qt::CTRL | Qt::Key_Z) },
            { undo->createRedoAction(view()), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z) } };
        for (const auto &[action, keys] : actions) {
            action->setShortcut(keys);
            action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
            view()->addAction(action);
        }
    }
    selectionDidChange();
}

void KXFilterSetPresetsManagerViewController::selectionDidChange()
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    m_selectedPreset = m_library->selectedPreset();
    m_canLoadSelectedPreset = manager && manager->isPresetAvailable(m_selectedPreset, m_context);
    if (m_loadButton)
        m_loadButton->setEnabled(m_canLoadSelectedPreset && m_selectedPreset && !m_selectedPreset->isFolder());
    Q_EMIT selectedPresetChanged();
}

void KXFilterSetPresetsManagerViewController::load()
{
    const KXRef<KXFilterSetPreset> preset = m_selectedPreset;
    if (!preset || preset->isFolder() || !m_canLoadSelectedPreset)
        return;
    const QPointer<KXFilterSetPresetsManagerViewController> alive(this);
    loadPreset(preset);
    if (alive && popoverController())
        popoverController()->close();
}

void KXFilterSetPresetsManagerViewController::loadPreset(const KXRef<KXFilterSetPreset> &given)
{
    const KXRef<KXFilterSetPreset> preset = given; // it may be the selected one, which another may become meanwhile
    if (!preset || !m_delegate || !m_delegate->loadFilterSet(*this, preset->filterSet()))
        return;
    // Whoever loaded it may have deleted it.
    KXManagedObjectContext *const context = preset->isDeleted() ? nullptr : preset->managedObjectContext();
    if (!context)
        return;
    const KXUndoRegistrationOff unrecorded(context->undoManager());
    preset->setLastLoaded(KXClock::now());
    context->save();
}

bool KXFilterSetPresetsManagerViewController::eventFilter(QObject *object, QEvent *event)
{
    auto *const outline = qobject_cast<KXSourceListView *>(object);
    if (outline && event->type() == QEvent::KeyPress && !outline->isEditing()) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            load();
            return true;
        }
    }
    return KXViewController::eventFilter(object, event);
}

void KXFilterSetPresetsManagerViewController::popoverWillShow()
{
    KXViewController::popoverWillShow();
    m_library->setPresentingPopoverController(popoverController());
    m_library->viewWillAppear();
}

void KXFilterSetPresetsManagerViewController::popoverDidShow()
{
    KXViewController::popoverDidShow();
    m_library->viewDidAppear();
    if (isViewLoaded())
        m_library->sourceListViewController()->sourceListView()->setFocus();
}
