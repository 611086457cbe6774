#pragma once

#include <memory>

#include <QUrl>

#include <kestrixkit/store/KXManagedObjectID.h>

class KXPersistentStorePrivate;

/// One open store file. Owned by its coordinator; open until that goes. Any thread.
class KX_CORE_EXPORT KXPersistentStore
{
public:
    explicit KXPersistentStore(std::unique_ptr<KXPersistentStorePrivate> p);
    ~KXPersistentStore();
    KXPersistentStore(const KXPersistentStore &) = delete;
    KXPersistentStore &operator=(const KXPersistentStore &) = delete;

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
