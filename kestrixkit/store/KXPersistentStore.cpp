#include <kestrixkit/store/KXPersistentStore.h>

#include <QFile>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXPersistentStore_p.h>
#include <kestrixkit/store/KXStoreReplacement_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>

using namespace Qt::StringLiterals;

KXPersistentStore::KXPersistentStore(std::unique_ptr<KXPersistentStorePrivate> p)
    : m_p(std::move(p))
{
}
KXPersistentStore::~KXPersistentStore() = default;
const QUrl &KXPersistentStore::URL() const { return m_p->url; }
const QString &KXPersistentStore::identifier() const { return m_p->identity->uuid; }
const std::shared_ptr<const KXStoreIdentity> &KXPersistentStore::identity() const { return m_p->identity; }

std::optional<KXStoreMetadata> KXPersistentStore::metadataForStoreURL(const QUrl &url, KXError *error)
{
    KXStoreMetadata metadata;
    bool fresh = false;
    KXError problem = KXStoreReplacement::recover(url.toLocalFile());
    if (!problem)
        problem = KXStoreSchema::look(url.toLocalFile(), {}, fresh, metadata);
    if (!problem && fresh)
        problem = KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen,
            KXStringWithFormat("There is no store at %@", url.toLocalFile()));
    if (!problem)
        return metadata;
    KXSetError(error, problem);
    return std::nullopt;
}

std::unique_ptr<KXPersistentStorePrivate> KXPersistentStorePrivate::open(
    const QUrl &url, const KXManagedObjectModel::Ref &model, const QByteArray &vfs, KXError *error)
{
    const auto refuse = [error](const KXError &problem) {
        KXSetError(error, problem);
        return nullptr;
    };
    if (!url.isLocalFile()) {
        return refuse(KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen,
            KXStringWithFormat("%@ is not the address of a local file", url.toString())));
    }
    const QString path = url.toLocalFile();
    if (KXError problem = KXStoreReplacement::recover(path))
        return refuse(problem);
    const bool existed = QFile::exists(path);
    bool create = false;
    KXStoreSchema::Metadata metadata;
    if (KXError problem = KXStoreSchema::look(path, vfs, create, metadata))
        return refuse(problem);
    if (!create && metadata.versionHashes != model->versionHashes()) {
        return refuse(KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::IncompatibleModel,
            u"The model used to open the store is incompatible with the one used to create the store"_s));
    }

    auto writer = std::make_unique<KXSQLiteConnection>();
    KXError problem
        = writer->open(path, { .create = create, .applicationId = KXStoreSchema::ApplicationId, .vfs = vfs });
    if (!problem && create)
        problem = KXStoreSchema::create(*writer, *model, metadata);
    else if (!problem)
        problem = KXStoreSchema::updateIndexes(*writer, *model);
    // From here on nobody can replace the file, but another process may have done so since it was looked at.
    if (existed && !create && writer->hasMoved()) {
        writer.reset();
        return open(url, model, vfs, error);
    }
    if (problem) {
        writer.reset();
        if (!existed) {
            for (const QString &made : KXStoreFiles::companions(path))
                QFile::remove(made);
        }
        return refuse(problem);
    }

    auto store = std::make_unique<KXPersistentStorePrivate>(url, path, vfs);
    store->identity = std::make_shared<KXStoreIdentity>(
        KXStoreIdentity { metadata.uuid, model, KXManagedObjectID::nextStoreSerial() });
    KXManagedObjectID::registerStore(store->identity);
    for (const KXEntityDescription *entity : model->entities())
        store->codecs.emplace_back(*entity);
    store->connections.setWriter(std::move(writer));
    return store;
}
