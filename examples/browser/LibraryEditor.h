#pragma once

#include <QCoreApplication>

#include <kestrixkit/context/KXManagedObjectContext.h>

#include "Library.h"

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
    bool setComment(const QList<KXRef<Track>> &tracks, const QString &comment);
    /// Any other property; an invalid value takes it away. The name is that of the property, for the step.
    bool setValue(const KXRef<Track> &track, const QString &key, const QVariant &value, const QString &name);
    /// The tracks show the new name in the old one's place.
    bool renameGenre(const KXRef<Genre> &genre, const QString &name);
    /// Why a genre cannot have the name; empty where it can.
    [[nodiscard]] QString objectionToGenreName(const KXRef<Genre> &genre, const QString &name) const;

    /// Saves what was undone or redone since the last change.
    bool save() { return m_context->save(); }

private:
    KXManagedObjectContext::Ref m_context;
};
