#pragma once

#include <memory>
#include <unordered_map>

#include <QObject>

#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/filters/KXFilterSetMapper.h>
#include <kestrixkit/filters/KXFilterSetPresetCountsProvider.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

/// Keeps the counts of all presets of a context right for one place of the application, whatever changes: the music,
/// the presets, their filters, the time. Sets them on the presets, so badges need to do nothing but observe "counts".
///
/// Presets and filters are followed as their context announces them, saves of other contexts included. A preset
/// whose filter set is gone, or that the mapper cannot map, matches nothing; one that nobody can count, and all while
/// the store does not answer, have no count. Main thread.
class KX_CORE_EXPORT KXLivePresetCounts : public QObject
{
    Q_OBJECT

public:
    /// Where is counted, and how the presets are used there.
    struct Place
    {
        KXManagedObjectContext::Ref context; ///< what is counted
        QString entityName;
        QString countsContextIdentifier; ///< under which the presets keep the counts
        QList<KXPredicate> basePredicates; ///< what holds for everything in the place
        std::shared_ptr<const KXFilterSetMapper> mapper; ///< null: filter sets hold as they are
    };

    /// Counts in the next turn, or at once by update(). Throws KXException for an unknown entity.
    KXLivePresetCounts(KXManagedObjectContext::Ref presetsContext, Place place, QObject *parent = nullptr);
    ~KXLivePresetCounts() override;

    /// What counts; predicates, unsupported presets and the moment are asked there, by identifierOf().
    [[nodiscard]] KXLiveCounts &liveCounts() const { return *m_counts; }
    [[nodiscard]] static QString identifierOf(const KXFilterSetPreset &preset);
    /// From now on the count of a folder is that of the objects which fit any preset in it, each counted once, and no
    /// longer the sum over its presets.
    void countFolders();
    [[nodiscard]] std::optional<qint64> count(const KXFilterSetPreset &preset) const
    {
        return m_counts->count(identifierOf(preset));
    }
    bool update(KXError *error = nullptr) { return m_counts->update(error); }

    /// An operation that delivers the preset's count, for hosts that show counts by KXFilterSetPresetCountsScheduler.
    [[nodiscard]] std::shared_ptr<KXFilterSetPresetCountsProvider> countsProviderForFilterSetPreset(
        const KXRef<KXFilterSetPreset> &preset);

private:
    struct Entry
    {
        KXRef<KXFilterSetPreset> preset;
        KXRef<KXFilterSet> mapped {}; ///< in a context of its own, which is never saved; empty where there is none
        bool isMapped = false; ///< once it is asked for
        KXRef<KXFilterSetPreset> folder {}; ///< around it, as of the shape
        quint64 shape = 0;
    };

    void add(const KXRef<KXFilterSetPreset> &preset);
    void remove(const KXFilterSetPreset &preset);
    [[nodiscard]] KXPredicate predicate(qint64 preset);
    [[nodiscard]] static KXPredicate predicateOf(const KXRef<KXFilterSet> &mapped);
    [[nodiscard]] KXRef<KXFilterSet> map(const KXRef<KXFilterSetPreset> &preset) const;
    void addFolder(const KXRef<KXFilterSetPreset> &folder);
    [[nodiscard]] QList<KXPredicate> partsOf(const KXRef<KXFilterSetPreset> &folder);
    void foldersDidChange();
    void follow(const KXObjectsDidChange &did);
    void deliver(const QList<KXTaggedCount> &counts);
    [[nodiscard]] const KXRef<KXFilterSetPreset> &folderOf(Entry &entry) const;

    const KXManagedObjectContext::Ref m_presetsContext;
    const Place m_place;
    std::unordered_map<qint64, Entry> m_entries; // by the presets' keys
    bool m_countsFolders = false;
    std::unordered_map<qint64, KXRef<KXFilterSetPreset>> m_folders; // that are counted
    quint64 m_deliveries = 0;
    quint64 m_shape = 1; // of the tree of presets; raised when it may have become another one
    std::unique_ptr<KXLiveCounts> m_counts;
    KXNotificationToken m_changes;
};
