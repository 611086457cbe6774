#pragma once

#include <mutex>
#include <optional>

#include <QDateTime>
#include <QHash>

#include <kestrixkit/catalogue/KXCatalogueGlobal.h>
#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/predicate/KXPredicate.h>

/// Counts that a catalogue gave, with the time at which it did; and whether it could be reached lately. Any thread.
class KX_CATALOGUE_EXPORT KXCatalogueCountsCache
{
public:
    /// A count, and when the catalogue gave it.
    struct Known
    {
        qint64 count = 0;
        QDateTime when = {}; ///< KXClock's, UTC
    };
    static constexpr qsizetype MostCounts = 10'000;

    /// Of a rule that depends on the present `rule` is the one of a moment that is always the same, so that it is found
    /// again later. Empty where nothing is known.
    [[nodiscard]] std::optional<Known> known(const KXPredicate &rule) const;
    /// The same, unless it is older than so many seconds.
    [[nodiscard]] std::optional<Known> known(const KXPredicate &rule, double youngerThan) const;
    void keep(const KXPredicate &rule, qint64 count);
    void clear();

    /// Why the catalogue could not be asked less than so many seconds ago; no error where it could, or nobody tried.
    [[nodiscard]] KXError failure(double youngerThan) const;
    /// No error: it answered.
    void noteFailure(const KXError &error);

private:
    mutable std::mutex m_mutex; ///< of everything below
    QHash<KXPredicate, Known> m_counts;
    KXError m_failure;
    QDateTime m_failedAt;
};
