/// Fills tables of a store directly, in one transaction: a million objects would take minutes. Keys come from the
/// store's own sequence, so that what is filled is a store like any other.
#pragma once

#include <map>

#include <QString>
#include <QVariantList>

#include <sqlite3.h>

class StoreFiller
{
public:
    /// The store is there, and nobody has it open.
    explicit StoreFiller(const QString &path);
    /// Commits.
    ~StoreFiller();
    Q_DISABLE_COPY_MOVE(StoreFiller)

    /// Ends the process where it fails, as do the others.
    void run(const char *sql);
    /// A row whose key is the first parameter: answers it. Texts, whole numbers and real ones; absent where invalid.
    /// The statement is told from others by its address.
    qint64 insert(const char *sql, const QVariantList &values);
    /// A row of a table between two others.
    void pair(const char *sql, qint64 a, qint64 b);

private:
    sqlite3_stmt *statement(const char *sql);
    void step(const char *sql, sqlite3_stmt *statement);

    sqlite3 *m_database = nullptr;
    std::map<const char *, sqlite3_stmt *> m_statements;
    qint64 m_key = 0;
};
