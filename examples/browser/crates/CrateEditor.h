#pragma once

#include <span>

#include <QCoreApplication>

#include "crates/Crate.h"

/// What the user does with crates. Each call is one step to undo, named after what it did, and is saved; what changes
/// nothing makes no step. Tracks are given by their keys, in the order in which they are to stand.
class CrateEditor
{
    Q_DECLARE_TR_FUNCTIONS(CrateEditor)
public:
    using Tracks = std::span<const qint64>;

    explicit CrateEditor(KXManagedObjectContext::Ref context);

    /// A crate, or a folder of such: last in the folder that is given or has the given crate, else last of all. Empty
    /// where the store takes none.
    KXRef<Crate> make(Crate::Kind kind, const KXRef<Crate> &beside, const QString &name = {}, Tracks tracks = {});
    /// Behind what is in the crate; tracks that are there stay where they are. Answers how many came.
    qsizetype add(const KXRef<Crate> &crate, Tracks tracks);
    /// In front of a track of the crate (0: last), wherever they were in it, and out of the crate that they come from
    /// where one is given that the user fills. False where nothing changed.
    bool move(const KXRef<Crate> &crate, Tracks tracks, qint64 before = 0, const KXRef<Crate> &from = {});
    bool remove(const KXRef<Crate> &crate, Tracks tracks);
    /// Takes the tracks out of the list of what is prepared where it has them all, else adds them to it.
    bool togglePrepared(Tracks tracks);
    /// Puts the track behind all that were played on that day. Cannot be undone.
    void notePlayed(qint64 track, const QDate &day);

    [[nodiscard]] const KXOrderedMembership &membership() const { return m_membership; }

private:
    template <typename Act> bool perform(const QString &name, Act &&act);
    qsizetype append(const Crate &crate, Tracks tracks);
    [[nodiscard]] KXRef<Crate> dayList(const QDate &day);

    const KXManagedObjectContext::Ref m_context;
    KXOrderedMembership m_membership;
};
