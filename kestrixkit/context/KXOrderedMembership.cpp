#include <kestrixkit/context/KXOrderedMembership.h>

#include <algorithm>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 membershipRoom = 1 << 10; // between those that were pushed along

const KXPropertyDescription *membershipProperty(
    const KXEntityDescription &entity, const QString &key, bool isFine(const KXPropertyDescription &))
{
    const KXPropertyDescription *const property = entity.property(key);
    if (!property || !isFine(*property))
        throw KXException(QString(KXInvalidArgumentException),
            KXStringWithFormat("\"%@\" of \"%@\" cannot be used for members of lists", key, entity.name()));
    return property;
}

}

/// A gap between two entries.
struct KXOrderedMembership::Place
{
    std::optional<qint64> low; ///< position of the one before; absent at the beginning
    std::vector<Object> behind; ///< nearest first; read as far as it was asked for
    KXFetchedList rest; ///< what may be behind
    qsizetype next = 0; ///< the first of it that was not looked at
    QSet<qint64> moved; ///< entries that go elsewhere

    /// The entry so many places behind the gap; empty behind the end.
    Object at(size_t index)
    {
        while (behind.size() <= index && next < rest.size()) {
            if (const qint64 key = rest.key(next); !moved.contains(key))
                behind.push_back(rest.at(next));
            ++next;
        }
        return index < behind.size() ? behind[index] : Object();
    }
};

KXOrderedMembership::KXOrderedMembership(KXManagedObjectContext::Ref context, KXMembership membership)
    : m_context(std::move(context))
    , m_membership(std::move(membership))
{
    const KXEntityDescription &entity = KXManagedObjectContextPrivate::of(*m_context).entity(m_membership.entityName);
    const auto isToOne = [](const KXPropertyDescription &property) { return property.isToOne(); };
    m_list = membershipProperty(entity, m_membership.listKey, isToOne);
    m_member = membershipProperty(entity, m_membership.memberKey, [](const KXPropertyDescription &property) {
        return property.isToOne() && property.inverse() && property.inverse()->isToMany();
    });
    m_position = membershipProperty(entity, m_membership.positionKey, [](const KXPropertyDescription &property) {
        return property.isAttribute() && property.type() == KXAttributeType::Integer64;
    });
}

// Asking

KXPredicate KXOrderedMembership::predicate(const KXManagedObjectID &list) const
{
    if (list.isNull())
        return KXPredicate::falsePredicate();
    return KXPredicate::comparison(m_member->inverse()->name() + u'.' + m_membership.listKey,
        KXPredicateOperator::Equal, QVariant::fromValue(list), KXPredicateModifier::Any);
}

KXSortDescriptor KXOrderedMembership::order(const KXManagedObjectID &list) const
{
    return { .key = m_member->inverse()->name() + u'.' + m_membership.positionKey,
        .absentLast = true,
        .memberKey = m_membership.listKey,
        .member = list };
}

std::vector<qint64> KXOrderedMembership::members(const KXManagedObjectID &list) const
{
    if (list.isNull())
        return {};
    return m_context
        ->fetch(
            KXFetchRequest(m_member->destinationEntity()->name(), predicate(list)).setSortDescriptors({ order(list) }))
        .keys();
}

qint64 KXOrderedMembership::count(const KXManagedObjectID &list) const
{
    return list.isNull() ? 0 : m_context->countForEntity(m_member->destinationEntity()->name(), predicate(list));
}

QList<KXRef<KXManagedObject>> KXOrderedMembership::listsOf(const KXManagedObjectID &member) const
{
    QList<Object> lists;
    const Object object = m_context->objectWithID(member);
    if (!object || object->isMissing())
        return lists;
    for (const Object &entry : object->objectsForKey(m_member->inverse()->name())) {
        const Object list = KXManagedObjectContextPrivate::of(*m_context).reader.toOne(entry.get(), *m_list);
        if (list && !lists.contains(list))
            lists.append(list);
    }
    return lists;
}

// Lists

KXRef<KXManagedObject> KXOrderedMembership::living(const KXManagedObjectID &list) const
{
    const Object object = list.isNull() ? Object() : m_context->objectWithID(list);
    return object && !object->isDeleted() && !object->isMissing()
            && object->entity()->isKindOf(m_list->destinationEntity())
        ? object
        : Object();
}

std::vector<qint64> KXOrderedMembership::distinct(std::span<const qint64> members) const
{
    QSet<qint64> seen;
    std::vector<qint64> keys;
    std::copy_if(members.begin(), members.end(), std::back_inserter(keys),
        [&](qint64 key) { return key > 0 && !seen.contains(key) && (seen.insert(key), true); });
    return keys;
}

KXPredicate KXOrderedMembership::ofList(
    const KXManagedObjectID &list, KXPredicateOperator comparison, qint64 position) const
{
    return KXPredicate::andPredicate(
        { KXPredicate::comparison(m_membership.listKey, KXPredicateOperator::Equal, QVariant::fromValue(list)),
            KXPredicate::comparison(m_membership.positionKey, comparison, position) });
}

KXFetchedList KXOrderedMembership::fetchEntries(const KXPredicate &predicate, bool ascending, qint64 limit) const
{
    return m_context->fetch(KXFetchRequest(m_membership.entityName, predicate)
                                .setSortDescriptors({ { m_membership.positionKey, ascending } })
                                .setFetchLimit(limit));
}

// Places

/// The gap in front of a member, of entries that stay. Nothing where numbers do not tell where that is: where contexts
/// gave the same one at once, or where a file holds what nobody has put there.
std::optional<KXOrderedMembership::Place> KXOrderedMembership::placeBefore(
    const KXManagedObjectID &list, qint64 before, const QSet<qint64> &moved) const
{
    using Operator = KXPredicateOperator;
    Place place;
    place.moved = moved;
    const QList<Object> marks = before > 0 ? entries(list, std::span(&before, 1)).value(before) : QList<Object>();
    std::optional<qint64> right;
    if (!marks.isEmpty()) {
        right = position(marks.first());
        place.rest = fetchEntries(ofList(list, Operator::GreaterThanOrEqual, *right), true);
        if (m_context->countForEntity(m_membership.entityName, ofList(list, Operator::Equal, *right)) > 1)
            return {};
    }
    const KXPredicate ofLower = right
        ? ofList(list, Operator::LessThan, *right)
        : KXPredicate::comparison(m_membership.listKey, Operator::Equal, QVariant::fromValue(list));
    const KXFetchedList lower = fetchEntries(ofLower, false, moved.size() + 1);
    for (qsizetype i = 0; i < lower.size() && !place.low; ++i) {
        if (!moved.contains(lower.key(i)))
            place.low = position(lower.at(i));
    }
    for (const std::optional<qint64> &end : { place.low, right }) {
        if (end && std::abs(*end) > endLimit)
            return {};
    }
    return place;
}

/// Whether the entries lie in the gap in that order: whoever drops them where they are makes no step to undo.
bool KXOrderedMembership::isInPlace(const std::vector<Object> &entries, Place &place) const
{
    std::optional<qint64> low = place.low;
    for (const Object &entry : entries) {
        if (low && position(entry) <= *low)
            return false;
        low = position(entry);
    }
    const Object high = place.at(0);
    return !high || !low || *low < position(high);
}

/// Gives the entries numbers in the gap, and further ones to those behind it where it is too small.
void KXOrderedMembership::spread(const std::vector<Object> &entries, Place &place) const
{
    std::vector<Object> row = entries;
    Object high = place.at(0);
    qint64 room = 1;
    const auto isTight
        = [&] { return high && place.low && (position(high) - *place.low) / qint64(row.size() + 1) < room; };
    size_t pushed = 0;
    while (isTight()) {
        room = membershipRoom;
        const size_t more = std::max<size_t>(row.size(), 16);
        for (size_t i = 0; i < more && high; ++i) {
            row.push_back(high);
            high = place.at(++pushed);
        }
    }
    const auto count = qint64(row.size());
    const qint64 step = high && place.low ? (position(high) - *place.low) / (count + 1) : endStep;
    const qint64 low = place.low ? *place.low : high ? position(high) - step * (count + 1) : 0;
    for (qint64 i = 0; i < count; ++i)
        setPosition(row[size_t(i)], low + step * (i + 1));
}

/// Every member gets a number far from all others, in the order in which they are seen; second entries go.
void KXOrderedMembership::renumber(const KXManagedObjectID &list)
{
    const std::vector<qint64> all = members(list);
    const auto found = entries(list, all);
    qint64 next = 0;
    for (const qint64 key : all) {
        const QList<Object> own = found.value(key);
        for (qsizetype i = 0; i < own.size(); ++i) {
            if (i == 0)
                setPosition(own[i], next += endStep);
            else
                m_context->removeManagedObject(own[i]);
        }
    }
}

// Changing

qsizetype KXOrderedMembership::append(const KXManagedObjectID &list, std::span<const qint64> members)
{
    const Object owner = living(list);
    std::vector<qint64> coming = owner ? distinct(members) : std::vector<qint64>();
    if (coming.empty())
        return 0;
    const auto present = entries(list, coming);
    std::erase_if(coming, [&](qint64 key) { return present.contains(key); });
    return coming.empty() ? 0 : put(owner, coming, {}, 0);
}

qsizetype KXOrderedMembership::insert(const KXManagedObjectID &list, std::span<const qint64> members, qint64 before)
{
    const Object owner = living(list);
    const std::vector<qint64> wanted = owner ? distinct(members) : std::vector<qint64>();
    return wanted.empty() ? 0 : put(owner, wanted, entries(list, wanted), before);
}

/// Those of the members that are in the list already come with their entries.
qsizetype KXOrderedMembership::put(
    const Object &owner, const std::vector<qint64> &wanted, QHash<qint64, QList<Object>> present, qint64 before)
{
    const KXManagedObjectID list = owner->objectID();
    const auto movedOf = [&] {
        QSet<qint64> keys;
        for (const QList<Object> &each : std::as_const(present)) {
            for (const Object &entry : each)
                keys.insert(entry->objectID().key());
        }
        return keys;
    };
    std::optional<Place> place = placeBefore(list, before, movedOf());
    if (!place) {
        renumber(list);
        present = entries(list, wanted);
        place = placeBefore(list, before, movedOf());
        if (!place)
            return 0; // the store does not answer, which is logged
    }
    std::vector<qint64> coming;
    std::copy_if(
        wanted.begin(), wanted.end(), std::back_inserter(coming), [&](qint64 key) { return !present.contains(key); });
    std::vector<Object> made = makeEntries(owner, coming);
    for (const Object &entry : made)
        present[memberOf(entry)].append(entry);
    std::vector<Object> row;
    for (const qint64 key : wanted) {
        const QList<Object> own = present.value(key);
        for (qsizetype i = 0; i < own.size(); ++i) {
            if (i == 0)
                row.push_back(own[i]);
            else
                m_context->removeManagedObject(own[i]);
        }
    }
    if (!made.empty() || !isInPlace(row, *place))
        spread(row, *place);
    return qsizetype(made.size());
}

qsizetype KXOrderedMembership::remove(const KXManagedObjectID &list, std::span<const qint64> members)
{
    const std::vector<qint64> going = living(list) ? distinct(members) : std::vector<qint64>();
    if (going.empty())
        return 0;
    const auto found = entries(list, going);
    for (const qint64 key : going) {
        for (const Object &entry : found.value(key))
            m_context->removeManagedObject(entry);
    }
    return found.size();
}
