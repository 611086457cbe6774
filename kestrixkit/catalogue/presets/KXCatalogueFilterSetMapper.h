#pragma once

#include <memory>

#include <QHash>

#include <kestrixkit/catalogue/KXCatalogueDialect.h>
#include <kestrixkit/filters/KXFilterSetMapper.h>

/// Translates filter sets for an area that shows a catalogue: into filters with remote key paths that it knows.
///
/// A filter that has remote key paths keeps them. One that was made for the library gets those that the host names for
/// its local one. A set is mapped when the catalogue can answer all of its enabled filters exactly.
class KX_CATALOGUE_EXPORT KXCatalogueFilterSetMapper : public KXFilterSetMapper
{
public:
    /// What the catalogue calls what the library calls otherwise.
    struct KeyPath
    {
        QString remote = {};
        KXPredicateModifier modifier = KXPredicateModifier::Direct;
    };
    KXCatalogueFilterSetMapper(
        std::shared_ptr<const KXCatalogueDialect> dialect, QHash<QString, KeyPath> remoteKeyPaths);
    ~KXCatalogueFilterSetMapper() override;

    [[nodiscard]] bool canMapFilterSet(const KXRef<KXFilterSet> &set) const override;
    /// Filters that are switched off and cannot be mapped are left out.
    [[nodiscard]] KXRef<KXFilterSet> createInstanceByMappingFilterSet(
        const KXRef<KXFilterSet> &set, KXManagedObjectContext &inContext) const override;
    /// Whether the catalogue can answer the filter. The error says why not.
    [[nodiscard]] bool canMapFilter(const KXFilter &filter, KXError *error = nullptr) const;
    /// Gives a filter that has none the remote key path that the host names for its local one. False where it names
    /// none.
    bool giveRemoteKeyPath(KXFilter &filter) const;

private:
    [[nodiscard]] KXPredicate remotePredicate(const KXFilter &filter) const;

    const std::shared_ptr<const KXCatalogueDialect> m_dialect;
    const QHash<QString, KeyPath> m_keyPaths;
};
