#include "window/MessageStrip.h"

#include <QAction>
#include <QFileInfo>
#include <QLayout>
#include <QLocale>
#include <QMainWindow>
#include <QToolBar>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/messages/KXMessageCenter.h>

#include "files/FileNotes.h"

using namespace Qt::StringLiterals;

namespace {

constexpr size_t stripListedFiles = 200; // in the details of a message

void postFiles(const QString &title, const std::vector<SkippedFile> &files)
{
    QString list = u"<ul>"_s;
    for (size_t i = 0; i < std::min(files.size(), stripListedFiles); ++i)
        list += u"<li>%1: %2</li>"_s.arg(
            files[i].file.toHtmlEscaped(), FileNotes::shown(files[i].reason).toHtmlEscaped());
    list += "</ul>"_L1;
    if (files.size() > stripListedFiles)
        list += MessageStrip::tr("… and %1 more", nullptr, int(files.size() - stripListedFiles))
                    .arg(KXClock::locale().toString(qulonglong(files.size() - stripListedFiles)));
    KXMessageCenter::sharedInstance().postMessage(KXMessage::messageWithType(KXMessageTypeError, title, list));
}

}

MessageStrip::MessageStrip(QMainWindow *window)
    : QObject(window)
    , m_action(new QAction(tr("Show &Messages"), this))
{
    m_action->setShortcut(Qt::CTRL | Qt::Key_M);
    m_action->setEnabled(false);
    connect(
        m_action, &QAction::triggered, this, [this] { m_controller.messageWasSelected(m_controller.messageView()); });
    m_bar = new QToolBar(tr("Messages"));
    window->addToolBar(Qt::BottomToolBarArea, m_bar); // its details open upwards
    m_bar->setMovable(false);
    m_bar->setContextMenuPolicy(Qt::PreventContextMenu);
    m_bar->addWidget(m_controller.view());
    m_bar->layout()->setContentsMargins({});
    m_bar->hide();
    m_controller.setDelegate(this);
    if (KXMessageCenter::sharedInstance().messageCount() > 0) // from before the window
        messageCenterViewShouldBeShown(&m_controller);
}

void MessageStrip::messageCenterViewShouldBeShown(KXMessageCenterViewController *)
{
    m_action->setEnabled(true);
    if (!m_bar || m_bar->isVisible())
        return;
    m_bar->show();
}

void MessageStrip::messageCenterViewShouldBeHidden(KXMessageCenterViewController *)
{
    m_action->setEnabled(false);
    if (m_bar)
        m_bar->hide();
}

void MessageStrip::postImport(const ImportResult &result)
{
    KXMessageCenter &center = KXMessageCenter::sharedInstance();
    if (result.error) {
        center.postMessage(KXMessage::messageWithTitle(
            tr("Import failed: %1").arg(result.error.localizedDescription()), result.error));
    }
    if (result.cancelled || result.skipped.empty())
        return;
    const QLocale locale = KXClock::locale();
    const size_t count = result.skipped.size();
    postFiles(count == 1
            ? tr("1 file could not be read")
            : tr("%1 files could not be read", nullptr, int(count)).arg(locale.toString(qulonglong(count))),
        result.skipped);
}

void MessageStrip::postUnwritten(const std::vector<SkippedFile> &files)
{
    if (files.empty())
        return;
    postFiles(files.size() == 1 ? tr("The tags of 1 file could not be written")
                                : tr("The tags of %1 files could not be written", nullptr, int(files.size()))
                                      .arg(KXClock::locale().toString(qulonglong(files.size()))),
        files);
}

void MessageStrip::postUnanalysed(const std::vector<SkippedFile> &files)
{
    if (files.empty())
        return;
    postFiles(files.size() == 1 ? tr("1 file could not be analysed")
                                : tr("%1 files could not be analysed", nullptr, int(files.size()))
                                      .arg(KXClock::locale().toString(qulonglong(files.size()))),
        files);
}

void MessageStrip::postUnplayable(const QString &title, const QUrl &file)
{
    const QString path = file.isLocalFile() ? file.toLocalFile() : file.toDisplayString();
    const QString why = file.isLocalFile() && !QFileInfo::exists(path) ? tr("The file is not there.")
        : file.isLocalFile()                                           ? tr("The file holds no audio that can be read.")
                             : tr("Its server does not answer, leads to where it may not, or sends no audio.");
    KXMessageCenter::sharedInstance().postMessage(KXMessage::messageWithType(
        KXMessageTypeError, tr("%1 cannot be played").arg(title), u"%1<br>%2"_s.arg(path.toHtmlEscaped(), why)));
}
