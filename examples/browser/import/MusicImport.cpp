#include "import/MusicImport.h"

#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableProgressIndicator.h>

using namespace Qt::StringLiterals;

MusicImport::MusicImport(KXManagedObjectContext::Ref context, QLabel *line, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_line(line)
{
    m_queue.setMaxConcurrentOperationCount(1);
    auto *progress = new KXThemeableProgressIndicator;
    progress->setThemeStyleName(KXProgressIndicatorStyles);
    m_progress = progress;
    m_progress->setAccessibleName(tr("Progress of the import"));
    m_progress->setTextVisible(false);
    m_progress->setFixedWidth(260);
    auto *cancel = new KXThemeableButton(tr("&Cancel"));
    cancel->setThemeStyleName(KXButtonStyles);
    m_cancel = cancel;
    m_cancel->setAccessibleName(tr("Cancel the import"));
    connect(m_cancel, &QPushButton::clicked, this, &MusicImport::cancel);
}

MusicImport::~MusicImport() { cancelAndWait(); }

void MusicImport::cancelAndWait()
{
    cancel();
    m_queue.waitUntilAllOperationsAreFinished();
    m_operation.reset();
}

void MusicImport::addTo(QStatusBar &bar)
{
    bar.addPermanentWidget(m_progress);
    bar.addPermanentWidget(m_cancel);
    m_progress->hide();
    m_cancel->hide();
}

bool MusicImport::savesWith(const void *context) const
{
    return m_operation && context == m_operation->importingContext();
}

void MusicImport::begin(const ImportOperation::Source &source)
{
    cancel();
    m_operation = std::make_shared<ImportOperation>(m_context, source, [this](qint64 done, qint64 total) {
        KXMainQueue::async(this, [this, done, total] { showProgress(done, total); });
    });
    // Queued behind the merges of its saves.
    m_operation->setCompletionBlock([this, operation = std::weak_ptr(m_operation)] {
        KXMainQueue::async(this, [this, operation] { end(operation); });
    });
    m_queue.addOperation(m_operation);
    showProgress(0, 0);
    m_cancel->setEnabled(true);
    m_cancel->show();
    m_progress->show();
    Q_EMIT began();
}

void MusicImport::cancel()
{
    if (!m_operation)
        return;
    m_operation->cancel();
    m_cancel->setEnabled(false);
    m_line->setText(tr("Cancelling the import…"));
}

void MusicImport::showProgress(qint64 done, qint64 total)
{
    if (m_operation && m_operation->isCancelled())
        return;
    const QLocale locale = KXClock::locale();
    m_progress->setRange(0, int(total));
    m_progress->setValue(int(done));
    if (done == 0 || !m_clock.isValid())
        m_clock.start();
    QString text = total == 0 ? tr("Looking for music…")
                              : tr("Importing %1 of %2").arg(locale.toString(done), locale.toString(total));
    // From the pace so far, once there is one.
    const double seconds = double(m_clock.elapsed()) / 1000;
    const double left = done > 0 ? seconds / double(done) * double(total - done) : 0;
    if (seconds > 3 && left > 5)
        text += u"  ·  "_s
            + (left < 90 ? tr("about %1 s left").arg(locale.toString(qint64(left / 5 + 1) * 5))
                         : tr("about %1 min left").arg(locale.toString(qint64(left / 60 + 1))));
    m_line->setText(text);
}

/// Answers the error, if any.
QString MusicImport::showOutcome()
{
    QString error;
    if (m_result.error)
        error = tr("Import failed: %1").arg(m_result.error.localizedDescription());
    else if (m_result.cancelled)
        error = tr("Import cancelled");
    const QLocale locale = KXClock::locale();
    QStringList parts;
    const auto count = [&](qint64 number, const QString &what) {
        if (number > 0)
            parts.append(what.arg(locale.toString(number)));
    };
    count(m_result.added, tr("%1 added", nullptr, int(m_result.added)));
    count(m_result.updated, tr("%1 updated", nullptr, int(m_result.updated)));
    count(m_result.vanished, tr("%1 missing", nullptr, int(m_result.vanished)));
    count(m_result.returned, tr("%1 back", nullptr, int(m_result.returned)));
    count(m_result.moved, tr("%1 found again", nullptr, int(m_result.moved)));
    m_line->setText(!error.isEmpty() ? error : parts.isEmpty() ? tr("Up to date") : parts.join(u"  ·  "_s));
    return error;
}

void MusicImport::end(const std::weak_ptr<ImportOperation> &operation)
{
    if (!m_operation || operation.lock() != m_operation)
        return; // another one took its place
    m_result = m_operation->result();
    m_operation.reset();
    m_progress->hide();
    m_cancel->hide();
    const QString error = showOutcome();
    Q_EMIT ended(error);
}
