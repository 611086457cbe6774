#pragma once

#include <span>
#include <vector>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/store/KXRowReader_p.h>

/// What counting and searching ask of a context behind its public face: rows as its store has them, and as the context
/// has them. Borrows the context; of its thread, but for what says otherwise.
class KXContextRows
{
public:
    explicit KXContextRows(const KXManagedObjectContext &context);

    /// nullptr where the store could not be opened. Any thread may read it, as long as the context lives.
    [[nodiscard]] KXPersistentStorePrivate *store() const;
    /// What is committed; empty with an error where it cannot be read.
    [[nodiscard]] KXRowReader reader(KXError *error = nullptr) const { return KXRowReader(store(), error); }
    /// Throws KXException for a name that the model does not have.
    [[nodiscard]] const KXEntityDescription &entity(const QString &name) const;

    /// Only where it is in memory; nullptr elsewhere.
    [[nodiscard]] KXManagedObject *held(qint64 key) const;
    /// The object of the key, made where the context does not hold it; empty where a row of a family is gone.
    [[nodiscard]] KXRef<KXManagedObject> object(const KXEntityDescription &entity, qint64 key) const;
    /// Brings values into memory, those of all the keys at once. An error where the store does not answer.
    KXError fill(const KXEntityDescription &entity, std::span<const qint64> keys) const;
    /// Reads at once what keysOf() will be asked of many objects that have their values.
    void loadKeys(std::span<const KXRef<KXManagedObject>> objects, const KXPropertyDescription &relationship) const;
    /// Keys of the rows at the other end of a relationship, sorted; none of a missing object.
    [[nodiscard]] std::vector<qint64> keysOf(KXManagedObject *object, const KXPropertyDescription &relationship) const;

private:
    class KXManagedObjectContextPrivate &m_context;
};
