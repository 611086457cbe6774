#pragma once

#include <QObject>
#include <QSet>
#include <QUrl>

#include <kestrixkit/audio/KXBasicAudioPlayer.h>
#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>

/// Plays previews of the shop: by https, from hosts that the catalogue names, and from nowhere else. http goes to this
/// machine alone.
class ShopPreview : public QObject
{
    Q_OBJECT
public:
    /// Asks the catalogue for its hosts. Plays through the output, or the default device.
    explicit ShopPreview(
        const KXCatalogueServers &servers, std::shared_ptr<KXAudioOutput> output = {}, QObject *parent = nullptr);

    /// Why an address is not played; empty where it is.
    [[nodiscard]] static QString refusal(const QUrl &address, const QSet<QString> &hosts);
    [[nodiscard]] const QSet<QString> &hosts() const { return m_hosts; }
    [[nodiscard]] KXBasicAudioPlayer &player() { return m_player; }
    /// Plays it, or stops it where it is playing. Empty, or why not.
    QString toggle(const QUrl &address);

Q_SIGNALS:
    void hostsCame();

private:
    QSet<QString> m_hosts;
    QUrl m_playing;
    KXPostgreSQLCatalogue m_catalogue; // of the hosts
    KXCatalogueTicket m_ticket;
    KXBasicAudioPlayer m_player;
};
