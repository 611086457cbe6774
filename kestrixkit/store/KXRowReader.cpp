#include <kestrixkit/store/KXRowReader_p.h>

#include <kestrixkit/store/KXPersistentStore_p.h>

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

KXStatement KXRowReader::rowStatement(const KXEntityDescription &entity,
    const std::vector<const KXPropertyDescription *> &properties, const Keys *keys, bool &isSparse)
{
    QByteArray sql = "SELECT t0.kx_id";
    for (const KXPropertyDescription *property : properties)
        sql += ", t0." + property->column();
    sql += " FROM " + entity.table() + " t0";
    QByteArrayList conditions;
    if (const QByteArray condition = KXEntityCondition(entity); !condition.isEmpty())
        conditions.append(condition);
    // Rows that were made together lie together, and are read with the few between them.
    qint64 first = 0, last = -1;
    if (keys && !keys->empty()) {
        const auto [lowest, highest] = std::minmax_element(keys->begin(), keys->end());
        first = *lowest;
        last = *highest;
    }
    const bool isDense = keys && last - first < 2 * qint64(keys->size());
    isSparse = isDense && last - first + 1 != qint64(keys->size());
    if (keys)
        conditions.append(isDense ? QByteArray("t0.kx_id BETWEEN ? AND ?")
                                  : QByteArray("t0.kx_id IN (SELECT value FROM json_each(?))"));
    if (!conditions.isEmpty())
        sql += " WHERE " + conditions.join(" AND ");
    KXStatement statement = m_connection->prepare(sql + " ORDER BY t0.kx_id");
    if (statement && isDense) {
        statement.bind(1, first);
        statement.bind(2, last);
    } else if (statement && keys) {
        m_keyList = rowReaderKeyList(*keys);
        statement.bindText(1, std::string_view(m_keyList.constData(), size_t(m_keyList.size())));
    }
    return statement;
}

KXStatement KXRowReader::memberStatement(const KXPropertyDescription &relationship, const Keys *keys)
{
    const bool isJoined = !relationship.joinTable().isEmpty();
    const QByteArray object = isJoined ? relationship.joinSource() : relationship.inverse()->column();
    const QByteArray member = isJoined ? relationship.joinTarget() : QByteArray("kx_id");
    const QByteArray table = isJoined ? relationship.joinTable() : relationship.destinationEntity()->table();
    KXStatement statement = m_connection->prepare("SELECT " + object + ", " + member + " FROM " + table + " WHERE "
        + object + (keys ? QByteArray(" IN (SELECT value FROM json_each(?))") : QByteArray(" IS NOT NULL")));
    if (statement && keys) {
        m_keyList = rowReaderKeyList(*keys);
        statement.bindText(1, std::string_view(m_keyList.constData(), size_t(m_keyList.size())));
    }
    return statement;
}
