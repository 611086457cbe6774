#include "import/FileCommands.h"

#include <algorithm>
#include <filesystem>

#include <QAction>
#include <QApplication>
#include <QCryptographicHash>
#include <QDropEvent>
#include <QFile>
#include <QMenu>
#include <QMimeData>

#include <kestrixkit/foundation/KXFileManager.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUserDefaults.h>

#include "demo/DemoMusic.h"
#include "import/FileDialogs.h"
#include "table/TrackTableView.h"
#include "window/BrowserWindow.h"
#include "window/MessageStrip.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

namespace {

const QString fileToldKey = u"toldUnreadableFiles"_s; // marks of eight bytes
constexpr qsizetype fileMostTold = 5'000; // the oldest are told of again
constexpr double fileSoundsAfter = 5; // seconds after the last import: the window is looked at first

} // namespace

FileCommands::FileCommands(BrowserWindow *window)
    : QObject(window)
    , m_window(window)
    , m_sounds(window->context()->persistentStoreCoordinator())
    , m_rescan(new QAction(tr("&Rescan Music Folders"), this))
    , m_cancel(new QAction(tr("&Cancel Import"), this))
    , m_showUnreadable(new QAction(tr("Files That Could &Not Be Read"), this))
{
    m_rescan->setShortcut(QKeySequence(Qt::Key_F5));
    connect(m_rescan, &QAction::triggered, this, &FileCommands::rescan);
    connect(m_showUnreadable, &QAction::triggered, this, &FileCommands::showUnreadable);
    connect(m_cancel, &QAction::triggered, this, [this] {
        m_queue.clear();
        m_window->cancelImport();
    });
    // In a later turn: the window still has to say what the one before did.
    connect(window, &BrowserWindow::importFinished, this, [this](const QString &error) {
        if (!error.isEmpty())
            m_queue.clear(); // cancelled, or the store takes no more
        KXMainQueue::async(this, [this] { goOn(); });
    });
    window->setAcceptDrops(true);
    window->installEventFilter(this);
    window->table()->viewport()->installEventFilter(this);
}

QMenu *FileCommands::makeMenu(const QList<QAction *> &others)
{
    auto *const menu = new QMenu(tr("&File"), m_window);
    menu->setAccessibleName(tr("File"));
    menu->addAction(tr("&Add Music Folder…"), this, &FileCommands::chooseFolder)
        ->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    menu->addAction(tr("Add &Files…"), this, &FileCommands::chooseFiles)
        ->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    menu->addActions({ m_rescan, m_cancel, m_showUnreadable });
    if (!others.isEmpty())
        menu->addSeparator();
    menu->addActions(others);
    menu->addSeparator();
    menu->addAction(tr("Close &Window"), m_window, &QWidget::close)->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
    QAction *const quit = menu->addAction(tr("&Quit"), qApp, &QApplication::closeAllWindows);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setMenuRole(QAction::QuitRole);
    connect(menu, &QMenu::aboutToShow, this, &FileCommands::updateActions);
    return menu;
}

void FileCommands::updateActions()
{
    m_rescan->setEnabled(!Settings::musicFolders().empty());
    m_cancel->setEnabled(m_window->isImporting() || !m_queue.empty());
    m_showUnreadable->setEnabled(!m_unreadable.empty());
}

void FileCommands::chooseFolder()
{
    FileDialogs::ask(m_window, { tr("Add Music Folder"), tr("Add"), FileDialogs::Kind::Folder, u"add"_s }, this,
        [this](const std::vector<std::string> &folders) { addFolders(folders); });
}

void FileCommands::chooseFiles()
{
    FileDialogs::ask(m_window, { tr("Add Files"), tr("Add"), FileDialogs::Kind::MusicFiles, u"add"_s }, this,
        [this](const std::vector<std::string> &files) { addFiles(files); });
}

void FileCommands::addDemoMusic()
{
    if (!m_window->isImporting())
        m_window->importMusic([](QString *error) { return DemoMusic::make(KXFileManager::cachesFolderPath(), error); });
}

void FileCommands::addFiles(const std::vector<std::string> &files)
{
    ImportTask task;
    task.files = files;
    enqueue(task);
}

void FileCommands::addFolders(const std::vector<std::string> &folders)
{
    Settings::addMusicFolders(folders);
    import(folders);
}

void FileCommands::rescan()
{
    m_unreadable.clear();
    import(Settings::musicFolders());
}

void FileCommands::import(const std::vector<std::string> &folders)
{
    for (const std::string &folder : folders)
        enqueue(ImportTask(folder));
}

void FileCommands::enqueue(const ImportTask &task)
{
    if (!task.isEmpty() && std::find(m_queue.begin(), m_queue.end(), task) == m_queue.end())
        m_queue.push_back(task);
    goOn();
}

void FileCommands::goOn()
{
    if (m_window->isImporting())
        return;
    if (m_queue.empty()) {
        m_readSoundsSoon.start(fileSoundsAfter, [this] { readSounds(); });
        return;
    }
    m_readSoundsSoon.cancel();
    m_sounds.cancel(); // the import reads first
    const ImportTask next = m_queue.front();
    m_queue.erase(m_queue.begin());
    m_window->importMusic([next](QString *) { return next; });
}

void FileCommands::readSounds(std::function<void()> done)
{
    m_readSoundsSoon.cancel();
    m_sounds.start([](const KXManagedObjectContext::Ref &context,
                       const LibraryJob::Stop &stop) { Sounds::readMissing(*context, stop); },
        std::move(done));
}

// What could not be read

void FileCommands::report(const ImportResult &result)
{
    KXUserDefaults &defaults = KXUserDefaults::standard();
    QVariantList told = defaults.arrayForKey(fileToldKey).value_or(QVariantList());
    bool isNews = false;
    for (const SkippedFile &file : result.skipped) {
        const bool isListed = std::any_of(m_unreadable.begin(), m_unreadable.end(),
            [&](const SkippedFile &other) { return other.file == file.file && other.reason == file.reason; });
        if (!isListed)
            m_unreadable.push_back(file);
        const QByteArray mark
            = QCryptographicHash::hash((file.file + u'\n' + file.reason).toUtf8(), QCryptographicHash::Sha1).first(8);
        if (!told.contains(mark)) {
            told.append(mark);
            isNews = true;
        }
    }
    if (isNews) {
        const qsizetype old = std::max<qsizetype>(0, told.size() - fileMostTold);
        defaults.setValue(fileToldKey, told.mid(old));
    }
    ImportResult news = result;
    if (!isNews)
        news.skipped.clear();
    MessageStrip::postImport(news);
}

void FileCommands::showUnreadable()
{
    ImportResult all;
    all.skipped = m_unreadable;
    MessageStrip::postImport(all);
    if (const auto *const strip = m_window->findChild<MessageStrip *>())
        strip->action()->trigger();
}

// Dropping

std::pair<std::vector<std::string>, std::vector<std::string>> FileCommands::musicIn(const QMimeData *data)
{
    std::vector<std::string> folders, files;
    for (const QUrl &url : data && data->hasUrls() ? data->urls() : QList<QUrl>()) {
        const std::string path = url.isLocalFile() ? pathOfUrl(url) : std::string();
        std::error_code error;
        if (!path.empty() && std::filesystem::is_directory(path, error))
            folders.push_back(path);
        else if (isMusicName(path) && std::filesystem::is_regular_file(path, error))
            files.push_back(path);
    }
    return { folders, files };
}

bool FileCommands::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::DragEnter && event->type() != QEvent::DragMove && event->type() != QEvent::Drop)
        return QObject::eventFilter(watched, event);
    auto *const drop = static_cast<QDropEvent *>(event);
    const auto [folders, files] = musicIn(drop->mimeData());
    if (folders.empty() && files.empty())
        return QObject::eventFilter(watched, event);
    drop->setDropAction(Qt::CopyAction);
    drop->accept();
    if (event->type() == QEvent::Drop) {
        addFolders(folders);
        addFiles(files);
    }
    return true;
}
