#include <kestrixkit/store/KXStoreTables_p.h>

#include <algorithm>

#include <QMap>
#include <QSet>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXPredicate.h>
#include <kestrixkit/predicate/KXTextFolding_p.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int allFoldingOptions = KXCaseInsensitive | KXDiacriticInsensitive;

KXError tablesDamaged(const QString &text) { return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::Damaged, text); }

QByteArray columnType(const KXPropertyDescription &property)
{
    if (property.isRelationship())
        return "INTEGER";
    switch (property.type()) {
    case KXAttributeType::Double:
        return "REAL";
    case KXAttributeType::Decimal:
        return "TEXT COLLATE KX_DECIMAL"; // the order of numbers, in comparisons, sorting and indexes alike
    case KXAttributeType::String:
    case KXAttributeType::URI:
    case KXAttributeType::UUID:
        return "TEXT";
    case KXAttributeType::Binary:
    case KXAttributeType::Variant:
        return "BLOB";
    default:
        return "INTEGER";
    }
}

/// The name of an index and the statement that makes it.
using NamedIndex = std::pair<QByteArray, QByteArray>;

QByteArray bareName(const QByteArray &quoted) { return quoted.mid(1, quoted.size() - 2); }

NamedIndex createIndexOf(const KXEntityDescription &root, const KXPropertyDescription &column, const QByteArray &kind,
    const QByteArray &columns, const QByteArray &schema)
{
    const QByteArray name = "kx_i_" + bareName(root.table()) + '_' + bareName(column.column()) + kind;
    return { name, "CREATE INDEX " + schema + ".\"" + name + "\" ON " + root.table() + '(' + columns + ')' };
}

/// With a second column it has another name than without, and so takes the place of that one.
NamedIndex createIndex(const KXEntityDescription &root, const KXPropertyDescription &column,
    const KXPropertyDescription *second, const QByteArray &schema)
{
    return createIndexOf(root, column, second ? '+' + bareName(second->column()) : QByteArray(),
        second ? column.column() + ',' + second->column() : column.column(), schema);
}

/// The rules of folding are part of its name: one that was made by others is wrong, and made anew.
NamedIndex createFoldedIndex(const KXEntityDescription &root, const KXPropertyDescription &column, int options,
    const QByteArray &rules, const QByteArray &schema)
{
    const QByteArray number = QByteArray::number(options);
    return createIndexOf(
        root, column, '~' + number + '.' + rules, "kx_fold(" + column.column() + ", " + number + ')', schema);
}

QByteArray foldingRules() { return QByteArray::number(KXTextFolding::rules()); }

/// nullptr for a column that is indexed alone.
const KXPropertyDescription *secondInIndex(const KXEntityDescription &root, const KXPropertyDescription &column)
{
    if (column.secondInIndex().isEmpty())
        return nullptr;
    for (const KXEntityDescription *entity : root.family()) {
        const KXPropertyDescription *const own = entity->property(column.name());
        if (own && own->column() == column.column())
            return entity->property(column.secondInIndex());
    }
    return nullptr;
}

/// Statements by the indexes' names.
QMap<QByteArray, QByteArray> wantedIndexes(const KXManagedObjectModel &model, const QByteArray &schema)
{
    QMap<QByteArray, QByteArray> indexes;
    for (const KXEntityDescription *root : model.entities()) {
        if (root->parent())
            continue;
        for (const KXPropertyDescription *column : KXStoreTables::columnsOfTable(*root)) {
            if (column->isIndexed() || column->isToOne()) {
                const auto [name, sql] = createIndex(*root, *column, secondInIndex(*root, *column), schema);
                indexes.insert(name, sql);
            }
            if (column->foldedIndex() != 0) {
                const auto [name, sql]
                    = createFoldedIndex(*root, *column, column->foldedIndex(), foldingRules(), schema);
                indexes.insert(name, sql);
            }
        }
    }
    return indexes;
}

}

QList<const KXPropertyDescription *> KXStoreTables::columnsOfTable(const KXEntityDescription &root)
{
    QList<const KXPropertyDescription *> columns;
    QSet<QByteArray> seen;
    for (const KXEntityDescription *entity : root.family()) {
        for (const KXPropertyDescription &property : entity->properties()) {
            if (property.hasColumn() && !seen.contains(property.column())) {
                seen.insert(property.column());
                columns.append(&property);
            }
        }
    }
    return columns;
}

QList<QByteArray> KXStoreTables::tables(const KXManagedObjectModel &model, const QByteArray &schema)
{
    const QByteArray create = "CREATE TABLE " + schema + '.';
    QList<QByteArray> sql { create + "kx_metadata(key TEXT PRIMARY KEY, value) WITHOUT ROWID",
        create + "kx_sequence(next INTEGER NOT NULL)", "INSERT INTO " + schema + ".kx_sequence VALUES(1)" };
    QSet<QByteArray> joins;
    for (const KXEntityDescription *entity : model.entities()) {
        if (!entity->parent()) {
            QByteArray table = create + entity->table() + "(kx_id INTEGER PRIMARY KEY";
            if (entity->hasDiscriminator())
                table += ", kx_entity INTEGER NOT NULL";
            table += ", kx_version INTEGER NOT NULL";
            for (const KXPropertyDescription *column : columnsOfTable(*entity))
                table += ", " + column->column() + ' ' + columnType(*column);
            sql.append(table + ')');
        }
        for (const KXPropertyDescription &property : entity->properties()) {
            if (property.joinTable().isEmpty() || joins.contains(property.joinTable()))
                continue;
            joins.insert(property.joinTable());
            sql.append(create + property.joinTable()
                + "(a INTEGER NOT NULL, b INTEGER NOT NULL, PRIMARY KEY(a, b)) WITHOUT ROWID");
        }
    }
    return sql;
}

QList<QByteArray> KXStoreTables::indexes(const KXManagedObjectModel &model, const QByteArray &schema)
{
    QList<QByteArray> sql = wantedIndexes(model, schema).values();
    QSet<QByteArray> joins;
    for (const KXEntityDescription *entity : model.entities()) {
        for (const KXPropertyDescription &property : entity->properties()) {
            const QByteArray &join = property.joinTable();
            if (join.isEmpty() || joins.contains(join))
                continue;
            joins.insert(join);
            sql.append("CREATE INDEX " + schema + ".\"kx_j_" + join.mid(1) + " ON " + join + "(b, a)");
        }
    }
    return sql;
}

KXError KXStoreTables::check(KXSQLiteConnection &connection, const KXManagedObjectModel &model)
{
    // As statements stand in the file: without the name of the database. Of a table, the columns in any order, for the
    // order in which a model declares them does not matter.
    const auto inFile = [](QByteArray sql) {
        const qsizetype name = sql.indexOf("main.");
        return sql.remove(name, 5);
    };
    const auto sorted = [](const QByteArray &sql) {
        QByteArrayList columns = (sql.endsWith(')') ? sql.chopped(1) : sql).split(',');
        std::sort(columns.begin(), columns.end());
        return columns.join(',');
    };
    QSet<QByteArray> missing;
    for (const QByteArray &sql : tables(model)) {
        if (sql.startsWith("CREATE"))
            missing.insert(sorted(inFile(sql)));
    }
    // What any program's ANALYZE leaves.
    QSet<QByteArray> known = missing
        + QSet<QByteArray> { sorted("CREATE TABLE sqlite_stat1(tbl,idx,stat)"),
              sorted("CREATE TABLE sqlite_stat4(tbl,idx,neq,nlt,ndlt,sample)") };
    for (const QByteArray &sql : indexes(model))
        known.insert(inFile(sql));
    // Whatever the rules, by which it was folded.
    const auto isFoldedIndex = [&](const QByteArray &sql, const KXEntityDescription &root,
                                   const KXPropertyDescription &column, int options) {
        const auto [name, create] = createFoldedIndex(root, column, options, {}, "main");
        const QByteArray bare = inFile(create);
        const qsizetype at = bare.indexOf(name) + name.size(), more = sql.size() - bare.size();
        if (more < 0 || !sql.startsWith(bare.first(at)) || !sql.endsWith(bare.mid(at)))
            return false;
        const QByteArray rules = sql.mid(at, more);
        return std::all_of(rules.begin(), rules.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    // Those of attributes that were indexed once, alone or with others.
    const auto isFormerIndex = [&](const QByteArray &sql) {
        for (const KXEntityDescription *root : model.entities()) {
            const auto columns = root->parent() ? QList<const KXPropertyDescription *>() : columnsOfTable(*root);
            for (const KXPropertyDescription *column : columns) {
                if (sql == inFile(createIndex(*root, *column, nullptr, "main").second)
                    || std::any_of(columns.begin(), columns.end(), [&](const KXPropertyDescription *second) {
                           return sql == inFile(createIndex(*root, *column, second, "main").second);
                       }))
                    return true;
                for (int options = 1; options <= allFoldingOptions; ++options) {
                    if (isFoldedIndex(sql, *root, *column, options))
                        return true;
                }
            }
        }
        return false;
    };
    // The indexes of primary keys have no statement.
    KXStatement query = connection.prepare("SELECT type, name, sql FROM sqlite_schema WHERE sql IS NOT NULL");
    int code = query ? SQLITE_ROW : SQLITE_ERROR;
    while (query && (code = query.step()) == SQLITE_ROW) {
        const QByteArray sql = query.bytes(0) == "table" ? sorted(query.bytes(2)) : query.bytes(2);
        missing.remove(sql);
        if (!known.contains(sql) && !isFormerIndex(sql))
            return tablesDamaged(KXStringWithFormat(
                "The store holds the %@ \"%@\", which is none of its model's", query.text(0), query.text(1)));
    }
    if (code == SQLITE_DONE && !missing.isEmpty())
        return tablesDamaged(u"The store lacks tables of its model"_s);
    return code == SQLITE_DONE ? KXError() : connection.lastError();
}

bool KXStoreTables::isFoldedByOthers(KXSQLiteConnection &connection)
{
    return connection.integer("SELECT count(*) FROM sqlite_schema WHERE type = 'index' AND sql GLOB '*kx_fold(*' AND "
                              "name NOT GLOB '*~[1-3]."
               + foldingRules() + "'")
        > 0;
}

KXError KXStoreTables::updateIndexes(KXSQLiteConnection &connection, const KXManagedObjectModel &model)
{
    QMap<QByteArray, QByteArray> missing = wantedIndexes(model, "main");
    QByteArray sql;
    {
        KXStatement query
            = connection.prepare("SELECT name FROM sqlite_master WHERE type = 'index' AND name GLOB 'kx_i_*'");
        if (!query)
            return connection.lastError();
        while (query.step() == SQLITE_ROW) {
            QByteArray name = query.bytes(0);
            if (!missing.remove(name))
                sql += "DROP INDEX \"" + name.replace('"', "\"\"") + "\";";
        }
    }
    for (const QByteArray &create : missing)
        sql += create + ';';
    if (sql.isEmpty())
        return {};
    KXTransaction transaction(connection);
    if (KXError error = transaction.begin())
        return error;
    if (KXError error = connection.execute(sql.constData()))
        return error;
    return transaction.commit();
}
