#include <kestrixkit/context/KXFetchedList.h>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/store/KXPersistentStore.h>

KXFetchedList::KXFetchedList(std::weak_ptr<KXManagedObjectContext> context, const KXEntityDescription *entity,
    std::vector<qint64> keys, int batchSize)
{
    const auto held = context.lock();
    m_data = std::make_shared<Data>(Data {
        std::move(context), held.get(), entity, held->persistentStoreCoordinator(), std::move(keys), batchSize });
}

KXRef<KXManagedObject> KXFetchedList::at(qsizetype index) const
{
    if (index < 0 || index >= size() || m_data->context.expired())
        return {};
    // The context lives: it belongs to this thread, which is here.
    KXManagedObjectContextPrivate &context = KXManagedObjectContextPrivate::of(*m_data->borrowed);
    return KXContextFetcher::objectAt(context, *m_data->entity, m_data->keys, size_t(index), size_t(m_data->batchSize));
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
