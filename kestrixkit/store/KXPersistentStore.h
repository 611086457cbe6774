#pragma once

#include <memory>
#include <optional>

#include <QByteArray>
#include <QLatin1StringView>
#include <QMap>
#include <QUrl>

#include <kestrixkit/foundation/KXError.h>
#include <kestrixkit/store/KXManagedObjectID.h>

class KXPersistentStorePrivate;

/// The only type of store.
inline constexpr QLatin1StringView KXSQLiteStoreType { "SQLite" };

/// What a store file says about itself.
struct KXStoreMetadata
{
    QString uuid;
    QByteArray modelJSON; ///< of the model that it was written with
    QMap<QString, QByteArray> versionHashes; ///< of that model's entities
};

/// One open store file. Owned by its coordinator; open until that goes. Any thread.
class KX_CORE_EXPORT KXPersistentStore
{
public:
    explicit KXPersistentStore(std::unique_ptr<KXPersistentStorePrivate> p);
    ~KXPersistentStore();
    KXPersistentStore(const KXPersistentStore &) = delete;
    KXPersistentStore &operator=(const KXPersistentStore &) = delete;

    /// Of a store file that need not be open, and is left as it is. Nothing and an error where it is no store, damaged
    /// or newer.
    [[nodiscard]] static std::optional<KXStoreMetadata> metadataForStoreURL(const QUrl &url, KXError *error = nullptr);

    /// Where the file lies.
    [[nodiscard]] const QUrl &URL() const;
    /// The UUID that the file got when it was made; part of every object's URI.
    [[nodiscard]] const QString &identifier() const;
    [[nodiscard]] const std::shared_ptr<const KXStoreIdentity> &identity() const;

    /// The framework's own access; see KXPersistentStore_p.h.
    [[nodiscard]] KXPersistentStorePrivate &d() const { return *m_p; }

private:
    std::unique_ptr<KXPersistentStorePrivate> m_p;
};
