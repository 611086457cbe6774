#pragma once

#include <functional>
#include <memory>

#include <QDateTime>
#include <QHash>
#include <QObject>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXError.h>

class KXCountTable;
class KXLiveCountsPrivate;

/// What is counted for who knows it by a number.
struct KXTaggedCount
{
    qint64 tag;
    std::optional<qint64> count; ///< as KXLiveCounts::count()
};
class KXWhatIfCountsPrivate;

/// How many objects of an entity fit each of a number of predicates, always right: while objects are edited, imported,
/// deleted, undone and merged, and while time goes by.
///
/// Keeps what the predicates look at in compact columns (see bytesPerObject()), reads it from the store once, and
/// follows from then on what the context announces; a changed object is evaluated against the predicates that use the
/// changed property, without a look into the store. Properties of related objects are followed as well. What columns
/// cannot hold, such as comparisons of two properties or binary values, is listed by unsupported() and counted by the
/// store, again whenever anything that it looks at has changed.
///
/// Counts are those of one moment, asOf(). Predicates that hold dates may depend on the present and are made anew as
/// time goes by: at the moments at which an object enters or leaves one of them, though not more often than four times
/// a second, and at calendar boundaries.
///
/// Belongs to the thread of its context, which it keeps. Counts change at the end of the turn in which objects changed,
/// before a save and with a merge: when the context announces. Where many objects are to be read or counted anew
/// another thread does that, and counts stay what they were until it is done.
class KX_CORE_EXPORT KXLiveCounts : public QObject
{
    Q_OBJECT

public:
    /// Makes a predicate; called with the thread's clock standing at asOf(). An absent predicate lets everything
    /// through.
    using Rule = std::function<KXPredicate()>;

    /// The base predicates hold for all counts. Throws KXException for an entity that the model does not have.
    KXLiveCounts(const KXManagedObjectContext::Ref &context, const QString &entityName,
        const QList<KXPredicate> &basePredicates = {}, QObject *parent = nullptr);
    ~KXLiveCounts() override;

    [[nodiscard]] const KXManagedObjectContext::Ref &managedObjectContext() const;
    [[nodiscard]] const QString &entityName() const;

    /// Sets what is counted under the identifier, in place of what was. The rule is asked and counted from the next
    /// turn on, or at once by update(); very many are asked in several turns, so that hundreds of presets hold up no
    /// window.
    void setRule(const QString &identifier, Rule rule);
    void setRule(const QString &identifier, const KXPredicate &predicate);
    void removeRule(const QString &identifier);
    /// A number of the caller's, such as an object's key, by which it is told of the count: taggedCountsDidChange().
    /// Nothing for an unknown identifier.
    void setTag(const QString &identifier, qint64 tag);
    [[nodiscard]] QStringList identifiers() const;
    /// The rule will be asked again like a new one, because what its predicate is made of has changed. It alone is
    /// counted anew, and where only bounds of numbers or dates moved, only what lies between the old and the new ones.
    void ruleDidChange(const QString &identifier);

    /// Absent for an unknown identifier, before the first counting, while the store does not answer, and for a
    /// predicate that compares what cannot be compared (see unsupported()).
    [[nodiscard]] std::optional<qint64> count(const QString &identifier) const;
    /// The predicate that is counted under the identifier, without the base predicates; the rule is asked if need be.
    [[nodiscard]] KXPredicate predicate(const QString &identifier) const;
    /// Identifiers that the store counts, with what columns cannot hold; and those that nobody counts, with the reason.
    [[nodiscard]] QHash<QString, QString> unsupported() const;

    /// The moment for which counts hold.
    [[nodiscard]] QDateTime asOf() const;
    /// Moves that moment to the present, now instead of when it is next due. Backwards too, where the clock was set
    /// back.
    void advance();
    /// When advance() is next due: an invalid date where nothing depends on the present.
    [[nodiscard]] QDateTime nextBoundary() const;

    /// Counts at once what is due, and waits for what another thread counts. False with an error where the store does
    /// not answer; that is logged and tried again with the next change.
    bool update(KXError *error = nullptr);
    /// Counts what is due: at once where that is little, otherwise on another thread.
    void updateSoon();
    /// Whether numbers are to come: another thread counts just now, or counting is due in the next turn. didUpdate()
    /// comes when it is done.
    [[nodiscard]] bool isCounting() const;
    /// More objects than these are much: 10,000 at first, where one that another context inserted stands for four.
    /// What-if counts, and contexts of other threads than the main one, never count on another thread.
    void setMostRowsAtOnce(qint64 rows);

    // What it costs.

    /// Memory of the columns for each object.
    [[nodiscard]] double bytesPerObject() const;
    /// Predicates that were evaluated for one object after a change, since the beginning.
    [[nodiscard]] quint64 evaluations() const;
    /// Counts everything from the filled columns once more, for measuring.
    void recount();

Q_SIGNALS:
    /// Before countsDidChange(), of those among them that have a tag: for who follows very many.
    void taggedCountsDidChange(const QList<KXTaggedCount> &counts);
    /// The counts of these identifiers have become others, or were made for the first time.
    void countsDidChange(const QStringList &identifiers);
    /// Everything that was due has been counted, whether or not that changed a count. After countsDidChange().
    void didUpdate();

protected:
    void connectNotify(const QMetaMethod &signal) override;

private:
    friend class KXWhatIfCountsPrivate;
    // Rules that are asked about rows instead of being counted, by their numbers in the table. The base predicates do
    // not hold for them.
    [[nodiscard]] KXCountTable &table() const;
    [[nodiscard]] const QList<KXPredicate> &basePredicates() const;
    int addCondition(Rule rule);
    void setCondition(int number, Rule rule);
    void removeCondition(int number);

    const std::unique_ptr<KXLiveCountsPrivate> d;
};
