#include "import/Importer.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <unordered_map>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include "import/LeftOutFiles.h"
#include "import/Parallel.h"
#include "import/TrackFilling.h"
#include "library/TrackFields.h"
#include "library/TrackNames.h"
#include "tags/TagReaders.h"

using namespace Qt::StringLiterals;

namespace {

// Other savers and the change feed wait for a save: it is kept to some two thousand objects, names included.
constexpr int objectsPerSave = 1500;
// Files whose tags are read side by side before their tracks are made.
constexpr size_t filesPerBatch = 64;
// Code of the store's error for a query that was cancelled.
constexpr int queryInterrupted = 1116;

/// One run of an import.
class Import
{
public:
    Import(const KXManagedObjectContext::Ref &context, const Importer::Stop &stop, const Importer::Progress &progress)
        : m_context(context)
        , m_names(*m_context)
        , m_stop(stop)
        , m_progress(progress)
        , m_leftOut(*m_context)
    {
    }

    ImportResult run(const ImportTask &task)
    {
        m_onlyFindsMissing = m_result.foundMissing = task.onlyFindsMissing;
        m_isOfFiles = !task.files.empty();
        m_scan = m_isOfFiles ? scanFiles(task.files) : scanFolder(task.folder, m_stop);
        m_result.skipped = m_scan.skipped;
        loadKnown();
        letInWhatIsNamed();
        std::vector<const ScannedFile *> changed;
        for (const ScannedFile &file : m_scan.files) {
            if (isToBeRead(file))
                changed.push_back(&file);
        }
        m_total = qint64(m_scan.files.size());
        m_done = m_total - qint64(changed.size());

        for (size_t at = 0; at < changed.size() && goesOn(); at += filesPerBatch)
            readBatch(changed, at, std::min(changed.size(), at + filesPerBatch));
        settleLikely();
        if (m_scan.complete && goesOn() && !m_isOfFiles && !m_onlyFindsMissing && rootIsThere())
            markVanished();
        if (m_result.error.code() == queryInterrupted && m_stop && m_stop()) {
            m_stopped = true;
            m_result.error = {};
        }
        Sounds::recount(*m_context, m_sounds);
        save();
        if (m_wentAway && !m_result.error)
            m_result.error = KXError(KXKestrixKitErrorDomain, 0,
                u"The folder %1 went away while it was looked through"_s.arg(displayPath(m_scan.root)));
        m_result.cancelled = !m_result.error && (!m_scan.complete || m_stopped);
        std::sort(m_result.skipped.begin(), m_result.skipped.end(),
            [](const SkippedFile &a, const SkippedFile &b) { return a.file < b.file; });
        return m_result;
    }

private:
    struct Known
    {
        KXManagedObjectID id;
        qint64 size;
        qint64 modified;
        std::optional<qint64> hash, head; // of its sound
        bool missing;
        bool found = false;
    };

    /// A file that is new or changed, and what was read of it.
    struct Arrival
    {
        const ScannedFile *file;
        TagReading reading;
        bool wantsSound = false, wantsHead = false;
        TrackSound sound = {};
        qint64 head = 0; // of its sound
        std::vector<LikelyFile> likely = {};
    };

    bool goesOn()
    {
        m_stopped = m_stopped || (m_stop && m_stop());
        return !m_stopped && !m_wentAway && !m_result.error;
    }

    void loadKnown()
    {
        const QUrl below = urlOfPath(m_scan.root.back() == '/' ? m_scan.root : m_scan.root + '/');
        const auto predicate
            = KXPredicate::predicateWithFormat("location BEGINSWITH %@", QString::fromLatin1(below.toEncoded()));
        m_savesKnown = m_names.others.count();
        know(m_context->fetchForEntity(QString(Track::entityName), predicate));
        for (const ScannedFile &file : m_scan.files) {
            if (const auto known = m_known.find(file.path); known != m_known.end())
                known->second.found = true;
        }
    }

    void know(const KXFetchedList &tracks)
    {
        for (const KXRef<KXManagedObject> &object : tracks) {
            const KXRef<Track> track = Track::cast(object);
            if (track)
                m_known.insert({ pathOfUrl(track->location()),
                    { track->objectID(), track->fileSize(), track->fileModified(), track->soundHash(),
                        track->soundHead(), track->missing() } });
        }
    }

    /// Another import may have brought some of the files by now, or somebody has located them.
    void lookAgain(const std::vector<Arrival> &arrivals)
    {
        const int saves = m_names.others.count();
        if (std::exchange(m_savesKnown, saves) == saves)
            return;
        QVariantList locations;
        for (const Arrival &arrival : arrivals) {
            if (!isKnown(*arrival.file))
                locations.append(urlOfPath(arrival.file->path));
        }
        if (locations.isEmpty())
            return;
        know(m_context->fetchForEntity(
            QString(Track::entityName), KXPredicate::predicateWithFormat("location IN %@", locations)));
        for (const Arrival &arrival : arrivals) {
            if (const auto known = m_known.find(arrival.file->path); known != m_known.end())
                known->second.found = true;
        }
    }

    /// Files that the user names come back into the library, whatever became of them before.
    void letInWhatIsNamed()
    {
        if (!m_isOfFiles || m_onlyFindsMissing)
            return;
        for (const ScannedFile &file : m_scan.files)
            m_leftOut.letIn(file.path);
    }

    bool isToBeRead(const ScannedFile &file)
    {
        const auto found = m_known.find(file.path);
        if (found == m_known.end())
            return m_onlyFindsMissing || !m_leftOut.contains(file.path);
        if (m_onlyFindsMissing)
            return true;
        Known &known = found->second;
        if (known.size != file.size || known.modified != file.modified)
            return true;
        ++m_result.unchanged;
        if (known.missing)
            setMissing(known, false);
        return false;
    }

    [[nodiscard]] bool isKnown(const ScannedFile &file) const { return m_known.contains(file.path); }

    void readBatch(const std::vector<const ScannedFile *> &files, size_t begin, size_t end)
    {
        std::vector<Arrival> arrivals(end - begin);
        forEachInParallel(arrivals.size(), [&](size_t i) {
            arrivals[i].file = files[begin + i];
            arrivals[i].reading = m_readers.read(arrivals[i].file->path);
        });
        const bool isWhole = std::all_of(
            arrivals.begin(), arrivals.end(), [](const Arrival &arrival) { return arrival.reading.tags.has_value(); });
        if (!isWhole && !rootIsThere()) {
            m_wentAway = true; // what was read before is saved
            return;
        }
        lookAgain(arrivals);
        for (Arrival &arrival : arrivals) {
            arrival.wantsSound = wantsSound(arrival);
            arrival.wantsHead = wantsHead(arrival);
        }
        forEachInParallel(arrivals.size(), [&](size_t i) {
            if (arrivals[i].wantsSound)
                arrivals[i].sound = Sounds::ofFile(arrivals[i].file->path);
            if (arrivals[i].wantsHead)
                arrivals[i].head = Sounds::headOfFile(arrivals[i].file->path);
        });
        for (Arrival &arrival : arrivals) {
            if (!goesOn())
                break;
            take(arrival);
        }
        m_done += qint64(arrivals.size());
        if (m_touched >= objectsPerSave || Clock::now() - m_lastSave > std::chrono::seconds(1))
            save();
        if (m_progress && Clock::now() - m_lastProgress > std::chrono::milliseconds(50)) {
            m_lastProgress = Clock::now();
            m_progress(m_done, m_total);
        }
    }

    /// A file that was written again may hold other sound by now.
    bool wantsHead(const Arrival &arrival) const
    {
        const auto known = m_known.find(arrival.file->path);
        return !m_onlyFindsMissing && arrival.reading.tags && known != m_known.end()
            && known->second.hash.value_or(0) != 0;
    }

    /// Whether it is worth reading through: it may be the file of a track whose own is gone, or one that was left out.
    bool wantsSound(const Arrival &arrival)
    {
        if (!arrival.reading.tags || (isKnown(*arrival.file) && !m_onlyFindsMissing))
            return false;
        const std::optional<double> duration = arrival.reading.tags->duration;
        return former().ofSameFile(*arrival.file, duration) == 0
            && (former().mayHave(duration) || (!m_isOfFiles && m_leftOut.mayHave(duration)));
    }

    FormerFiles &former()
    {
        if (!m_former) {
            m_former = std::make_unique<FormerFiles>(*m_context, [this](const std::string &path) {
                const auto known = m_known.find(path);
                return known != m_known.end() && known->second.found;
            });
        }
        return *m_former;
    }

    void take(Arrival &arrival)
    {
        const ScannedFile &file = *arrival.file;
        const auto known = m_known.find(file.path);
        if (!arrival.reading.tags) {
            if (m_onlyFindsMissing)
                return;
            m_result.skipped.push_back({ shownPath(file.path, m_scan.root), arrival.reading.refusal });
            // A track whose file was spoilt cannot be played; it comes back when the file can be read again.
            if (known != m_known.end() && !known->second.missing)
                setMissing(known->second, true);
            return;
        }
        if (known != m_known.end() && !m_onlyFindsMissing) {
            if (const KXRef<Track> track = Track::cast(m_context->objectWithID(known->second.id))) {
                noteSound(*track);
                if (arrival.wantsHead && arrival.head != known->second.head) {
                    Sounds::forget(*track);
                    TrackFields::forgetAnalysed(*track);
                }
                store(*track, arrival);
            }
            ++m_result.updated;
            return;
        }
        const std::optional<double> duration = arrival.reading.tags->duration;
        qint64 former = this->former().ofSameFile(file, duration);
        if (former == 0)
            former = this->former().ofSameSound(arrival.sound, duration);
        if (former != 0 && !isKnown(file)) {
            adopt(former, arrival);
            return;
        }
        if (!m_isOfFiles && !m_onlyFindsMissing && m_leftOut.hasMoved(file, arrival.sound, duration)) {
            ++m_touched;
            return;
        }
        arrival.likely = former != 0 ? std::vector<LikelyFile> { { former, file.path, 1 } }
                                     : this->former().alike(arrival.sound, duration, file.path);
        if (!arrival.likely.empty())
            m_likely.push_back(std::move(arrival));
        else if (!m_onlyFindsMissing)
            add(arrival);
    }

    void add(const Arrival &arrival)
    {
        const KXRef<Track> track = Track::createInContext(*m_context, &m_result.error);
        if (!track)
            return;
        track->setLocation(urlOfPath(arrival.file->path));
        track->setAdded(KXClock::now());
        store(*track, arrival);
        ++m_result.added;
    }

    /// The file is that of a track whose own is gone.
    void adopt(qint64 former, const Arrival &arrival)
    {
        this->former().take(former);
        const KXManagedObjectID id(m_context->persistentStoreCoordinator()->store()->identity(),
            m_context->persistentStoreCoordinator()->model()->entity(QString(Track::entityName)), former);
        const KXRef<Track> track = Track::cast(m_context->objectWithID(id));
        if (!track || track->isMissing())
            return;
        if (const auto known = m_known.find(pathOfUrl(track->location())); known != m_known.end())
            known->second.found = true;
        track->setLocation(urlOfPath(arrival.file->path));
        store(*track, arrival);
        ++m_result.moved;
    }

    void store(Track &track, const Arrival &arrival)
    {
        const ScannedFile &file = *arrival.file;
        const TrackTags &tags = *arrival.reading.tags;
        track.setFileSize(file.size);
        track.setFileModified(file.modified);
        if (track.missing())
            track.setMissing(false);
        TrackFilling::fill(track, tags, m_names, &m_result.error);
        if (arrival.wantsSound)
            Sounds::set(track, arrival.sound);
        noteSound(track);
        // Stopping interrupts the query under way, so that a name may have been left out: the next import reads the
        // file again.
        if (m_stop && m_stop())
            track.setFileModified(0);
        m_touched += 3 + int(tags.artists.size() + tags.genres.size() + tags.labels.size());
    }

    /// A file that begins and lasts like one that is gone is taken for it where no other file does, and like no other
    /// one that is gone. Else somebody has to say.
    void settleLikely()
    {
        std::map<qint64, int> files; // by track
        for (const Arrival &arrival : m_likely) {
            for (const LikelyFile &likely : arrival.likely)
                ++files[likely.track];
        }
        for (Arrival &arrival : m_likely) {
            if (!goesOn())
                return;
            std::erase_if(arrival.likely, [&](const LikelyFile &likely) { return !former().isGone(likely.track); });
            const bool isSure = arrival.likely.size() == 1 && files[arrival.likely[0].track] == 1;
            if (isSure && !isKnown(*arrival.file)) {
                adopt(arrival.likely[0].track, arrival);
                continue;
            }
            m_result.doubtful.insert(m_result.doubtful.end(), arrival.likely.begin(), arrival.likely.end());
            if (!m_onlyFindsMissing)
                add(arrival);
        }
    }

    void setMissing(const Known &known, bool missing)
    {
        const KXRef<Track> track = Track::cast(m_context->objectWithID(known.id));
        if (!track)
            return;
        track->setMissing(missing);
        noteSound(*track);
        ++(missing ? m_result.vanished : m_result.returned);
        if (++m_touched >= objectsPerSave)
            save();
    }

    /// How many files there are of its sound is counted again.
    void noteSound(const Track &track)
    {
        if (const qint64 hash = track.soundHash().value_or(0))
            m_sounds.insert(hash);
    }

    [[nodiscard]] bool rootIsThere() const { return !m_scan.rootMark || m_scan.rootMark == markOfFolder(m_scan.root); }

    void markVanished()
    {
        const auto cannotTell = [this](const std::string &path) {
            return std::any_of(m_scan.unreadableFolders.begin(), m_scan.unreadableFolders.end(),
                [&](const std::string &folder) { return isBelow(path, folder); });
        };
        for (const auto &[path, known] : m_known) {
            if (!known.found && !known.missing && !cannotTell(path))
                setMissing(known, true);
        }
    }

    void save()
    {
        if (!m_result.error && !m_context->save(&m_result.error) && m_stop && m_stop()) {
            // Interrupted by the stop, perhaps: what was read is worth another try, which nobody interrupts.
            m_result.error = {};
            m_context->save(&m_result.error);
        }
        m_touched = 0;
        m_lastSave = Clock::now();
    }

    using Clock = std::chrono::steady_clock;

    TagReaders m_readers;
    KXManagedObjectContext::Ref m_context;
    TrackNames m_names;
    const Importer::Stop &m_stop;
    const Importer::Progress &m_progress;
    Scan m_scan;
    std::unordered_map<std::string, Known> m_known; // by path
    LeftOutFiles m_leftOut;
    std::unique_ptr<FormerFiles> m_former; // from the first new file on
    std::vector<Arrival> m_likely;
    std::set<qint64> m_sounds; // whose files came or went
    ImportResult m_result;
    qint64 m_done = 0;
    qint64 m_total = 0;
    int m_touched = 0; // objects changed since the last save, roughly
    int m_savesKnown = 0; // of others, when it was looked which files are known
    bool m_isOfFiles = false, m_onlyFindsMissing = false;
    bool m_stopped = false, m_wentAway = false;
    Clock::time_point m_lastSave = Clock::now();
    Clock::time_point m_lastProgress {};
};

} // namespace

Importer::Importer(KXManagedObjectContext::Ref context, ImportTask task)
    : m_context(std::move(context))
    , m_task(std::move(task))
{
}

ImportResult Importer::run(const Stop &stop, const Progress &progress) const
{
    return Import(m_context, stop, progress).run(m_task);
}
