#include "shop/ShopPlace.h"

#include <QMenu>

#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "filters/FilterBars.h"
#include "filters/FilterStrip.h"
#include "places/SourceColumn.h"
#include "player/Preview.h"
#include "shop/ShopPane.h"
#include "window/Settings.h"

ShopPlace::ShopPlace(QWidget *tracks, FilterStrip *strip, SourceColumn *sources, Preview *preview,
    KXPersistentStoreCoordinator::Ref coordinator)
    : m_strip(strip)
    , m_sources(sources)
    , m_preview(preview)
    , m_coordinator(std::move(coordinator))
{
    addWidget(tracks);
    m_preferences = KXUserDefaults::standard().onChange(
        QString(Settings::shopAddressKey), [this] { KXMainQueue::async(this, [this] { followPreferences(); }); });
    followPreferences();
}

ShopPlace::~ShopPlace() { end(); }

void ShopPlace::end()
{
    m_preferences.reset();
    if (m_preview)
        m_preview->setSelectedSound({});
    delete m_pane;
}

// Which shop

void ShopPlace::followPreferences() { change(Settings::shopServers()); }

void ShopPlace::setServers(const KXCatalogueServers &servers)
{
    m_preferences.reset();
    change(servers);
}

void ShopPlace::change(const std::optional<KXCatalogueServers> &servers)
{
    const bool wasShown = isShown();
    const bool hadRow = m_servers.has_value();
    m_servers = servers;
    delete m_pane; // of another catalogue
    if (m_servers.has_value() != hadRow)
        m_sources->setHasShop(!hadRow);
    if (wasShown && m_servers)
        showPageOf(m_sources->shopURL());
    else if (wasShown)
        m_sources->selectPlaces({ m_sources->allTracksURL() });
}

void ShopPlace::visit()
{
    if (m_servers)
        m_sources->selectPlaces({ m_sources->shopURL() });
}

// Pages

ShopPane *ShopPlace::pane() const { return m_pane; }

bool ShopPlace::isShown() const { return m_pane && currentWidget() == m_pane; }

bool ShopPlace::showPageOf(const QUrl &place)
{
    const bool isShop = m_servers && !place.isEmpty() && place == m_sources->shopURL();
    if (isShop && !m_pane)
        makePane();
    else if (isShop && !isShown())
        m_pane->lookAgain();
    setCurrentWidget(isShop ? static_cast<QWidget *>(m_pane) : widget(0));
    setFocusProxy(currentWidget());
    updateCommands();
    if (isShop)
        Q_EMIT shown();
    return isShop;
}

void ShopPlace::makePane()
{
    m_pane = new ShopPane(m_coordinator, *m_servers, m_sources->shopURL(), m_preview);
    addWidget(m_pane);
    connect(m_pane, &ShopPane::countDidChange, this, &ShopPlace::countDidChange);
    if (m_menu)
        m_menu->addActions(m_pane->bars()->commands());
    Q_EMIT opened();
}

/// Commands and the space bar are for what is shown.
void ShopPlace::updateCommands()
{
    if (m_strip)
        m_strip->setCommandsShown(!isShown());
    if (m_pane)
        m_pane->bars()->setCommandsShown(isShown());
    if (isShown())
        m_preview->setSelectedSound([pane = m_pane] { return pane ? pane->selectedSound() : std::nullopt; });
    else
        m_preview->setSelectedSound({});
}

KXFilterSetPresetsBarViewController *ShopPlace::presets() const
{
    return isShown() ? m_pane->presets() : m_strip->presets();
}

QString ShopPlace::countText() const { return m_pane ? m_pane->countText() : QString(); }
