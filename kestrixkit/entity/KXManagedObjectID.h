#pragma once

#include <memory>

#include <QHash>
#include <QUrl>

#include <kestrixkit/entity/KXEntities.h>
#include <kestrixkit/entity/KXEntityDescription.h>

/// What tells a store from all others; shared by everything that refers to its rows.
struct KXStoreIdentity
{
    QString uuid;
    std::shared_ptr<const KXEntities> model; ///< of the store
    quint64 serial = 0; ///< of this opening of the store; never reused in a process
};

/// Names one stored object, in memory, between threads and as a URI.
///
/// An object gets its identifier for good when it is inserted; it is never given to another object, not even after
/// a deletion. A small value, free to copy and to use on any thread. Default-made it names nothing.
class KX_CORE_EXPORT KXManagedObjectID
{
public:
    KXManagedObjectID() = default;
    KXManagedObjectID(std::shared_ptr<const KXStoreIdentity> store, const KXEntityDescription *entity, qint64 key)
        : m_store(std::move(store))
        , m_entity(entity)
        , m_key(key)
    {
    }

    explicit operator bool() const { return m_key != 0; }
    [[nodiscard]] bool isNull() const { return m_key == 0; }
    [[nodiscard]] const KXEntityDescription *entity() const { return m_entity; }
    /// The row's key, unique in its store across all entities; from 1.
    [[nodiscard]] qint64 key() const { return m_key; }
    [[nodiscard]] const std::shared_ptr<const KXStoreIdentity> &store() const { return m_store; }

    /// "x-kestrix-store://<store uuid>/<Entity>/p<key>"; empty where the identifier names nothing.
    [[nodiscard]] QUrl URIRepresentation() const;
    /// The identifier that a URI names, in whatever store is open in the process; where one is open more than once, in
    /// the one opened last. A URI of a store that is not open gives an identifier that equals others of its kind and no
    /// object. Null for everything else.
    [[nodiscard]] static KXManagedObjectID identifierForURIRepresentation(const QUrl &uri);
    /// Null where the URI is not of that store or names no entity of its model.
    [[nodiscard]] static KXManagedObjectID identifierForURIRepresentation(
        const QUrl &uri, const std::shared_ptr<const KXStoreIdentity> &inStore);
    /// For a store that opens: its identifiers are found by URI from now on, as long as somebody holds the identity.
    static void registerStore(const std::shared_ptr<const KXStoreIdentity> &store);
    /// For a store that opens or is only named.
    [[nodiscard]] static quint64 nextStoreSerial();

    friend bool operator==(const KXManagedObjectID &a, const KXManagedObjectID &b)
    {
        return a.m_key == b.m_key
            && (a.m_store == b.m_store || (a.m_store && b.m_store && a.m_store->uuid == b.m_store->uuid));
    }
    friend size_t qHash(const KXManagedObjectID &id, size_t seed = 0) { return ::qHash(id.m_key, seed); }

private:
    std::shared_ptr<const KXStoreIdentity> m_store;
    const KXEntityDescription *m_entity = nullptr;
    qint64 m_key = 0;
};

Q_DECLARE_METATYPE(KXManagedObjectID)
