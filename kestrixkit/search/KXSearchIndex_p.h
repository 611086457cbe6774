#pragma once

#include <atomic>
#include <deque>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXOperationQueue.h>
#include <kestrixkit/search/KXSearchFile_p.h>
#include <kestrixkit/search/KXSearchIndex.h>
#include <kestrixkit/search/KXSearchPlan_p.h>
#include <kestrixkit/search/KXSearchState_p.h>

/// Rows to be read; beyond so many everything is read anew.
inline constexpr size_t KXSearchMostDue = 20'000;
/// Seconds without changes after which what changed is read, and kept.
inline constexpr double KXSearchPause = 2;

/// What an index consists of. Its own thread is that of its context; what others touch is behind the mutexes.
class KXSearchIndexPrivate
{
public:
    KXSearchIndexPrivate(KXSearchIndex *index, KXManagedObjectContext::Ref managedObjectContext,
        QList<KXSearchGroup> searchGroups, const QString &name);

    // Opening and reading the store: KXSearchIndex.cpp.

    /// What reading the store gave.
    struct Built
    {
        qint64 changeNumber = 0;
        quint64 event = 0; ///< what was noted up to this is in it
        int installs = 0; ///< when it was begun
        std::vector<QByteArray> bytes; ///< by group
        std::vector<std::shared_ptr<const KXSearchSegment>> segments;
    };
    [[nodiscard]] bool openFile();
    /// Any thread. Throws KXSearchStop::Stopped.
    [[nodiscard]] KXError build(Built &built, const KXSearchStop &stop);
    /// Up to what was noted the store has it all.
    [[nodiscard]] quint64 eventInStore();
    void install(Built built);
    void buildInBackground();
    void damaged();
    void become(qint64 changeNumber, std::vector<std::shared_ptr<const KXSearchSegment>> segments, quint64 event);

    // Searching: KXSearchIndex.cpp.

    /// Throws what KXSearchFind() throws.
    [[nodiscard]] KXSearchResults find(const QString &term, qsizetype limit, const KXSearchStop &stop);
    void startSearch();

    // What the context announces, and others save: KXSearchFollowing.cpp.

    /// Those of a group's direct texts that an edit changed, one bit each (of the first 63); none where all of the
    /// row is to be read.
    using Texts = std::optional<quint64>;
    using Affected = QHash<qint64, Texts>; // by key

    /// A row to be read.
    struct Due
    {
        quint64 event = 0;
        bool isUnsaved = false; ///< perhaps: only the context's objects know
        Texts texts; ///< of an edit of a row that was right before
    };

    void follow(const KXObjectsDidChange &did);
    void followOwnSave(const KXStoreChange &change);
    void noteUnsaved();
    [[nodiscard]] Affected affected(const KXObjectsDidChange &did, const KXSearchPlan::Group &group) const;
    [[nodiscard]] QSet<qint64> leadingTo(
        const KXSearchPlan::Group &group, const KXSearchPath &path, size_t steps, const QSet<qint64> &keys) const;
    void noteDue(size_t group, const Affected &rows);
    void noteSave(const KXStoreChange &change);
    /// Moves knownNumber on over the saves that are in the index.
    void advance();
    void pause();

    // Reading rows that have changed: KXSearchChanges.cpp.

    /// Has what is due read, as far as that is not left to a search or to the next pause.
    void settle(bool all);
    /// What an edit has only added to a row, or made of its rank, needs no more than the object itself.
    void takeAdditions(size_t group, QHash<qint64, Due> &events);
    void readObjects();
    void fetchPaths(const QList<KXRef<KXManagedObject>> &objects, const KXSearchPlan::Group &group);
    /// Any thread. False where it is better to read everything anew.
    bool readDue(const KXSearchStop &stop);
    void setChanged(size_t group, const std::vector<qint64> &keys, std::vector<KXSearchRowText> rows,
        const QHash<qint64, Due> &events);
    [[nodiscard]] size_t dueCount();
    [[nodiscard]] size_t changedCount();

    // Keeping: KXSearchFollowing.cpp.

    [[nodiscard]] std::optional<KXSearchFile::Changes> changesToKeep();
    void keepInBackground();

    KXSearchIndex *const q;
    const KXManagedObjectContext::Ref context;
    const QList<KXSearchGroup> groups;
    const KXSearchPlan plan;
    KXPersistentStorePrivate *const store; ///< nullptr where there is none
    std::unique_ptr<const KXSearchFile> file; ///< none for an index without name

    bool isOpen = false;
    bool isBuilding = false;
    bool buildAgain = false;
    int installs = 0; ///< how often something was read; what was begun before the last one is of no use
    qint64 indexNumber = 0; ///< change number of what was read; 0 where the store has none
    qint64 knownNumber = 0; ///< what was saved up to this is in the index
    std::atomic<qint64> fileNumber { -1 }; ///< of the index that lies in the file
    std::atomic<qint64> keptNumber { -1 }; ///< of what was last kept beside it
    quint64 cleanEvent = 0; ///< the last at which nothing was unsaved
    double lastBuildSeconds = 0;
    qint64 lastBuildEnd = 0; ///< milliseconds since 1970

    struct Search
    {
        QString term;
        qsizetype limit = 0;
        std::function<void(const KXSearchResults &)> receiver;
        quint64 number = 0;
        bool isWaiting = false; ///< for the index to open
    };
    Search wanted;
    std::atomic<quint64> searchNumber { 0 };
    std::atomic<quint64> buildNumber { 0 };

    KXMutex mutex;
    std::vector<KXSearchGroupState> states KX_GUARDED_BY(mutex);
    std::vector<QHash<qint64, Due>> due KX_GUARDED_BY(mutex); // by key
    quint64 event KX_GUARDED_BY(mutex) = 0;
    struct Save
    {
        quint64 serial;
        qint64 before;
        qint64 after;
        bool isIn;
    };
    std::deque<Save> saves KX_GUARDED_BY(mutex);

    KXMutex searching; ///< one at a time
    std::vector<KXSearchMemory> memories KX_GUARDED_BY(searching);

    KXDelayedCall pauseCall;
    KXPersistentStoreCoordinator::ChangeToken changeToken;
    KXNotificationToken didChangeToken;
    KXNotificationToken didSaveToken;
    KXOperationQueue builder; ///< and writer of files
    KXOperationQueue searcher;
};
