#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include <QHash>

#include <kestrixkit/foundation/KXLock_p.h>
#include <kestrixkit/search/KXSearchReading_p.h>
#include <kestrixkit/search/KXSearchSegment_p.h>

/// A row that has changed since its group was read.
struct KXSearchChangedRow
{
    KXSearchRowText text;
    bool isThere = true; ///< false: deleted
    quint64 event = 0; ///< counts what was noted; the later, the higher
    std::optional<quint32> row; ///< its former self in the segment
    bool isAddition = false; ///< its former self's words are still its own, beside those that stand here
    quint32 rowsBefore = 0; ///< how many of the segment's rank higher
};

/// One group as a search sees it: what was read, and over it what has changed. Copying is cheap.
struct KXSearchGroupState
{
    std::shared_ptr<const KXSearchSegment> segment;
    QHash<qint64, std::shared_ptr<const KXSearchChangedRow>> changed; ///< by key
};

/// Rows of a group's earlier words, kept from keystroke to keystroke. One thread at a time.
class KXSearchMemory
{
public:
    /// The rows that the word finds in the segment; `inside`: within words.
    [[nodiscard]] std::shared_ptr<const KXSearchBits> rows(const std::shared_ptr<const KXSearchSegment> &segment,
        const QByteArray &word, bool inside, const KXSearchStop &stop);

private:
    struct Entry
    {
        QByteArray word;
        bool inside;
        std::shared_ptr<const KXSearchBits> bits;
    };
    static constexpr size_t Most = 16;
    std::shared_ptr<const KXSearchSegment> m_segment;
    std::deque<Entry> m_entries;
};

/// Finds the best rows of a group, and how many there are. Throws KXSearchStop::Stopped and KXSearchDamage.
struct KXSearchFound
{
    qint64 count = 0;
    std::vector<qint64> first; ///< keys
};
[[nodiscard]] KXSearchFound KXSearchFind(const KXSearchGroupState &group, const std::vector<QByteArray> &words,
    size_t limit, KXSearchMemory &memory, const KXSearchStop &stop);
