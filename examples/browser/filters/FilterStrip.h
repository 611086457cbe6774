#pragma once

#include <functional>

#include <QWidget>

#include "filters/FilterBars.h"
#include "filters/PresetLibrary.h"
#include "library/Library.h"
#include "places/PlaceFilters.h"
#include <kestrixkit/filter_ui/editors/KXFilterSetViewController.h>
#include <kestrixkit/filters/KXFilterSetWhatIfCounts.h>

class KXThemeableButton;
class QLabel;

/// The filters of tracks, edited: which there are, and with what each is edited.
class TrackFilters : public KXFilterSetViewController
{
    Q_OBJECT
public:
    explicit TrackFilters(KXManagedObjectContext::Ref context, QObject *parent);

    /// The track that "like this one" means.
    void setTrackAtHand(std::function<KXRef<Track>()> track) { m_trackAtHand = std::move(track); }
    /// Where editors get their counts from; asked when one opens.
    void setWhatIfCounts(std::function<KXFilterSetWhatIfCounts *()> counts) { m_whatIfCounts = std::move(counts); }
    /// There are other counts: the editor that is open takes them.
    void whatIfCountsDidChange();
    void addFilterOfType(const KXFilterTypeItem &type) override;
    using KXFilterSetViewController::addFilterOfType;
    [[nodiscard]] std::unique_ptr<KXViewController> filterViewControllerForFilter(
        const KXRef<KXFilter> &filter) override;

private:
    [[nodiscard]] const KXEntityDescription *filteredEntity() const;

    std::function<KXRef<Track>()> m_trackAtHand;
    std::function<KXFilterSetWhatIfCounts *()> m_whatIfCounts;
};

/// The strip above the table: presets as buttons, below them the filters of the place that is shown, and which preset
/// they come from. Each place keeps its filters. A field narrows the list to what fits the words that are typed, until
/// another place is shown.
class FilterStrip : public QWidget, private KXFilterSetPresetsBarViewControllerDelegate
{
    Q_OBJECT
public:
    /// The process has its presets manager by then.
    explicit FilterStrip(KXManagedObjectContext::Ref context, QWidget *parent = nullptr);
    ~FilterStrip() override;

    [[nodiscard]] TrackFilters *filters() const { return m_filters.get(); }
    [[nodiscard]] PresetLibrary *presets() const { return m_presets.get(); }
    /// Shows the filters of that place; an empty one has none. The predicate is the place's own, absent for all tracks:
    /// what is counted in editors fits it as well.
    void setPlace(const QUrl &place, const KXPredicate &predicate);
    /// Of the filters of the place, for their editors; made when it is first asked for, as that reads the library.
    [[nodiscard]] KXFilterSetWhatIfCounts *whatIfCounts();
    /// What narrows the list as one types, beside the filters.
    [[nodiscard]] QString narrowingText() const;
    /// At once, not after a pause.
    void setNarrowingText(const QString &text);
    /// What the filters and the words ask for; absent where nothing does.
    [[nodiscard]] KXPredicate predicate() const;
    /// The preset that the filters were loaded from or saved as; empty for none.
    [[nodiscard]] KXRef<KXFilterSetPreset> loadedPreset() const;
    [[nodiscard]] bool isChanged() const { return m_isChanged; }
    /// Commands for the menu bar.
    [[nodiscard]] const QList<QAction *> &actions() const { return m_bars->commands(); }
    /// Whether the strip is what they work on.
    void setCommandsShown(bool shown) { m_bars->setCommandsShown(shown); }
    /// Loads the preset again.
    void revert();

Q_SIGNALS:
    /// The tracks to be shown may be others.
    void predicateDidChange();
    /// The keyboard goes back to the list.
    void narrowingDidEnd();

private:
    void didLoadFilterSet(
        KXFilterSetPresetsBarViewController &controller, const KXRef<KXFilterSetPreset> &preset) override;
    void showState();
    void narrow();
    [[nodiscard]] KXPredicate narrowingPredicate() const;
    void forgetCounts();

    const KXManagedObjectContext::Ref m_context;
    PlaceFilters m_places;
    QUrl m_place;
    KXPredicate m_placePredicate;
    std::unique_ptr<KXLiveCounts> m_liveCounts; // over the tracks of the place
    std::unique_ptr<KXFilterSetWhatIfCounts> m_whatIfCounts;
    std::unique_ptr<TrackFilters> m_filters;
    std::unique_ptr<PresetLibrary> m_presets;
    FilterBars *m_bars;
    QString m_narrowingText; // that the list fits
    QLabel *m_state;
    KXThemeableButton *m_revert;
    bool m_isChanged = false;
    QAction *m_revertAction;
    KXNotificationToken m_changes;
};
