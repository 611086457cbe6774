#pragma once

#include <QHash>

#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>

/// The presets bar of the library, and the presets library in its popover. Values in details are counted live; a preset
/// that tracks cannot be asked for says why.
class PresetLibrary : public KXFilterSetPresetsBarViewController
{
    Q_OBJECT
public:
    /// The process has its presets manager by then.
    explicit PresetLibrary(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~PresetLibrary() override;

    /// Values in details get their counts from these, as long as they live.
    void countWith(KXLiveCounts &counts);
    [[nodiscard]] bool isShown() const;

    [[nodiscard]] bool isPresetAvailable(KXFilterSetPresetsViewController &library, const Preset &preset) override;
    [[nodiscard]] std::unique_ptr<KXFilterSetPresetDetailsViewController> detailsViewControllerForPreset(
        KXFilterSetPresetsViewController &library, const Preset &preset) override;
    [[nodiscard]] bool isCountsFilterEnabledForFacetFilter(
        KXFilterSetPresetDetailsViewController &details, const KXRef<KXFacetFilter> &filter) override;

private:
    void countValues();
    void deliver(const QStringList &identifiers);

    QPointer<KXLiveCounts> m_counts;
    QHash<QString, KXRef<KXFacetFilterValue>> m_counted; // of the preset that is shown, by identifier
};
