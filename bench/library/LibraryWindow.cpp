#include "library/LibraryWindow.h"

#include <algorithm>
#include <chrono>

#include <QApplication>
#include <QStandardPaths>
#include <QTest>

#include <places/SourceColumn.h>

#include "library/CrateBench.h"
#include "store/BenchLibrary.h"

namespace {

double windowSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}

LibraryWindow::LibraryWindow()
{
    QStandardPaths::setTestModeEnabled(true);
    Library::registerEntities();
    KXError error;
    const auto coordinator = Library::open(BenchLibrary::scratchCopy(CrateBench::path()), &error);
    if (!coordinator) {
        std::fprintf(stderr, "%s\n", qPrintable(error.localizedDescription()));
        std::exit(1);
    }
    m_window = std::make_unique<BrowserWindow>(coordinator);
    m_window->show();
    m_window->sources()->musicDidChange();
    QTest::qWait(1'000);
    QObject::connect(&m_pulse, &QTimer::timeout, [this] { pulse(); });
}

void LibraryWindow::watch()
{
    m_longest = 0;
    m_start = m_last = windowSeconds();
    m_pulse.start(1);
}

void LibraryWindow::waitUntil(const bool &isDone)
{
    while (!isDone)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    pulse();
}

double LibraryWindow::seconds() const { return windowSeconds() - m_start; }

void LibraryWindow::pulse()
{
    const double now = windowSeconds();
    m_longest = std::max(m_longest, now - m_last);
    m_last = now;
}
