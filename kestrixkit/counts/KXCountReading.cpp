// What a table of counts reads: columns from the store, and over them what is unsaved in the context.

#include <kestrixkit/counts/KXCountTable_p.h>

#include <algorithm>

#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXDecimal.h>

namespace {

using KeyIterator = std::vector<qint64>::const_iterator;

QByteArray countKeyList(const std::vector<qint64> &keys)
{
    QByteArray list = "[";
    for (const qint64 key : keys)
        list += QByteArray::number(key) + ',';
    if (list.size() > 1)
        list.chop(1);
    return list + ']';
}

/// Members of a to-many relationship come by their object's key.
struct CountMembers
{
    qint64 object;
    qint64 member;
    friend auto operator<=>(const CountMembers &, const CountMembers &) = default;
};

}

/// The rows of the keys, or all; `addsRows` with those that the table does not have yet.
bool KXCountTable::read(
    const std::vector<size_t> &columns, const std::vector<qint64> *keys, bool addsRows, KXError *error)
{
    KXPersistentStorePrivate *store = KXManagedObjectContextPrivate::of(m_context).store;
    if (!store)
        return KXSetError(error, KXManagedObjectContextPrivate::notOpen());
    QByteArray sql = "SELECT t0.kx_id";
    std::vector<KXCountColumn *> wanted;
    for (const size_t column : columns) {
        if (m_columns[column]->property().hasColumn()) {
            sql += ", t0." + m_columns[column]->property().column();
            wanted.push_back(m_columns[column].get());
        }
    }
    sql += " FROM " + m_entity.table() + " t0";
    QByteArrayList conditions;
    if (m_entity.hasDiscriminator()) {
        QByteArray numbers;
        for (const KXEntityDescription *member : m_entity.family())
            numbers += (numbers.isEmpty() ? "" : ",") + QByteArray::number(member->number());
        conditions.append("t0.kx_entity IN (" + numbers + ')');
    }
    // Rows that were inserted together lie together.
    const auto [lowest, highest]
        = keys ? std::minmax_element(keys->begin(), keys->end()) : std::pair<KeyIterator, KeyIterator>();
    const bool isDense = keys && *highest - *lowest < 2 * qint64(keys->size());
    const QSet<qint64> wantedKeys = isDense && *highest - *lowest + 1 != qint64(keys->size())
        ? QSet<qint64>(keys->begin(), keys->end())
        : QSet<qint64>();
    if (keys)
        conditions.append(isDense ? QByteArray("t0.kx_id BETWEEN ? AND ?")
                                  : QByteArray("t0.kx_id IN (SELECT value FROM json_each(?))"));
    if (!conditions.isEmpty())
        sql += " WHERE " + conditions.join(" AND ");
    sql += " ORDER BY t0.kx_id";

    const KXStoreConnections::Reader reader = store->connections.reader(error);
    if (!reader)
        return false;
    const KXReadTransaction transaction(*reader);
    KXStatement rows = reader->prepare(sql);
    if (!rows)
        return KXSetError(error, reader->lastError());
    const QByteArray list = keys && !isDense ? countKeyList(*keys) : QByteArray();
    if (isDense) {
        rows.bind(1, *lowest);
        rows.bind(2, *highest);
    } else if (keys) {
        rows.bindText(1, std::string_view(list.constData(), size_t(list.size())));
    }
    // Each text is looked at as a value once.
    std::vector<QHash<QByteArray, quint32>> known(wanted.size());
    int code;
    while ((code = rows.step()) == SQLITE_ROW) {
        const qint64 key = rows.integer(0);
        if (!wantedKeys.isEmpty() && !wantedKeys.contains(key))
            continue;
        qint64 row = m_hasRows ? rowOf(key) : -1;
        if (row < 0) {
            if (!addsRows)
                continue; // the context has not heard of it yet
            row = qint64(addRow(key));
        }
        for (size_t i = 0; i < wanted.size(); ++i) {
            KXCountColumn &column = *wanted[i];
            sqlite3_value *value = sqlite3_column_value(rows.get(), int(i) + 1);
            const bool isNull = sqlite3_value_type(value) == SQLITE_NULL;
            const KXPropertyDescription &property = column.property();
            if (column.kind() == KXCountColumn::Kind::Relation) {
                column.setKeys(
                    size_t(row), isNull ? std::vector<qint64>() : std::vector<qint64> { sqlite3_value_int64(value) });
            } else if (column.kind() == KXCountColumn::Kind::Number) {
                column.setNumber(size_t(row),
                    isNull ? KXCountColumn::absent
                        : property.type() == KXAttributeType::Double
                        ? KXCountColumn::numberFromDouble(sqlite3_value_double(value))
                        : sqlite3_value_int64(value));
            } else if (isNull) {
                column.setCode(size_t(row), 0);
            } else {
                const auto *utf8 = reinterpret_cast<const char *>(sqlite3_value_text(value));
                const qsizetype size = sqlite3_value_bytes(value);
                const auto found = known[i].constFind(QByteArray::fromRawData(utf8, size));
                if (found != known[i].constEnd()) {
                    column.setCode(size_t(row), *found);
                } else {
                    const QString text = QString::fromUtf8(utf8, size);
                    const quint32 number = column.codeOfValue(property.type() == KXAttributeType::Decimal
                            ? QVariant::fromValue(KXDecimal::fromString(text).value_or(KXDecimal()))
                            : QVariant(text));
                    known[i].insert(QByteArray(utf8, size), number);
                    column.setCode(size_t(row), number);
                }
            }
        }
    }
    if (code != SQLITE_DONE)
        return KXSetError(error, reader->lastError());
    rows = {};
    m_hasRows = true;
    for (const size_t column : columns) {
        if (!m_columns[column]->property().hasColumn() && !readMembers(column, keys, error))
            return false;
    }
    return true;
}

bool KXCountTable::readMembers(size_t column, const std::vector<qint64> *keys, KXError *error)
{
    const KXPropertyDescription &property = m_columns[column]->property();
    const QByteArray object = property.joinTable().isEmpty() ? property.inverse()->column() : property.joinSource();
    const QByteArray member = property.joinTable().isEmpty() ? QByteArray("kx_id") : property.joinTarget();
    const QByteArray table
        = property.joinTable().isEmpty() ? property.destinationEntity()->table() : property.joinTable();
    QByteArray sql = "SELECT " + object + ", " + member + " FROM " + table + " WHERE " + object
        + (keys ? QByteArray(" IN (SELECT value FROM json_each(?))") : QByteArray(" IS NOT NULL"));
    const KXStoreConnections::Reader reader
        = KXManagedObjectContextPrivate::of(m_context).store->connections.reader(error);
    if (!reader)
        return false;
    KXStatement rows = reader->prepare(sql);
    if (!rows)
        return KXSetError(error, reader->lastError());
    const QByteArray list = keys ? countKeyList(*keys) : QByteArray();
    if (keys) {
        rows.bindText(1, std::string_view(list.constData(), size_t(list.size())));
        for (const qint64 key : *keys) {
            if (const qint64 row = rowOf(key); row >= 0)
                m_columns[column]->setKeys(size_t(row), {});
        }
    }
    std::vector<CountMembers> members;
    int code;
    while ((code = rows.step()) == SQLITE_ROW)
        members.push_back({ rows.integer(0), rows.integer(1) });
    if (code != SQLITE_DONE)
        return KXSetError(error, reader->lastError());
    rows = {};
    std::sort(members.begin(), members.end());
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

/// What is unsaved here the store does not know.
void KXCountTable::overlay(const std::vector<size_t> &columns, bool rowsToo)
{
    KXManagedObjectContextPrivate &context = KXManagedObjectContextPrivate::of(m_context);
    const auto take = [&](KXManagedObject *object) {
        if (!object->entity()->isKindOf(&m_entity))
            return;
        const qint64 row = rowOf(object->objectID().key());
        for (const size_t column : has(row) ? columns : std::vector<size_t>())
            setFromObject(size_t(row), object, column);
    };
    for (const KXContextHold &object : context.ledger.insertions()) {
        if (!object->isInserted())
            continue;
        if (rowsToo && object->entity()->isKindOf(&m_entity))
            addRow(object->objectID().key());
        take(object.get());
    }
    for (const auto &[object, change] : context.ledger.changes()) {
        if (object->isUpdated())
            take(object);
    }
    for (const KXContextHold &object : context.ledger.deletions()) {
        if (const qint64 row = rowOf(object->objectID().key()); rowsToo && has(row))
            bury(size_t(row));
    }
}

bool KXCountTable::readAll(const std::vector<size_t> &columns, KXError *error)
{
    const bool isFirst = !m_hasRows;
    for (const size_t column : columns)
        m_columns[column]->putOffReading();
    const bool wasRead = read(columns, nullptr, isFirst, error);
    if (wasRead) {
        overlay(columns, isFirst);
        for (const size_t column : columns) {
            m_isRead[column] = true;
            m_orders.erase(column);
        }
    }
    readSets(columns);
    return wasRead;
}

/// Looks up what the paths of relationships reach, the objects of all sets at once.
void KXCountTable::readSets(const std::vector<size_t> &columns)
{
    for (const size_t column : columns) {
        KXCountColumn &values = *m_columns[column];
        if (values.kind() != KXCountColumn::Kind::Relation)
            continue;
        if (values.pathCount() > 0)
            KXManagedObjectContextPrivate::of(m_context).reader.fill(
                *values.property().destinationEntity(), values.newKeys());
        values.readSets();
    }
}

QVariant KXCountTable::objects(const KXPropertyDescription &relationship, const std::vector<qint64> &keys) const
{
    KXManagedObjectContextPrivate &context = KXManagedObjectContextPrivate::of(m_context);
    if (relationship.isToOne())
        return keys.empty() ? QVariant()
                            : KXVariantFromRef(context.reader.object(*relationship.destinationEntity(), keys.front()));
    context.reader.fill(*relationship.destinationEntity(), keys);
    QVariantList list;
    for (const qint64 key : keys) {
        // Nothing tells a relationship without inverse that a member was deleted.
        const KXRef<KXManagedObject> member = context.reader.object(*relationship.destinationEntity(), key);
        if (member && (relationship.inverse() || !(member->isDeleted() || member->isMissing())))
            list.append(KXVariantFromRef(member));
    }
    return list;
}

bool KXCountTable::countByStore(KXError *error)
{
    bool answered = true;
    for (size_t i = 0; i < m_rules.size(); ++i) {
        Rule &rule = m_rules[i];
        if (isSettled(rule) || rule.reason.isEmpty())
            continue;
        const qint64 number = m_context.count(KXFetchRequest(m_entity.name(), rule.predicate), error);
        answered = answered && number >= 0;
        rule.isCounted = number >= 0;
        rule.count = number;
        noteChange(int(i));
    }
    return answered;
}
