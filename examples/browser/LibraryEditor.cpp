#include "LibraryEditor.h"

#include <kestrixkit/foundation/KXUndoManager.h>

#include "TagValues.h"

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

bool LibraryEditor::setComment(const QList<KXRef<Track>> &tracks, const QString &comment)
{
    bool changed = false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Change Comment"));
        for (const KXRef<Track> &track : tracks) {
            if (track->comment().value_or(QString()) == comment)
                continue;
            track->setComment(comment.isEmpty() ? std::nullopt : std::optional(comment));
            changed = true;
        }
    }
    return changed && save();
}

bool LibraryEditor::setValue(const KXRef<Track> &track, const QString &key, const QVariant &value, const QString &name)
{
    if (track->valueForKey(key) == value)
        return false;
    {
        const KXUndoGroup group(m_context->undoManager(), tr("Change %1").arg(name));
        track->setValueForKey(key, value);
    }
    return save();
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
