#pragma once

#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include <QSet>

#include <kestrixkit/context/KXContextReader_p.h>
#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXRef.h>

class KXUndoFact;
class KXUndoManager;

/// Turns what changes in a context into facts of its undo manager.
///
/// Objects are remembered as they were when they were first touched since the last boundary (a group opened or closed,
/// a turn ended, a save); at the boundary that and what has become of them is one fact. A fact holds values and keys,
/// and the objects themselves, so that undoing a deletion that was saved brings back the same instance.
class KXContextRecorder
{
public:
    struct Entry;
    /// Makes a fact of what was remembered.
    using MakeFact = std::function<std::unique_ptr<KXUndoFact>(std::vector<Entry>)>;
    using Take = std::function<void(std::vector<Entry>)>;

    /// Facts are those of the target; the store may be absent.
    KXContextRecorder(
        const void *target, const KXPersistentStorePrivate *store, KXContextReader &reader, MakeFact makeFact);
    ~KXContextRecorder();
    Q_DISABLE_COPY_MOVE(KXContextRecorder)

    [[nodiscard]] const std::shared_ptr<KXUndoManager> &manager() const { return m_manager; }
    void setManager(std::shared_ptr<KXUndoManager> manager);
    /// Instead of an undo manager the function gets what was remembered, until it is replaced by an empty one: for
    /// those who keep it without objects.
    void setTake(Take take);
    /// Whether anybody is to get what is remembered.
    [[nodiscard]] bool hasReceiver() const { return m_manager || m_take; }
    /// Whether changes are to be remembered now.
    [[nodiscard]] bool isRecording() const;

    // Called before the change, but for insertions.
    void didInsert(KXManagedObject *object);
    void willChange(KXManagedObject *object, int property);
    void willLink(KXManagedObject *object, int property, qint64 key, bool add);
    void willDelete(KXManagedObject *object);

    /// Hands what was remembered to the undo manager.
    void flush();
    /// Drops it, and all facts of the context that the undo manager has.
    void forget();

    /// Members that came to and went from a to-many relationship whose inverse is to-many, or that has none.
    struct Links
    {
        QSet<qint64> added;
        QSet<qint64> removed;
    };
    /// One object before and after.
    struct Entry
    {
        KXRef<KXManagedObject> object;
        bool existedBefore = true;
        bool existsAfter = true;
        KXRowValues::Owner before;
        KXRowValues::Owner after;
        KXPropertySet changed; ///< columns
        std::map<int, Links> links; ///< by the index of the relationship
        std::map<int, QSet<qint64>> membersBefore; ///< of an object that goes or comes: all its members
        std::map<int, QSet<qint64>> membersAfter;
        bool restored = false; ///< while it is reverted: a saved deletion was taken back, with all values
    };
    /// While facts are reverted nothing is remembered: the opposite facts are made of theirs. Answers how it was.
    [[nodiscard]] bool setReverting(bool reverting) { return std::exchange(m_reverting, reverting); }

private:
    Entry &entryOf(KXManagedObject *object);

    const void *const m_target;
    const KXPersistentStorePrivate *const m_store;
    KXContextReader &m_reader;
    const MakeFact m_makeFact;
    std::shared_ptr<KXUndoManager> m_manager;
    Take m_take;
    KXScopeToken m_boundary;
    std::unordered_map<KXManagedObject *, size_t> m_indexes;
    std::vector<Entry> m_entries; // in the order in which they were first touched
    bool m_reverting = false;
};
