#include <kestrixkit/context/KXContextRows_p.h>

#include <kestrixkit/context/KXManagedObjectContext_p.h>

KXContextRows::KXContextRows(const KXManagedObjectContext &context)
    : m_context(KXManagedObjectContextPrivate::of(context))
{
}

KXPersistentStorePrivate *KXContextRows::store() const { return m_context.store; }

const KXEntityDescription &KXContextRows::entity(const QString &name) const { return m_context.entity(name); }

KXManagedObject *KXContextRows::held(qint64 key) const { return m_context.reader.registered(key); }

KXRef<KXManagedObject> KXContextRows::object(const KXEntityDescription &entity, qint64 key) const
{
    return m_context.reader.object(entity, key);
}

KXError KXContextRows::fill(const KXEntityDescription &entity, std::span<const qint64> keys) const
{
    return m_context.reader.fill(entity, keys);
}

void KXContextRows::loadKeys(
    std::span<const KXRef<KXManagedObject>> objects, const KXPropertyDescription &relationship) const
{
    m_context.reader.loadToMany(objects, relationship);
}

std::vector<qint64> KXContextRows::keysOf(KXManagedObject *object, const KXPropertyDescription &relationship) const
{
    return m_context.reader.keysOf(object, relationship);
}
