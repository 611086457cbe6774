#pragma once

#include <QDate>

#include <kestrixkit/context/KXOrderedMembership.h>
#include <kestrixkit/context/KXTreeObjectOf.h>

#include "library/Library.h"

class Crate;

/// A track's place in a crate.
class CrateEntry : public KXManagedObjectOf<CrateEntry>
{
public:
    static constexpr QLatin1StringView entityName { "CrateEntry" };
    KX_TO_ONE(Crate, crate, setCrate)
    KX_TO_ONE(Track, track, setTrack)
    KX_ATTRIBUTE(qint64, position, setPosition)
};

/// A list of tracks that the user fills, or a folder of such; an item of the source list. Beside those that the user
/// makes there are the list of what is prepared for the next set, and a list for each day on which something was
/// played.
class Crate : public KXTreeObjectOf<Crate>
{
public:
    static constexpr QLatin1StringView entityName { "Crate" };
    /// Stored: new ones at the end.
    enum class Kind : int { Plain = 0, Folder = 1, Prepare = 2, History = 3, Day = 4 };

    KX_ATTRIBUTE(QString, name, setName)
    KX_ATTRIBUTE(Kind, kind, setKind)
    KX_ATTRIBUTE(std::optional<QString>, day, setDay) ///< of a Day, as ISO 8601 writes it
    KX_ATTRIBUTE(bool, expanded, setExpanded)

    /// A folder, the user's or that of the days.
    [[nodiscard]] bool isFolder() const { return kind() == Kind::Folder || kind() == Kind::History; }
    /// Whether the user says what is in it.
    [[nodiscard]] bool isFilledByUser() const { return kind() == Kind::Plain || kind() == Kind::Prepare; }
    /// Whether the user made it, and may rename, move and delete it.
    [[nodiscard]] bool isOfUser() const { return kind() == Kind::Plain || kind() == Kind::Folder; }
    [[nodiscard]] bool isDeletable() const { return isOfUser() || kind() == Kind::Day; }
    /// It and what is below it that holds tracks.
    [[nodiscard]] QList<KXRef<Crate>> lists() const;

    /// Kept in memory; observable.
    [[nodiscard]] qint64 count() const { return m_count; }
    void setCount(qint64 count);

    // As an item of the source list.

    [[nodiscard]] QString title() const override;
    [[nodiscard]] bool isExpandable() const override { return isFolder(); }
    [[nodiscard]] bool isEditable() const override { return isOfUser(); }
    [[nodiscard]] bool canBeRepositioned() const override { return isOfUser(); }
    [[nodiscard]] bool canBeParentForItem(const KXSourceListItem *) const override { return kind() == Kind::Folder; }
    [[nodiscard]] std::optional<qint64> countForContextIdentifier(const QString &) const override { return m_count; }
    [[nodiscard]] QStringList badgeKeys() const override { return { QStringLiteral("count") }; }
    /// That of all crates: what is dropped on them.
    [[nodiscard]] KXSourceListItemController *controller() const override { return s_controller; }
    static void setSharedController(KXSourceListItemController *controller) { s_controller = controller; }
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;

private:
    qint64 m_count = 0;
    static KXSourceListItemController *s_controller;
};

/// The crates of a library.
namespace Crates {

void registerEntities();
[[nodiscard]] QList<KXEntityDescription> entities();
/// Which tracks are in which crate, and where.
[[nodiscard]] KXOrderedMembership membership(const KXManagedObjectContext::Ref &context);
/// The tracks of a crate, or of all in a folder.
[[nodiscard]] KXPredicate predicate(const Crate &crate);
/// The crates in which the track is and that the user fills, by name.
[[nodiscard]] QList<KXRef<Crate>> cratesOf(const Track &track);
/// Empty where there is none: makeFixed() makes the first two.
[[nodiscard]] KXRef<Crate> fixed(KXManagedObjectContext &context, Crate::Kind kind);
/// Makes the list of what is prepared, and the folder of the days, where they are missing; no step to undo.
void makeFixed(KXManagedObjectContext &context);

} // namespace Crates
