#include <kestrixkit/catalogue/KXPostgreSQLDialect.h>

#include <algorithm>
#include <limits>

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>

#include <kestrixkit/catalogue/KXPostgreSQLRule_p.h>
#include <kestrixkit/catalogue/KXPostgreSQLTypes_p.h>
#include <kestrixkit/foundation/KXDecimal.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

/// One key of a page's order.
struct DialectSortKey
{
    const KXCatalogueColumn *column;
    QByteArray expression;
    bool ascending;
    bool nullsFirst;
};

template <typename Write> std::optional<KXCatalogueStatement> dialectWritten(KXError *error, const Write &write)
{
    try {
        return write();
    } catch (const KXPostgreSQLRule::Refusal &refusal) {
        KXSetError(error,
            KXError(KXKestrixKitErrorDomain, KXCatalogueError::Refused,
                KXStringWithFormat(
                    KXLocalizedString("The shop cannot answer this: %@. Leave this condition out."), refusal.reason)));
        return std::nullopt;
    }
}

QByteArray dialectWhere(const QList<QByteArray> &conditions)
{
    return conditions.isEmpty() ? QByteArray() : " WHERE " + conditions.join(" AND ");
}

QList<DialectSortKey> dialectSortKeys(const KXPostgreSQLRule &rule, const QList<KXSortDescriptor> &descriptors)
{
    QList<DialectSortKey> keys;
    for (const KXSortDescriptor &descriptor : descriptors) {
        const KXCatalogueColumn &column = rule.column(descriptor.key);
        if (column.isList || column.type == KXCatalogueType::Words || !descriptor.memberKey.isEmpty())
            KXPostgreSQLRule::refuse(KXStringWithFormat(KXLocalizedString("\"%@\" has no order"), descriptor.key));
        const int folding = descriptor.options & (KXCaseInsensitive | KXDiacriticInsensitive);
        keys.append({ &column, KXPostgreSQLRule::expression(column, folding), descriptor.ascending,
            descriptor.ascending && !descriptor.absentLast });
        if (descriptor.key == KXCatalogueSchema::identifierKeyPath)
            return keys; // nothing is equal any more
    }
    const KXCatalogueColumn &identifier = rule.column(KXCatalogueSchema::identifierKeyPath);
    // In the direction of the first key, so that one index gives the order.
    const bool ascending = keys.isEmpty() || keys.first().ascending;
    keys.append({ &identifier, KXPostgreSQLRule::expression(identifier), ascending, ascending });
    return keys;
}

QByteArray dialectOrder(const QList<DialectSortKey> &keys)
{
    QByteArray text;
    for (const DialectSortKey &key : keys) {
        text += (text.isEmpty() ? " ORDER BY " : ", ") + key.expression + (key.ascending ? " ASC" : " DESC");
        // Of columns without NULL the engine's default is the order of an ordinary index.
        if (!key.column->notNull)
            text += key.nullsFirst ? " NULLS FIRST" : " NULLS LAST";
    }
    return text;
}

/// What comes after the row whose keys these are.
QByteArray dialectAfter(KXPostgreSQLRule &rule, const QList<DialectSortKey> &keys, const QVariantList &after)
{
    if (after.size() != keys.size())
        KXPostgreSQLRule::refuse(KXLocalizedString("the page goes on from another order"));
    QList<QByteArray> ways;
    QByteArray equal;
    QByteArray bound;
    for (qsizetype i = 0; i < keys.size(); ++i) {
        const DialectSortKey &key = keys[i];
        const bool isAbsent = !after[i].isValid();
        const QByteArray place = isAbsent ? QByteArray() : rule.place(rule.parameterOf(after[i], key.column->type));
        QByteArray later;
        if (isAbsent) {
            later = key.nullsFirst ? key.expression + " IS NOT NULL" : QByteArray("FALSE");
        } else {
            later = key.expression + (key.ascending ? " > " : " < ") + place;
            if (!key.nullsFirst && !key.column->notNull)
                later = '(' + later + " OR " + key.expression + " IS NULL)";
            if (i == 0 && (key.nullsFirst || key.column->notNull)) // where an index begins to read
                bound = key.expression + (key.ascending ? " >= " : " <= ") + place + " AND ";
        }
        ways.append(equal.isEmpty() ? later : '(' + equal + later + ')');
        equal += key.expression + (isAbsent ? QByteArray(" IS NULL") : " = " + place) + " AND ";
    }
    return bound + '(' + ways.join(" OR ") + ')';
}

QByteArray dialectShown(const KXCatalogueColumn &column)
{
    const QByteArray text = KXPostgreSQLRule::expression(column);
    if (column.type == KXCatalogueType::Words || (column.type == KXCatalogueType::Date && column.isList))
        KXPostgreSQLRule::refuse(KXStringWithFormat(KXLocalizedString("\"%@\" cannot be shown"), column.keyPath));
    if (column.isList)
        return "to_json(" + text + "::text[])";
    // Independent of how dates are set to be written.
    return column.type == KXCatalogueType::Date ? "(extract(epoch FROM " + text + ") * 1000000)::bigint" : text;
}

QVariant dialectValue(QByteArrayView text, KXCatalogueType type)
{
    switch (type) {
    case KXCatalogueType::Boolean:
        return text.startsWith('t');
    case KXCatalogueType::Integer:
        return text.toLongLong();
    case KXCatalogueType::Real:
        return text == "Infinity" ? std::numeric_limits<double>::infinity()
            : text == "-Infinity" ? -std::numeric_limits<double>::infinity()
                                  : text.toDouble();
    case KXCatalogueType::Decimal:
        return QVariant::fromValue(KXDecimal::fromString(QString::fromLatin1(text)).value_or(KXDecimal()));
    case KXCatalogueType::Date: {
        const qint64 microseconds = text.toLongLong();
        return QDateTime::fromMSecsSinceEpoch(microseconds / 1000 - (microseconds % 1000 < 0), Qt::UTC);
    }
    case KXCatalogueType::Text:
    case KXCatalogueType::Words:
        break;
    }
    return QString::fromUtf8(text);
}

}

KXPostgreSQLDialect::KXPostgreSQLDialect(KXCatalogueSchema schema)
    : m_schema(std::move(schema))
{
}

QByteArray KXPostgreSQLDialect::quoted(const QByteArray &name)
{
    return '"' + QByteArray(name).replace('"', "\"\"") + '"';
}

QByteArray KXPostgreSQLDialect::table() const
{
    return (m_schema.schemaName().isEmpty() ? QByteArray() : quoted(m_schema.schemaName()) + '.')
        + quoted(m_schema.tableName()) + " AS t";
}

KXCatalogueStatement KXPostgreSQLDialect::counted(
    const KXCatalogueCountRequest &request, const QByteArray &source) const
{
    if (request.facets.size() > KXCatalogueMostFacets)
        KXPostgreSQLRule::refuse(KXLocalizedString("more facets are asked for than one statement counts"));
    KXCatalogueStatement statement;
    KXPostgreSQLRule rule(m_schema, statement);
    statement.text = "SELECT count(*)";
    for (const KXPredicate &facet : request.facets)
        statement.text += facet ? ", count(*) FILTER (WHERE " + rule.condition(facet) + ')' : QByteArray(", count(*)");
    statement.text += " FROM " + source;
    if (request.rule)
        statement.text += dialectWhere({ rule.condition(request.rule) });
    return statement;
}

std::optional<KXCatalogueStatement> KXPostgreSQLDialect::countStatement(
    const KXCatalogueCountRequest &request, KXError *error) const
{
    return dialectWritten(error, [&] { return counted(request, table()); });
}

std::optional<KXCatalogueStatement> KXPostgreSQLDialect::sampleStatement(
    const KXCatalogueCountRequest &request, double share, KXError *error) const
{
    // Whole blocks, the same ones each time, so that an estimate does not flicker.
    const QByteArray percent = QByteArray::number(std::clamp(share, 0.0, 1.0) * 100, 'f', 6);
    return dialectWritten(
        error, [&] { return counted(request, table() + " TABLESAMPLE SYSTEM (" + percent + ") REPEATABLE (1)"); });
}

std::optional<KXCatalogueStatement> KXPostgreSQLDialect::valuesStatement(
    const KXCatalogueValuesRequest &request, KXError *error) const
{
    return dialectWritten(error, [&] {
        KXCatalogueStatement statement;
        KXPostgreSQLRule rule(m_schema, statement);
        const KXCatalogueColumn &column = rule.column(request.keyPath);
        if (column.isList)
            KXPostgreSQLRule::refuse(KXStringWithFormat(KXLocalizedString("\"%@\" is a list"), request.keyPath));
        statement.text = "SELECT " + dialectShown(column) + ", count(*) FROM " + table()
            + (request.rule ? dialectWhere({ rule.condition(request.rule) }) : QByteArray()) + " GROUP BY 1 LIMIT "
            + QByteArray::number(KXCatalogueValuesRequest::MostValues + 1);
        return statement;
    });
}

std::optional<KXCatalogueStatement> KXPostgreSQLDialect::pageStatement(
    const KXCataloguePageRequest &request, KXError *error) const
{
    return dialectWritten(error, [&] {
        KXCatalogueStatement statement;
        KXPostgreSQLRule rule(m_schema, statement);
        const QList<DialectSortKey> keys = dialectSortKeys(rule, request.sortDescriptors);
        QList<QByteArray> shown;
        for (const QString &keyPath : request.keyPaths)
            shown.append(dialectShown(rule.column(keyPath)));
        const QList<qsizetype> fields = keyFields(request);
        for (qsizetype i = 0; i < keys.size(); ++i) {
            if (fields[i] == shown.size())
                shown.append(
                    keys[i].column->type == KXCatalogueType::Date ? dialectShown(*keys[i].column) : keys[i].expression);
        }
        QList<QByteArray> conditions;
        if (request.rule)
            conditions.append(rule.condition(request.rule));
        if (!request.after.isEmpty())
            conditions.append(dialectAfter(rule, keys, request.after));
        statement.text = "SELECT " + shown.join(", ") + " FROM " + table() + dialectWhere(conditions)
            + dialectOrder(keys) + " LIMIT " + QByteArray::number(std::clamp(request.limit, 1, 10'000) + 1);
        return statement;
    });
}

QList<qsizetype> KXPostgreSQLDialect::keyFields(const KXCataloguePageRequest &request) const
{
    QList<qsizetype> fields;
    qsizetype next = request.keyPaths.size();
    const auto add = [&](const QString &keyPath, bool isFolded) {
        const qsizetype shown = isFolded ? -1 : request.keyPaths.indexOf(keyPath);
        fields.append(shown >= 0 ? shown : next++);
    };
    for (const KXSortDescriptor &descriptor : request.sortDescriptors) {
        add(descriptor.key, descriptor.options & (KXCaseInsensitive | KXDiacriticInsensitive));
        if (descriptor.key == KXCatalogueSchema::identifierKeyPath)
            return fields; // nothing is equal any more
    }
    add(KXCatalogueSchema::identifierKeyPath, false);
    return fields;
}

QVariant KXPostgreSQLDialect::valueFromText(std::optional<QByteArrayView> text, const KXCatalogueColumn &column)
{
    if (!text)
        return {};
    if (!column.isList)
        return dialectValue(*text, column.type);
    QVariantList list;
    for (const auto &element : QJsonDocument::fromJson(text->toByteArray()).array())
        list.append(element.isNull() ? QVariant() : dialectValue(element.toString().toUtf8(), column.type));
    return list;
}
