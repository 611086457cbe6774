#pragma once

#include <kestrixkit/filters/KXFilterSetPresetCountsProvider.h>

/// Counts what one preset matches among the objects of an entity of the presets' own store, in the background: what a
/// host gives to KXFilterSetPresetCountsScheduler, with basePredicates() and a mapper where the place needs them.
///
/// Counts what is saved. A preset without filter set, or one whose set the mapper cannot translate, matches nothing;
/// this is so with KXLivePresetCounts as well. Where the store does not answer, nothing is delivered and error() says
/// why.
///
/// Made and configured on the main thread; see KXFilterSetPresetCountsProvider.
class KX_CORE_EXPORT KXFilterSetPresetLocalCountsProvider : public KXFilterSetPresetCountsProvider
{
public:
    KXFilterSetPresetLocalCountsProvider(
        KXRef<KXFilterSetPreset> preset, QString contextIdentifier, QString entityName);

    /// Of what is counted. An entity that the model does not have ends the counting with a log line.
    [[nodiscard]] const QString &entityName() const { return m_entityName; }

protected:
    void loadCounts() override;

private:
    [[nodiscard]] KXPredicate predicate(KXManagedObjectContext &context) const;

    const QString m_entityName;
};
