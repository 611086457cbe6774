#pragma once

#include <memory>
#include <optional>

#include <QPointer>
#include <QStackedWidget>

#include <kestrixkit/catalogue/KXCatalogueServers.h>
#include <kestrixkit/context/KXPersistentStoreCoordinator.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

class FilterStrip;
class KXFilterSetPresetsBarViewController;
class Preview;
class QMenu;
class ShopPane;
class SourceColumn;

/// The shop among the places of the window: its row to the left, as long as a catalogue is named, and its page in place
/// of the tracks, made when the shop is first visited. Until then no server is asked.
///
/// Which catalogue it is, the preferences say, unless it was named otherwise.
class ShopPlace : public QStackedWidget
{
    Q_OBJECT
public:
    /// Takes the tracks as the page of every other place; their strip, and everything else, is borrowed.
    ShopPlace(QWidget *tracks, FilterStrip *strip, SourceColumn *sources, Preview *preview,
        KXPersistentStoreCoordinator::Ref coordinator);
    ~ShopPlace() override;

    /// Where the shop's commands go; borrowed.
    void setFilterMenu(QMenu *menu) { m_menu = menu; }
    /// In place of what the preferences say.
    void setServers(const KXCatalogueServers &servers);
    /// Opens the shop, where there is one.
    void visit();
    /// Shows the page of a place, named by its URI; whether that is the shop's.
    bool showPageOf(const QUrl &place);
    [[nodiscard]] bool isShown() const;
    /// Null until it is first visited.
    [[nodiscard]] ShopPane *pane() const;
    /// Of the page that is shown.
    [[nodiscard]] KXFilterSetPresetsBarViewController *presets() const;
    /// How many tracks the shop shows; empty where nobody knows.
    [[nodiscard]] QString countText() const;
    /// Before those go that it borrows.
    void end();

Q_SIGNALS:
    void countDidChange();
    /// The page was made.
    void opened();
    /// The page is what is seen from now on; it is another one where another shop was named meanwhile.
    void shown();

private:
    void followPreferences();
    void change(const std::optional<KXCatalogueServers> &servers);
    void makePane();
    void updateCommands();

    const QPointer<FilterStrip> m_strip;
    SourceColumn *const m_sources;
    const QPointer<Preview> m_preview;
    const KXPersistentStoreCoordinator::Ref m_coordinator;
    std::optional<KXCatalogueServers> m_servers;
    QPointer<QMenu> m_menu;
    QPointer<ShopPane> m_pane;
    KXNotificationToken m_preferences;
};
