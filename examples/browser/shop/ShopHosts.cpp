#include "shop/ShopHosts.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int mostHosts = 1000;

} // namespace

ShopHosts::ShopHosts(const KXCatalogueServers &servers, QObject *parent)
    : QObject(parent)
    , m_catalogue(servers, KXCatalogueSchema::previewHosts())
{
    tryAgain();
}

void ShopHosts::tryAgain()
{
    if (m_isKnown || m_ticket.isPending())
        return;
    // A catalogue without the table names no host.
    m_ticket = m_catalogue.page({ .keyPaths = { u"host"_s }, .limit = mostHosts }, [this](const KXCataloguePage &page) {
        m_isKnown = page.isComplete() || page.error.code() == KXCatalogueError::NoTable;
        for (const KXCatalogueRow &row : page.rows)
            m_hosts.insert(row.values.value(0).toString().toLower());
    });
}

QString ShopHosts::refusal(const QUrl &address) const
{
    const QString reason = refusal(address, m_hosts);
    return reason.isEmpty() || m_isKnown || address.host().isEmpty()
        ? reason
        : tr("The shop has not said yet from where previews may be played");
}

QString ShopHosts::refusal(const QUrl &address, const QSet<QString> &hosts)
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

std::function<bool(const QUrl &)> ShopHosts::redirectRule() const
{
    return [hosts = m_hosts](const QUrl &address) { return refusal(address, hosts).isEmpty(); };
}
