#pragma once

#include <memory>

#include <QHash>
#include <QPointer>

#include <kestrixkit/counts/KXLiveCounts.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetDetailsViewController.h>
#include <kestrixkit/filter_ui/KXFilterSetPresetsManagerViewController.h>

class KXThemeableButton;

/// The presets library in a popover below a button: presets, details of the selected one, and both of them filter the
/// table. A preset that tracks cannot be asked for says why.
class PresetLibrary : public QObject,
                      public KXFilterSetPresetsManagerViewControllerDelegate,
                      public KXFilterSetPresetsViewControllerDelegate,
                      public KXFilterSetPresetDetailsViewControllerDelegate
{
    Q_OBJECT
public:
    /// The process has its presets manager by then.
    explicit PresetLibrary(KXManagedObjectContext::Ref context, QObject *parent);
    ~PresetLibrary() override;

    /// Opens and closes the library; for the toolbar.
    [[nodiscard]] KXThemeableButton *button() const;
    /// Values in details get their counts from these, as long as they live.
    void countWith(KXLiveCounts &counts);
    void show();
    /// nullptr before it was first shown.
    [[nodiscard]] KXFilterSetPresetsManagerViewController *manager() const { return m_manager.get(); }
    [[nodiscard]] bool isShown() const { return m_popover && m_popover->isShown(); }

Q_SIGNALS:
    /// A preset was picked; the predicate is that of all of it or, with another title, of some of its values.
    void picked(const KXRef<KXFilterSetPreset> &preset, const KXPredicate &predicate, const QString &title);

private:
    bool loadFilterSet(KXFilterSetPresetsManagerViewController &manager, const KXRef<KXFilterSet> &set) override;
    bool isPresetAvailable(KXFilterSetPresetsViewController &library, const KXRef<KXFilterSetPreset> &preset) override;
    std::unique_ptr<KXFilterSetPresetDetailsViewController> detailsViewControllerForPreset(
        KXFilterSetPresetsViewController &library, const KXRef<KXFilterSetPreset> &preset) override;
    void loadFilterSet(KXFilterSetPresetDetailsViewController &details, const KXRef<KXFilterSet> &set) override;
    bool isCountsFilterEnabledForFacetFilter(
        KXFilterSetPresetDetailsViewController &details, const KXRef<KXFacetFilter> &filter) override;
    void willDisplayFacetFilterValueCell(
        KXFilterSetPresetDetailsViewController &, KXFacetFilterValueCellView &) override
    {
    }

    bool pick(const KXRef<KXFilterSetPreset> &preset, const KXRef<KXFilterSet> &set, const QString &title);
    void countValues();
    void deliver(const QStringList &identifiers);

    const KXManagedObjectContext::Ref m_context;
    bool m_hasJustClosed = false; // in this turn
    bool m_closedByPress = false; // of the button, whose click is not to open it again
    QPointer<KXThemeableButton> m_button;
    std::unique_ptr<KXFilterSetPresetsManagerViewController> m_manager;
    std::unique_ptr<KXPopoverController> m_popover; // goes before its content
    QPointer<KXLiveCounts> m_counts;
    QHash<QString, KXRef<KXFacetFilterValue>> m_counted; // of the preset that is shown, by identifier
};
