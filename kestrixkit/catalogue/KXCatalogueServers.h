#pragma once

#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>

#include <kestrixkit/catalogue/KXCatalogueGlobal.h>
#include <kestrixkit/foundation/KXError.h>

/// Where a catalogue is: its parts (shards), each on one server or on several that hold the same (replicas).
///
/// An address is what libpq takes: "postgresql://host:port/database", with "?sslmode=verify-full" and the like, or
/// "host=… dbname=…". Who asks and with which password comes from libpq's own places alone: the password file, a
/// service file, the environment, a certificate. A value; any thread.
class KX_CATALOGUE_EXPORT KXCatalogueServers
{
public:
    /// Where one server is.
    struct Server
    {
        QByteArray address = {}; ///< for libpq; never logged or shown
        QString name = {}; ///< "host:port/database", to be shown
    };

    /// Reads addresses: ";" between parts, "|" between servers that hold the same part. Empty and an error (code
    /// KXCatalogueError::Address) for what cannot be read or holds a password; the error repeats nothing of it.
    [[nodiscard]] static std::optional<KXCatalogueServers> fromText(const QString &text, KXError *error = nullptr);

    [[nodiscard]] const QList<QList<Server>> &parts() const { return m_parts; }

private:
    QList<QList<Server>> m_parts;
};
