#pragma once

#include <kestrixkit/context/KXManagedObjectContext_p.h>

/// One undo or redo under way: makes objects what they were before. Sets values and members, asks no delete rules and
/// sets no other ends: those were recorded themselves.
class KXContextReverter
{
public:
    using Entry = KXContextRecorder::Entry;

    explicit KXContextReverter(KXManagedObjectContextPrivate &context)
        : m_context(context)
    {
    }

    /// What undoes the entries, as long as the context lives.
    [[nodiscard]] static std::unique_ptr<KXUndoFact> factOf(
        KXManagedObjectContext *context, std::vector<Entry> entries);

    /// Answers entries that undo that, and what observers are to be told of afterwards.
    [[nodiscard]] std::vector<Entry> revert(std::vector<Entry> entries, KXChangesTogether &told);

private:
    void findAgain(Entry &entry);
    void dropFormerMembers(const std::vector<Entry> &entries);
    void revertValues(const std::vector<Entry> &entries, const QSet<qint64> &back);
    void linkOnce(KXManagedObject *object, const KXPropertyDescription &property, qint64 key, bool add);
    void linkEnds(KXManagedObject *object, const KXPropertyDescription &property, qint64 key, bool add);
    void reconnect(const Entry &entry);
    [[nodiscard]] bool isThere(const KXPropertyDescription &property, qint64 key);
    [[nodiscard]] bool isAlive(const KXManagedObject *object) const;

    KXManagedObjectContextPrivate &m_context;
};
