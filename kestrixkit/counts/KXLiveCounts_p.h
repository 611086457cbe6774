#pragma once

#include <deque>
#include <unordered_map>
#include <vector>

#include <kestrixkit/context/KXContextRows_p.h>
#include <kestrixkit/counts/KXCountWorker_p.h>
#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXTextMap.h>

/// The rules of live counts, what of them depends on the time, and the table that counts them, here or away.
class KXLiveCountsPrivate
{
public:
    /// A date in a predicate that moves along with the clock.
    struct MovingDate
    {
        QString keyPath;
        qint64 milliseconds;
    };
    struct Entry
    {
        KXLiveCounts::Rule rule;
        KXPredicate own;
        int number = -1; ///< in the table
        std::vector<MovingDate> moving;
        bool dependsOnTime = false;
        bool isCondition = false;
        bool isConstant = false; ///< the rule says the same at any moment
        bool isDue = false; ///< the rule is to be asked, and the table to be told
        std::optional<qint64> shown; ///< while the table is away
        const QString *identifier = nullptr; ///< of a rule that is counted
        std::optional<qint64> tag;
    };

    KXLiveCountsPrivate(KXLiveCounts *counts, KXManagedObjectContext::Ref managedObjectContext, const QString &name,
        QList<KXPredicate> predicates)
        : q(counts)
        , context(std::move(managedObjectContext))
        , entityName(name)
        , base(std::move(predicates))
        , table(*context, KXContextRows(*context).entity(name))
        , timer(counts)
        , worker(table, [this] { takeBack(); })
    {
    }

    /// More rules than these are told in several turns of some milliseconds, lest a window stand still; fewer are there
    /// at once, however slow the machine.
    static constexpr size_t rulesAtOnce = 100;
    static constexpr int slice = 4; ///< ms of a turn

    [[nodiscard]] KXPredicate whole(const KXPredicate &own) const
    {
        if (base.isEmpty())
            return own ? own : KXPredicate::truePredicate();
        return KXPredicate::andPredicate(base + QList<KXPredicate> { own });
    }
    /// What the rule says at asOf.
    void ask(Entry &entry);
    /// Asks, and tells the table, which must be here.
    void tell(Entry &entry);
    void becomesDue(Entry &entry);
    /// Tells what is due, or as much of it as a turn has time for. False where some is left.
    bool tellDue(bool atOnce);
    /// The table is here and knows all rules.
    void settle();
    void setDependsOnTime(Entry &entry, bool depends);
    void setRule(const QString &identifier, KXLiveCounts::Rule rule, bool isConstant);
    void scheduleUpdate();
    void scheduleTimer();
    void publish();
    [[nodiscard]] std::optional<qint64> countOf(const Entry &entry) const;
    [[nodiscard]] qint64 nextBoundary();

    // The table on another thread.
    [[nodiscard]] bool isAway() const { return worker.isAway(); }
    bool sendAway();
    bool makeUp(KXError *error);
    void takeBack();
    /// Waits for the table, for what cannot do without.
    void bringHome();
    void follow(const KXObjectsDidChange &did);
    bool count(KXError *error);
    void updateDidEnd(bool answered, const KXError &problem);

    KXLiveCounts *const q;
    const KXManagedObjectContext::Ref context;
    const QString entityName;
    const QList<KXPredicate> base;
    KXCountTable table;
    KXTextMap<Entry> entries; // each stays where it is
    std::deque<QString> due; // entries, some of which may be gone or told
    bool areManyDue = false; // or were when the telling began
    std::vector<Entry *> numbered; // entries by their numbers in the table
    bool areIdentifiersTold = false; // somebody listens to countsDidChange()
    std::unordered_map<int, Entry> conditions; // by number in the table
    std::vector<Entry *> timed; // those of both that depend on the time: few, and looked at after every change
    qint64 asOf = KXClock::now().toMSecsSinceEpoch();
    KXDelayedCall timer;
    KXNotificationToken token;
    bool isScheduled = false;
    quint64 lastTurn = 0; // that was scheduled: earlier ones, which somebody was faster than, do nothing
    qint64 mostRowsAtOnce = 10'000;
    std::vector<KXObjectsDidChange> missed; // while the table was away
    std::vector<int> removed; // rules, meanwhile
    KXCountWorker worker;
};
