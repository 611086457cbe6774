#include <kestrixkit/store/KXPersistentStore.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/model/KXModelComparison_p.h>
#include <kestrixkit/store/KXPersistentStore_p.h>
#include <kestrixkit/store/KXStoreReplacement_p.h>
#include <kestrixkit/store/KXStoreSchema_p.h>
#include <kestrixkit/store/KXStoreTables_p.h>

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
    const QString path = KXStoreFiles::realPath(url.toLocalFile());
    KXError problem = KXStoreReplacement::recover(path);
    if (!problem)
        problem = KXStoreSchema::look(path, {}, fresh, metadata);
    if (!problem && fresh)
        problem = KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen,
            KXStringWithFormat("There is no store at %@", url.toLocalFile()));
    if (!problem)
        return metadata;
    KXSetError(error, problem);
    return std::nullopt;
}

KXError KXPersistentStorePrivate::notOpen()
{
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::CannotOpen, u"The store is not open"_s);
}

/// Makes a store where there is none, or an empty file: written aside as a whole, then put in its place, so that nobody
/// ever sees a part of it or has it taken away. Busy where another process or thread is at it.
static KXError storeMake(const QString &path, const KXManagedObjectModel &model, const QByteArray &vfs)
{
    const QString made = KXStorePath(path).unique();
    KXStoreReplacement replacement(path, made);
    if (KXError error = replacement.begin())
        return error;
    // Whoever was faster has done it by now.
    bool fresh = false;
    KXStoreMetadata metadata;
    KXError error = KXStoreSchema::look(path, vfs, fresh, metadata);
    if (!error && fresh) {
        error = KXStoreSchema::create(made, vfs, model);
        if (!error)
            error = replacement.freshIsWhole();
        // A log of a store that somebody removed must not meet the new one.
        const QStringList left = KXStoreFiles::companions(path);
        for (qsizetype i = 1; i < left.size() && !error; ++i)
            error = KXStoreFiles::remove(left[i]);
        KXStoreFiles::shareModeOf(path, made);
        if (!error)
            error = KXStoreFiles::replace(made, path);
    }
    replacement.end(bool(error));
    return error;
}

/// Names what differs and what to do.
static KXError storeIncompatibility(const KXStoreSchema::Metadata &metadata, const KXManagedObjectModel &model)
{
    constexpr qsizetype mostNamed = 6;
    QString text = u"The model used to open the store is incompatible with the one used to create the store"_s;
    const KXManagedObjectModel::Ref former = KXManagedObjectModel::modelWithJSON(metadata.modelJSON);
    const QStringList all = former ? KXModelComparison::differences(*former, model) : QStringList();
    if (!all.isEmpty())
        text += ": "_L1 + all.first(std::min(all.size(), mostNamed)).join(", "_L1);
    if (all.size() > mostNamed)
        text += KXStringWithFormat(" and %lld more", all.size() - mostNamed);
    text += ". It can be migrated: persistentStoreCoordinatorByMigratingStoreURL() or kxtool migrate"_L1;
    return KXError(KXKestrixKitErrorDomain, KXStoreErrorCode::IncompatibleModel, text);
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
    const QString path = KXStoreFiles::realPath(url.toLocalFile());
    auto writer = std::make_unique<KXSQLiteConnection>();
    KXStoreSchema::Metadata metadata;
    for (bool opened = false; !opened;) {
        if (KXError problem = KXStoreReplacement::recover(path)) // waits for whoever is making the store just now
            return refuse(problem);
        bool fresh = false;
        metadata = {};
        if (KXError problem = KXStoreSchema::look(path, vfs, fresh, metadata))
            return refuse(problem);
        if (fresh) {
            if (KXError problem = storeMake(path, *model, vfs); problem && problem.code() != KXStoreErrorCode::Busy)
                return refuse(problem);
            continue;
        }
        if (metadata.versionHashes != model->versionHashes()) {
            return refuse(storeIncompatibility(metadata, *model));
        }
        KXError problem = writer->open(path, { .vfs = vfs });
        if (!problem)
            problem = KXStoreTables::check(*writer, *model);
        if (!problem)
            problem = KXStoreTables::updateIndexes(*writer, *model);
        // From here on nobody can replace the file, but another process may have done so since it was looked at.
        opened = !writer->hasMoved();
        if (problem && opened)
            return refuse(problem);
        if (!opened)
            writer = std::make_unique<KXSQLiteConnection>();
    }
    KXStoreSchema::addChangeNumber(*writer);

    auto store = std::make_unique<KXPersistentStorePrivate>(url, path, vfs);
    store->identity = std::make_shared<KXStoreIdentity>(
        KXStoreIdentity { metadata.uuid, model, KXManagedObjectID::nextStoreSerial() });
    KXManagedObjectID::registerStore(store->identity);
    for (const KXEntityDescription *entity : model->entities())
        store->codecs.emplace_back(*entity);
    store->connections.setWriter(std::move(writer));
    return store;
}
