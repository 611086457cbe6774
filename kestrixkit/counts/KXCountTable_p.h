#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include <QHash>
#include <QSet>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/counts/KXCountColumn_p.h>
#include <kestrixkit/foundation/KXTextMap.h>

class KXRowReader;

/// Told of the rows of a table, to keep something right that is made of them.
class KX_CORE_EXPORT KXCountWatcher
{
public:
    virtual ~KXCountWatcher();
    /// The row has been there, and is about to change or to go.
    virtual void rowLeaves(size_t row) = 0;
    /// The row is there, new or changed.
    virtual void rowEnters(size_t row) = 0;
    /// What the paths of a relationship reach from the sets is something else. All rows with these have left.
    virtual void setsDidChange(const KXCountColumn &column, const std::vector<quint32> &sets) = 0;
    /// Rows have other numbers, or have gone.
    virtual void rowsDidMove() = 0;
};

/// A rule over slots: most are one slot alone.
struct KXCountNode
{
    enum Kind : quint8 { Slot, And, Or, Not, True, False };
    Kind kind = True;
    int slot = 0;
    std::vector<KXCountNode> parts;
};

/// How many objects of an entity fit each of a number of rules, kept right while the objects change.
///
/// Holds of each object the properties that rules look at, in columns. A rule is a set of conditions, one a column,
/// that must all hold: that is one bit in the columns' rows of bits (a slot), and a row's bits for all rules are found
/// by joining as many words as there are columns. What cannot be put so is a tree over several slots. Counting all rows
/// adds up their bits; a changed row is counted out with its old bits and in with its new ones.
///
/// Belongs to the thread of the context, which must outlive it. Rows are what the context has announced.
class KX_CORE_EXPORT KXCountTable
{
public:
    KXCountTable(KXManagedObjectContext &context, const KXEntityDescription &entity);
    ~KXCountTable();
    Q_DISABLE_COPY_MOVE(KXCountTable)

    // Rules, by the numbers that they are given.

    int addRule(const KXPredicate &predicate);
    /// Counts again, looking at no more rows than the change concerns.
    void replaceRule(int rule, const KXPredicate &predicate);
    void removeRule(int rule);
    [[nodiscard]] const KXPredicate &predicate(int rule) const { return m_rules[size_t(rule)].predicate; }
    /// Why columns cannot hold what the rule looks at; empty where they can.
    [[nodiscard]] const QString &reason(int rule) const { return m_rules[size_t(rule)].reason; }
    /// -1 before the first counting, and while the store does not answer.
    [[nodiscard]] qint64 count(int rule) const { return m_rules[size_t(rule)].count; }
    /// Rules whose counts changed since the last call.
    [[nodiscard]] std::vector<int> takeChanged();
    /// A rule that is not counted: it is asked about rows.
    int addCondition(const KXPredicate &predicate);
    /// Changes with what the rule means.
    [[nodiscard]] quint64 revision(int rule) const { return m_rules[size_t(rule)].revision; }

    // Rows, for watchers; right after an update().

    [[nodiscard]] bool isWatched() const { return !m_watchers.empty(); }
    void addWatcher(KXCountWatcher *watcher) { m_watchers.push_back(watcher); }
    void removeWatcher(KXCountWatcher *watcher) { std::erase(m_watchers, watcher); }
    [[nodiscard]] bool hasRows() const { return m_hasRows; }
    [[nodiscard]] bool isAlive(size_t row) const { return m_alive[row]; }
    [[nodiscard]] bool isAnyDead() const { return m_dead > 0; }
    [[nodiscard]] bool fitsAll(int rule) const { return m_rules[size_t(rule)].tree.kind == KXCountNode::True; }
    /// Whether a living row fits the rule, which columns can hold.
    [[nodiscard]] bool rowFits(int rule, size_t row) const { return fits(m_rules[size_t(rule)].tree, row); }

    /// Where the values of a key path are.
    struct Place
    {
        KXCountColumn *column;
        int path; ///< of the column
        bool isList; ///< may reach any number of values
        const KXPropertyDescription *last; ///< what the path ends with; null where that is a number of values
    };
    /// Makes the column, which update() reads. Absent, with the reason, where columns cannot hold it.
    [[nodiscard]] std::optional<Place> place(const QString &keyPath, QString *reason = nullptr);

    /// Reads what columns lack and counts what is not counted yet; rules that columns cannot hold are counted by the
    /// store when anything that they look at has changed. False with an error where the store does not answer; the next
    /// call tries again.
    bool update(KXError *error = nullptr);

    // The parts of update() that take long with many rows, for doing them elsewhere: any thread may do the first and
    // the last, as long as no other touches the table.

    /// Whether more than so many rows are to be read or counted.
    [[nodiscard]] bool hasMoreToDo(qint64 rows);
    /// Reads what columns lack. False with an error where the store does not answer: forgetRows() is due then. Ends
    /// early once the flag is set; the table is of no use then.
    bool readRows(KXError *error, const std::atomic<bool> *stop = nullptr);
    /// Before readRows() is done elsewhere: what is unsaved in the context now, and may be saved before joinContext().
    /// The context's thread.
    void holdUnsaved();
    /// Adds to what was read what only the context knows. False as with readRows(). Its thread.
    bool joinContext(KXError *error);
    /// Counts the rules that columns can hold and that are not counted yet.
    void countRows();
    void forgetRows();

    /// Takes over what the context announced.
    void follow(const KXObjectsDidChange &did);

    /// The smallest number from `from` on that a row has in the column of numbers; KXCountColumn::absent where there is
    /// none.
    [[nodiscard]] qint64 nextNumber(const QString &attribute, qint64 from);

    // For measuring and tests.

    [[nodiscard]] size_t rowCount() const { return m_keys.size(); }
    [[nodiscard]] double bytesPerRow() const;
    /// Rules (slots, of those that have several) that were evaluated for a row, each once for its old and new state
    /// together.
    [[nodiscard]] quint64 evaluations() const { return m_evaluations; }
    /// Forgets all counts, for measuring how long counting takes.
    void forgetCounts();

private:
    class RuleCompiler; // KXCountRules.cpp
    static constexpr size_t countDeadAllowed = 4096;
    /// Two threads read and count where there may be as many rows.
    static constexpr qint64 countFewestForTwo = 50'000;

    struct Rule
    {
        bool isUsed = false;
        KXPredicate predicate;
        QString reason;
        std::vector<int> slots;
        KXCountNode tree;
        qint64 count = -1;
        bool isCounted = false;
        bool isCondition = false; ///< never to be counted
        bool isRefused = false; ///< a fetch by it is an error: it has no count
        bool hasChanged = false;
        quint64 revision = 0;
        QSet<QString> allKeys; ///< of the paths of a rule that the store counts
    };
    /// Numbers of one column in order, with those that changed since they were put in order.
    struct Order
    {
        std::vector<std::pair<qint64, quint32>> sorted;
        std::vector<quint32> changed;
    };

    /// What of a context's objects is not saved.
    struct Unsaved
    {
        QList<KXRef<KXManagedObject>> inserted, updated, deleted;
    };

    // Rows: KXCountTable.cpp.
    [[nodiscard]] qint64 rowOf(qint64 key) const;
    [[nodiscard]] bool has(qint64 row) const { return row >= 0 && m_alive[size_t(row)]; }
    size_t addRow(qint64 key);
    void bury(size_t row);
    void compact();
    void setFromObject(size_t row, KXManagedObject *object, size_t column);
    void noteOrder(size_t column, size_t row);
    Order &orderOf(size_t column);
    [[nodiscard]] std::vector<quint32> rowsBetween(size_t column, qint64 from, qint64 to);

    // Counting: KXCountScan.cpp.
    void countArrivals();
    /// A row's bits; none of a row that is not there.
    void bits(qint64 row, quint64 *out) const;
    [[nodiscard]] bool fits(const KXCountNode &node, const quint64 *bits) const;
    [[nodiscard]] bool fits(const KXCountNode &node, size_t row) const;
    [[nodiscard]] static bool isSettled(const Rule &rule) { return !rule.isUsed || rule.isCounted || rule.isCondition; }
    void count(const quint64 *before, bool was, const quint64 *after, bool is);
    template <typename Change> void changeRow(qint64 key, Change &&change);
    void noteChange(int rule);
    void scan();
    void scanLane(size_t lane, size_t from, size_t to, std::vector<qint64> &counts) const;

    // What the context announces: KXCountFollowing.cpp.
    void followObjects(const KXObjectsDidChange &did);
    void followMerge(const KXStoreChange &change);
    void followRelated(const KXObjectsDidChange &did);
    void markForStore(const KXObjectsDidChange &did);
    void setFromChange(size_t row, const KXPropertyChange &change, size_t column);
    [[nodiscard]] QSet<qint64> leadingTo(const KXEntityDescription &from, const QStringList &path,
        const KXEntityDescription &to, const QSet<qint64> &keys) const;
    void noteEvaluations(const std::vector<size_t> &columns);
    void expect(const std::vector<qint64> &keys);
    void changeSets(size_t column, const std::vector<quint32> &sets);

    // Reading: KXCountReading.cpp.
    void readSets(const std::vector<size_t> &columns);
    bool read(const std::vector<size_t> &columns, const std::vector<qint64> *keys, bool addsRows, KXError *error,
        const std::atomic<bool> *stop = nullptr);
    bool readMembers(KXRowReader &reader, size_t column, const std::vector<qint64> *keys, KXError *error);
    [[nodiscard]] Unsaved unsaved() const;
    void overlay(const std::vector<size_t> &columns, bool rowsToo, const Unsaved &before);
    void overlayArrivals(const Unsaved &before);
    bool countByStore(KXError *error);
    void joinContext();
    void fillRelated(const KXEntityDescription &entity, const std::vector<qint64> &keys);
    [[nodiscard]] QVariant objects(const KXPropertyDescription &relationship, const std::vector<qint64> &keys);

    // Rules: KXCountRules.cpp.
    void compile(Rule &rule, int number);
    bool moveBounds(int number, const KXPredicate &predicate);
    void releaseSlots(Rule &rule);
    int addRule(const KXPredicate &predicate, bool isCondition);
    int columnFor(const KXPropertyDescription &property);
    /// Throws the reason, a QString.
    Place findPlace(const KXExpression &path);

    KXManagedObjectContext &m_context;
    const KXEntityDescription &m_entity;
    std::vector<std::unique_ptr<KXCountColumn>> m_columns;
    KXTextMap<size_t> m_columnsByName;
    std::vector<bool> m_isRead; // by column
    std::vector<size_t> m_reading; // columns that joinContext() is to complete
    bool m_isReadingRows = false;
    Unsaved m_unsaved; // when reading began
    KXError m_missed; // why related objects could not be read
    std::vector<qint64> m_arrivals; // keys of rows that are there and neither read nor counted
    bool m_isSettled = false; // nothing is to be read or counted: asked after each change
    std::vector<bool> m_isDirty; // by column: conditions changed since its rows of bits were made
    std::vector<qint64> m_keys; // by row; those up to m_sorted ascend
    size_t m_sorted = 0;
    size_t m_room = 0; // rows that the columns have room for
    std::unordered_map<qint64, quint32> m_strays; // rows behind
    std::vector<bool> m_alive;
    size_t m_dead = 0;
    bool m_hasRows = false;

    std::vector<Rule> m_rules;
    std::vector<int> m_owners; // of slots; -1: free
    size_t m_words = 0; // of a row of bits
    std::vector<int> m_trees; // rules that are not one slot
    std::vector<int> m_byStore; // rules that the store counts, as of the last update()
    std::vector<int> m_changed;
    std::map<size_t, Order> m_orders; // by column
    quint64 m_evaluations = 0;
    quint64 m_revision = 0; // the newest of the rules
    std::vector<KXCountWatcher *> m_watchers;
};

/// Counts a row out as it was and in as `change` has made it; that gets the row's number, or -1 where there is none
/// yet.
template <typename Change> void KXCountTable::changeRow(qint64 key, Change &&change)
{
    std::array<quint64, 64> onStack; // enough for two rows of bits of 2,048 slots
    KXCountBits more(m_words * 2 > onStack.size() ? m_words * 2 : 0);
    quint64 *before = more.empty() ? onStack.data() : more.data();
    quint64 *after = before + m_words;
    const qint64 row = rowOf(key);
    const bool was = has(row);
    bits(row, before);
    for (KXCountWatcher *watcher : m_watchers) {
        if (was)
            watcher->rowLeaves(size_t(row));
    }
    change(row);
    const qint64 now = row >= 0 ? row : rowOf(key);
    bits(now, after);
    count(before, was, after, has(now));
    for (KXCountWatcher *watcher : m_watchers) {
        if (has(now))
            watcher->rowEnters(size_t(now));
    }
}
