#pragma once

#include <vector>

#include <QByteArray>
#include <QString>

#include <kestrixkit/predicate/KXFetchRequest.h>
#include <kestrixkit/predicate/KXPredicate.h>

class KXEntityDescription;
struct sqlite3;
struct sqlite3_stmt;

/// A value in the form in which SQLite binds it.
struct KXSQLValue
{
    enum Type : quint8 { Integer, Real, Text, Blob };
    Type type = Integer;
    qint64 integer = 0;
    double real = 0;
    QByteArray bytes; ///< UTF-8 for a text, which may hold NUL characters
};

/// SQL for a predicate or an order over one entity's table, with the values to bind to its parameters.
///
/// The text is an expression to stand after WHERE (or a list to stand after ORDER BY) in a query that calls the
/// entity's table t0; it uses the aliases t1, t2… inside. It does not limit the rows to the entity itself, which
/// the caller does where a table holds several. Parameters are "?" in the order of `values`.
///
/// Equal predicates give equal texts, and predicates that differ only in values (other than absent ones and
/// lengths of short lists) usually do too, so that prepared statements can be kept by text.
class KX_CORE_EXPORT KXPredicateSQL
{
public:
    enum Status : quint8 {
        Compiled,
        NotInSQL, ///< SQL cannot say it (transient attributes, variant values, great depth…): evaluate in memory
        UnknownKey, ///< a key path names something that the entity does not have
    };

    /// `store` is the number that the store's objects carry in their KXObjectKey. Variables must have been replaced
    /// before; one that is left throws KXException.
    [[nodiscard]] static KXPredicateSQL compile(
        const KXPredicate &predicate, const KXEntityDescription &entity, quint64 store);
    /// Ends with the row's key, so that the order is total.
    [[nodiscard]] static KXPredicateSQL compileOrder(
        const QList<KXSortDescriptor> &descriptors, const KXEntityDescription &entity);

    /// Adds to a connection what the compiled texts use: functions and the collation KX_DECIMAL, which orders
    /// canonical decimal texts as numbers. Answers a SQLite code.
    static int registerFunctions(sqlite3 *database);

    /// Binds the values to the parameters from `first` on, without copying texts: they must outlive the
    /// statement's run. Answers a SQLite code.
    int bind(sqlite3_stmt *statement, int first = 1) const;

    Status status = Compiled;
    QByteArray text; ///< "1" for a predicate that lets everything through
    std::vector<KXSQLValue> values;
    QString reason; ///< for people, unless compiled
    /// The entities whose rows the text looks at besides those of t0, each once.
    std::vector<const KXEntityDescription *> entities;
};
