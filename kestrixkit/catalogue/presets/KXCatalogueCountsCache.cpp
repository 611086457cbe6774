#include <kestrixkit/catalogue/presets/KXCatalogueCountsCache.h>

#include <kestrixkit/foundation/KXClock.h>

namespace {

/// A clock that was set back makes nothing young.
bool cacheIsYounger(const QDateTime &when, double seconds)
{
    const qint64 age = when.msecsTo(KXClock::now());
    return when.isValid() && age >= 0 && double(age) < seconds * 1000;
}

}

std::optional<KXCatalogueCountsCache::Known> KXCatalogueCountsCache::known(const KXPredicate &rule) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_counts.constFind(rule);
    return found == m_counts.constEnd() ? std::nullopt : std::optional(*found);
}

std::optional<KXCatalogueCountsCache::Known> KXCatalogueCountsCache::known(
    const KXPredicate &rule, double youngerThan) const
{
    const auto found = known(rule);
    return found && cacheIsYounger(found->when, youngerThan) ? found : std::nullopt;
}

void KXCatalogueCountsCache::keep(const KXPredicate &rule, qint64 count)
{
    const std::lock_guard lock(m_mutex);
    if (m_counts.size() >= MostCounts)
        m_counts.clear();
    m_counts.insert(rule, { count, KXClock::now() });
}

void KXCatalogueCountsCache::clear()
{
    const std::lock_guard lock(m_mutex);
    m_counts.clear();
}

KXError KXCatalogueCountsCache::failure(double youngerThan) const
{
    const std::lock_guard lock(m_mutex);
    return m_failure && cacheIsYounger(m_failedAt, youngerThan) ? m_failure : KXError();
}

void KXCatalogueCountsCache::noteFailure(const KXError &error)
{
    const std::lock_guard lock(m_mutex);
    m_failure = error;
    m_failedAt = KXClock::now();
}
