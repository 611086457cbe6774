#include <kestrixkit/filters/KXFilterSetPresetsManager.h>

using namespace Qt::StringLiterals;

namespace {

KXFilterSetPresetsManager::Ref &presetsSharedManager()
{
    static auto *const manager = new KXFilterSetPresetsManager::Ref; // never destroyed: it may hold an open store
    return *manager;
}

KXFilterSetPresetsManager::Mapper presetsMapper(const KXManagedObjectContext::Ref &context)
{
    const auto manager = KXFilterSetPresetsManager::sharedManager();
    return manager ? manager->filterSetMapperForApplicationContext(context) : nullptr;
}

}

KXFilterSetMapper::~KXFilterSetMapper() = default;

KXFilterSetPresetsManager::Ref KXFilterSetPresetsManager::sharedManager() { return presetsSharedManager(); }
void KXFilterSetPresetsManager::setSharedManager(Ref manager) { presetsSharedManager().swap(manager); }

KXFilterSetPresetsManager::KXFilterSetPresetsManager(KXManagedObjectContext::Ref context)
    : m_context(std::move(context))
{
    setupPresetCache();
    m_changes = KXNotificationCenter::defaultCenter().addObserver(KXManagedObjectContextObjectsDidChangeNotification,
        m_context.get(),
        [this](const KXNotification &notification) { managedObjectContextObjectsDidChange(notification); });
}

void KXFilterSetPresetsManager::setupPresetCache()
{
    m_presetsCache.clear();
    if (!m_context)
        return;
    for (const auto &preset : KXFilterSetPreset::findAllInContext(*m_context)) {
        if (preset)
            m_presetsCache.insert(preset);
    }
}

void KXFilterSetPresetsManager::updatePresetCache(const KXRef<KXFilterSetPreset> &preset)
{
    if (!preset)
        return;
    if (preset->isDeleted())
        m_presetsCache.remove(preset);
    else if (preset->isInserted())
        m_presetsCache.insert(preset);
}

void KXFilterSetPresetsManager::managedObjectContextObjectsDidChange(const KXNotification &notification)
{
    const auto *did = notification.payloadAs<KXObjectsDidChange>();
    if (!did)
        return;
    for (const auto &objects : { did->deleted, did->inserted }) {
        for (const KXRef<KXManagedObject> &object : objects) {
            if (const auto preset = KXFilterSetPreset::cast(object))
                updatePresetCache(preset);
        }
    }
}

void KXFilterSetPresetsManager::registerFilterSetMapper(
    Mapper mapper, const KXManagedObjectContext::Ref &forApplicationContext)
{
    m_mappers.insert_or_assign(forApplicationContext, std::move(mapper));
}

KXFilterSetPresetsManager::Mapper KXFilterSetPresetsManager::filterSetMapperForApplicationContext(
    const KXManagedObjectContext::Ref &context) const
{
    const auto found = m_mappers.find(context);
    return found == m_mappers.end() ? nullptr : found->second;
}

bool KXFilterSetPresetsManager::isPresetAvailable(
    const KXRef<KXFilterSetPreset> &preset, const KXManagedObjectContext::Ref &inContext) const
{
    const Mapper mapper = presetsMapper(inContext);
    try {
        return mapper && mapper->canMapFilterSet(preset ? preset->filterSet() : KXRef<KXFilterSet>());
    } catch (const std::exception &exception) {
        KXLogError(filters, "A filter-set mapper failed: %@", exception);
        return false;
    }
}

KXRef<KXFilterSet> KXFilterSetPresetsManager::createFilterSetFromFilterSet(
    const KXRef<KXFilterSet> &set, const KXManagedObjectContext::Ref &inContext) const
{
    const Mapper mapper = set ? presetsMapper(inContext) : nullptr;
    if (!mapper || !inContext)
        return {};
    try {
        return mapper->createInstanceByMappingFilterSet(set, *inContext);
    } catch (const std::exception &exception) {
        KXLogError(filters, "A filter-set mapper failed: %@", exception);
        return {};
    }
}
