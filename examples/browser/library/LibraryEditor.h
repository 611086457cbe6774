#pragma once

#include <QCoreApplication>

#include <kestrixkit/context/KXManagedObjectContext.h>

#include "files/FoundFile.h"
#include "library/Library.h"
#include "library/TrackFields.h"

/// What the user changes in the library. Each call is one step to undo, named after what it did, and is saved; what
/// would change nothing makes no step. Undoing saves nothing: the next change does, or save().
class LibraryEditor
{
    Q_DECLARE_TR_FUNCTIONS(LibraryEditor)
public:
    explicit LibraryEditor(KXManagedObjectContext::Ref context)
        : m_context(std::move(context))
    {
    }

    /// stars from 0 (none) to 5. All of these answer false where nothing changed or could be saved.
    bool rate(const QList<KXRef<Track>> &tracks, int stars);
    /// Where the text makes no value of the field nothing changes.
    bool setField(const QList<KXRef<Track>> &tracks, TrackFields::Field field, const QString &text);
    /// Tempos and keys that were found by listening are right.
    bool confirmAnalysed(const QList<KXRef<Track>> &tracks);
    /// The tracks show the new name in the old one's place.
    bool renameGenre(const KXRef<Genre> &genre, const QString &name);
    /// Why a genre cannot have the name; empty where it can.
    [[nodiscard]] QString objectionToGenreName(const KXRef<Genre> &genre, const QString &name) const;

    /// Takes them out of the library. Their files stay, and imports leave them alone from then on.
    bool remove(const QList<KXRef<Track>> &tracks);
    /// The same for tracks of any context, which neither groups nor saves it. False where there were none.
    static bool takeOut(KXManagedObjectContext &context, const QList<KXRef<KXManagedObject>> &tracks);
    /// That file is the track's from now on; what the user knows of the track stays. Where it is another track's, both
    /// become one, which is in the crates of either.
    bool relocate(const KXRef<Track> &track, const FoundFile &file);

    /// Saves what was undone or redone since the last change.
    bool save() { return m_context->save(); }

private:
    void unite(const KXRef<Track> &track, const KXRef<Track> &other);

    KXManagedObjectContext::Ref m_context;
};
