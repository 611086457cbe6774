#pragma once

#include <kestrixkit/model/KXManagedObjectModel.h>
#include <kestrixkit/store/KXKeySequence_p.h>
#include <kestrixkit/store/KXPersistentStore.h>
#include <kestrixkit/store/KXRowCodec_p.h>
#include <kestrixkit/store/KXStoreConnections_p.h>

/// What an open store consists of.
class KXPersistentStorePrivate
{
public:
    KXPersistentStorePrivate(QUrl storeURL, const QString &path, const QByteArray &vfs)
        : url(std::move(storeURL))
        , connections(path, vfs)
    {
    }

    [[nodiscard]] static KXPersistentStorePrivate &of(const KXPersistentStore &store) { return *store.m_p; }

    /// Opens the file, or makes it where there is none. nullptr and an error where it is refused; it is then left
    /// as it was, and what was made for a new one is removed again.
    [[nodiscard]] static std::unique_ptr<KXPersistentStorePrivate> open(
        const QUrl &url, const KXManagedObjectModel::Ref &model, const QByteArray &vfs, KXError *error);

    /// What is answered where there should be a store.
    [[nodiscard]] static KXError notOpen();

    /// Of an entity of the store's model.
    [[nodiscard]] const KXRowCodec &codec(const KXEntityDescription &entity) const
    {
        return codecs[size_t(entity.number() - 1)];
    }

    const QUrl url;
    std::shared_ptr<const KXStoreIdentity> identity;
    std::vector<KXRowCodec> codecs; // by the entities' numbers
    KXStoreConnections connections;
    KXKeySequence keys { connections };
};
