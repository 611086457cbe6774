#include "window/WindowState.h"

#include <QGuiApplication>
#include <QScreen>
#include <QScrollBar>
#include <QSplitter>

#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/source_list/KXSourceListView.h>

#include "places/SidebarRoom.h"
#include "places/SourceColumn.h"

using namespace Qt::StringLiterals;

namespace {

const QString frameKey = u"browser.frame"_s, panesKey = u"browser.panes"_s, sidebarKey = u"browser.sidebar"_s,
              scrolledKey = u"browser.sidebar-scrolled"_s;
constexpr int leastOnScreen = 80; // points of the title bar, to take hold of it

std::optional<QList<int>> numbersForKey(const QString &key, qsizetype count)
{
    const auto values = KXUserDefaults::standard().arrayForKey(key);
    if (!values || values->size() != count)
        return std::nullopt;
    QList<int> numbers;
    for (const QVariant &value : *values) {
        bool isNumber = false;
        const qlonglong number = value.toLongLong(&isNumber);
        if (!isNumber || number < -100'000 || number > 100'000)
            return std::nullopt;
        numbers.append(int(number));
    }
    return numbers;
}

void setNumbers(const QString &key, const QList<int> &numbers)
{
    KXUserDefaults::standard().setValue(key, QVariantList(numbers.begin(), numbers.end()));
}

/// Whether enough of the window's top lies on a screen, wherever screens are now.
bool canBeReached(const QRect &frame)
{
    const QRect handle(frame.left(), frame.top(), frame.width(), 30);
    const QList<QScreen *> screens = QGuiApplication::screens();
    return std::any_of(screens.begin(), screens.end(), [&](const QScreen *screen) {
        const QRect seen = screen->availableGeometry().intersected(handle);
        return seen.width() >= leastOnScreen && seen.height() > 10;
    });
}

} // namespace

void WindowState::restore(QWidget &window, QSplitter &panes, SourceColumn &sources)
{
    if (const auto frame = numbersForKey(frameKey, 5)) {
        const QRect wanted(frame->at(0), frame->at(1), frame->at(2), frame->at(3));
        if (wanted.width() > 0 && wanted.height() > 0) {
            const QSize most = window.screen() ? window.screen()->availableSize() : wanted.size();
            if (canBeReached(wanted))
                window.setGeometry(wanted);
            else
                window.resize(wanted.size().boundedTo(most));
            if (frame->at(4))
                window.setWindowState(Qt::WindowMaximized);
        }
    }
    if (const auto sizes = numbersForKey(panesKey, panes.count()))
        panes.setSizes(*sizes);
    if (const auto sizes = numbersForKey(sidebarKey, sources.count()))
        sources.room().choose(*sizes);
}

void WindowState::restoreSidebar(SourceColumn &sources)
{
    const QList<KXSourceListViewController *> lists = sources.lists();
    const auto scrolled = numbersForKey(scrolledKey, lists.size());
    for (qsizetype i = 0; i < lists.size(); ++i) {
        KXSourceListView &view = *lists.at(i)->sourceListView();
        view.doItemsLayout();
        if (scrolled)
            view.verticalScrollBar()->setValue(scrolled->at(i));
    }
    sources.scrollToSelection();
}

void WindowState::save(const QWidget &window, const QSplitter &panes, const SourceColumn &sources)
{
    const QRect frame = window.normalGeometry();
    setNumbers(frameKey, { frame.x(), frame.y(), frame.width(), frame.height(), window.isMaximized() });
    QList<int> sizes = panes.sizes();
    if (const auto before = numbersForKey(panesKey, sizes.size()); before && sizes.last() == 0)
        sizes.last() = before->last(); // hidden, it keeps its width
    setNumbers(panesKey, sizes);
    if (const auto heights = sources.room().chosen())
        setNumbers(sidebarKey, *heights);
    QList<int> scrolled;
    for (KXSourceListViewController *list : sources.lists())
        scrolled.append(list->sourceListView()->verticalScrollBar()->value());
    setNumbers(scrolledKey, scrolled);
}
