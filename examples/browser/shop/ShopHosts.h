#pragma once

#include <functional>

#include <QObject>
#include <QSet>
#include <QUrl>

#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>

/// From where the shop's previews are played: by https, from hosts that the catalogue names, and from nowhere else,
/// wherever these lead on to. http goes to this machine alone.
class ShopHosts : public QObject
{
    Q_OBJECT
public:
    /// Asks the catalogue.
    explicit ShopHosts(const KXCatalogueServers &servers, QObject *parent = nullptr);

    /// Asks again where there was no answer.
    void tryAgain();
    [[nodiscard]] const QSet<QString> &hosts() const { return m_hosts; }
    /// Why an address is not played; empty where it is.
    [[nodiscard]] QString refusal(const QUrl &address) const;
    [[nodiscard]] static QString refusal(const QUrl &address, const QSet<QString> &hosts);
    /// Where the hosts may lead on to. For any thread, as the hosts are now.
    [[nodiscard]] std::function<bool(const QUrl &)> redirectRule() const;

private:
    QSet<QString> m_hosts;
    bool m_isKnown = false;
    KXPostgreSQLCatalogue m_catalogue; // of the hosts
    KXCatalogueTicket m_ticket;
};
