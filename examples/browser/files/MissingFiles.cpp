#include "files/MissingFiles.h"

#include <QFileInfo>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/toolkit/KXAlert.h>

#include "files/FileNotes.h"
#include "import/FileCommands.h"
#include "import/FileDialogs.h"
#include "library/LibraryEditor.h"
#include "table/TrackTableView.h"
#include "tags/TagReaders.h"
#include "window/BrowserWindow.h"

using namespace Qt::StringLiterals;

MissingFiles::MissingFiles(BrowserWindow *window, LibraryEditor *editor)
    : QObject(window)
    , locate(new QAction(tr("&Locate File…"), this))
    , find(new QAction(tr("Find &Missing Files…"), this))
    , m_window(window)
    , m_editor(editor)
    , m_job(window->context()->persistentStoreCoordinator())
{
    connect(locate, &QAction::triggered, this, &MissingFiles::chooseFile);
    connect(find, &QAction::triggered, this, &MissingFiles::chooseFolder);
}

void MissingFiles::updateActions() { locate->setEnabled(m_window->table()->currentIndex().isValid()); }

KXRef<Track> MissingFiles::living(const KXManagedObjectID &track) const
{
    const KXRef<Track> known = Track::cast(m_window->context()->objectWithID(track));
    return known && !known->isDeleted() && !known->isMissing() ? known : KXRef<Track>();
}

// One

void MissingFiles::chooseFile()
{
    const KXRef<Track> track = m_window->model()->track(m_window->table()->currentIndex().row());
    if (!track)
        return;
    FileDialogs::ask(m_window,
        { tr("Locate “%1”").arg(track->title()), tr("Use"), FileDialogs::Kind::MusicFile, u"locate"_s,
            QFileInfo(track->location().toLocalFile()).absolutePath() },
        this, [this, id = track->objectID()](const std::vector<std::string> &files) {
            if (!files.empty())
                useFile(id, files.front());
        });
}

void MissingFiles::useFile(const KXManagedObjectID &track, const std::string &path)
{
    const auto found = std::make_shared<FoundFile>();
    m_job.start(
        [found, path](const KXManagedObjectContext::Ref &, const LibraryJob::Stop &) {
            TagReaders readers;
            *found = FoundFile::read(path, readers);
        },
        [this, track, found] { take(track, *found); });
}

void MissingFiles::take(const KXManagedObjectID &id, const FoundFile &file)
{
    KXRef<Track> track = living(id);
    if (!track)
        return;
    if (!file.tags) {
        KXAlert alert(tr("“%1” cannot be used").arg(displayPath(file.file.path)), KXAlertStyle::Warning);
        alert.setInformativeText(FileNotes::shown(file.refusal));
        (void)alert.run(m_window);
        return;
    }
    if (likenessOf(*track, file) == FileLikeness::Other) {
        KXAlert alert(
            tr("This file sounds like another recording than “%1”").arg(track->title()), KXAlertStyle::Warning);
        alert.setInformativeText(
            tr("%1\nRating, comment and crates of the track stay.").arg(displayPath(file.file.path)));
        alert.setButtons({ tr("Use It Anyway"), tr("Cancel") });
        if (alert.run(m_window).button != 0 || !(track = living(id)))
            return;
    }
    if (m_editor->relocate(track, file))
        Q_EMIT said(tr("“%1” has its file again").arg(track->title()));
}

// Many

void MissingFiles::chooseFolder()
{
    FileDialogs::ask(m_window, { tr("Find Missing Files In"), tr("Find"), FileDialogs::Kind::Folder, u"find"_s }, this,
        [this](const std::vector<std::string> &folders) {
            if (!folders.empty())
                findIn(folders.front());
        });
}

void MissingFiles::findIn(const std::string &folder)
{
    ImportTask task(folder);
    task.onlyFindsMissing = true;
    m_window->files()->enqueue(task);
}

void MissingFiles::settle(const ImportResult &result)
{
    const KXPersistentStoreCoordinator::Ref coordinator = m_window->context()->persistentStoreCoordinator();
    const QPointer<MissingFiles> alive(this);
    QSet<qint64> settled;
    for (const LikelyFile &likely : result.foundMissing ? result.doubtful : std::vector<LikelyFile>()) {
        const KXManagedObjectID id(
            coordinator->store()->identity(), coordinator->model()->entity(QString(Track::entityName)), likely.track);
        const KXRef<Track> track = living(id);
        if (!track || settled.contains(likely.track))
            continue;
        KXAlert alert(tr("Is this the file of “%1”?").arg(track->title()));
        alert.setInformativeText(tr("Missing: %1\nFound: %2\nThey begin alike by %3%.")
                                     .arg(displayPath(pathOfUrl(track->location())), displayPath(likely.path),
                                         KXClock::locale().toString(qRound(likely.likeness * 100))));
        alert.setButtons({ tr("Use This File"), tr("Skip"), tr("Stop") });
        const int answer = alert.run(m_window).button;
        if (!alive || answer < 0 || answer > 1)
            return;
        if (answer == 0) {
            settled.insert(likely.track);
            useFile(id, likely.path);
        }
    }
}
