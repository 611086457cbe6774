#pragma once

#include <algorithm>
#include <atomic>
#include <optional>
#include <vector>

#include <QByteArrayView>

#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/store/KXStoreConnections_p.h>

class KXPersistentStorePrivate;

/// Names the rows of an entity and its descendants among those of its table, which the statement calls t0; empty where
/// all are its own.
[[nodiscard]] QByteArray KXEntityCondition(const KXEntityDescription &entity);

/// A value of the row that a reader stands on, as it is stored; valid until the reader goes on.
class KXColumnValue
{
public:
    explicit KXColumnValue(sqlite3_value *value)
        : m_value(value)
    {
    }
    [[nodiscard]] bool isNull() const { return sqlite3_value_type(m_value) == SQLITE_NULL; }
    [[nodiscard]] bool isReal() const { return sqlite3_value_type(m_value) == SQLITE_FLOAT; }
    [[nodiscard]] qint64 integer() const { return sqlite3_value_int64(m_value); }
    [[nodiscard]] double real() const { return sqlite3_value_double(m_value); }
    [[nodiscard]] QByteArrayView utf8() const
    {
        const auto *text = reinterpret_cast<const char *>(sqlite3_value_text(m_value));
        return QByteArrayView(text, sqlite3_value_bytes(m_value));
    }

private:
    sqlite3_value *m_value;
};

/// Reads many rows of an open store without making objects: what is made of all rows, such as counts.
///
/// Borrows a connection, and reads one state of the store from the first row to its own end; not to be kept across
/// calls. Ends in the thread that made it; any one thread at a time may read with it.
class KXRowReader
{
public:
    /// Empty with an error where there is no store, or no connection could be opened.
    explicit KXRowReader(KXPersistentStorePrivate *store, KXError *error = nullptr);
    ~KXRowReader();
    Q_DISABLE_COPY_MOVE(KXRowReader)

    explicit operator bool() const { return bool(m_connection); }
    /// From now on reading ends early and without an error once another thread has set the flag.
    void stopWhen(const std::atomic<bool> &flag) { m_stop = &flag; }
    /// Whether the entity and its descendants have more rows than so many; false where that cannot be read.
    [[nodiscard]] bool hasMoreThan(const KXEntityDescription &entity, qint64 rows);

    /// Keys in any order; nullptr stands for all rows.
    using Keys = std::vector<qint64>;
    /// From the first to the last, both included.
    struct KeyRange
    {
        qint64 first;
        qint64 last;
    };
    using Properties = std::vector<const KXPropertyDescription *>;

    /// Calls `take(key, values)` for rows of the entity and its descendants, in the order of their keys. `values(i)` is
    /// the KXColumnValue of the i-th property; each has a column. Not to be called within `take`.
    template <typename Take>
    [[nodiscard]] KXError rows(
        const KXEntityDescription &entity, const Properties &properties, const Keys *keys, Take &&take)
    {
        bool isSparse = false;
        KXStatement statement = rowStatement(entity, properties, keys, isSparse);
        if (!isSparse)
            return eachRow(std::move(statement), take);
        const std::vector<qint64> wanted = sorted(*keys);
        return eachRow(std::move(statement), [&](qint64 key, const auto &values) {
            if (std::binary_search(wanted.begin(), wanted.end(), key))
                take(key, values);
        });
    }
    /// The same for rows by where their keys lie.
    template <typename Take>
    [[nodiscard]] KXError rowsWithin(
        const KXEntityDescription &entity, const Properties &properties, KeyRange range, Take &&take)
    {
        return eachRow(rowStatement(entity, properties, range), take);
    }
    /// Where the keys of the entity's table lie, those of other entities of its family included. Absent where there are
    /// none, or where that cannot be read.
    [[nodiscard]] std::optional<KeyRange> keyRange(const KXEntityDescription &entity);

    using Path = std::vector<const KXPropertyDescription *>;

    /// Calls `take(row, end)` with the keys of each pair of rows of which the relationships lead from the one, of the
    /// entity's table, to the other; of all rows or of those of the keys, in no order.
    template <typename Take>
    [[nodiscard]] KXError links(const KXEntityDescription &entity, const Path &path, const Keys *keys, Take &&take)
    {
        return eachLink(linkStatement(entity, path, nullptr, keys),
            [&take](const KXStatement &link) { take(link.integer(0), link.integer(1)); });
    }
    /// Calls `take(row, value)` with the attribute of each such end.
    template <typename Take>
    [[nodiscard]] KXError linkedValues(const KXEntityDescription &entity, const Path &path,
        const KXPropertyDescription &attribute, const Keys *keys, Take &&take)
    {
        return eachLink(linkStatement(entity, path, &attribute, keys), [&take](const KXStatement &link) {
            take(link.integer(0), KXColumnValue(sqlite3_column_value(link.get(), 2)));
        });
    }

    /// The store's change number, which every save raises, in the state that is read; 0 where it has none.
    [[nodiscard]] qint64 changeNumber();
    /// The newest, after all saves that have begun by now: those that this process makes were told by then.
    [[nodiscard]] static qint64 changeNumberAfterSaves(KXPersistentStorePrivate &store);

private:
    [[nodiscard]] int step(KXStatement &statement) { return m_stop && *m_stop ? SQLITE_DONE : statement.step(); }
    [[nodiscard]] KXStatement rowStatement(
        const KXEntityDescription &entity, const Properties &properties, const Keys *keys, bool &isSparse);
    [[nodiscard]] KXStatement rowStatement(
        const KXEntityDescription &entity, const Properties &properties, KeyRange range);
    [[nodiscard]] KXStatement rowStatementWhere(
        const KXEntityDescription &entity, const Properties &properties, const QByteArray &keyCondition);
    template <typename Take> [[nodiscard]] KXError eachRow(KXStatement statement, Take &&take)
    {
        if (!statement)
            return m_connection->lastError();
        int code;
        while ((code = step(statement)) == SQLITE_ROW)
            take(statement.integer(0),
                [&statement](size_t i) { return KXColumnValue(sqlite3_column_value(statement.get(), int(i) + 1)); });
        return code == SQLITE_DONE ? KXError() : m_connection->lastError();
    }
    [[nodiscard]] KXStatement linkStatement(
        const KXEntityDescription &entity, const Path &path, const KXPropertyDescription *attribute, const Keys *keys);
    template <typename Take> [[nodiscard]] KXError eachLink(KXStatement statement, Take &&take)
    {
        if (!statement)
            return m_connection->lastError();
        int code;
        while ((code = step(statement)) == SQLITE_ROW)
            take(statement);
        return code == SQLITE_DONE ? KXError() : m_connection->lastError();
    }
    [[nodiscard]] static std::vector<qint64> sorted(Keys keys);

    KXStoreConnections::Reader m_connection;
    std::optional<KXReadTransaction> m_transaction;
    const std::atomic<bool> *m_stop = nullptr;
    QByteArray m_keyList; // bound to the statement that is read
};
