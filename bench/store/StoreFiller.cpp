#include "store/StoreFiller.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <kestrixkit/store/KXPredicateSQL_p.h>

namespace {

[[noreturn]] void fillerFailed(const char *sql, sqlite3 *database)
{
    std::fprintf(stderr, "%s: %s\n", sql, sqlite3_errmsg(database));
    std::exit(1);
}

void fillerBind(sqlite3_stmt *statement, int parameter, const QVariantList &values)
{
    for (const QVariant &value : values) {
        if (value.typeId() == QMetaType::QString) {
            const QByteArray utf8 = value.toString().toUtf8();
            sqlite3_bind_text(statement, parameter++, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
        } else if (value.typeId() == QMetaType::Double) {
            sqlite3_bind_double(statement, parameter++, value.toDouble());
        } else if (value.isValid()) {
            sqlite3_bind_int64(statement, parameter++, value.toLongLong());
        } else {
            sqlite3_bind_null(statement, parameter++);
        }
    }
}

}

StoreFiller::StoreFiller(const QString &path)
{
    sqlite3_open_v2(path.toUtf8(), &m_database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    KXPredicateSQL::registerFunctions(m_database); // which indexes of sorted texts use
    run("PRAGMA synchronous=OFF; BEGIN");
    sqlite3_stmt *const next = statement("SELECT next FROM kx_sequence");
    if (sqlite3_step(next) != SQLITE_ROW)
        fillerFailed("kx_sequence", m_database);
    m_key = sqlite3_column_int64(next, 0) - 1;
    sqlite3_reset(next);
}

StoreFiller::~StoreFiller()
{
    run(("UPDATE kx_sequence SET next = " + std::to_string(m_key + 1) + "; COMMIT").c_str());
    for (const auto &[sql, made] : m_statements)
        sqlite3_finalize(made);
    sqlite3_close(m_database);
}

void StoreFiller::run(const char *sql)
{
    if (sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        fillerFailed(sql, m_database);
}

sqlite3_stmt *StoreFiller::statement(const char *sql)
{
    sqlite3_stmt *&made = m_statements[sql];
    if (!made && sqlite3_prepare_v2(m_database, sql, -1, &made, nullptr) != SQLITE_OK)
        fillerFailed(sql, m_database);
    return made;
}

void StoreFiller::step(const char *sql, sqlite3_stmt *statement)
{
    if (sqlite3_step(statement) != SQLITE_DONE)
        fillerFailed(sql, m_database);
    sqlite3_reset(statement);
}

qint64 StoreFiller::insert(const char *sql, const QVariantList &values)
{
    sqlite3_stmt *const row = statement(sql);
    sqlite3_bind_int64(row, 1, ++m_key);
    fillerBind(row, 2, values);
    step(sql, row);
    return m_key;
}

void StoreFiller::pair(const char *sql, qint64 a, qint64 b)
{
    sqlite3_stmt *const row = statement(sql);
    fillerBind(row, 1, { a, b });
    step(sql, row);
}
