#pragma once

#include <optional>
#include <span>
#include <vector>

#include <QHash>

#include <kestrixkit/context/KXManagedObjectContext.h>

/// The entity that says what is in which list, and where: one object for each member of each list.
struct KXMembership
{
    QString entityName;
    QString listKey; ///< its to-one relationship to the list
    QString memberKey; ///< its to-one relationship to the member, whose inverse is a to-many one
    QString positionKey; ///< a required attribute of 64 bits; numbers of one list with gaps between them
};

/// Lists that hold each object once and in an order that the user makes: crates of tracks, queues, favourites.
///
/// What is asked for becomes ordinary changes of the context: they can be undone, merge with those of other contexts
/// and are saved with everything else. Nothing here groups them, and nothing but appendAndSave() saves them: a caller
/// who names a step to undo does. New
/// members get numbers between those of their neighbours, so that a drop into a long list writes the dropped ones
/// alone; where there is no room left, some neighbours are pushed along. Contexts that add the same object at once
/// leave two entries, of which the first counts; the other goes with the next change in their neighbourhood.
///
///     const KXOrderedMembership crates(context, { u"Entry"_s, u"crate"_s, u"track"_s, u"position"_s });
///     list->setRequest(KXFetchRequest(u"Track"_s, crates.predicate(crate)).setSortDescriptors({ crates.order(crate)
///     }));
///
/// With an index of the list's relationship that goes on with the position (KXPropertyDescription::indexedWith()) the
/// ends of a long list are found at once. Belongs to the thread of its context, which it keeps. Null lists, lists that
/// are gone and keys that name no member are nobody's: they are skipped.
class KX_CORE_EXPORT KXOrderedMembership
{
public:
    /// Throws KXException where the model has no such entity, properties or inverse.
    KXOrderedMembership(KXManagedObjectContext::Ref context, KXMembership membership);

    /// Lets the members of the list through.
    [[nodiscard]] KXPredicate predicate(const KXManagedObjectID &list) const;
    /// Sorts members as the list has them.
    [[nodiscard]] KXSortDescriptor order(const KXManagedObjectID &list) const;

    /// Keys of the members in their order.
    [[nodiscard]] std::vector<qint64> members(const KXManagedObjectID &list) const;
    [[nodiscard]] qint64 count(const KXManagedObjectID &list) const;
    /// All lists that have the object, each once, in no particular order.
    [[nodiscard]] QList<KXRef<KXManagedObject>> listsOf(const KXManagedObjectID &member) const;

    /// Puts those behind the last member that are not in the list yet, in the given order; the others stay where they
    /// are. Answers how many came.
    qsizetype append(const KXManagedObjectID &list, std::span<const qint64> members);
    /// The same, and saves: at once for very many members, whose entries are written as rows of the store and are not
    /// objects before somebody asks for them. It is undone as any other change, which is unsaved then. What the context
    /// has unsaved is saved before, on its own. Objects are made, and saved, where a row would not do: in child
    /// contexts, where the class of the entries has an awakeFromInsert(), where an attribute of theirs must be given
    /// first, and where the entity of the entries or that of the members has others below or above it. 0 with an error
    /// where nothing could be saved; objects are unsaved then.
    qsizetype appendAndSave(const KXManagedObjectID &list, std::span<const qint64> members, KXError *error = nullptr);
    /// Puts them in front of a member (0: behind the last one), in the given order, wherever they were in the list
    /// before. Answers how many were not in it.
    qsizetype insert(const KXManagedObjectID &list, std::span<const qint64> members, qint64 before = 0);
    /// Answers how many were in the list.
    qsizetype remove(const KXManagedObjectID &list, std::span<const qint64> members);

private:
    using Object = KXRef<KXManagedObject>;
    struct Place;
    class Rows;

    static constexpr qint64 endStep = 1 << 20; // between members that come behind the last one
    static constexpr qint64 endLimit = qint64(1) << 61; // positions beyond it are nobody's doing

    [[nodiscard]] Object living(const KXManagedObjectID &list) const;
    [[nodiscard]] std::vector<qint64> distinct(std::span<const qint64> members) const;
    [[nodiscard]] std::vector<qint64> candidates(const KXManagedObjectID &list, std::span<const qint64> members) const;
    [[nodiscard]] KXFetchedList fetchEntries(const KXPredicate &predicate, bool ascending, qint64 limit = 0) const;
    [[nodiscard]] QHash<qint64, QList<Object>> entries(
        const KXManagedObjectID &list, std::span<const qint64> members) const;
    [[nodiscard]] KXPredicate ofList(
        const KXManagedObjectID &list, KXPredicateOperator comparison, qint64 position) const;
    [[nodiscard]] qint64 memberOf(const Object &entry) const;
    [[nodiscard]] qint64 position(const Object &entry) const;
    void setPosition(const Object &entry, qint64 position) const;
    [[nodiscard]] std::optional<Place> placeBefore(
        const KXManagedObjectID &list, qint64 before, const QSet<qint64> &moved) const;
    void renumber(const KXManagedObjectID &list);
    [[nodiscard]] bool isInPlace(const std::vector<Object> &entries, Place &place) const;
    void spread(const std::vector<Object> &entries, Place &place) const;
    qsizetype put(
        const Object &list, const std::vector<qint64> &members, QHash<qint64, QList<Object>> present, qint64 before);
    std::vector<Object> makeEntries(const Object &list, std::span<const qint64> members);
    [[nodiscard]] std::optional<qsizetype> appendRows(
        const Object &list, const std::vector<qint64> &members, KXError *error);

    const KXManagedObjectContext::Ref m_context;
    const KXMembership m_membership;
    const KXPropertyDescription *m_list;
    const KXPropertyDescription *m_member;
    const KXPropertyDescription *m_position;
};
