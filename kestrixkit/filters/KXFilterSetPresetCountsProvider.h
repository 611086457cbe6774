#pragma once

#include <functional>
#include <optional>

#include <kestrixkit/context/KXManagedObjectContextOperation.h>
#include <kestrixkit/filters/KXFilterSetMapper.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>

/// Counts what one preset matches in one place of the application, in the background: the host subclasses it.
///
/// A subclass overrides loadCounts(). There it fetches the preset's filter set anew in localContext(), by
/// filterSetURI(), turns it into a predicate (with the mapper, where the place needs one), joins that with
/// basePredicates(), counts and hands the number to deliverCount(). The preset itself belongs to the main thread and is
/// not touched there.
///
/// Made and configured on the main thread, then queued by KXFilterSetPresetCountsScheduler.
class KX_CORE_EXPORT KXFilterSetPresetCountsProvider : public KXManagedObjectContextOperation
{
public:
    KXFilterSetPresetCountsProvider(KXRef<KXFilterSetPreset> preset, QString contextIdentifier);
    ~KXFilterSetPresetCountsProvider() override;

    /// For the main thread. Setting another one takes its identifier and URI over.
    [[nodiscard]] const KXRef<KXFilterSetPreset> &filterSetPreset() const { return m_preset; }
    void setFilterSetPreset(KXRef<KXFilterSetPreset> preset);
    // What the operation's own thread may know of the preset.
    [[nodiscard]] const KXManagedObjectID &presetID() const { return m_presetID; }
    [[nodiscard]] const QUrl &filterSetURI() const { return m_filterSetURI; }

    /// The place that the count is kept under.
    [[nodiscard]] const QString &contextIdentifier() const { return m_contextIdentifier; }
    void setContextIdentifier(const QString &identifier) { m_contextIdentifier = identifier; }
    /// What holds for everything in that place, to be joined with the preset's own predicate.
    [[nodiscard]] const QList<KXPredicate> &basePredicates() const { return m_basePredicates; }
    void setBasePredicates(const QList<KXPredicate> &predicates) { m_basePredicates = predicates; }
    [[nodiscard]] const std::shared_ptr<const KXFilterSetMapper> &filterSetMapper() const { return m_mapper; }
    void setFilterSetMapper(std::shared_ptr<const KXFilterSetMapper> mapper) { m_mapper = std::move(mapper); }
    /// What a subclass says went wrong.
    [[nodiscard]] KXError error() const;

    /// Runs loadCounts(), also when cancelled: a subclass asks isCancelled() itself. A KXException is logged and ends
    /// the operation; what else is thrown ends it, too, and is passed on.
    void start() override;
    /// Whether start() was called, by now perhaps done.
    [[nodiscard]] bool hasStarted() const { return m_started.load(std::memory_order_acquire); }

protected:
    /// Nothing but the end, unless overridden.
    virtual void loadCounts();
    /// Has the main thread set the count on the preset in a later turn, unless the operation is cancelled by then. With
    /// a date it is one that grows old: see KXFilterSetPreset::setCount().
    void deliverCount(qint64 count, const QDateTime &counted = {});
    /// The same for a count that is asked for on the main thread in that turn; an absent one is not set.
    void deliverCountFrom(std::function<std::optional<qint64>(const KXFilterSetPreset &preset)> count);
    void setError(const KXError &error);

private:
    KXRef<KXFilterSetPreset> m_preset;
    KXManagedObjectID m_presetID;
    QUrl m_filterSetURI;
    QString m_contextIdentifier;
    QList<KXPredicate> m_basePredicates;
    std::shared_ptr<const KXFilterSetMapper> m_mapper;
    mutable std::mutex m_errorMutex;
    KXError m_error;
    std::atomic<bool> m_started { false };
};
