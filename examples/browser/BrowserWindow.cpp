#include "BrowserWindow.h"

#include <QBoxLayout>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QStatusBar>
#include <QTableView>
#include <QToolBar>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/store/KXPersistentStore.h>

#include "BrowserStyle.h"
#include "TrackDelegate.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int columnWidths[TrackTableModel::ColumnCount] = { 250, 204, 180, 146, 66, 94, 100, 70, 126, 62, 112 };
constexpr int refreshMilliseconds = 250;
constexpr int shownReasons = 20; // in the tool tip of the summary

} // namespace

BrowserWindow::BrowserWindow(KXPersistentStoreCoordinator::Ref coordinator)
    : m_coordinator(std::move(coordinator))
    , m_context(KXManagedObjectContext::contextWithPersistentStoreCoordinator(m_coordinator))
{
    setWindowTitle(tr("Music Browser"));
    resize(1440, 860);
    m_queue.setMaxConcurrentOperationCount(1);
    m_refreshTimer.setSingleShot(true);
    m_refreshTimer.setInterval(refreshMilliseconds);
    connect(&m_refreshTimer, &QTimer::timeout, this, &BrowserWindow::refresh);
    // Before the first fetch: what is saved after it is heard of.
    m_changeToken = m_coordinator->addChangeObserver([this](const std::shared_ptr<const KXStoreChange> &change) {
        KXMainQueue::async(this, [this, change] { storeDidChange(*change); });
    });
    buildHeader();
    buildTable();
    buildStatus();
    showSummary();
    m_table->setFocus();
}

BrowserWindow::~BrowserWindow()
{
    m_changeToken.reset();
    cancelImport();
    m_queue.waitUntilAllOperationsAreFinished();
}

void BrowserWindow::buildHeader()
{
    auto *bar = addToolBar(tr("Library"));
    bar->setMovable(false);
    bar->setContextMenuPolicy(Qt::PreventContextMenu);
    auto *title = new QLabel(tr("Library"));
    QFont font = title->font();
    font.setPointSizeF(font.pointSizeF() * 1.5);
    font.setBold(true);
    title->setFont(font);
    bar->addWidget(title);
    auto *space = new QWidget;
    space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    bar->addWidget(space);
    m_summary = new QLabel;
    m_summary->setAccessibleName(tr("Summary of the library"));
    m_summary->setForegroundRole(QPalette::PlaceholderText);
    bar->addWidget(m_summary);
}

void BrowserWindow::buildTable()
{
    m_model = new TrackTableModel(m_context, this);
    m_table = new QTableView;
    m_table->setAccessibleName(tr("Tracks"));
    m_table->setModel(m_model);
    m_table->setItemDelegate(new TrackDelegate(m_table));
    m_table->setShowGrid(false);
    m_table->setAlternatingRowColors(true);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_table->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_table->setTabKeyNavigation(false);
    m_table->setWordWrap(false);
    m_table->setFrameShape(QFrame::NoFrame);

    // One height for all rows: nothing is measured, however many there are.
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->verticalHeader()->setDefaultSectionSize(BrowserStyle::rowHeight);

    QHeaderView *header = m_table->horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionsMovable(true);
    header->setStretchLastSection(true);
    header->setMinimumSectionSize(44);
    for (int column = 0; column < TrackTableModel::ColumnCount; ++column)
        header->resizeSection(column, columnWidths[column]);
    header->setSortIndicator(TrackTableModel::Artist, Qt::AscendingOrder);
    m_table->setSortingEnabled(true);

    m_emptyText = new QLabel(tr("No music in the library yet"), m_table->viewport());
    m_emptyText->setAlignment(Qt::AlignCenter);
    auto *centre = new QVBoxLayout(m_table->viewport());
    centre->addWidget(m_emptyText);
    m_emptyText->hide();
    setCentralWidget(m_table);
}

void BrowserWindow::buildStatus()
{
    statusBar()->setSizeGripEnabled(false);
    m_status = new QLabel(m_coordinator->store()->URL().toLocalFile());
    m_status->setContentsMargins(BrowserStyle::margin, 0, 0, 0);
    m_progress = new QProgressBar;
    m_progress->setAccessibleName(tr("Progress of the import"));
    m_progress->setTextVisible(false);
    m_progress->setFixedWidth(260);
    m_cancel = new QPushButton(tr("&Cancel"));
    m_cancel->setAccessibleName(tr("Cancel the import"));
    connect(m_cancel, &QPushButton::clicked, this, &BrowserWindow::cancelImport);
    statusBar()->addWidget(m_status, 1);
    statusBar()->addPermanentWidget(m_progress);
    statusBar()->addPermanentWidget(m_cancel);
    m_progress->hide();
    m_cancel->hide();
}

void BrowserWindow::importMusic(const MusicSource &source)
{
    cancelImport();
    m_import = m_queue.addBlock([this, source](KXAbstractOperation &operation) {
        ImportResult result;
        QString error;
        const std::string folder = source(&error);
        if (!error.isEmpty())
            result.error = KXError(KXKestrixKitErrorDomain, 0, error);
        else if (!folder.empty())
            result = Importer(m_coordinator, folder)
                         .run([&] { return operation.isCancelled(); },
                             [this](qint64 done, qint64 total) {
                                 KXMainQueue::async(this, [this, done, total] { showProgress(done, total); });
                             });
        KXMainQueue::async(this, [this, result, &operation] { finishImport(&operation, result); });
    });
    showProgress(0, 0);
    m_cancel->setEnabled(true);
    m_cancel->show();
    m_progress->show();
    m_emptyText->hide();
}

void BrowserWindow::cancelImport()
{
    if (!m_import)
        return;
    m_import->cancel();
    m_cancel->setEnabled(false);
    m_status->setText(tr("Cancelling the import…"));
}

void BrowserWindow::storeDidChange(const KXStoreChange &change)
{
    // Rows that this window has in memory are read anew; all others cost nothing.
    for (const KXEntityChange &entity : change.entities()) {
        for (const KXRowChange &row : entity.updated) {
            if (const auto object = m_context->registeredObjectWithID({ change.store(), entity.entity, row.key }))
                m_context->refreshObject(object.get());
        }
    }
    if (!m_refreshTimer.isActive())
        m_refreshTimer.start();
}

void BrowserWindow::refresh()
{
    QElapsedTimer timer;
    timer.start();
    const KXManagedObjectID current = m_model->trackID(m_table->currentIndex().row());
    const int scrolledTo = m_table->verticalScrollBar()->value();
    m_model->refetch();
    if (const int row = m_model->rowOf(current); row >= 0)
        m_table->setCurrentIndex(m_model->index(row, m_table->horizontalHeader()->logicalIndex(0)));
    m_table->verticalScrollBar()->setValue(scrolledTo);
    showSummary();
    // A big library takes longer to fetch: it is then fetched less often, so that most of the time is the user's.
    m_refreshTimer.setInterval(int(std::max<qint64>(refreshMilliseconds, timer.elapsed() * 8)));
}

void BrowserWindow::showSummary()
{
    const QLocale locale = KXClock::locale();
    const int tracks = m_model->rowCount();
    QStringList parts { tr("%1 tracks").arg(locale.toString(tracks)) };
    if (tracks == 1)
        parts[0] = tr("1 track");
    if (const qsizetype skipped = qsizetype(m_lastResult.skipped.size()))
        parts.append(tr("%1 skipped").arg(locale.toString(skipped)));
    m_summary->setText(parts.join(u"  ·  "_s));

    QStringList reasons;
    for (const SkippedFile &file : m_lastResult.skipped) {
        if (reasons.size() == shownReasons) {
            reasons.append(u"…"_s);
            break;
        }
        reasons.append(u"%1: %2"_s.arg(file.file, file.reason));
    }
    m_summary->setToolTip(reasons.join(u'\n'));
    m_emptyText->setVisible(tracks == 0 && !m_import);
}

void BrowserWindow::showProgress(qint64 done, qint64 total)
{
    if (m_import && m_import->isCancelled())
        return;
    const QLocale locale = KXClock::locale();
    m_progress->setRange(0, int(total));
    m_progress->setValue(int(done));
    m_status->setText(total == 0 ? tr("Looking for music…")
                                 : tr("Importing %1 of %2").arg(locale.toString(done), locale.toString(total)));
}

void BrowserWindow::finishImport(const KXAbstractOperation *operation, const ImportResult &result)
{
    if (m_import.get() != operation)
        return; // another one took its place
    m_import.reset();
    m_lastResult = result;
    m_progress->hide();
    m_cancel->hide();
    const QLocale locale = KXClock::locale();
    QString error;
    if (result.error) {
        error = tr("Import failed: %1").arg(result.error.localizedDescription());
    } else if (result.cancelled) {
        error = tr("Import cancelled");
    } else {
        QStringList parts;
        const auto count = [&](qint64 number, const QString &what) {
            if (number > 0)
                parts.append(what.arg(locale.toString(number)));
        };
        count(result.added, tr("%1 added"));
        count(result.updated, tr("%1 updated"));
        count(result.vanished, tr("%1 missing"));
        count(result.returned, tr("%1 back"));
        m_status->setText(parts.isEmpty() ? tr("Up to date") : parts.join(u"  ·  "_s));
    }
    if (!error.isEmpty())
        m_status->setText(error);
    m_refreshTimer.stop();
    refresh();
    Q_EMIT importFinished(error);
}
