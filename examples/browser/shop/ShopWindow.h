#pragma once

#include <memory>

#include <QMainWindow>

#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include "shop/Shop.h"

class KXAudioOutput;
class KXTableView;
class KXThemeableTextField;
class QLabel;
class QPushButton;
class ShopFacets;
class ShopFilters;
class ShopPreview;
class ShopTableModel;

/// The shop: presets, filters, facets with counts, a search and a table, as the library has them, over a remote
/// catalogue. What is owned already is marked.
///
/// Without the network it says so, keeps what it shows, and asks again when the user wants that; the library's window
/// knows nothing of it. The filters that the user works with here last as long as the window.
class ShopWindow : public QMainWindow, private KXFilterSetPresetsBarViewControllerDelegate
{
    Q_OBJECT
public:
    /// The process has its presets manager by then. Previews are played through the output, or the default device.
    ShopWindow(KXPersistentStoreCoordinator::Ref coordinator, const KXCatalogueServers &servers,
        std::shared_ptr<KXAudioOutput> output = {}, QWidget *parent = nullptr);
    ~ShopWindow() override;

    [[nodiscard]] ShopTableModel *model() const { return m_model; }
    [[nodiscard]] ShopFacets *facets() const { return m_facets; }
    [[nodiscard]] ShopFilters *filters() const { return m_filters.get(); }
    [[nodiscard]] KXFilterSetPresetsBarViewController *presets() const { return m_presets.get(); }
    [[nodiscard]] KXThemeableTextField *search() const { return m_search; }
    [[nodiscard]] ShopPreview *preview() const { return m_preview; }
    /// Plays the preview of a row, or stops it.
    void togglePreview(int row);
    /// How many tracks fit, or why nobody knows.
    [[nodiscard]] QString stateText() const;
    /// What filters and search ask for; absent for all tracks.
    [[nodiscard]] KXPredicate rule() const;
    /// Asks the catalogue for what filters and search ask for, again.
    void ask();

Q_SIGNALS:
    /// The exact count or an error has come for what was asked last.
    void answered();

private:
    [[nodiscard]] KXFilterSetPresetCountsScheduler::Provider countsProviderForFilterSetPreset(
        KXFilterSetPresetsBarViewController &controller, const KXRef<KXFilterSetPreset> &preset) override;
    void build();
    void showProblem(const QString &problem);
    void markOwned(int firstRow);

    const KXManagedObjectContext::Ref m_context; // of its own: another place, with another mapper
    Shop m_shop;
    std::unique_ptr<ShopFilters> m_filters;
    std::unique_ptr<KXFilterSetPresetsBarViewController> m_presets;
    ShopTableModel *m_model;
    ShopFacets *m_facets;
    ShopPreview *m_preview;
    KXTableView *m_table;
    KXThemeableTextField *m_search;
    QLabel *m_count, *m_problem;
    QPushButton *m_again;
    KXDelayedCall m_askSoon { this };
    KXOperationQueue m_queue; // that looks into the library
};
