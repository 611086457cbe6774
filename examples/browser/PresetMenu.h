#pragma once

#include <memory>

#include <QHash>
#include <QObject>
#include <QPointer>

#include <kestrixkit/filters/KXFilterSetPresetCountsScheduler.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/filters/KXLivePresetCounts.h>

class QAction;
class QMenu;
class PresetMapper;

/// The presets as a menu, with submenus for folders and counts beside the titles. It installs the process's presets
/// manager, with the library's mapper. Counts are read when the menu is first opened and stay right from then on.
class PresetMenu : public QObject
{
    Q_OBJECT
public:
    /// Fills the menu, which must live as long, whenever it is opened.
    PresetMenu(KXManagedObjectContext::Ref context, QMenu *menu, QObject *parent);
    ~PresetMenu() override;

Q_SIGNALS:
    /// A preset was picked; without predicate and title all tracks were.
    void picked(const KXPredicate &predicate, const QString &title);

private:
    void fill();
    void addPresets(const KXRef<KXFilterSetPreset> &folder, QMenu *menu);
    void showCount(const KXRef<KXFilterSetPreset> &preset, QAction *action);
    void pick(const KXRef<KXFilterSetPreset> &preset);

    const KXManagedObjectContext::Ref m_context;
    QMenu *const m_menu;
    const KXFilterSetPresetsManager::Ref m_manager;
    const std::shared_ptr<PresetMapper> m_mapper;
    std::unique_ptr<KXLivePresetCounts> m_counts; // from the first opening on
    std::unique_ptr<KXFilterSetPresetCountsScheduler> m_scheduler;
    std::vector<std::shared_ptr<KXObserver>> m_observers; // of the counts that the menu shows
};
