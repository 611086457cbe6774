#include "shop/ShopPreview.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int mostHosts = 1000;

class ShopItem : public KXAudioPlayerItem
{
public:
    explicit ShopItem(QUrl address)
        : m_address(std::move(address))
    {
    }
    [[nodiscard]] QUrl audioFileURL() const override { return m_address; }

private:
    const QUrl m_address;
};

} // namespace

ShopPreview::ShopPreview(const KXCatalogueServers &servers, std::shared_ptr<KXAudioOutput> output, QObject *parent)
    : QObject(parent)
    , m_catalogue(servers, KXCatalogueSchema::previewHosts())
    , m_player(std::move(output))
{
    m_player.setVolume(1);
    // A catalogue without the table names no host.
    m_ticket = m_catalogue.page({ .keyPaths = { u"host"_s }, .limit = mostHosts }, [this](const KXCataloguePage &page) {
        for (const KXCatalogueRow &row : page.rows)
            m_hosts.insert(row.values.value(0).toString().toLower());
        Q_EMIT hostsCame();
    });
}

QString ShopPreview::refusal(const QUrl &address, const QSet<QString> &hosts)
{
    if (!address.isValid() || address.host().isEmpty())
        return tr("This track has no preview");
    const QString host = address.host().toLower();
    const bool isOwn = host == "localhost"_L1 || host == "127.0.0.1"_L1 || host == "::1"_L1;
    if (address.scheme() != "https"_L1 && !(address.scheme() == "http"_L1 && isOwn))
        return tr("Previews are played over https only");
    if (!address.userInfo().isEmpty() || !hosts.contains(host))
        return tr("The shop does not name %1 as a place for previews").arg(host);
    return {};
}

QString ShopPreview::toggle(const QUrl &address)
{
    const QString reason = refusal(address, m_hosts);
    if (!reason.isEmpty())
        return reason;
    const bool isPlaying
        = m_player.state() == KXAudioPlayerStatePlaying || m_player.state() == KXAudioPlayerStateLoading;
    if (isPlaying && m_playing == address) {
        m_player.stop();
        return {};
    }
    m_playing = address;
    m_player.playItem(std::make_shared<ShopItem>(address));
    return {};
}
