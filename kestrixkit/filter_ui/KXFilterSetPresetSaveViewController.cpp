#include <kestrixkit/filter_ui/KXFilterSetPresetSaveViewController.h>

#include <QBoxLayout>
#include <QKeyEvent>

#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetSaving.h>
#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/toolkit/KXAlert.h>

using namespace Qt::StringLiterals;

KXFilterSetPresetSaveViewController::KXFilterSetPresetSaveViewController(
    KXManagedObjectContext::Ref context, QObject *parent)
    : KXViewController(parent)
    , m_context(std::move(context))
    , m_library(new KXFilterSetPresetsViewController(m_context, this))
{
    setTitle(KXLocalizedString("Save as Preset"));
    m_library->setEditActionsEnabled(false);
    m_library->setDelegate(this);
    connect(m_library->sourceListTreeController(), &KXTreeController::selectionChanged, this,
        &KXFilterSetPresetSaveViewController::updateFilterSetPresetName);
    updateFilterSetPresetName();
}

KXFilterSetPresetSaveViewController::~KXFilterSetPresetSaveViewController()
{
    m_library->sourceListTreeController()->disconnect(this);
    m_library->setDelegate(nullptr);
}

KXThemeableTextField *KXFilterSetPresetSaveViewController::nameTextField() const { return m_nameTextField; }
QWidget *KXFilterSetPresetSaveViewController::filterSetPresetsContainerView() const { return m_container; }
KXThemeableButton *KXFilterSetPresetSaveViewController::saveButton() const { return m_saveButton; }
KXThemeableButton *KXFilterSetPresetSaveViewController::cancelButton() const { return m_cancelButton; }

void KXFilterSetPresetSaveViewController::viewDidLoad()
{
    m_nameTextField = outlet<KXThemeableTextField>(u"nameTextField"_s);
    m_container = outlet<QWidget>(u"filterSetPresetsContainerView"_s);
    m_saveButton = outlet<KXThemeableButton>(u"saveButton"_s);
    m_cancelButton = outlet<KXThemeableButton>(u"cancelButton"_s);
    if (m_container)
        m_library->appearIn(m_container);
    // Last in the library's own row of buttons.
    auto *const bar = m_library->buttonBar() ? qobject_cast<QBoxLayout *>(m_library->buttonBar()->layout()) : nullptr;
    for (KXThemeableButton *const button : { m_cancelButton.data(), m_saveButton.data() }) {
        if (bar && button)
            bar->addWidget(button);
    }
    if (m_cancelButton)
        connect(m_cancelButton, &QPushButton::clicked, this, &KXFilterSetPresetSaveViewController::cancel);
    if (m_saveButton)
        connect(m_saveButton, &QPushButton::clicked, this, &KXFilterSetPresetSaveViewController::save);
    if (m_nameTextField) {
        m_nameTextField->setText(m_name);
        m_nameTextField->installEventFilter(this);
        connect(m_nameTextField, &QLineEdit::textChanged, this, &KXFilterSetPresetSaveViewController::setFilterSetName);
    }
    m_library->sourceListViewController()->sourceListView()->installEventFilter(this);
    enablingMayHaveChanged();
}

void KXFilterSetPresetSaveViewController::popoverWillShow()
{
    KXViewController::popoverWillShow();
    m_library->setPresentingPopoverController(popoverController());
    m_library->viewWillAppear();
    enablingMayHaveChanged();
}

void KXFilterSetPresetSaveViewController::popoverDidShow()
{
    KXViewController::popoverDidShow();
    m_library->viewDidAppear();
    if (m_nameTextField) {
        m_nameTextField->setFocus(Qt::PopupFocusReason);
        m_nameTextField->selectAll();
    }
}

bool KXFilterSetPresetSaveViewController::eventFilter(QObject *object, QEvent *event)
{
    const auto *const outline = qobject_cast<KXSourceListView *>(object);
    if (event->type() == QEvent::KeyPress && !(outline && outline->isEditing())) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            save();
            return true;
        }
    }
    return KXViewController::eventFilter(object, event);
}

// Name

void KXFilterSetPresetSaveViewController::setFilterSetName(const QString &name)
{
    if (name != m_name) {
        willChangeValueForKey(u"filterSetName");
        m_name = name;
        didChangeValueForKey(u"filterSetName");
        if (m_nameTextField && m_nameTextField->text() != name)
            m_nameTextField->setText(name);
        Q_EMIT filterSetNameChanged();
    }
    enablingMayHaveChanged();
}

void KXFilterSetPresetSaveViewController::updateFilterSetPresetName()
{
    const KXRef<KXFilterSetPreset> preset = m_library->selectedPreset();
    if (preset && !preset->isFolder())
        setFilterSetName(preset->title());
    enablingMayHaveChanged();
}

bool KXFilterSetPresetSaveViewController::isSaveEnabled() const
{
    const auto presets = m_library->selectedPresets();
    return std::none_of(presets.begin(), presets.end(),
        [this](const auto &preset) { return !preset->isOverwritable() && preset->title() == m_name; });
}

void KXFilterSetPresetSaveViewController::enablingMayHaveChanged()
{
    const bool enabled = isSaveEnabled();
    if (m_saveButton)
        m_saveButton->setEnabled(enabled);
    if (std::exchange(m_wasSaveEnabled, enabled) != enabled)
        Q_EMIT saveEnabledChanged();
}

// Saving

void KXFilterSetPresetSaveViewController::cancel()
{
    if (KXPopoverController *const popover = popoverController())
        popover->close();
}

void KXFilterSetPresetSaveViewController::save()
{
    const QPointer<KXFilterSetPresetSaveViewController> alive(this);
    if (isSaveEnabled() && saveFilterSetAsPreset() && alive)
        cancel();
}

bool KXFilterSetPresetSaveViewController::confirmOverwriteOfFilterPreset()
{
    KXAlert alert(KXLocalizedString("Are you sure you want to overwrite the selected filter preset?"));
    alert.setButtons({ KXLocalizedString("Yes"), KXLocalizedString("No") });
    // The popover stays open meanwhile.
    const QPointer<KXPopoverController> popover(popoverController());
    if (popover)
        popover->setBehaviour(KXPopoverBehaviour::ApplicationDefined);
    const KXAlertAnswer answer = alert.run(isViewLoaded() ? view()->window() : nullptr);
    if (popover)
        popover->setBehaviour(KXPopoverBehaviour::Transient);
    return answer.button == 0;
}

bool KXFilterSetPresetSaveViewController::saveFilterSetAsPreset()
{
    const KXRef<KXFilterSetPreset> selected = m_library->selectedPreset();
    const QString name = m_name;
    const bool overwrites = selected && !selected->isFolder() && selected->title() == name;
    const QPointer<KXFilterSetPresetSaveViewController> alive(this);
    if (overwrites && !confirmOverwriteOfFilterPreset())
        return false;
    if (!alive)
        return false;
    KXError error;
    const KXRef<KXFilterSetPreset> saved
        = KXFilterSetPresetSaving::save(m_context, m_set, name, selected, overwrites, &error);
    if (!saved) {
        if (error)
            KXApplication::presentError(error);
        return false;
    }
    Q_EMIT didSave(saved);
    return true;
}

// The library's questions

bool KXFilterSetPresetSaveViewController::isPresetAvailable(
    KXFilterSetPresetsViewController &, const KXRef<KXFilterSetPreset> &)
{
    return true; // any may be chosen to save over, or into
}

std::unique_ptr<KXFilterSetPresetDetailsViewController>
KXFilterSetPresetSaveViewController::detailsViewControllerForPreset(
    KXFilterSetPresetsViewController &, const KXRef<KXFilterSetPreset> &preset)
{
    return std::make_unique<KXFilterSetPresetDetailsViewController>(preset);
}
