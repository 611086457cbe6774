#include <kestrixkit/catalogue/KXCatalogueServers.h>

#include <memory>

#include <kestrixkit/catalogue/KXCatalogueQuery.h>
#include <kestrixkit/catalogue/KXPostgreSQLLibrary_p.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

KXError serversError(const QString &text) { return KXError(KXKestrixKitErrorDomain, KXCatalogueError::Address, text); }

/// The server of one address. Whatever is wrong with it, nothing of it is repeated: it may be a password in the wrong
/// place.
std::optional<KXCatalogueServers::Server> serversRead(const QByteArray &address, KXError *error)
{
    if (!KXPostgreSQLLibrary::shared()) {
        KXSetError(error,
            serversError(
                KXLocalizedString("Shops cannot be used: a part of the program is missing. Install it anew.")));
        return std::nullopt;
    }
    char *problem = nullptr;
    const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> options(
        KXLibpq().conninfoParse(address.constData(), &problem), KXLibpq().conninfoFree);
    KXLibpq().freemem(problem);
    QByteArray host;
    QByteArray port;
    QByteArray database;
    bool isReadable = bool(options) && !address.isEmpty();
    for (const PQconninfoOption *option = options.get(); option && option->keyword; ++option) {
        if (!option->val)
            continue;
        const QByteArray keyword = option->keyword;
        if (keyword == "password" || keyword == "sslpassword") {
            KXSetError(error,
                serversError(KXLocalizedString("The address of the shop holds a password. Put the password into the "
                                               "file ~/.pgpass, and leave it out of the address.")));
            return std::nullopt;
        }
        if (keyword == "host")
            host = option->val;
        else if (keyword == "port")
            port = option->val;
        else if (keyword == "dbname")
            database = option->val;
    }
    for (const char c : port)
        isReadable = isReadable && ((c >= '0' && c <= '9') || c == ',');
    // What a password with unusual characters makes of an address.
    isReadable = isReadable && !database.contains('@') && !host.contains('@') && !database.contains('/');
    if (!isReadable) {
        KXSetError(error,
            serversError(KXLocalizedString(
                "The address of the shop cannot be read. It looks like postgresql://host:5432/database.")));
        return std::nullopt;
    }
    return KXCatalogueServers::Server { address,
        QString::fromUtf8(
            (host.isEmpty() ? QByteArray("localhost") : host) + (port.isEmpty() ? "" : ":" + port) + '/' + database) };
}

}

std::optional<KXCatalogueServers> KXCatalogueServers::fromText(const QString &text, KXError *error)
{
    KXCatalogueServers servers;
    for (const QString &part : text.split(u';')) {
        QList<Server> same;
        for (const QString &address : part.split(u'|')) {
            const auto server = serversRead(address.trimmed().toUtf8(), error);
            if (!server)
                return std::nullopt;
            same.append(*server);
        }
        servers.m_parts.append(same);
    }
    return servers;
}
