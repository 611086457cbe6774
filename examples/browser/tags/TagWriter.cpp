#include "tags/TagWriter.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

#include <kestrixkit/audio/KXAudioFingerprint.h>
#include <kestrixkit/context/KXManagedObjectContext.h>

#include "import/TrackFilling.h"
#include "tags/SafeCopy.h"

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds writerSave(1); // between two saves

/// Names under which players look for a field, and the one under which it is written.
struct WriterNames
{
    const char *name;
    std::vector<const char *> others;
};

const WriterNames &writerNames(TrackFields::Field field)
{
    // In the order of the fields.
    static const WriterNames names[TrackFields::count] { { "TITLE", {} }, { "ARTIST", { "ARTISTS" } }, { "ALBUM", {} },
        { "GENRE", {} }, { "LABEL", { "ORGANIZATION", "PUBLISHER" } }, { "DATE", { "YEAR", "ORIGINALDATE" } },
        { "INITIALKEY", { "KEY" } }, { "BPM", { "TEMPO" } }, { "COMMENT", { "DESCRIPTION" } } };
    return names[int(field)];
}

TagChanges changesOf(const Track &track, const QList<TrackFields::Field> &fields)
{
    TagChanges changes;
    for (const TrackFields::Field field : fields) {
        const QString text = TrackFields::plainText(track, field);
        const WriterNames &names = writerNames(field);
        for (const char *other : names.others)
            changes.insert(QString::fromLatin1(other), {});
        const bool isList = field == TrackFields::Field::Genre || field == TrackFields::Field::Label;
        changes.insert(QString::fromLatin1(names.name),
            text.isEmpty() ? QStringList()
                : isList   ? TagValues::names({ text })
                           : QStringList { text });
    }
    return changes;
}

/// What the file says is not what was written, or is no more what it said of something else.
bool isAsWanted(const Track &track, const QList<TrackFields::Field> &fields, const TrackTags &tags)
{
    const QByteArray wanted = TrackFields::marks(track), says = TrackFields::marks(tags),
                     said = track.fileTags().value_or(QByteArray());
    return std::all_of(TrackFields::all().begin(), TrackFields::all().end(), [&](TrackFields::Field field) {
        return fields.contains(field) ? !TrackFields::differs(wanted, says, field)
                                      : said.isEmpty() || !TrackFields::differs(said, says, field);
    });
}

} // namespace

TagWriter::TagWriter(KXManagedObjectContext::Ref context)
    : m_context(std::move(context))
{
}

TagWriterResult TagWriter::run(const std::vector<qint64> &keys, const Stop &stop, const Progress &progress)
{
    using Clock = std::chrono::steady_clock;
    TagWriterResult result;
    Clock::time_point saved = Clock::now();
    const KXPersistentStoreCoordinator::Ref coordinator = m_context->persistentStoreCoordinator();
    for (size_t i = 0; i < keys.size() && !result.error; ++i) {
        if ((result.cancelled = stop && stop()))
            break;
        const KXRef<Track> track = Track::cast(m_context->objectWithID(KXManagedObjectID(
            coordinator->store()->identity(), coordinator->model()->entity(QString(Track::entityName)), keys[i])));
        if (!track || track->isMissing())
            continue;
        const QList<TrackFields::Field> fields = TrackFields::unwritten(*track);
        const QString problem = fields.isEmpty() ? QString() : write(*track, fields);
        if (!problem.isEmpty())
            result.failed.push_back({ displayPath(pathOfUrl(track->location())), problem });
        else
            ++(fields.isEmpty() ? result.unchanged : result.written);
        if (Clock::now() - saved > writerSave) {
            m_context->save(&result.error);
            saved = Clock::now();
        }
        if (progress)
            progress(qint64(i) + 1, qint64(keys.size()));
    }
    if (!result.error)
        m_context->save(&result.error);
    return result;
}

/// Empty where it was written, else why it was not.
QString TagWriter::write(Track &track, const QList<TrackFields::Field> &fields)
{
    SafeCopy copy(pathOfUrl(track.location()));
    if (copy.folder() != std::exchange(m_folder, copy.folder()))
        SafeCopy::removeLeftOvers(m_folder);
    if (!copy.make())
        return copy.problem();
    const TagReading reading = m_readers.change(copy.path(), changesOf(track, fields));
    if (!reading.tags)
        return reading.refusal;
    if (!isAsWanted(track, fields, *reading.tags))
        return u"cannot be written: this kind of file does not hold all of it"_s;
    const auto sound = KXAudioFingerprint::ofFile(urlOfPath(copy.original()));
    if (sound.isEmpty() || KXAudioFingerprint::ofFile(urlOfPath(copy.path())) != sound)
        return u"cannot be written: its sound would not be the same"_s;
    if (!copy.replaceOriginal())
        return copy.problem();
    const Scan scan = scanFiles({ copy.original() });
    if (!scan.files.empty()) {
        track.setFileSize(scan.files.front().size);
        track.setFileModified(scan.files.front().modified);
    }
    track.setFileTags(TrackFields::marks(*reading.tags));
    TrackFilling::setFacts(track, *reading.tags);
    return {};
}
