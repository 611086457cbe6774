#include <kestrixkit/store/KXRowReader_p.h>

#include <kestrixkit/store/KXPersistentStore_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>

QByteArray KXEntityCondition(const KXEntityDescription &entity)
{
    if (!entity.parent())
        return {};
    QByteArray numbers;
    for (const KXEntityDescription *member : entity.family())
        numbers += (numbers.isEmpty() ? "" : ",") + QByteArray::number(member->number());
    return "t0.kx_entity IN (" + numbers + ')';
}

KXRowReader::KXRowReader(KXPersistentStorePrivate *store, KXError *error)
    : m_connection(store ? store->connections.reader(error) : KXStoreConnections::Reader())
{
    if (m_connection)
        m_transaction.emplace(*m_connection);
    else if (!store)
        KXSetError(error, KXPersistentStorePrivate::notOpen());
}

KXRowReader::~KXRowReader() = default;

bool KXRowReader::hasMoreThan(const KXEntityDescription &entity, qint64 rows)
{
    QByteArray sql = "SELECT 1 FROM " + entity.table() + " t0";
    if (const QByteArray condition = KXEntityCondition(entity); !condition.isEmpty())
        sql += " WHERE " + condition;
    KXStatement statement = m_connection->prepare(sql + " LIMIT 1 OFFSET ?");
    if (!statement)
        return false;
    statement.bind(1, rows);
    return statement.step() == SQLITE_ROW;
}

std::vector<qint64> KXRowReader::sorted(Keys keys)
{
    std::sort(keys.begin(), keys.end());
    return keys;
}

static QByteArray rowReaderKeyList(const std::vector<qint64> &keys)
{
    QByteArray list = "[";
    for (const qint64 key : keys)
        list += QByteArray::number(key) + ',';
    if (list.size() > 1)
        list.chop(1);
    return list + ']';
}

KXStatement KXRowReader::rowStatementWhere(
    const KXEntityDescription &entity, const Properties &properties, const QByteArray &keyCondition)
{
    QByteArray sql = "SELECT t0.kx_id";
    for (const KXPropertyDescription *property : properties)
        sql += ", t0." + property->column();
    sql += " FROM " + entity.table() + " t0";
    QByteArrayList conditions;
    if (const QByteArray condition = KXEntityCondition(entity); !condition.isEmpty())
        conditions.append(condition);
    if (!keyCondition.isEmpty())
        conditions.append(keyCondition);
    if (!conditions.isEmpty())
        sql += " WHERE " + conditions.join(" AND ");
    return m_connection->prepare(sql + " ORDER BY t0.kx_id");
}

KXStatement KXRowReader::rowStatement(const KXEntityDescription &entity, const Properties &properties, KeyRange range)
{
    KXStatement statement = rowStatementWhere(entity, properties, "t0.kx_id BETWEEN ? AND ?");
    if (statement) {
        statement.bind(1, range.first);
        statement.bind(2, range.last);
    }
    return statement;
}

KXStatement KXRowReader::rowStatement(
    const KXEntityDescription &entity, const Properties &properties, const Keys *keys, bool &isSparse)
{
    if (!keys)
        return rowStatementWhere(entity, properties, {});
    // Rows that were made together lie together, and are read with the few between them.
    KeyRange range { 0, -1 };
    if (!keys->empty()) {
        const auto [lowest, highest] = std::minmax_element(keys->begin(), keys->end());
        range = { *lowest, *highest };
    }
    if (range.last - range.first < 2 * qint64(keys->size())) {
        isSparse = range.last - range.first + 1 != qint64(keys->size());
        return rowStatement(entity, properties, range);
    }
    KXStatement statement = rowStatementWhere(entity, properties, "t0.kx_id IN (SELECT value FROM json_each(?))");
    if (statement) {
        m_keyList = rowReaderKeyList(*keys);
        statement.bindText(1, std::string_view(m_keyList.constData(), size_t(m_keyList.size())));
    }
    return statement;
}

std::optional<KXRowReader::KeyRange> KXRowReader::keyRange(const KXEntityDescription &entity)
{
    KXStatement statement = m_connection->prepare(
        "SELECT (SELECT min(kx_id) FROM " + entity.table() + "), (SELECT max(kx_id) FROM " + entity.table() + ')');
    if (!statement || statement.step() != SQLITE_ROW || statement.isNull(0))
        return std::nullopt;
    return KeyRange { statement.integer(0), statement.integer(1) };
}

KXStatement KXRowReader::linkStatement(
    const KXEntityDescription &start, const Path &path, const KXPropertyDescription *attribute, const Keys *keys)
{
    QByteArray from;
    QByteArray source;
    QByteArray current;
    const KXEntityDescription *entity = &start;
    for (size_t i = 0; i < path.size(); ++i) {
        const KXPropertyDescription *step = path[i];
        const QByteArray alias = 't' + QByteArray::number(i);
        QByteArray table, entry, exit;
        if (step->isToOne()) { // the row that holds the column
            table = entity->table();
            entry = alias + ".kx_id";
            exit = alias + '.' + step->column();
        } else if (!step->joinTable().isEmpty()) {
            table = step->joinTable();
            entry = alias + '.' + step->joinSource();
            exit = alias + '.' + step->joinTarget();
        } else {
            table = step->destinationEntity()->table();
            entry = alias + '.' + step->inverse()->column();
            exit = alias + ".kx_id";
        }
        from += i == 0 ? table + ' ' + alias : " JOIN " + table + ' ' + alias + " ON " + entry + " = " + current;
        source = i == 0 ? entry : source;
        current = exit;
        entity = step->destinationEntity();
    }
    QByteArray sql = "SELECT " + source + ", " + current;
    if (attribute) {
        sql += ", tv." + attribute->column();
        from += " JOIN " + entity->table() + " tv ON tv.kx_id = " + current;
    }
    sql += " FROM " + from + " WHERE " + source;
    sql += keys ? " IN (SELECT value FROM json_each(?))" : " IS NOT NULL";
    KXStatement statement = m_connection->prepare(sql);
    if (statement && keys) {
        m_keyList = rowReaderKeyList(*keys);
        statement.bindText(1, std::string_view(m_keyList.constData(), size_t(m_keyList.size())));
    }
    return statement;
}

qint64 KXRowReader::changeNumber() { return KXStoreSchema::changeNumber(*m_connection); }

qint64 KXRowReader::changeNumberAfterSaves(KXPersistentStorePrivate &store)
{
    const KXStoreConnections::Writer writer = store.connections.writer();
    return KXStoreSchema::changeNumber(*writer);
}
