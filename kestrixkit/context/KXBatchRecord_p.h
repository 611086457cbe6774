#pragma once

#include <optional>
#include <vector>

#include <kestrixkit/context/KXManagedObjectContext_p.h>

/// What one save changed, by identifiers and values, so that another context can take it back: it outlives the objects
/// and their context. Of one thread at a time; the model outlives it.
class KXBatchRecord
{
public:
    using Entry = KXContextRecorder::Entry;

    /// The keys are those that the change was asked for. The context is the one that has recorded, after its save.
    KXBatchRecord(std::vector<qint64> keys, std::vector<Entry> entries, const KXManagedObjectContextPrivate &context);

    [[nodiscard]] const std::vector<qint64> &keys() const { return m_keys; }

    struct Undone
    {
        std::vector<qint64> keys; ///< of those that the change was asked for
        qint64 kept = 0; ///< somebody has changed or brought them back since
    };
    /// Makes all what it was, unsaved. What was deleted comes back unless what it belongs to is gone.
    [[nodiscard]] Undone undo(KXManagedObjectContextPrivate &context) const;

private:
    struct Row
    {
        const KXEntityDescription *entity;
        qint64 key;
        qint64 formerVersion; ///< of a row that was deleted; 0 for others
        Entry entry; ///< without its object
    };
    [[nodiscard]] static bool isDeletion(const Entry &entry) { return entry.existedBefore && !entry.existsAfter; }
    void prune();
    void readEnds(KXManagedObjectContextPrivate &context, const QSet<qint64> &back) const;
    void dropOrphans(const KXManagedObjectContextPrivate &context, QSet<qint64> &back) const;
    [[nodiscard]] static std::optional<Entry> entryFor(
        KXManagedObjectContextPrivate &context, const Row &row, bool isBack, qint64 &kept);

    std::vector<qint64> m_keys;
    std::vector<Row> m_rows;
};
