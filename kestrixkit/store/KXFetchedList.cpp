#include <kestrixkit/store/KXFetchedList.h>

#include <kestrixkit/store/KXManagedObjectContext_p.h>
#include <kestrixkit/store/KXPersistentStore.h>

KXFetchedList::KXFetchedList(std::weak_ptr<KXManagedObjectContext> context, const KXEntityDescription *entity, std::vector<qint64> keys, int batchSize)
{
    const auto held = context.lock();
    m_data = std::make_shared<Data>(Data { std::move(context), held.get(), entity, held->persistentStoreCoordinator(), std::move(keys), batchSize });
}

KXRef<KXManagedObject> KXFetchedList::at(qsizetype index) const
{
    if (index < 0 || index >= size() || m_data->context.expired())
        return {};
    // The context lives: it belongs to this thread, which is here.
    KXManagedObjectContextPrivate &context = m_data->borrowed->d();
    const qint64 key = m_data->keys[size_t(index)];
    if (const KXManagedObject *object = context.registered(key); object && !object->isFault())
        return context.object(*m_data->entity, key);
    const size_t batch = size_t(m_data->batchSize);
    const size_t from = size_t(index) / batch * batch;
    context.fill(*m_data->entity, std::span(m_data->keys).subspan(from, std::min(batch, m_data->keys.size() - from)));
    return context.object(*m_data->entity, key);
}

KXManagedObjectID KXFetchedList::objectID(qsizetype index) const
{
    if (index < 0 || index >= size())
        return {};
    const KXPersistentStore *store = m_data->coordinator->store();
    return KXManagedObjectID(store->identity(), m_data->entity, key(index));
}

const std::vector<qint64> &KXFetchedList::keys() const &
{
    static const std::vector<qint64> none;
    return m_data ? m_data->keys : none;
}
