#pragma once

#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetsManagerViewController.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBar.h>
#include <kestrixkit/filters/KXFilterSetPresetCountsScheduler.h>

class KXFilterSetPresetsBarViewController;
class KXFilterSetViewController;

/// What the presets bar's controller asks of its host.
class KX_UI_EXPORT KXFilterSetPresetsBarViewControllerDelegate
{
public:
    virtual ~KXFilterSetPresetsBarViewControllerDelegate();

    /// A new, configured counting operation for the preset; null where it is not to be counted this way, which is the
    /// answer unless overridden: for places with live counts.
    [[nodiscard]] virtual KXFilterSetPresetCountsScheduler::Provider countsProviderForFilterSetPreset(
        KXFilterSetPresetsBarViewController &controller, const KXRef<KXFilterSetPreset> &preset);
    /// A filter set was loaded into the editor: that of the preset, or of some values of it. Nothing unless overridden.
    virtual void didLoadFilterSet(
        KXFilterSetPresetsBarViewController &controller, const KXRef<KXFilterSetPreset> &preset);
};

/// The strip of presets above a list: loads a preset by one click into the list's filter set editor, opens the presets
/// library in a popover, and schedules how presets are counted in the background.
///
/// Loading is no step to undo. The shared presets manager has to be there before it is made. Badges show whatever
/// counts the presets have, live ones above all; for places that have none the counting operations below run while the
/// popover is open. Main thread.
class KX_UI_EXPORT KXFilterSetPresetsBarViewController : public KXViewController,
                                                         public KXFilterSetPresetsBarDelegate,
                                                         public KXFilterSetPresetsManagerViewControllerDelegate,
                                                         public KXFilterSetPresetsViewControllerDelegate,
                                                         public KXFilterSetPresetDetailsViewControllerDelegate
{
    Q_OBJECT
    Q_PROPERTY(QString countsContextIdentifier READ countsContextIdentifier WRITE setCountsContextIdentifier)
public:
    using Preset = KXRef<KXFilterSetPreset>;
    using Provider = KXFilterSetPresetCountsScheduler::Provider;

    /// With the application context of the list.
    explicit KXFilterSetPresetsBarViewController(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~KXFilterSetPresetsBarViewController() override;

    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    [[nodiscard]] KXFilterSetPresetsBarViewControllerDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXFilterSetPresetsBarViewControllerDelegate *delegate) { m_delegate.set(delegate); }
    /// The editor that takes what is loaded; borrowed, may go at any time.
    [[nodiscard]] KXFilterSetViewController *filterSetViewController() const;
    void setFilterSetViewController(KXFilterSetViewController *editor);
    [[nodiscard]] KXFilterSetPresetsManagerViewController *filterSetPresetsManagerViewController() const
    {
        return m_manager;
    }
    /// nullptr before it was first shown.
    [[nodiscard]] KXPopoverController *filterSetPresetsManagerPopover() const { return m_popover.get(); }
    /// Of the place that is counted and shown.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_scheduler.countsContextIdentifier(); }
    void setCountsContextIdentifier(const QString &identifier);

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] KXFilterSetPresetsBar *filterSetPresetsBar() const;
    [[nodiscard]] KXThemeableButton *filterSetPresetsManagerButton() const;

    /// Loads its filter set, and remembers when where that was done.
    void loadPreset(const Preset &preset);
    /// Has the set mapped into the application context, saves, and gives it to the editor. False where it cannot be.
    bool loadFilterSet(const KXRef<KXFilterSet> &set);
    /// Opens the library below its button.
    void showFilterSetPresetsManager();

    // Counting in the background: see KXFilterSetPresetCountsScheduler.

    [[nodiscard]] static KXOperationQueue &countsQueue() { return KXFilterSetPresetCountsScheduler::countsQueue(); }
    [[nodiscard]] const QHash<KXManagedObjectID, Provider> &countOperations() const
    {
        return m_scheduler.countOperations();
    }
    [[nodiscard]] const QSet<Preset> &presetsNeedingCountUpdate() const
    {
        return m_scheduler.presetsNeedingCountUpdate();
    }
    [[nodiscard]] QTimer *countUpdatesScheduleTimer() const { return m_scheduler.countUpdatesScheduleTimer(); }
    void setCountUpdatesScheduleTimer(QTimer *timer) { m_scheduler.setCountUpdatesScheduleTimer(timer); }
    void loadCountsForAllPresets() { m_scheduler.loadCountsForAllPresets(); }
    void enqueueCountsOperationForPreset(const Preset &preset) { m_scheduler.enqueueCountsOperationForPreset(preset); }
    void setPresetAsNeedingCountUpdate(const Preset &preset) { m_scheduler.setPresetAsNeedingCountUpdate(preset); }
    void enqueuePresetsNeedingCountUpdate() { m_scheduler.enqueuePresetsNeedingCountUpdate(); }
    void dequeueCountsOperationForPreset(const Preset &preset) { m_scheduler.dequeueCountsOperationForPreset(preset); }
    void dequeueAllCountsOperations() { m_scheduler.dequeueAllCountsOperations(); }

    // As delegate; a host may override what is asked of it.

    void loadPreset(KXFilterSetPresetsBar &bar, const Preset &preset) override;
    bool loadFilterSet(KXFilterSetPresetsManagerViewController &manager, const KXRef<KXFilterSet> &set) override;
    [[nodiscard]] bool isPresetAvailable(KXFilterSetPresetsViewController &library, const Preset &preset) override;
    [[nodiscard]] std::unique_ptr<KXFilterSetPresetDetailsViewController> detailsViewControllerForPreset(
        KXFilterSetPresetsViewController &library, const Preset &preset) override;
    void loadFilterSet(KXFilterSetPresetDetailsViewController &details, const KXRef<KXFilterSet> &set) override;
    /// Always false: values without count are shown.
    [[nodiscard]] bool isCountsFilterEnabledForFacetFilter(
        KXFilterSetPresetDetailsViewController &details, const KXRef<KXFacetFilter> &filter) override;
    void willDisplayFacetFilterValueCell(
        KXFilterSetPresetDetailsViewController &details, KXFacetFilterValueCellView &cell) override;

Q_SIGNALS:
    /// The presets library was opened or closed.
    void managerShownChanged(bool shown);

protected:
    void loadView() override;
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    [[nodiscard]] bool arePresetsOnScreen() const;
    [[nodiscard]] static Preset presetOfSet(const KXRef<KXFilterSet> &set);
    void tellLoaded(const Preset &preset);
    void closeManager();

    const KXManagedObjectContext::Ref m_context;
    KXWeakDelegate<KXFilterSetPresetsBarViewControllerDelegate> m_delegate;
    QPointer<KXFilterSetViewController> m_editor;
    KXFilterSetPresetsManagerViewController *m_manager;
    std::unique_ptr<KXPopoverController> m_popover; // goes before its content
    QPointer<KXFilterSetPresetsBar> m_bar;
    QPointer<KXThemeableButton> m_managerButton;
    bool m_hasJustClosed = false; // in this turn
    bool m_closedByPress = false; // of the button, whose click is not to open it again
    KXFilterSetPresetCountsScheduler m_scheduler;
};
