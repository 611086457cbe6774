#pragma once

#include <memory>

#include <QWidget>

#include <kestrixkit/filter_ui/presets_bar/KXFilterSetPresetsBarViewController.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXOperationQueue.h>

#include "places/PlaceFilters.h"
#include "player/Preview.h"
#include "shop/Shop.h"

class FilterBars;
class KXTableView;
class QLabel;
class ShopFacets;
class ShopFilters;
class ShopHosts;
class ShopTableModel;

/// The shop as the window shows it in place of the library's tracks: presets, filters, facets with counts, a search and
/// a table over a remote catalogue. What is owned already is marked. Its filters are kept, as those of any place are.
///
/// Without the network it says so, keeps what it shows, and asks again when the user wants that or comes back; the
/// library knows nothing of it.
class ShopPane : public QWidget, private KXFilterSetPresetsBarViewControllerDelegate
{
    Q_OBJECT
public:
    /// The process has its presets manager by then. The place's URI is what its filters are kept under.
    ShopPane(KXPersistentStoreCoordinator::Ref coordinator, const KXCatalogueServers &servers, const QUrl &place,
        Preview *preview);
    ~ShopPane() override;

    [[nodiscard]] KXTableView *table() const { return m_table; }
    [[nodiscard]] ShopTableModel *model() const { return m_model; }
    [[nodiscard]] ShopFacets *facets() const { return m_facets; }
    [[nodiscard]] ShopFilters *filters() const { return m_filters.get(); }
    [[nodiscard]] KXFilterSetPresetsBarViewController *presets() const { return m_presets.get(); }
    [[nodiscard]] FilterBars *bars() const { return m_bars; }
    [[nodiscard]] ShopHosts *hosts() const { return m_hosts; }
    /// Of its filters.
    [[nodiscard]] KXUndoManager *undoManager() const { return m_context->undoManager(); }

    /// How many tracks fit: "1,234 tracks"; empty where nobody knows.
    [[nodiscard]] const QString &countText() const { return m_count; }
    /// Why there is no count, no page or no preview; empty where all is well.
    [[nodiscard]] QString problem() const;
    /// What filters and search ask for; absent for all tracks.
    [[nodiscard]] KXPredicate rule() const;
    /// Asks the catalogue for what filters and search ask for, again.
    void ask();
    /// Asks again where something went wrong.
    void lookAgain();
    /// The preview of the current row; none, with the reason as problem(), where it may not be played.
    [[nodiscard]] std::optional<Preview::Sound> selectedSound();

Q_SIGNALS:
    /// The exact count or an error has come for what was asked last.
    void answered();
    void countDidChange();

private:
    [[nodiscard]] KXFilterSetPresetCountsScheduler::Provider countsProviderForFilterSetPreset(
        KXFilterSetPresetsBarViewController &controller, const KXRef<KXFilterSetPreset> &preset) override;
    void didLoadFilterSet(
        KXFilterSetPresetsBarViewController &controller, const KXRef<KXFilterSetPreset> &preset) override;
    void build();
    void save();
    void follow();
    void followPreview();
    void showProblem(const QString &problem, bool canBeAskedAgain);
    void markOwned(int firstRow);
    [[nodiscard]] std::optional<Preview::Sound> soundOfRow(int row) const;

    const KXManagedObjectContext::Ref m_context; // of its own: another place, with another mapper
    const QUrl m_place;
    Preview *const m_preview;
    Shop m_shop;
    PlaceFilters m_kept;
    std::unique_ptr<ShopFilters> m_filters;
    std::unique_ptr<KXFilterSetPresetsBarViewController> m_presets;
    FilterBars *m_bars;
    ShopTableModel *m_model;
    ShopFacets *m_facets;
    ShopHosts *m_hosts;
    KXTableView *m_table;
    QWidget *m_problemLine; // hidden where all is well
    QLabel *m_problem;
    QWidget *m_again;
    QString m_count;
    QUrl m_playing; // what the player was at when it was looked at last
    KXDelayedCall m_askSoon { this };
    KXDelayedCall m_saveSoon { this };
    KXOperationQueue m_queue; // that looks into the library
};
