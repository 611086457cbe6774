#pragma once

#include <memory>

#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/filters/KXLivePresetCounts.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/source_list/KXSourceListViewController.h>
#include <kestrixkit/theme/controls/KXThemeableSplitView.h>

class CratesPane;
class LibraryPlaces;
class PresetCommands;
class PresetMapper;
class QLabel;
class SidebarRoom;

/// The left side of the window: the library's places above, then its crates, and its presets below, each with a badge
/// that counts live. What is selected there is what the table shows; several presets or crates, or a folder, show the
/// tracks of any of them.
///
/// It installs the process's presets manager, with the library's mapper.
class SourceColumn : public KXThemeableSplitView, private KXSourceListViewControllerDelegate
{
    Q_OBJECT
public:
    explicit SourceColumn(KXManagedObjectContext::Ref context, QWidget *parent = nullptr);
    ~SourceColumn() override;

    [[nodiscard]] KXSourceListViewController *library() const { return m_library.get(); }
    [[nodiscard]] KXSourceListViewController *presets() const { return m_presets.get(); }
    [[nodiscard]] CratesPane *crates() const { return m_crates; }
    [[nodiscard]] const PresetCommands &commands() const { return *m_commands; }
    /// Makes a preset of the selected place; null where that is none that could be one.
    [[nodiscard]] QAction *saveAsPreset() const { return m_saveAsPreset; }

    /// Names what is selected, a place, crate or preset; several of a kind are one place among them. Empty for nothing.
    [[nodiscard]] QUrl placeURL() const;

    /// What is selected, for selectPlaces() to select again.
    [[nodiscard]] QList<QUrl> selectedPlaces() const;
    /// Selects these, scrolls there and picks them at once; false, and nothing happens, where none of them is there.
    bool selectPlaces(const QList<QUrl> &places);
    [[nodiscard]] bool hasPlaces(const QList<QUrl> &places) const { return !listOfPlaces(places).second.isEmpty(); }
    [[nodiscard]] QUrl allTracksURL() const;
    /// Whether there is a row for the shop.
    void setHasShop(bool has);
    /// Names the shop's row; empty where there never was one.
    [[nodiscard]] QUrl shopURL() const;
    void scrollToSelection();
    /// Who says how high each list is.
    [[nodiscard]] SidebarRoom &room() const { return *m_room; }
    /// Of all lists.
    [[nodiscard]] QList<QUrl> openRows() const;
    /// Opens these, where they are there, and closes all others.
    void setOpenRows(const QList<QUrl> &rows);
    /// What names of settings that concern this library alone end in.
    [[nodiscard]] const QString &autosaveSuffix() const { return m_autosaveSuffix; }

    /// Puts it to the left of the view, in a splitter for the window to show, and another one to the right.
    KXThemeableSplitView *beside(QWidget *view, QWidget *right);
    /// Shows what is selected at once, instead of in the next turn.
    void pick();
    /// From top to bottom.
    [[nodiscard]] QList<KXSourceListViewController *> lists() const;
    /// Music has come or gone: makes the presets that a library begins with, and counts.
    void musicDidChange();
    /// Waits for numbers that other threads count just now.
    void finishCounting();
    /// Ends editing and remembers what is selected and open.
    void commit();

Q_SIGNALS:
    /// Something else is selected: its tracks (all where the predicate is absent), its title, and what to say where
    /// there are none.
    void picked(const KXPredicate &predicate, const QString &title, const QString &emptyText);
    /// What will be picked next has an order of its own, or has none.
    void orderWillBe(const std::optional<KXSortDescriptor> &order);
    /// Counts are live from now on.
    void countingDidBegin(KXLiveCounts &counts);
    /// Return was pressed, or a row clicked twice: on to the tracks.
    void opened();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void itemWasSelected(KXSourceListViewController &list, KXSourceListItem *item) override;
    void willDisplayCellView(KXSourceListViewController &list, KXSourceListCell &cell, KXSourceListItem *item) override;

    QWidget *section(const QString &title, KXSourceListViewController *list, QList<QAction *> actions);
    void makeList(std::unique_ptr<KXSourceListViewController> &list, KXTreeController *tree, const QString &name,
        const QString &autosaveName);
    void prepareList(KXSourceListViewController *list, const QString &name, const QString &autosaveName);
    /// The list that has them, and those that it has.
    [[nodiscard]] std::pair<KXSourceListViewController *, QList<KXRef<KXManagedObject>>> listOfPlaces(
        const QList<QUrl> &places) const;
    void startCounting();
    void firstMusicCame();
    void pickLater();
    void pickPresets(const QList<KXRef<KXFilterSetPreset>> &presets);
    [[nodiscard]] bool isAvailable(const KXRef<KXFilterSetPreset> &preset) const;
    [[nodiscard]] KXPredicate predicateOf(const KXRef<KXFilterSetPreset> &preset) const;
    void savePlaceAsPreset();
    [[nodiscard]] QUrl urlOf(qint64 tag) const;
    [[nodiscard]] QIcon iconOf(qint64 tag);

    const KXManagedObjectContext::Ref m_context;
    const KXFilterSetPresetsManager::Ref m_manager;
    const std::shared_ptr<PresetMapper> m_mapper;
    LibraryPlaces *m_places;
    std::unique_ptr<KXLivePresetCounts> m_counts; // from shortly after the window is shown on
    KXDelayedCall m_countSoon { this };
    std::unique_ptr<KXTreeController> m_placesTree, m_presetsTree;
    std::unique_ptr<KXSourceListViewController> m_library, m_presets;
    CratesPane *m_crates;
    SidebarRoom *m_room;
    PresetCommands *m_commands;
    QAction *m_saveAsPreset;
    QString m_autosaveSuffix;
    QHash<qint64, QIcon> m_icons; // of places, in the theme's colour
    KXNotificationToken m_themeChanges;
    KXDelayedCall m_pickSoon { this };
};
