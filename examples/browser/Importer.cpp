#include "Importer.h"

#include <algorithm>
#include <chrono>
#include <unordered_map>

#include <QHash>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/predicate/KXPredicate.h>

#include "Parallel.h"
#include "TagReaders.h"

using namespace Qt::StringLiterals;

namespace {

// Other savers and the change feed wait for a save: it is kept to some two thousand objects, names included.
constexpr int objectsPerSave = 1500;
// Files whose tags are read side by side before their tracks are made.
constexpr size_t filesPerBatch = 64;
// Code of the store's error for a query that was cancelled.
constexpr int queryInterrupted = 1116;

/// Objects of an entity by their names, made when a name is new. It keeps identifiers, not objects.
template <class Class> class NameIndex
{
public:
    explicit NameIndex(KXManagedObjectContext &context)
        : m_context(context)
    {
        for (const KXRef<KXManagedObject> &object : context.fetchAllForEntity(QString(Class::entityName))) {
            if (const KXRef<Class> typed = Class::cast(object))
                m_ids.insert(keyOf(*typed), typed->objectID());
        }
    }

    /// fill sets a new object's values. Empty where the store gives no identifier.
    template <class Fill> KXRef<Class> object(const QString &key, const Fill &fill, KXError *error)
    {
        if (const KXManagedObjectID id = m_ids.value(key)) {
            if (const KXRef<Class> known = Class::cast(m_context.objectWithID(id)); known && !known->isMissing())
                return known;
        }
        const KXRef<Class> made = Class::createInContext(m_context, error);
        if (made) {
            fill(*made);
            m_ids.insert(key, made->objectID());
        }
        return made;
    }

    template <class Fill>
    QList<KXRef<KXManagedObject>> objects(const QStringList &names, const Fill &fill, KXError *error)
    {
        QList<KXRef<KXManagedObject>> result;
        for (const QString &name : names) {
            if (const KXRef<Class> named = object(
                    TagValues::nameKey(name), [&](Class &made) { fill(made, name); }, error))
                result.append(named);
        }
        return result;
    }

private:
    static QString keyOf(const Class &object)
    {
        if constexpr (requires { object.artistText(); })
            return TagValues::nameKey(object.title()) + u'\n' + TagValues::nameKey(object.artistText());
        else
            return TagValues::nameKey(object.name());
    }

    KXManagedObjectContext &m_context;
    QHash<QString, KXManagedObjectID> m_ids;
};

std::optional<QString> present(const QString &text) { return text.isEmpty() ? std::nullopt : std::optional(text); }

constexpr auto setNameOf = [](auto &object, const QString &name) { object.setName(name); };

/// One run of an import.
class Import
{
public:
    Import(const KXManagedObjectContext::Ref &context, const Importer::Stop &stop, const Importer::Progress &progress)
        : m_context(context)
        , m_artists(*m_context)
        , m_albums(*m_context)
        , m_genres(*m_context)
        , m_labels(*m_context)
        , m_keys(*m_context)
        , m_stop(stop)
        , m_progress(progress)
    {
    }

    ImportResult run(const std::string &folder)
    {
        m_scan = scanFolder(folder, m_stop);
        m_result.skipped = m_scan.skipped;
        loadKnown();
        std::vector<const ScannedFile *> changed;
        for (const ScannedFile &file : m_scan.files) {
            if (!isUnchanged(file))
                changed.push_back(&file);
        }
        m_total = qint64(m_scan.files.size());
        m_done = m_total - qint64(changed.size());

        for (size_t at = 0; at < changed.size() && goesOn(); at += filesPerBatch)
            readBatch(changed, at, std::min(changed.size(), at + filesPerBatch));
        if (m_scan.complete && goesOn())
            markVanished();
        if (m_result.error.code() == queryInterrupted && m_stop && m_stop()) {
            m_stopped = true;
            m_result.error = {};
        }
        save();
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
        bool missing;
        bool found = false;
    };

    bool goesOn()
    {
        m_stopped = m_stopped || (m_stop && m_stop());
        return !m_stopped && !m_result.error;
    }

    void loadKnown()
    {
        const QUrl below = urlOfPath(m_scan.root.back() == '/' ? m_scan.root : m_scan.root + '/');
        const auto predicate
            = KXPredicate::predicateWithFormat("location BEGINSWITH %@", QString::fromLatin1(below.toEncoded()));
        for (const KXRef<KXManagedObject> &object : m_context->fetchForEntity(QString(Track::entityName), predicate)) {
            const KXRef<Track> track = Track::cast(object);
            if (track)
                m_known.insert({ pathOfUrl(track->location()),
                    { track->objectID(), track->fileSize(), track->fileModified(), track->missing() } });
        }
    }

    bool isUnchanged(const ScannedFile &file)
    {
        const auto found = m_known.find(file.path);
        if (found == m_known.end())
            return false;
        Known &known = found->second;
        known.found = true;
        if (known.size != file.size || known.modified != file.modified)
            return false;
        ++m_result.unchanged;
        if (known.missing)
            setMissing(known, false);
        return true;
    }

    void readBatch(const std::vector<const ScannedFile *> &files, size_t begin, size_t end)
    {
        std::vector<TagReading> readings(end - begin);
        forEachInParallel(readings.size(), [&](size_t i) { readings[i] = m_readers.read(files[begin + i]->path); });
        for (size_t i = 0; i < readings.size() && goesOn(); ++i)
            take(*files[begin + i], readings[i]);
        m_done += qint64(readings.size());
        if (m_touched >= objectsPerSave || Clock::now() - m_lastSave > std::chrono::seconds(1))
            save();
        if (m_progress && Clock::now() - m_lastProgress > std::chrono::milliseconds(50)) {
            m_lastProgress = Clock::now();
            m_progress(m_done, m_total);
        }
    }

    void take(const ScannedFile &file, const TagReading &reading)
    {
        const auto known = m_known.find(file.path);
        if (!reading.tags) {
            m_result.skipped.push_back({ shownPath(file.path, m_scan.root), reading.refusal });
            // A track whose file was spoilt cannot be played; it comes back when the file can be read again.
            if (known != m_known.end() && !known->second.missing)
                setMissing(known->second, true);
            return;
        }
        KXError *error = &m_result.error;
        const bool isNew = known == m_known.end();
        const KXRef<Track> track = isNew ? Track::createInContext(*m_context, error)
                                         : Track::cast(m_context->objectWithID(known->second.id));
        if (!track)
            return;
        if (isNew) {
            track->setLocation(urlOfPath(file.path));
            track->setAdded(KXClock::now());
        }
        track->setFileSize(file.size);
        track->setFileModified(file.modified);
        track->setMissing(false);
        fill(*track, *reading.tags, error);
        // Stopping interrupts the query under way, so that a name may have been left out: the next import reads the
        // file again.
        if (m_stop && m_stop())
            track->setFileModified(0);
        ++(isNew ? m_result.added : m_result.updated);
    }

    void fill(Track &track, const TrackTags &tags, KXError *error)
    {
        track.setTitle(tags.title);
        track.setArtistText(present(tags.artistText));
        track.setAlbumText(present(tags.album));
        track.setGenreText(present(tags.genres.join(", "_L1)));
        track.setLabelText(present(tags.labels.join(", "_L1)));
        track.setBpm(tags.bpm);
        track.setKeyOrder(tags.key ? std::optional(tags.key->number * 2 + !tags.key->minor) : std::nullopt);
        track.setYear(tags.year);
        track.setTrackNumber(tags.trackNumber);
        track.setComment(present(tags.comment));
        track.setDuration(tags.duration);
        track.setSampleRate(tags.sampleRate);
        track.setChannels(tags.channels);
        track.setBitrate(tags.bitrate);
        track.setImportNotes(present(tags.notes.join(u'\n')));
        // Stars that the user gave here stay until the file itself says something new.
        if (track.isInserted() || track.fileRating() != tags.rating)
            track.setRating(tags.rating);
        track.setFileRating(tags.rating);

        const auto artists = m_artists.objects(tags.artists, setNameOf, error);
        const auto genres = m_genres.objects(tags.genres, setNameOf, error);
        const auto labels = m_labels.objects(tags.labels, setNameOf, error);
        track.setArtists(artists);
        track.setGenres(genres);
        track.setLabels(labels);
        track.setAlbum(albumOf(tags, error));
        track.setKey(keyOf(tags, error));
        m_touched += 3 + int(artists.size() + genres.size() + labels.size());
    }

    KXRef<Album> albumOf(const TrackTags &tags, KXError *error)
    {
        if (tags.album.isEmpty())
            return {};
        const QString key = TagValues::nameKey(tags.album) + u'\n' + TagValues::nameKey(tags.albumArtist);
        return m_albums.object(
            key,
            [&](Album &album) {
                album.setTitle(tags.album);
                album.setArtistText(tags.albumArtist);
            },
            error);
    }

    KXRef<Key> keyOf(const TrackTags &tags, KXError *error)
    {
        if (!tags.key)
            return {};
        return m_keys.object(
            TagValues::nameKey(tags.key->name()),
            [&](Key &key) {
                key.setName(tags.key->name());
                key.setNumber(tags.key->number);
                key.setIsMinor(tags.key->minor);
            },
            error);
    }

    void setMissing(const Known &known, bool missing)
    {
        const KXRef<Track> track = Track::cast(m_context->objectWithID(known.id));
        if (!track)
            return;
        track->setMissing(missing);
        ++(missing ? m_result.vanished : m_result.returned);
        if (++m_touched >= objectsPerSave)
            save();
    }

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
    NameIndex<Artist> m_artists;
    NameIndex<Album> m_albums;
    NameIndex<Genre> m_genres;
    NameIndex<Label> m_labels;
    NameIndex<Key> m_keys;
    const Importer::Stop &m_stop;
    const Importer::Progress &m_progress;
    Scan m_scan;
    std::unordered_map<std::string, Known> m_known; // by path
    ImportResult m_result;
    qint64 m_done = 0;
    qint64 m_total = 0;
    int m_touched = 0; // objects changed since the last save, roughly
    bool m_stopped = false;
    Clock::time_point m_lastSave = Clock::now();
    Clock::time_point m_lastProgress {};
};

} // namespace

Importer::Importer(KXManagedObjectContext::Ref context, std::string folder)
    : m_context(std::move(context))
    , m_folder(std::move(folder))
{
}

ImportResult Importer::run(const Stop &stop, const Progress &progress) const
{
    return Import(m_context, stop, progress).run(m_folder);
}
