#pragma once

#include <functional>
#include <memory>

#include <QHash>
#include <QPointer>
#include <QSet>

#include <kestrixkit/filters/KXFilterSetPresetCountsProvider.h>
#include <kestrixkit/foundation/KXAlive.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

class QTimer;

/// Decides when presets are counted: while they are on screen, never twice at a time, and anew whenever their filters
/// change. Whoever shows presets owns one.
///
/// It follows the context of the presets manager that is shared when it is made. All counting of the process goes
/// through one queue, one operation at a time. Main thread; destroying it cancels what it has queued.
class KX_CORE_EXPORT KXFilterSetPresetCountsScheduler
{
public:
    using Provider = std::shared_ptr<KXFilterSetPresetCountsProvider>;
    /// What it asks its owner.
    struct Callbacks
    {
        /// Whether anybody sees the presets: their view is loaded, in a window, and its popover shown.
        std::function<bool()> isOnScreen;
        /// A new, configured operation for the preset; null where it is not to be counted.
        std::function<Provider(const KXRef<KXFilterSetPreset> &)> countsProviderForFilterSetPreset;
    };

    /// The identifier names the place that is counted, `name` the owner in log lines.
    KXFilterSetPresetCountsScheduler(QString countsContextIdentifier, Callbacks callbacks, QString name = {});
    ~KXFilterSetPresetCountsScheduler();
    Q_DISABLE_COPY_MOVE(KXFilterSetPresetCountsScheduler)

    [[nodiscard]] const QString &countsContextIdentifier() const { return m_identifier; }
    void setCountsContextIdentifier(const QString &identifier) { m_identifier = identifier; }

    /// Enqueues every preset that is no folder and has no count for the place yet.
    void loadCountsForAllPresets();
    /// Counts the preset: later, when it is not on screen; not again, when it waits already; from the start, when it is
    /// being counted, since it has changed. Folders and null are not counted.
    void enqueueCountsOperationForPreset(const KXRef<KXFilterSetPreset> &preset);
    void setPresetAsNeedingCountUpdate(const KXRef<KXFilterSetPreset> &preset);
    /// To be called when the presets have come on screen. Called off screen it forgets what was pending.
    void enqueuePresetsNeedingCountUpdate();
    void dequeueCountsOperationForPreset(const KXRef<KXFilterSetPreset> &preset);
    /// Cancels everything and marks it as needing an update, as well as what was counted with changes unsaved.
    void dequeueAllCountsOperations();
    /// Of the presets' context, what it merged included: new presets and those whose filters changed are enqueued,
    /// deleted ones dequeued.
    void managedObjectContextObjectsDidChange(const KXNotification &notification);

    /// The one queue of the process; ends with the application object.
    [[nodiscard]] static KXOperationQueue &countsQueue();

    /// Queued or running, by preset.
    [[nodiscard]] const QHash<KXManagedObjectID, Provider> &countOperations() const { return m_countOperations; }
    [[nodiscard]] const QSet<KXRef<KXFilterSetPreset>> &presetsNeedingCountUpdate() const
    {
        return m_presetsNeedingCountUpdate;
    }
    /// A host's timer, which is stopped when a dequeue leaves nothing pending. Null unless set.
    [[nodiscard]] QTimer *countUpdatesScheduleTimer() const;
    void setCountUpdatesScheduleTimer(QTimer *timer);

private:
    void managedObjectContextDidSave();
    void operationDidFinish(const Provider &operation, const QString &title);
    void log(const char *text, const QString &title) const;

    QString m_identifier;
    const Callbacks m_callbacks;
    const QString m_name;
    const KXManagedObjectContext::Ref m_context; ///< of the presets; null without shared manager
    QHash<KXManagedObjectID, Provider> m_countOperations;
    QSet<KXRef<KXFilterSetPreset>> m_presetsNeedingCountUpdate;
    /// Asked to be counted while there were unsaved changes: an operation that starts before the save, however early it
    /// was queued, counts what was before.
    QSet<KXRef<KXFilterSetPreset>> m_countedBeforeSave;
    QPointer<QTimer> m_timer;
    KXAlive m_alive; ///< for hops to the main thread
    KXNotificationToken m_changes;
    KXNotificationToken m_saves;
};
