#include "library/LibraryEditor.h"

#include <set>

#include <kestrixkit/foundation/KXUndoManager.h>

#include "crates/Crate.h"
#include "files/Sounds.h"
#include "import/LeftOutFiles.h"
#include "import/Scanner.h"
#include "import/TrackFilling.h"
#include "library/TrackNames.h"
#include "tags/TagValues.h"

using namespace Qt::StringLiterals;

namespace {

// A list of names as the file writes it, with one of them replaced: the first that stands there as a whole.
QString withNameReplaced(const QString &list, const QString &before, const QString &after)
{
    const QString framed = u", "_s + list + u", "_s;
    const qsizetype at = framed.indexOf(u", "_s + before + u", "_s, 0, Qt::CaseInsensitive);
    return at < 0 ? list : list.left(at) + after + list.mid(at + before.size());
}

} // namespace

bool LibraryEditor::rate(const QList<KXRef<Track>> &tracks, int stars)
{
    const int rating = std::clamp(stars, 0, 5);
    bool changed = false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Change Rating"));
        for (const KXRef<Track> &track : tracks) {
            if (track->rating().value_or(0) == rating)
                continue;
            track->setRating(rating > 0 ? std::optional(rating) : std::nullopt); // none is not zero, for sorting
            changed = true;
        }
    }
    return changed && save();
}

bool LibraryEditor::setField(const QList<KXRef<Track>> &tracks, TrackFields::Field field, const QString &text)
{
    const std::optional<TrackFields::Value> value = TrackFields::value(field, text);
    if (!value)
        return false;
    bool changed = false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Change %1").arg(TrackFields::name(field)));
        TrackNames names(*m_context);
        for (const KXRef<Track> &track : tracks) {
            if (!track || track->isDeleted() || TrackFields::has(*track, *value))
                continue;
            TrackFields::set(*track, *value, names);
            changed = true;
        }
    }
    return changed && save();
}

bool LibraryEditor::confirmAnalysed(const QList<KXRef<Track>> &tracks)
{
    bool changed = false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Confirm Tempo and Key"));
        for (const KXRef<Track> &track : tracks) {
            if (!track || track->isDeleted() || (!track->analysedBpm() && !track->analysedKey()))
                continue;
            track->setAnalysedBpm({});
            track->setAnalysedKey({});
            changed = true;
        }
    }
    return changed && save();
}

bool LibraryEditor::renameGenre(const KXRef<Genre> &genre, const QString &name)
{
    const QString before = genre->name(), after = name.simplified();
    if (before == after || !objectionToGenreName(genre, after).isEmpty())
        return false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Rename Genre"));
        genre->setName(after);
        for (const KXRef<Track> &track : genre->tracks()) {
            if (const auto text = track->genreText())
                track->setGenreText(withNameReplaced(*text, before, after));
        }
    }
    return save();
}

QString LibraryEditor::objectionToGenreName(const KXRef<Genre> &genre, const QString &name) const
{
    const QString key = TagValues::nameKey(name.simplified());
    if (key.isEmpty())
        return tr("A genre needs a name.");
    for (const KXRef<KXManagedObject> &object : m_context->fetchAllForEntity(QString(Genre::entityName))) {
        const KXRef<Genre> other = Genre::cast(object);
        if (other && other != genre && TagValues::nameKey(other->name()) == key)
            return tr("There is a genre “%1” already.").arg(other->name());
    }
    return {};
}

// Files

bool LibraryEditor::takeOut(KXManagedObjectContext &context, const QList<KXRef<KXManagedObject>> &tracks)
{
    std::set<qint64> sounds;
    QList<KXRef<KXManagedObject>> there;
    for (const KXRef<KXManagedObject> &object : tracks) {
        const KXRef<Track> track = Track::cast(object);
        if (!track || track->isDeleted() || track->isMissing())
            continue;
        if (track->copies())
            sounds.insert(track->soundHash().value_or(0));
        LeftOutFiles::add(*track);
        there.append(object);
    }
    context.deleteObjects(there);
    Sounds::recount(context, sounds);
    return !there.isEmpty();
}

bool LibraryEditor::remove(const QList<KXRef<Track>> &tracks)
{
    bool changed = false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Remove from Library"));
        changed = takeOut(*m_context, { tracks.begin(), tracks.end() });
    }
    return changed && save();
}

bool LibraryEditor::relocate(const KXRef<Track> &track, const FoundFile &file)
{
    if (!track || track->isDeleted() || !file.tags)
        return false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Locate File"));
        const QUrl location = urlOfPath(file.file.path);
        const auto ofFile = KXPredicate::predicateWithFormat("location == %@", location);
        for (const KXRef<Track> &other : Track::findUsingPredicate(ofFile, *m_context)) {
            if (other && other != track)
                unite(track, other);
        }
        const std::set<qint64> sounds { track->soundHash().value_or(0), file.sound.hash };
        track->setLocation(location);
        track->setFileSize(file.file.size);
        track->setFileModified(file.file.modified);
        track->setMissing(false);
        if (likenessOf(*track, file) != FileLikeness::Same)
            TrackFields::forgetAnalysed(*track);
        TrackFilling::setFacts(*track, *file.tags);
        track->setFileTags(TrackFields::marks(*file.tags));
        Sounds::set(*track, file.sound);
        Sounds::recount(*m_context, sounds);
    }
    return save();
}

void LibraryEditor::unite(const KXRef<Track> &track, const KXRef<Track> &other)
{
    QList<KXRef<Crate>> crates;
    for (const KXRef<CrateEntry> &entry : track->crateEntries())
        crates.append(entry->crate());
    for (const KXRef<CrateEntry> &entry : other->crateEntries()) {
        if (!crates.contains(entry->crate()))
            entry->setTrack(track);
    }
    if (!track->rating())
        track->setRating(other->rating());
    if (!track->comment())
        track->setComment(other->comment());
    m_context->removeManagedObject(other);
}
