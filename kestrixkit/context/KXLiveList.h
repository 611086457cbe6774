#pragma once

#include <functional>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXAlive.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

/// One step from what a live list was to what it is, in places of the list before that step.
struct KXListStep
{
    enum Kind : quint8 {
        Insertion, ///< of `count` rows in front of `first`
        Removal,
        Move, ///< of one row to in front of the one at `to`
        Update, ///< the rows stay; values of theirs changed
        Reordering, ///< any rows changed places; indexesOf() tells to where
    };
    Kind kind;
    qsizetype first = 0;
    qsizetype count = 0;
    qsizetype to = 0;
};

/// Told of the steps of a live list. Must neither change nor save objects in these calls.
class KX_CORE_EXPORT KXLiveListObserver
{
public:
    virtual ~KXLiveListObserver();
    /// The list is as it was before the step. Not called for updates.
    virtual void listWillChange(const KXListStep &step) = 0;
    virtual void listDidChange(const KXListStep &step) = 0;
};

/// The result of a fetch that stays true: it follows the context's unsaved changes and what it merges of other savers,
/// row by row, and says which rows left, came and moved.
///
/// Holds eight bytes a row. A change costs one pass over these, a look at the changed rows and some twenty others for
/// each of them; where most of the rows changed, or a row may have been looked at too early (when another context had
/// saved it, but this one had not merged that yet), everything is fetched again. Either way rows keep their identity.
/// A list with limit or offset, or one that sorts or filters by values of other entities, is fetched again whenever a
/// change may concern it.
///
/// A long list of a whole entity, sorted by an indexed attribute or not at all, opens with its first rows and their
/// number alone, in a few milliseconds; the rest is fetched a moment later, when they are on the screen, by another
/// thread, or as soon as a row of it is asked for.
///
/// Follows what the context announces, so it changes at the end of the turn, before a save and with a merge, unless it
/// is told not to take all at once. Belongs to the thread of its context; when that is gone it answers no objects.
class KX_CORE_EXPORT KXLiveList
{
public:
    /// Fetches at once. The observer, which may be nullptr, must outlive the list.
    KXLiveList(const KXManagedObjectContext::Ref &context, const KXFetchRequest &request,
        KXLiveListObserver *observer = nullptr);
    ~KXLiveList();
    Q_DISABLE_COPY_MOVE(KXLiveList)

    [[nodiscard]] qsizetype size() const { return m_complete ? qsizetype(m_keys.size()) : m_openedSize; }
    [[nodiscard]] bool isEmpty() const { return size() == 0; }
    /// The object at the place, its values in memory; empty outside the list.
    [[nodiscard]] KXRef<KXManagedObject> at(qsizetype index) const;
    template <class Class> [[nodiscard]] KXRef<Class> as(qsizetype index) const
    {
        return KXDynamicRefCast<Class>(at(index));
    }
    /// Null outside the list.
    [[nodiscard]] KXManagedObjectID objectID(qsizetype index) const;
    /// 0 outside the list; no key of an object for a row that has gone and is about to leave the list.
    [[nodiscard]] qint64 key(qsizetype index) const;
    /// All keys in the order of the list.
    [[nodiscard]] const std::vector<qint64> &keys() const;
    /// The place of each key, -1 for one that is not in the list; one pass for all of them.
    [[nodiscard]] std::vector<qsizetype> indexesOf(std::span<const qint64> keys) const;

    [[nodiscard]] const KXFetchRequest &request() const { return m_request; }
    /// Of the same entity. Rows that are in both results keep their identity.
    void setRequest(const KXFetchRequest &request);
    /// For views that must not hold up their window: of rows that others have inserted at most so many are taken over
    /// in a turn, the rest in the next ones, told step by step like any other change. 0, as it is at first: all with
    /// the merge. Main thread; nothing elsewhere.
    void setArrivalsPerTurn(qsizetype rows);
    /// Whether rows of a merge are still to come.
    [[nodiscard]] bool isSettling() const { return !m_arrivals.empty(); }
    /// False where the store did not answer the last time, which was logged; the list is then as it was before, and
    /// fetched anew with the next change of its rows.
    [[nodiscard]] bool isValid() const { return m_valid; }
    /// How often everything was fetched so far.
    [[nodiscard]] int countOfFetches() const { return m_fetches; }

private:
    struct Touched;
    struct Aside;
    struct Seen
    {
        qint64 version;
        bool placed; ///< its place in the list follows this version
    };
    struct Remote
    {
        const KXEntityDescription *root;
        QString key;
    };

    void prepare();
    [[nodiscard]] bool openWithFirstRows();
    [[nodiscard]] bool fetchAll(std::vector<qint64> &keys);
    void assume(const std::vector<qint64> &keys);
    void complete() const;
    void completeAside();
    void takeAside();
    void noteFetch();
    void follow(const KXObjectsDidChange &did);
    void takeArrivals(size_t most, Touched &touched);
    void placeArrivals();
    void settle();
    [[nodiscard]] Touched touchedBy(const KXObjectsDidChange &did);
    void touchByStore(const KXStoreChange &change, Touched &touched);
    void refetch();
    void place(const Touched &touched);
    [[nodiscard]] bool isBefore(qint64 key, const class KXSortedRow &object);
    void changeTo(std::vector<qint64> keys, const std::vector<qint64> &gone, const std::vector<qint64> &come);
    void changeStepwise(const std::vector<qint64> &keys, const std::vector<qint64> &gone,
        const std::vector<qint64> &come, const std::vector<qint64> &moved);
    void announceUpdates(const std::vector<qint64> &keys);
    void apply(const KXListStep &step, const std::function<void()> &change);

    std::weak_ptr<KXManagedObjectContext> m_context;
    KXManagedObjectContextPrivate *m_borrowed; // to be used only after the weak one was asked
    KXPersistentStoreCoordinator::Ref m_coordinator; // keeps the entity alive
    KXFetchRequest m_request;
    KXLiveListObserver *m_observer;
    const KXEntityDescription *m_entity;
    std::vector<qint64> m_keys;
    bool m_complete = true; // else these are the first of m_openedSize
    qsizetype m_openedSize = 0;
    std::unique_ptr<KXDelayedCall> m_later; // completes or places; who can do without has none
    std::shared_ptr<Aside> m_aside; // while another thread fetches all rows

    qsizetype m_arrivalsPerTurn = 0;
    std::vector<qint64> m_arrivals; // keys of rows that are still to be placed

    // What rows are looked at for.
    std::unique_ptr<class KXContextFetcher> m_fetcher;
    QSet<QString> m_directKeys;
    std::vector<Remote> m_remoteKeys;

    // Rows that were looked at, with the versions they had: a save that is merged later and turns out to have been seen
    // then has made their neighbours' places doubtful. The older half is forgotten as it grows.
    std::unordered_map<qint64, Seen> m_seen;
    std::unordered_map<qint64, Seen> m_seenBefore;
    quint64 m_fetchedUntil = 0; // serial of the newest save that the last fetch may have seen
    bool m_fetchedOverChanges = false;
    bool m_doubtful = false;
    bool m_valid = true;
    bool m_following = false;
    bool m_due = false;
    int m_fetches = 0;
    KXAlive m_alive;
    KXNotificationToken m_token;
};
