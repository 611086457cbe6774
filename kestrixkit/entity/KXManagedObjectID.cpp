#include <kestrixkit/entity/KXManagedObjectID.h>

#include <atomic>
#include <map>
#include <mutex>
#include <optional>

#include <kestrixkit/entity/KXIdentifiedObject.h>

using namespace Qt::StringLiterals;

namespace {

struct IdentifierStores
{
    std::mutex mutex;
    std::map<QString, std::weak_ptr<const KXStoreIdentity>>
        byName; ///< the UUID; with "/Entity" for a store that is not open

    [[nodiscard]] std::shared_ptr<const KXStoreIdentity> find(const QString &name) const
    {
        const auto found = byName.find(name);
        return found == byName.end() ? nullptr : found->second.lock();
    }
    void add(const QString &name, const std::shared_ptr<const KXStoreIdentity> &store)
    {
        std::erase_if(byName, [](const auto &entry) { return entry.second.expired(); });
        byName[name] = store;
    }
};

IdentifierStores &identifierStores()
{
    static auto *const stores = new IdentifierStores;
    return *stores;
}

/// Of a store that is not open: it has the entity that is asked for.
class LoneEntity : public KXEntities
{
public:
    explicit LoneEntity(const QString &name)
        : m_entity(name)
    {
    }
    const KXEntityDescription *entity(const QString &name) const override
    {
        return name == m_entity.name() ? &m_entity : nullptr;
    }

private:
    const KXEntityDescription m_entity;
};

/// Entity and key that a URI names; nothing for one of another form.
struct IdentifierParts
{
    QString entity;
    qint64 key;
};

std::optional<IdentifierParts> identifierParts(const QUrl &uri)
{
    const QStringList parts = uri.path().split(u'/');
    if (uri.scheme() != "x-kestrix-store"_L1 || uri.host().isEmpty() || parts.size() != 3 || !parts[0].isEmpty()
        || parts[1].isEmpty() || !parts[2].startsWith(u'p'))
        return {};
    bool ok = false;
    const qint64 key = QStringView(parts[2]).mid(1).toLongLong(&ok);
    return ok && key > 0 ? std::optional(IdentifierParts { parts[1], key }) : std::nullopt;
}

}

KXEntities::~KXEntities() = default;
KXIdentifiedObject::~KXIdentifiedObject() = default;

QUrl KXManagedObjectID::URIRepresentation() const
{
    if (isNull())
        return {};
    QUrl url;
    url.setScheme(u"x-kestrix-store"_s);
    url.setHost(m_store->uuid);
    url.setPath(u'/' + m_entity->name() + "/p"_L1 + QString::number(m_key));
    return url;
}

KXManagedObjectID KXManagedObjectID::identifierForURIRepresentation(
    const QUrl &uri, const std::shared_ptr<const KXStoreIdentity> &inStore)
{
    const auto parts = identifierParts(uri);
    if (!parts || !inStore || uri.host() != inStore->uuid)
        return {};
    const KXEntityDescription *entity = inStore->model->entity(parts->entity);
    return entity ? KXManagedObjectID(inStore, entity, parts->key) : KXManagedObjectID();
}

KXManagedObjectID KXManagedObjectID::identifierForURIRepresentation(const QUrl &uri)
{
    const auto parts = identifierParts(uri);
    if (!parts)
        return {};
    IdentifierStores &stores = identifierStores();
    const std::lock_guard lock(stores.mutex);
    auto store = stores.find(uri.host());
    if (!store) {
        // Not open: an entity by itself gives the identifier what others get from their store.
        const QString name = uri.host() + u'/' + parts->entity;
        store = stores.find(name);
        if (!store) {
            store = std::make_shared<KXStoreIdentity>(
                KXStoreIdentity { uri.host(), std::make_shared<LoneEntity>(parts->entity), nextStoreSerial() });
            stores.add(name, store);
        }
    }
    return identifierForURIRepresentation(uri, store);
}

void KXManagedObjectID::registerStore(const std::shared_ptr<const KXStoreIdentity> &store)
{
    IdentifierStores &stores = identifierStores();
    const std::lock_guard lock(stores.mutex);
    stores.add(store->uuid, store);
}

quint64 KXManagedObjectID::nextStoreSerial()
{
    static std::atomic<quint64> next { 1 };
    return next++;
}
