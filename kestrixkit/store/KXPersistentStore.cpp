#include <kestrixkit/store/KXPersistentStore.h>

#include <QFile>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXPersistentStore_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>

using namespace Qt::StringLiterals;

KXPersistentStore::KXPersistentStore(std::unique_ptr<KXPersistentStorePrivate> p) : m_p(std::move(p)) { }
KXPersistentStore::~KXPersistentStore() = default;
const QUrl &KXPersistentStore::URL() const { return m_p->url; }
const QString &KXPersistentStore::identifier() const { return m_p->identity->uuid; }
const std::shared_ptr<const KXStoreIdentity> &KXPersistentStore::identity() const { return m_p->identity; }

std::unique_ptr<KXPersistentStorePrivate> KXPersistentStorePrivate::open(const QUrl &url, const KXManagedObjectModel::Ref &model,
    const QByteArray &vfs, KXError *error)
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
    const bool existed = QFile::exists(path);
    bool fresh = false;
    if (KXError problem = KXStoreSchema::inspectFile(path, fresh))
        return refuse(problem);

    KXStoreSchema::Metadata metadata;
    bool create = fresh;
    if (!fresh) {
        // A look first, with a connection that never folds the log into a file that may be refused.
        KXSQLiteConnection look;
        KXError problem = look.open(path, { .untouched = true, .vfs = vfs });
        if (!problem && look.integer("SELECT count(*) FROM sqlite_master", -1) == 0)
            create = true; // a creation that was cut short before its first commit
        else if (!problem)
            problem = KXStoreSchema::readMetadata(look, metadata);
        if (problem)
            return refuse(problem);
        if (!create && metadata.versionHashes != model->versionHashes()) {
            return refuse(KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::IncompatibleModel,
                u"The model used to open the store is incompatible with the one used to create the store"_s));
        }
    }

    auto writer = std::make_unique<KXSQLiteConnection>();
    KXError problem = writer->open(path, { .create = create, .applicationId = KXStoreSchema::ApplicationId, .vfs = vfs });
    if (!problem && create)
        problem = KXStoreSchema::create(*writer, *model, metadata);
    else if (!problem)
        problem = KXStoreSchema::updateIndexes(*writer, *model);
    if (problem) {
        writer.reset();
        if (!existed) {
            for (const auto suffix : { ""_L1, "-wal"_L1, "-shm"_L1, "-journal"_L1 })
                QFile::remove(path + suffix);
        }
        return refuse(problem);
    }

    auto store = std::make_unique<KXPersistentStorePrivate>(url, path, vfs);
    store->identity = std::make_shared<KXStoreIdentity>(KXStoreIdentity { metadata.uuid, model, KXManagedObjectID::nextStoreSerial() });
    KXManagedObjectID::registerStore(store->identity);
    for (const KXEntityDescription *entity : model->entities())
        store->codecs.emplace_back(*entity);
    store->connections.setWriter(std::move(writer));
    return store;
}
