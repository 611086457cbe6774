#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBar.h>

#include <QApplication>
#include <QKeyEvent>

#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarPresetButton.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/toolkit/KXMenu.h>

using namespace Qt::StringLiterals;

namespace {

using BarPreset = KXRef<KXFilterSetPreset>;

QIcon barOverflowImage()
{
    const QVariant image
        = KXThemeManager::sharedManager().valueForKeyPath(QString(KXFilterPresetsBarOverflowButtonImage));
    const QIcon icon = image.value<QIcon>();
    return icon.isNull() ? QIcon(u":/kestrixkit/icons/overflow.svg"_s) : icon;
}

}

KXFilterSetPresetsBarDelegate::~KXFilterSetPresetsBarDelegate() = default;

KXFilterSetPresetsBar::KXFilterSetPresetsBar(QWidget *parent)
    : QWidget(parent)
    , m_overflowButton(new KXThemeableButton(this))
    , m_overflowMenu(new KXMenu(this))
{
    setAccessibleName(KXLocalizedString("Presets"));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    m_overflowButton->setThemeStyleName(KXToolbarButtonStyles);
    m_overflowButton->setIcon(barOverflowImage());
    m_overflowButton->setAccessibleName(KXLocalizedString("More Presets"));
    m_overflowButton->setToolTip(KXLocalizedString("More Presets"));
    m_overflowButton->hide();
    m_overflowButton->installEventFilter(this);
    m_overflowMenu->setAccessibleName(KXLocalizedString("More Presets"));
    m_overflowMenu->setToolTipsVisible(true);
    m_overflowMenu->setUpdater([this](KXMenu &menu) { menuNeedsUpdate(menu, {}); });
    connect(m_overflowButton, &QPushButton::clicked, this, [this] {
        const bool mirrored = layoutDirection() == Qt::RightToLeft;
        const int left = mirrored ? 0 : m_overflowButton->width() - m_overflowMenu->sizeHint().width();
        m_overflowMenu->popup(m_overflowButton->mapToGlobal(QPoint(qMin(0, left), m_overflowButton->height())));
    });
    m_themeChanges = KXNotificationCenter::defaultCenter().addObserver(QString(KXThemeDidChangeNotification),
        &KXThemeManager::sharedManager(),
        [this](const KXNotification &) { m_overflowButton->setIcon(barOverflowImage()); });
}

KXFilterSetPresetsBar::~KXFilterSetPresetsBar() { m_changes = {}; }

void KXFilterSetPresetsBar::setContext(const KXManagedObjectContext::Ref &context)
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    m_context = context;
    m_presetsContext = manager ? manager->context() : nullptr;
    m_changes = KXManagedObjectContext::onChange(
        m_presetsContext.get(), [this](const KXObjectsDidChange &did) { follow(did); });
    setupPresetButtons();
}

void KXFilterSetPresetsBar::setCountsContextIdentifier(const QString &identifier)
{
    m_identifier = identifier;
    for (Button *const button : std::as_const(m_buttons))
        button->setCountsContextIdentifier(identifier);
    titlesDidChange();
}

// Buttons

QList<BarPreset> KXFilterSetPresetsBar::level(const Preset &folder) const
{
    QList<Preset> presets;
    if (!m_presetsContext)
        return presets;
    KXFetchRequest ofLevel(QString(KXFilterSetPreset::entityName),
        KXPredicate::predicateWithFormat("parent == %@", KXVariantFromRef(folder)));
    for (const KXRef<KXManagedObject> &object :
        m_presetsContext->fetch(ofLevel.setSortDescriptors({ { u"position"_s } }))) {
        if (const auto preset = KXFilterSetPreset::cast(object); preset && !preset->isDeleted())
            presets.append(preset);
    }
    return presets;
}

QList<KXFilterSetPresetsBar::Button *> KXFilterSetPresetsBar::presetButtons() const
{
    QList<Button *> buttons;
    for (const Preset &preset : m_presets) {
        if (Button *const button = m_buttons.value(preset.get()))
            buttons.append(button);
    }
    return buttons;
}

KXFilterSetPresetsBar::Button *KXFilterSetPresetsBar::presetButtonForPreset(const KXFilterSetPreset *preset) const
{
    return m_buttons.value(preset);
}

void KXFilterSetPresetsBar::setupPresetButtons()
{
    m_presets = level({});
    m_width = -1;
    const QWidget *const focus = QApplication::focusWidget();
    bool hadFocus = false;
    QHash<const KXFilterSetPreset *, Button *> kept;
    for (const Preset &preset : std::as_const(m_presets)) {
        Button *const button = m_buttons.value(preset.get());
        const bool isFolderButton = qobject_cast<KXFilterSetPresetsBarPresetFolderButton *>(button);
        if (button && isFolderButton == preset->isFolder())
            kept.insert(preset.get(), m_buttons.take(preset.get()));
    }
    for (Button *const gone : std::exchange(m_buttons, kept)) {
        hadFocus = hadFocus || gone == focus;
        gone->removeEventFilter(this);
        gone->hide();
        gone->deleteLater(); // it may be what has led here
    }
    for (Button *const button : std::as_const(m_buttons))
        updateAvailability(*button);
    arrange(true);
    updateGeometry();
    if (const auto first = presetButtons().value(0); hadFocus && first)
        first->setFocus(Qt::OtherFocusReason);
}

KXFilterSetPresetsBar::Button *KXFilterSetPresetsBar::createPresetButtonForPreset(const Preset &preset)
{
    Button *button = nullptr;
    if (preset->isFolder()) {
        auto *const folder = new KXFilterSetPresetsBarPresetFolderButton(preset, this);
        folder->presetsMenu()->setUpdater([this, preset](KXMenu &menu) { menuNeedsUpdate(menu, preset); });
        button = folder;
    } else {
        button = new Button(preset, this);
        connect(button, &QPushButton::clicked, this, [this, button] { loadPreset(button); });
    }
    button->setCountsContextIdentifier(m_identifier);
    button->installEventFilter(this);
    updateAvailability(*button);
    m_buttons.insert(preset.get(), button);
    return button;
}

bool KXFilterSetPresetsBar::isAvailable(const Preset &preset) const
{
    const KXFilterSetPresetsManager::Ref manager = KXFilterSetPresetsManager::sharedManager();
    return manager && manager->isPresetAvailable(preset, m_context);
}

void KXFilterSetPresetsBar::updateAvailability(Button &button) const
{
    const bool available = button.filterSetPreset()->isFolder() || isAvailable(button.filterSetPreset());
    button.setEnabled(available);
    button.setToolTip(
        available ? QString() : KXLocalizedString("This preset is not available in the current selected section."));
}

// Changes

bool KXFilterSetPresetsBar::concernsTopLevel(const KXObjectsDidChange &did) const
{
    const auto isShown = [this](const KXRef<KXManagedObject> &object) {
        const Preset preset = KXFilterSetPreset::cast(object);
        return preset && m_presets.contains(preset);
    };
    if (std::any_of(did.deleted.begin(), did.deleted.end(), isShown))
        return true;
    for (const KXRef<KXManagedObject> &object : did.inserted) {
        if (const Preset preset = KXFilterSetPreset::cast(object); preset && !preset->parent())
            return true;
    }
    for (const auto *list : { &did.updated, &did.refreshed }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            const Preset preset = KXFilterSetPreset::cast(object);
            const QSet<QString> keys = preset ? did.changedKeys.value(preset.get()) : QSet<QString>();
            if (keys.contains(u"parent"_s) || keys.contains(u"isFolder"_s)
                || (keys.contains(u"position"_s) && m_presets.contains(preset)))
                return true;
        }
    }
    // What another context saved of presets that are not in memory here is named by keys alone.
    const auto model = m_presetsContext->persistentStoreCoordinator()->model();
    const KXEntityChange *const others
        = did.merged ? did.merged->changeOf(model->entity(KXFilterSetPreset::entityName)) : nullptr;
    return others && (!others->inserted.empty() || !others->deleted.empty() || !others->updated.empty());
}

void KXFilterSetPresetsBar::follow(const KXObjectsDidChange &did)
{
    if (concernsTopLevel(did)) {
        setupPresetButtons();
    } else {
        updateAvailabilityAfter(did);
        if (changesTitles(did))
            titlesDidChange();
    }
    // A folder's number is of all that lies in it, and it is told of its own children's coming and going alone.
    for (Button *const button : std::as_const(m_buttons)) {
        if (button->filterSetPreset()->isFolder())
            button->setCountsContextIdentifier(m_identifier);
    }
}

/// Of presets without a button, or with one that is hidden: the others ask for another layout themselves.
bool KXFilterSetPresetsBar::changesTitles(const KXObjectsDidChange &did) const
{
    const auto isRenamed = [&](const KXRef<KXManagedObject> &object) {
        const Preset preset = KXFilterSetPreset::cast(object);
        return preset && did.changedKeys.value(preset.get()).contains(u"title"_s) && m_presets.contains(preset);
    };
    return std::any_of(did.updated.begin(), did.updated.end(), isRenamed)
        || std::any_of(did.refreshed.begin(), did.refreshed.end(), isRenamed);
}

/// A preset can be used or not by what its filters are.
void KXFilterSetPresetsBar::updateAvailabilityAfter(const KXObjectsDidChange &did)
{
    QSet<const KXFilterSet *> sets;
    for (const auto *list : { &did.inserted, &did.updated, &did.refreshed, &did.deleted }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            if (const auto set = KXFilterSet::filterSetOfObject(object))
                sets.insert(set.get());
        }
    }
    for (Button *const button : std::as_const(m_buttons)) {
        if (!sets.isEmpty() && sets.contains(button->filterSetPreset()->filterSet().get()))
            updateAvailability(*button);
    }
}

// Keys

void KXFilterSetPresetsBar::moveFocus(const QWidget *from, int step)
{
    QList<QWidget *> stops;
    for (Button *const button : presetButtons()) {
        if (button->isVisible() && (button->isEnabled() || button == from))
            stops.append(button);
    }
    if (m_overflowButton->isVisible())
        stops.append(m_overflowButton);
    const qsizetype to = stops.indexOf(from) + step;
    if (to >= 0 && to < stops.size())
        stops[to]->setFocus(Qt::TabFocusReason);
}

bool KXFilterSetPresetsBar::eventFilter(QObject *object, QEvent *event)
{
    auto *const button = event->type() == QEvent::KeyPress ? qobject_cast<KXThemeableButton *>(object) : nullptr;
    const int key = button ? static_cast<QKeyEvent *>(event)->key() : 0;
    if (key == Qt::Key_Left || key == Qt::Key_Right) {
        moveFocus(button, (key == Qt::Key_Right) != (layoutDirection() == Qt::RightToLeft) ? 1 : -1);
        return true;
    }
    if (key == Qt::Key_Return || key == Qt::Key_Enter
        || (key == Qt::Key_Down && (button == m_overflowButton || button->menu()))) {
        button->click();
        return true;
    }
    return QWidget::eventFilter(object, event);
}

// Menus

void KXFilterSetPresetsBar::menuNeedsUpdate(KXMenu &menu, const Preset &folder)
{
    menu.clear();
    if (!folder) {
        for (const Preset &preset : m_presets.mid(m_shownCount))
            addMenuItemForPreset(menu, preset);
        return;
    }
    const bool isThere = !folder->isDeleted() && folder->managedObjectContext();
    const QList<Preset> children = isThere ? level(folder) : QList<Preset>();
    for (const Preset &preset : children)
        addMenuItemForPreset(menu, preset);
    if (children.isEmpty())
        menu.addItem(KXLocalizedString("No Presets"), this, {}, [] { return false; });
}

QAction *KXFilterSetPresetsBar::addMenuItemForPreset(KXMenu &menu, const Preset &preset)
{
    const qint64 count = preset->isFolder() ? 0 : Button::countOf(*preset, m_identifier);
    QString title = preset->title().simplified();
    title.replace(u'&', u"&&"_s);
    if (count > 0)
        title = KXStringWithFormat("%@ (%ld)", title, count);
    QAction *action = nullptr;
    if (preset->isFolder()) {
        auto *const below = new KXMenu(title, &menu);
        below->setToolTipsVisible(true);
        below->setUpdater([this, preset](KXMenu &items) { menuNeedsUpdate(items, preset); });
        action = menu.addMenu(below);
    } else {
        action = menu.addItem(title, this, {}, [this, preset] { return !preset->isDeleted() && isAvailable(preset); });
        connect(action, &QAction::triggered, this, [this, action] { loadPreset(action); });
        if (!isAvailable(preset))
            action->setToolTip(KXLocalizedString("This preset is not available in the current selected section."));
        else if (count > 0)
            action->setToolTip(preset->countNoteForContextIdentifier(m_identifier));
    }
    action->setData(KXVariantFromRef(preset));
    action->setIcon(preset->image());
    return action;
}

// Loading

BarPreset KXFilterSetPresetsBar::presetOfSender(const QObject *sender) const
{
    if (const auto *const button = qobject_cast<const Button *>(sender))
        return button->filterSetPreset();
    const auto *const action = qobject_cast<const QAction *>(sender);
    return action ? Preset(dynamic_cast<KXFilterSetPreset *>(KXObservableFromVariant(action->data()))) : Preset();
}

void KXFilterSetPresetsBar::loadPreset(const QObject *sender)
{
    const Preset preset = presetOfSender(sender);
    // It may have gone, or be of no use any more, since its menu opened.
    if (preset && !preset->isFolder() && !preset->isDeleted() && preset->managedObjectContext() && isAvailable(preset)
        && m_delegate)
        m_delegate->loadPreset(*this, preset);
}
