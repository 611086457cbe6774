#include <kestrixkit/context/KXBatchRows_p.h>

#include <algorithm>
#include <cmath>

#include <kestrixkit/store/KXRowReader_p.h>

KXBatchRows::KXBatchRows(
    KXManagedObjectContextPrivate &context, const KXEntityDescription &entity, Attributes attributes)
    : m_context(context)
    , m_model(context.coordinator->model())
    , m_entity(entity)
    , m_attributes(std::move(attributes))
    , m_codec(entity, m_attributes)
{
}

QVariantList KXBatchRows::valuesOf(const KXRowValues &row) const
{
    QVariantList values;
    for (const KXPropertyDescription *attribute : m_attributes)
        values.append(row.attribute(*attribute));
    return values;
}

bool KXBatchRows::setTarget(qint32 number, const QVariantList &values)
{
    Target target { { KXRowValues::create(m_entity), { &m_entity } }, {} };
    for (size_t i = 0; i < m_attributes.size(); ++i) {
        const KXPropertyDescription &attribute = *m_attributes[i];
        if (!target.row->setAttribute(attribute, values.value(qsizetype(i))))
            return false;
        if (!target.row->isPresent(attribute.index()) ? !attribute.isOptional()
                                                      : attribute.type() == KXAttributeType::Double
                    && std::isnan(target.row->slot<double>(attribute.offset())))
            return false;
    }
    target.values = valuesOf(*target.row);
    m_targets.insert_or_assign(number, std::move(target));
    return true;
}

bool KXBatchRows::carryOut(std::span<const Step> steps, Result &result, KXError *error)
{
    QByteArray keys = "[";
    for (const Step &step : steps)
        keys += QByteArray::number(step.key) + ',';
    keys[keys.size() - 1] = ']';
    const auto carry = [&](KXSQLiteConnection &connection, std::vector<KXEntityChange> &changes) {
        std::vector<Row> rows;
        if (KXError problem = read(connection, keys, rows))
            return problem;
        for (size_t i = 0; i < steps.size(); ++i) {
            const auto row = std::lower_bound(
                rows.begin(), rows.end(), steps[i].key, [](const Row &each, qint64 key) { return each.key < key; });
            if (row == rows.end() || row->key != steps[i].key)
                continue;
            if (steps[i].expected >= 0 && row->values != valuesOf(steps[i].expected)) {
                ++result.kept;
                continue;
            }
            if (row->values == valuesOf(steps[i].target))
                continue;
            row->target = steps[i].target;
            result.done.push_back({ i, std::exchange(row->values, valuesOf(steps[i].target)) });
        }
        std::erase_if(rows, [](const Row &row) { return row.target < 0; });
        return write(connection, rows, changes);
    };
    if (m_context.saveRows(carry, error))
        return true;
    result = {};
    return false;
}

/// In the order of their keys.
KXError KXBatchRows::read(KXSQLiteConnection &connection, const QByteArray &keys, std::vector<Row> &rows) const
{
    const QByteArray condition = KXEntityCondition(m_entity);
    KXStatement statement = connection.prepare(m_codec.select() + " WHERE t0.kx_id IN (SELECT value FROM json_each(?))"
        + (condition.isEmpty() ? QByteArray() : " AND " + condition) + " ORDER BY t0.kx_id");
    if (!statement)
        return connection.lastError();
    statement.bindText(1, std::string_view(keys.constData(), size_t(keys.size())));
    const KXRowValues::Owner values(KXRowValues::create(m_entity), { &m_entity });
    int code = SQLITE_ROW;
    while ((code = statement.step()) == SQLITE_ROW) {
        for (const KXPropertyDescription *attribute : m_attributes)
            values->clear(*attribute);
        m_codec.read(statement, *values);
        const QVariantList now = valuesOf(*values);
        rows.push_back({ statement.integer(KXRowCodec::KeyColumn), values->version, now, now });
    }
    return code == SQLITE_DONE ? KXError() : connection.lastError();
}

KXError KXBatchRows::write(
    KXSQLiteConnection &connection, std::vector<Row> &rows, std::vector<KXEntityChange> &changes) const
{
    if (rows.empty())
        return {};
    KXEntityChange &change = changes.emplace_back(KXEntityChange { .entity = &m_entity });
    for (const Row &row : rows)
        change.updated.push_back(newsOf(row));
    std::stable_sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) { return a.target < b.target; });
    for (size_t from = 0, to = 0; from < rows.size(); from = to) {
        for (to = from + 1; to < rows.size() && rows[to].target == rows[from].target;)
            ++to;
        if (KXError problem = writeAlike(connection, std::span(rows).subspan(from, to - from)))
            return problem;
    }
    return {};
}

/// Rows that get the same values. Many at once where there are many.
KXError KXBatchRows::writeAlike(KXSQLiteConnection &connection, std::span<Row> rows) const
{
    constexpr size_t many = 16;
    QByteArray sql = "UPDATE " + m_entity.table() + " SET kx_version = kx_version + 1";
    for (const KXPropertyDescription *attribute : m_attributes)
        sql += ", " + attribute->column() + " = ?";
    QByteArray keys;
    if (rows.size() >= many) {
        sql += " WHERE kx_id IN (SELECT value FROM json_each(?))";
        for (const Row &row : rows)
            keys += (keys.isEmpty() ? '[' : ',') + QByteArray::number(row.key);
        keys += ']';
    } else {
        sql += " WHERE kx_id = ?";
    }
    KXStatement statement = connection.prepare(sql);
    if (!statement)
        return connection.lastError();
    KXRowTexts texts;
    int parameter = 1;
    for (const KXPropertyDescription *attribute : m_attributes)
        KXRowCodec::bind(statement, parameter++, *m_targets.at(rows.front().target).row, *attribute, texts);
    if (!keys.isEmpty()) {
        statement.bindText(parameter, std::string_view(keys.constData(), size_t(keys.size())));
        return statement.step() == SQLITE_DONE ? KXError() : connection.lastError();
    }
    for (const Row &row : rows) {
        statement.bind(parameter, row.key);
        if (statement.step() != SQLITE_DONE)
            return connection.lastError();
        statement.reset();
    }
    return {};
}

KXRowChange KXBatchRows::newsOf(const Row &row) const
{
    KXRowChange news { .key = row.key, .version = row.version + 1 };
    for (size_t i = 0; i < m_attributes.size(); ++i) {
        const QVariant &before = row.before[qsizetype(i)], &after = row.values[qsizetype(i)];
        if (before != after)
            news.properties.push_back({ m_attributes[i], before, after, {}, {} });
    }
    return news;
}
