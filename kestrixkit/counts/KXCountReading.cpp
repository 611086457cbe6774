// What a table of counts reads: columns from the store, and over them what is unsaved in the context.

#include <kestrixkit/counts/KXCountTable_p.h>

#include <algorithm>
#include <numeric>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/counts/KXCountFiller_p.h>
#include <kestrixkit/counts/KXCountSecondReader_p.h>

namespace {

/// A row that is looked for by its key takes longer than one of many that are read one after the other.
constexpr qint64 countCostOfArrival = 4;

/// Members of a to-many relationship come by their object's key.
struct CountMembers
{
    qint64 object;
    qint64 member;
};

/// Rows up to somewhere by `take`, and those behind by the second reader.
template <typename Take, typename RowFor>
KXError countReadByTwo(KXRowReader &reader, KXRowReader &second, const KXEntityDescription &entity,
    const KXRowReader::Properties &properties, KXRowReader::KeyRange range, const std::vector<KXCountColumn *> &into,
    Take &&take, RowFor &&rowFor)
{
    KXCountParts parts(range);
    KXCountSecondReader behind(second, entity, properties, parts);
    while (const auto part = parts.takeFirst()) {
        if (const KXError problem = reader.rowsWithin(entity, properties, *part, take)) {
            parts.close();
            return problem;
        }
    }
    return behind.finish(into, rowFor);
}

}

/// The rows of the keys, or all; `addsRows` with those that the table does not have yet.
bool KXCountTable::read(const std::vector<size_t> &columns, const std::vector<qint64> *keys, bool addsRows,
    KXError *error, const std::atomic<bool> *stop)
{
    KXRowReader reader = KXContextRows(m_context).reader(error);
    if (!reader)
        return false;
    if (stop)
        reader.stopWhen(*stop);
    std::vector<KXCountColumn *> wanted;
    KXRowReader::Properties properties;
    for (const size_t column : columns) {
        if (m_columns[column]->property().hasColumn()) {
            wanted.push_back(m_columns[column].get());
            properties.push_back(&m_columns[column]->property());
        }
    }
    KXCountFiller filler(wanted);
    const auto rowFor = [&](qint64 key) {
        const qint64 row = m_hasRows ? rowOf(key) : -1;
        // New, or buried because it is read again. What the context has not heard of yet is left out.
        return addsRows && !has(row) ? qint64(addRow(key)) : row;
    };
    const auto take = [&](qint64 key, const auto &values) {
        if (const qint64 row = rowFor(key); row >= 0)
            filler.fill(size_t(row), values);
    };
    using KeyRange = KXRowReader::KeyRange;
    const KeyRange range = keys ? KeyRange { 0, -1 } : reader.keyRange(m_entity).value_or(KeyRange { 0, -1 });
    std::optional<KXRowReader> second;
    if (range.first >= 0 && range.last - range.first >= countFewestForTwo && std::thread::hardware_concurrency() > 1)
        second.emplace(KXContextRows(m_context).store());
    if (second && stop)
        second->stopWhen(*stop);
    // Both must read the same state of the store.
    const qint64 change = second && *second ? reader.changeNumber() : 0;
    const KXError problem = change != 0 && second->changeNumber() == change
        ? countReadByTwo(reader, *second, m_entity, properties, range, wanted, take, rowFor)
        : reader.rows(m_entity, properties, keys, take);
    if (problem)
        return KXSetError(error, problem);
    m_hasRows = true;
    for (const size_t column : columns) {
        if (!m_columns[column]->property().hasColumn() && !readMembers(reader, column, keys, error))
            return false;
    }
    return true;
}

bool KXCountTable::readMembers(KXRowReader &reader, size_t column, const std::vector<qint64> *keys, KXError *error)
{
    for (const qint64 key : keys ? *keys : std::vector<qint64>()) {
        if (const qint64 row = rowOf(key); row >= 0)
            m_columns[column]->setKeys(size_t(row), {});
    }
    std::vector<CountMembers> members;
    const auto take = [&members](qint64 object, qint64 member) { members.push_back({ object, member }); };
    if (const KXError problem = reader.links(m_entity, { &m_columns[column]->property() }, keys, take))
        return KXSetError(error, problem);
    std::sort(members.begin(), members.end(), [](const CountMembers &a, const CountMembers &b) {
        return a.object != b.object ? a.object < b.object : a.member < b.member;
    });
    std::vector<qint64> together;
    for (size_t i = 0; i < members.size(); ++i) {
        together.push_back(members[i].member);
        if (i + 1 < members.size() && members[i + 1].object == members[i].object)
            continue;
        if (const qint64 row = rowOf(members[i].object); row >= 0)
            m_columns[column]->setKeys(size_t(row), together);
        together.clear();
    }
    return true;
}

KXCountTable::Unsaved KXCountTable::unsaved() const
{
    return { m_context.insertedObjects(), m_context.updatedObjects(), m_context.deletedObjects() };
}

/// What is unsaved here the store does not know, nor what was when it was read.
void KXCountTable::overlay(const std::vector<size_t> &columns, bool rowsToo, const Unsaved &before)
{
    const KXContextRows rows(m_context);
    const auto take = [&](const KXRef<KXManagedObject> &object, bool adds) {
        const qint64 key = object->objectID().key();
        if (!object->entity()->isKindOf(&m_entity) || rows.held(key) != object.get() || object->isDeleted())
            return; // what became of it is told, or was
        if (adds)
            addRow(key);
        const qint64 row = rowOf(key);
        for (const size_t column : has(row) ? columns : std::vector<size_t>())
            setFromObject(size_t(row), object.get(), column);
    };
    const Unsaved now = unsaved();
    for (const KXRef<KXManagedObject> &object : before.inserted + now.inserted)
        take(object, rowsToo);
    for (const KXRef<KXManagedObject> &object : before.updated + now.updated)
        take(object, false);
    for (const KXRef<KXManagedObject> &object : before.deleted + now.deleted) {
        if (const qint64 row = rowOf(object->objectID().key()); rowsToo && has(row))
            bury(size_t(row));
    }
}

void KXCountTable::holdUnsaved() { m_unsaved = unsaved(); }

bool KXCountTable::hasMoreToDo(qint64 rows)
{
    if (m_isSettled)
        return false;
    if (qint64(m_arrivals.size()) * countCostOfArrival > std::max<qint64>(0, rows))
        return true;
    const bool isAllRead
        = m_hasRows && std::all_of(m_isRead.begin(), m_isRead.end(), [](bool isRead) { return isRead; });
    if (isAllRead && std::all_of(m_rules.begin(), m_rules.end(), [](const Rule &rule) {
            return isSettled(rule) || !rule.reason.isEmpty();
        }))
        return false;
    if (m_hasRows)
        return qint64(m_keys.size()) > rows;
    KXRowReader reader = KXContextRows(m_context).reader();
    return reader && reader.hasMoreThan(m_entity, rows);
}

bool KXCountTable::readRows(KXError *error, const std::atomic<bool> *stop)
{
    m_reading.clear();
    std::vector<size_t> known;
    for (size_t i = 0; i < m_columns.size(); ++i)
        (m_isRead[i] ? known : m_reading).push_back(i);
    m_isReadingRows = !m_hasRows;
    if (!m_arrivals.empty()) {
        for (const size_t column : known)
            m_columns[column]->putOffReading();
        if (!read(known, &m_arrivals, true, error, stop))
            return false;
    }
    if (m_hasRows && m_reading.empty())
        return true;
    for (const size_t column : m_reading)
        m_columns[column]->putOffReading();
    return read(m_reading, nullptr, m_isReadingRows, error, stop);
}

bool KXCountTable::joinContext(KXError *error)
{
    if (!m_missed && !(m_reading.empty() && !m_isReadingRows && m_arrivals.empty()))
        joinContext();
    const KXError missed = std::exchange(m_missed, {});
    return !missed || KXSetError(error, missed);
}

void KXCountTable::joinContext()
{
    const Unsaved before = std::exchange(m_unsaved, {});
    overlay(m_reading, std::exchange(m_isReadingRows, false), before);
    for (const size_t column : m_reading) {
        m_isRead[column] = true;
        m_orders.erase(column);
    }
    if (!m_arrivals.empty()) {
        overlayArrivals(before);
        m_reading.resize(m_columns.size());
        std::iota(m_reading.begin(), m_reading.end(), 0);
    }
    readSets(std::exchange(m_reading, {}));
}

/// Most of what has arrived nobody here has touched: it is as it was read.
void KXCountTable::overlayArrivals(const Unsaved &before)
{
    const KXContextRows rows(m_context);
    QSet<const KXManagedObject *> touched;
    const Unsaved now = unsaved();
    for (const auto *list : { &before.inserted, &before.updated, &now.inserted, &now.updated }) {
        for (const KXRef<KXManagedObject> &object : *list)
            touched.insert(object.get());
    }
    for (const qint64 key : m_arrivals) {
        const qint64 row = rowOf(key);
        if (!has(row))
            continue; // gone meanwhile
        KXManagedObject *object = rows.held(key);
        const bool isTouched = object && touched.contains(object) && !object->isDeleted();
        for (size_t column = 0; column < m_columns.size(); ++column) {
            if (isTouched)
                setFromObject(size_t(row), object, column);
            noteOrder(column, size_t(row));
        }
    }
}

/// Looks up what the paths of relationships reach, the objects of all sets at once.
void KXCountTable::readSets(const std::vector<size_t> &columns)
{
    for (const size_t column : columns) {
        KXCountColumn &values = *m_columns[column];
        if (values.kind() != KXCountColumn::Kind::Relation)
            continue;
        if (values.pathCount() > 0)
            fillRelated(*values.property().destinationEntity(), values.newKeys());
        values.readSets();
    }
}

/// What it cannot read looks as if it had no values, so that what is made of it is no good.
void KXCountTable::fillRelated(const KXEntityDescription &entity, const std::vector<qint64> &keys)
{
    if (KXError problem = KXContextRows(m_context).fill(entity, keys)) {
        m_missed = problem;
        m_isSettled = false;
    }
}

QVariant KXCountTable::objects(const KXPropertyDescription &relationship, const std::vector<qint64> &keys)
{
    const KXContextRows rows(m_context);
    fillRelated(*relationship.destinationEntity(), keys);
    if (relationship.isToOne())
        return keys.empty() ? QVariant()
                            : KXVariantFromRef(rows.object(*relationship.destinationEntity(), keys.front()));
    QVariantList list;
    for (const qint64 key : keys) {
        // Nothing tells a relationship without inverse that a member was deleted.
        const KXRef<KXManagedObject> member = rows.object(*relationship.destinationEntity(), key);
        if (member && (relationship.inverse() || !(member->isDeleted() || member->isMissing())))
            list.append(KXVariantFromRef(member));
    }
    return list;
}

bool KXCountTable::countByStore(KXError *error)
{
    bool answered = true;
    m_byStore.clear();
    for (size_t i = 0; i < m_rules.size(); ++i) {
        Rule &rule = m_rules[i];
        if (rule.isUsed && !rule.isCondition && !rule.reason.isEmpty())
            m_byStore.push_back(int(i));
        if (isSettled(rule) || rule.reason.isEmpty() || rule.isRefused)
            continue;
        const qint64 number = m_context.count(KXFetchRequest(m_entity.name(), rule.predicate), error);
        answered = answered && number >= 0;
        rule.isCounted = number >= 0;
        rule.count = number;
        noteChange(int(i));
    }
    return answered;
}
