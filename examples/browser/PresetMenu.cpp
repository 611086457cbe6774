#include "PresetMenu.h"

#include <QMenu>

#include <kestrixkit/filters/KXFilters.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUndoGuards.h>

#include "PresetMapper.h"
#include "Presets.h"

using namespace Qt::StringLiterals;

PresetMenu::PresetMenu(KXManagedObjectContext::Ref context, QMenu *menu, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_menu(menu)
    , m_manager(std::make_shared<KXFilterSetPresetsManager>(m_context))
    , m_mapper(std::make_shared<PresetMapper>())
{
    m_manager->registerFilterSetMapper(m_mapper, m_context);
    KXFilterSetPresetsManager::setSharedManager(m_manager);
    m_scheduler = std::make_unique<KXFilterSetPresetCountsScheduler>(QString(Presets::contextIdentifier),
        KXFilterSetPresetCountsScheduler::Callbacks { [this] { return m_menu->isVisible(); },
            [this](const KXRef<KXFilterSetPreset> &preset) { return m_counts->countsProviderForFilterSetPreset(preset); } },
        u"menu"_s);
    connect(m_menu, &QMenu::aboutToShow, this, &PresetMenu::fill);
}

PresetMenu::~PresetMenu()
{
    m_observers.clear();
    m_scheduler.reset();
    if (KXFilterSetPresetsManager::sharedManager() == m_manager)
        KXFilterSetPresetsManager::setSharedManager(nullptr);
}

void PresetMenu::fill()
{
    m_observers.clear();
    const QList<QAction *> before = m_menu->actions();
    m_menu->clear();
    for (QAction *action : before)
        delete action->menu(); // clear() leaves submenus

    KXError error;
    if (m_context->countForEntity(QString(Track::entityName)) > 0 && !Presets::install(*m_context, &error))
        KXLogWarning(browser, "No presets: %@", error.localizedDescription());
    if (!m_counts)
        m_counts = std::make_unique<KXLivePresetCounts>(m_context, Presets::place(m_context, m_mapper));
    m_menu->addAction(tr("All Tracks"), this, [this] { Q_EMIT picked({}, {}); });
    m_menu->addSeparator();
    addPresets({}, m_menu);

    // The menu is on screen by then.
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_scheduler->enqueuePresetsNeedingCountUpdate();
            m_scheduler->loadCountsForAllPresets();
        },
        Qt::QueuedConnection);
}

void PresetMenu::addPresets(const KXRef<KXFilterSetPreset> &folder, QMenu *menu)
{
    for (const KXRef<KXFilterSetPreset> &preset : Presets::children(*m_context, folder)) {
        if (preset->isFolder()) {
            QMenu *submenu = menu->addMenu(preset->title());
            submenu->setAccessibleName(preset->title());
            addPresets(preset, submenu);
            continue;
        }
        QAction *action = menu->addAction(preset->title(), this, [this, preset] { pick(preset); });
        action->setEnabled(m_manager->isPresetAvailable(preset, m_context));
        showCount(preset, action);
        m_observers.push_back(KXObserver::observerFor(preset.get(), u"counts"_s, {},
            [this, observed = preset.get(), action = QPointer(action)](const KXKeyValueChange &) {
                if (action)
                    showCount(KXRef<KXFilterSetPreset>(observed), action);
            }));
    }
}

void PresetMenu::showCount(const KXRef<KXFilterSetPreset> &preset, QAction *action)
{
    // An ampersand is a letter here, and what follows a tab stands in the column of the shortcuts.
    const QString title = preset->title().replace(u'&', u"&&"_s);
    const QString badge = KXCountBadgeText(preset->counts().value_or(KXCounts()).value(Presets::contextIdentifier));
    action->setText(badge.isEmpty() ? title : title + u'\t' + badge);
}

void PresetMenu::pick(const KXRef<KXFilterSetPreset> &preset)
{
    // The set is only looked at, so it leaves nothing to undo or to save.
    const KXUndoRegistrationOff unrecorded(m_context->undoManager());
    const KXRef<KXFilterSet> set = m_manager->createFilterSetFromFilterSet(preset->filterSet(), m_context);
    if (!set)
        return;
    const KXPredicate predicate = Presets::predicate(set);
    m_context->removeManagedObject(set);
    preset->setLastLoaded(KXClock::now());
    m_context->save();
    Q_EMIT picked(predicate, Presets::path(*preset));
}
