#include "window/StartReport.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include <unistd.h>

#include <QAbstractItemView>
#include <QEvent>
#include <QFile>

#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/foundation/KXMainQueue.h>

#include "places/PlaceNavigator.h"
#include "places/SourceColumn.h"
#include "table/TrackTableView.h"
#include "window/BrowserWindow.h"

namespace {

/// Since the process was started; 0 where the kernel does not say.
qint64 startMilliseconds()
{
    QFile file(QStringLiteral("/proc/self/stat"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    // Behind the program's name, which may hold blanks and brackets, the 20th is when it was started.
    const QByteArray line = file.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    timespec now {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const qint64 started = fields.value(19).toLongLong() * 1000 / sysconf(_SC_CLK_TCK);
    return qint64(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000 - started;
}

} // namespace

StartReport::StartReport(BrowserWindow &window)
    : m_window(window)
{
    QList<QAbstractItemView *> views { window.table() };
    for (KXSourceListViewController *list : window.sources()->lists())
        views.append(list->sourceListView());
    for (QAbstractItemView *view : std::as_const(views)) {
        view->viewport()->installEventFilter(this);
        m_unpainted.insert(view->viewport());
        const auto changed = [this, viewport = view->viewport()] { awaitPaint(viewport); };
        connect(view->model(), &QAbstractItemModel::modelReset, this, changed);
        connect(view->model(), &QAbstractItemModel::rowsInserted, this, changed);
    }
    // After the window's own, which shows the tracks of the place.
    connect(window.places(), &PlaceNavigator::placeDidChange, this, [this] {
        m_hasPlace = true;
        lookLater();
    });
    connect(window.sources(), &SourceColumn::countingDidBegin, this, &StartReport::follow);
}

bool StartReport::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Paint && m_unpainted.remove(watched))
        lookLater(); // once everything of this frame has been drawn
    return false;
}

void StartReport::awaitPaint(QWidget *view)
{
    m_unpainted.insert(view);
    view->update();
}

void StartReport::follow(KXLiveCounts &counts)
{
    connect(&counts, &KXLiveCounts::didUpdate, this, [this, &counts] {
        // In a later turn: what counts beside the presets does so behind them.
        if (m_counted < 0)
            KXMainQueue::async(this, [this, alive = QPointer(&counts)] {
                if (alive)
                    countsAreRight(*alive);
            });
    });
}

void StartReport::countsAreRight(const KXLiveCounts &counts)
{
    const QStringList identifiers = counts.identifiers();
    if (!std::all_of(identifiers.begin(), identifiers.end(),
            [&counts](const QString &identifier) { return counts.count(identifier).has_value(); }))
        return;
    m_counted = identifiers.size();
    for (KXSourceListViewController *list : m_window.sources()->lists())
        awaitPaint(list->sourceListView()->viewport());
    lookLater();
}

void StartReport::lookLater()
{
    if (!std::exchange(m_looksLater, true))
        KXMainQueue::async(this, [this] { look(); });
}

void StartReport::look()
{
    m_looksLater = false;
    const bool isPainted = std::all_of(m_unpainted.begin(), m_unpainted.end(), [](QObject *view) {
        return static_cast<QWidget *>(view)->visibleRegion().isEmpty(); // such as a list without room
    });
    if (!isPainted || !m_hasPlace)
        return;
    if (!std::exchange(m_hasShown, true))
        std::printf("{\"shown\":%lld}\n", static_cast<long long>(startMilliseconds()));
    if (m_counted >= 0 && !std::exchange(m_hasCounted, true))
        std::printf("{\"counted\":%lld,\"counts\":%lld}\n", static_cast<long long>(startMilliseconds()),
            static_cast<long long>(m_counted));
    std::fflush(stdout);
}
