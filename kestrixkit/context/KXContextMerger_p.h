#pragma once

#include <list>
#include <vector>

#include <kestrixkit/context/KXChangesTogether_p.h>
#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/store/KXStoreChange.h>

/// What somebody else has saved is being taken over: what of it the context holds becomes what was saved, around its
/// own unsaved edits. Of one merge, or of the end of a save that met others' saves. What has become of the objects is
/// told at the end, when all are in place.
class KXContextMerger
{
public:
    explicit KXContextMerger(KXManagedObjectContextPrivate &context)
        : m_context(context)
    {
    }

    /// One save of another context, as the change feed brings it. `isLate`: a later one was merged before it.
    void merge(const KXStoreChange &change, bool isLate);
    /// Tells observers of the objects, then those of the context.
    void tell();

    // For the end of a save.

    /// A row of which the context holds the object with its values, and what was saved of it.
    struct HeldRow
    {
        KXRef<KXManagedObject> object;
        const KXRowChange *news;
    };
    /// Makes the rows what was saved of them, around the context's own unsaved edits. Of those of which the context
    /// knew an older state than the save before, the store tells.
    void takeOver(std::vector<HeldRow> rows);
    /// Sets an attribute of which the store tells.
    void takeAttribute(KXManagedObject *object, const KXPropertyDescription &property, const KXRowValues &from);
    /// Sets a to-one relationship of which the store tells, and what is in memory of its far ends.
    void takeToOne(KXManagedObject *object, const KXPropertyDescription &property, qint64 key);
    /// The to-many relationships of others hold an object no more whose row is gone.
    void leaveMembers(KXManagedObject *object);
    /// The same of all relationships of others.
    void dropLinks(KXManagedObject *object);
    /// The object's row is gone by somebody else's doing: it leaves the context, unsaved edits included.
    void vanish(const KXRef<KXManagedObject> &object);

private:
    // What comes out of order: KXContextMergerReading.cpp.
    [[nodiscard]] std::list<KXRowChange> readAgain(std::vector<HeldRow> &rows, bool isLate);
    void readColumnsAgain(KXManagedObject *object, KXRowChange &news);
    [[nodiscard]] bool hasComeBack(KXManagedObject *object, KXRowChange &row);
    void dropStaleMembers(const std::vector<KXEntityChange> &entities);

    /// A relationship that was led elsewhere.
    struct Led
    {
        KXRef<KXManagedObject> object;
        const KXPropertyDescription *property;
    };
    /// Keys of the other ends as far as they are in memory; 0 among them is nobody.
    [[nodiscard]] static QSet<qint64> knownEnds(const KXManagedObject *object, const KXPropertyDescription &property);
    [[nodiscard]] std::vector<HeldRow> heldRows(const std::vector<KXEntityChange> &entities) const;
    void takeOverRows(const std::vector<HeldRow> &rows);
    void mergeColumn(
        KXManagedObject *object, const KXPropertyChange &news, std::vector<Led> &partners, std::vector<Led> &moves);
    void mergeMembers(const KXRef<KXManagedObject> &object, const KXPropertyChange &news);
    void mergeMember(const KXRef<KXManagedObject> &object, const KXPropertyDescription &property, qint64 key, bool add);
    void keepContestedLinks(const std::vector<HeldRow> &rows);
    void keepContestedLink(const KXPropertyDescription &property, qint64 end, qint64 member, bool add);
    void keepContestedPartner(KXManagedObject *object, const KXPropertyDescription &property);
    void breakCircle(KXManagedObject *object, const KXPropertyDescription &property);
    void willChangeUnrecorded(KXManagedObject *object, const KXPropertyDescription &property);
    void noteRefreshed(KXManagedObject *object, const KXPropertyDescription &property);

    KXManagedObjectContextPrivate &m_context;
    KXObjectsDidChange m_did;
    QHash<const KXPropertyDescription *, QSet<QString>> m_alone; // what objects of which one property changed share
    KXChangesTogether m_together;
    std::vector<KXChangesTogether> m_takenBack; // moves
};
