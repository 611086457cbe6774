#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <kestrixkit/counts/KXCountColumn_p.h>
#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/store/KXRowReader_p.h>

/// All rows of a table in parts, which two threads take from either end: whoever is faster takes more of them.
class KXCountParts
{
public:
    explicit KXCountParts(KXRowReader::KeyRange range);
    [[nodiscard]] std::optional<KXRowReader::KeyRange> takeFirst();
    [[nodiscard]] std::optional<KXRowReader::KeyRange> takeLast();
    /// Nobody is to take any more.
    void close();

private:
    [[nodiscard]] KXRowReader::KeyRange part(qint64 number) const;

    const KXRowReader::KeyRange m_range;
    const qint64 m_length; // keys of a part
    KXMutex m_mutex;
    qint64 m_next KX_GUARDED_BY(m_mutex) = 0;
    qint64 m_behind KX_GUARDED_BY(m_mutex); // the last that is left
};

/// Reads parts of a table from its end, by a thread of its own and into columns of its own, beside who reads it from
/// its beginning. Stops with the parts, or where its own reader is stopped.
class KXCountSecondReader
{
public:
    /// Borrows all of them. The reader must see the same state of the store as the first one.
    KXCountSecondReader(KXRowReader &reader, const KXEntityDescription &entity,
        const KXRowReader::Properties &properties, KXCountParts &parts);
    /// Waits.
    ~KXCountSecondReader();
    Q_DISABLE_COPY_MOVE(KXCountSecondReader)

    /// Waits, and puts what was read into the columns, into the rows that `rowFor(key)` names in the order of the keys.
    [[nodiscard]] KXError finish(
        const std::vector<KXCountColumn *> &into, const std::function<qint64(qint64 key)> &rowFor);

private:
    void read(KXRowReader &reader, const KXEntityDescription &entity, const KXRowReader::Properties &properties,
        KXCountParts &parts);
    void makeRoom();

    std::vector<std::unique_ptr<KXCountColumn>> m_columns;
    std::vector<qint64> m_keys; // by row
    std::vector<size_t> m_parts; // their first rows, in the order of reading
    size_t m_room = 0;
    KXError m_error;
    std::thread m_thread;
};
