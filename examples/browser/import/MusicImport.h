#pragma once

#include <memory>

#include <QElapsedTimer>
#include <QObject>

#include <kestrixkit/foundation/KXOperationQueue.h>

#include "import/ImportOperation.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QStatusBar;

/// Brings a library up to date in the background, one import at a time, and shows in a status bar how far it is.
class MusicImport : public QObject
{
    Q_OBJECT
public:
    /// The line, where the window says what happened, outlives this.
    MusicImport(KXManagedObjectContext::Ref context, QLabel *line, QObject *parent = nullptr);
    ~MusicImport() override;

    /// The progress, and a button that cancels it.
    void addTo(QStatusBar &bar);

    /// One that runs is cancelled.
    void begin(const ImportOperation::Source &source);
    void cancel();
    /// It is not told that it ended.
    void cancelAndWait();
    [[nodiscard]] bool isRunning() const { return bool(m_operation); }
    /// Whether the one that runs saves with that context.
    [[nodiscard]] bool savesWith(const void *context) const;
    /// Of the last one that ended by itself.
    [[nodiscard]] const ImportResult &result() const { return m_result; }

Q_SIGNALS:
    void began();
    /// The error is empty unless it failed or was cancelled.
    void ended(const QString &error);

private:
    void showProgress(qint64 done, qint64 total);
    QString showOutcome();
    void end(const std::weak_ptr<ImportOperation> &operation);

    const KXManagedObjectContext::Ref m_context;
    QLabel *const m_line;
    QProgressBar *m_progress;
    QPushButton *m_cancel;
    ImportResult m_result;
    QElapsedTimer m_clock; // since its first file
    KXOperationQueue m_queue;
    std::shared_ptr<ImportOperation> m_operation; // the one that runs, if any
};
