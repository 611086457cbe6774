#include <kestrixkit/filters/KXLivePresetCounts.h>

#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/filters/KXFolderCounts_p.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/store/KXPersistentStore.h>

using namespace Qt::StringLiterals;

namespace {

/// Hands over in its turn what the live counts say by then: what they said when it was made may be old.
class LiveCountsProvider : public KXFilterSetPresetCountsProvider
{
public:
    LiveCountsProvider(
        KXRef<KXFilterSetPreset> preset, const QString &contextIdentifier, const KXLivePresetCounts *counts)
        : KXFilterSetPresetCountsProvider(std::move(preset), contextIdentifier)
        , m_counts(counts)
    {
    }

protected:
    void loadCounts() override
    {
        deliverCountFrom([counts = m_counts](const KXFilterSetPreset &preset) {
            return counts ? counts->count(preset) : std::nullopt;
        });
    }

private:
    const QPointer<const KXLivePresetCounts> m_counts; // the main thread's
};

}

KXLivePresetCounts::KXLivePresetCounts(KXManagedObjectContext::Ref presetsContext, Place place, QObject *parent)
    : QObject(parent)
    , m_presetsContext(std::move(presetsContext))
    , m_place(std::move(place))
    , m_counts(std::make_unique<KXLiveCounts>(m_place.context, m_place.entityName, m_place.basePredicates))
    , m_changes(KXManagedObjectContext::onChange(
          m_presetsContext.get(), [this](const KXObjectsDidChange &did) { follow(did); }))
{
    connect(m_counts.get(), &KXLiveCounts::taggedCountsDidChange, this, &KXLivePresetCounts::deliver);
    for (const KXRef<KXFilterSetPreset> &preset : KXFilterSetPreset::findAllInContext(*m_presetsContext))
        add(preset);
}

KXLivePresetCounts::~KXLivePresetCounts() = default;

QString KXLivePresetCounts::identifierOf(const KXFilterSetPreset &preset)
{
    return QString::number(preset.objectID().key());
}

KXPredicate KXLivePresetCounts::predicate(qint64 preset)
{
    const auto known = m_entries.find(preset);
    const Entry entry = known == m_entries.end() ? Entry() : known->second;
    if (entry.isMapped || !entry.preset)
        return predicateOf(entry.mapped);
    const KXRef<KXFilterSet> mapped = map(entry.preset);
    if (const auto found = m_entries.find(preset); found != m_entries.end()) { // the mapper is the host's
        found->second.mapped = mapped;
        found->second.isMapped = true;
    }
    return predicateOf(mapped);
}

KXPredicate KXLivePresetCounts::predicateOf(const KXRef<KXFilterSet> &mapped)
{
    return mapped ? mapped->representedLocalPredicateWithKeyPath() : KXPredicate::falsePredicate();
}

KXRef<KXFilterSet> KXLivePresetCounts::map(const KXRef<KXFilterSetPreset> &preset) const
{
    const KXRef<KXFilterSet> set = preset->isDeleted() ? nullptr : preset->filterSet();
    if (!set || set->isMissing() || set->isDeleted() || !set->managedObjectContext())
        return {};
    if (!m_place.mapper)
        return set;
    const auto scratch = KXManagedObjectContext::contextWithParentContext(m_place.context);
    try {
        return m_place.mapper->createInstanceByMappingFilterSet(set, *scratch);
    } catch (const std::exception &failure) {
        KXLogError(filters, "The preset \"%@\" cannot be mapped: %s", preset->title(), failure.what());
        return {};
    }
}

void KXLivePresetCounts::add(const KXRef<KXFilterSetPreset> &preset)
{
    if (!preset || preset->isFolder() || preset->isDeleted())
        return;
    const qint64 key = preset->objectID().key();
    m_folders.erase(key); // it may have been one
    m_entries[key] = { preset };
    m_counts->setRule(identifierOf(*preset), [this, key] { return predicate(key); });
    m_counts->setTag(identifierOf(*preset), key);
}

void KXLivePresetCounts::remove(const KXFilterSetPreset &preset)
{
    m_counts->removeRule(identifierOf(preset));
    m_entries.erase(preset.objectID().key());
    m_folders.erase(preset.objectID().key());
}

// Folders

void KXLivePresetCounts::countFolders()
{
    m_countsFolders = true;
    for (const KXRef<KXFilterSetPreset> &preset : KXFilterSetPreset::findAllInContext(*m_presetsContext))
        addFolder(preset);
}

void KXLivePresetCounts::addFolder(const KXRef<KXFilterSetPreset> &folder)
{
    if (!m_countsFolders || !folder || !folder->isFolder() || folder->isDeleted())
        return;
    const qint64 key = folder->objectID().key();
    if (!m_folders.emplace(key, folder).second)
        return;
    m_counts->setRule(identifierOf(*folder), [this, key] {
        QList<KXPredicate> parts;
        if (const auto counted = m_folders.find(key); counted != m_folders.end())
            parts = partsOf(KXRef<KXFilterSetPreset>(counted->second));
        return parts.isEmpty()  ? KXPredicate::falsePredicate()
            : parts.size() == 1 ? parts.first()
                                : KXPredicate::orPredicate(parts);
    });
    m_counts->setTag(identifierOf(*folder), key);
}

/// A preset without filters lets everything through, and says so.
QList<KXPredicate> KXLivePresetCounts::partsOf(const KXRef<KXFilterSetPreset> &folder)
{
    QList<KXPredicate> parts;
    QSet<qint64> seen; // the mapper may move what it likes
    for (QList<KXRef<KXFilterSetPreset>> folders { folder }; !folders.isEmpty();) {
        for (const KXRef<KXFilterSetPreset> &child : folders.takeLast()->children()) {
            if (!child || child->isDeleted() || seen.contains(child->objectID().key()))
                continue;
            seen.insert(child->objectID().key());
            if (child->isFolder()) {
                folders.append(child);
                continue;
            }
            const KXPredicate part = predicate(child->objectID().key());
            parts.append(part ? part : KXPredicate::truePredicate());
        }
    }
    return parts;
}

void KXLivePresetCounts::foldersDidChange()
{
    for (const auto &[key, folder] : m_folders)
        m_counts->ruleDidChange(identifierOf(*folder));
}

void KXLivePresetCounts::follow(const KXObjectsDidChange &did)
{
    QSet<QUrl> edited; // filter sets
    bool mayChangeFolders = false; // a preset came, went or was moved
    for (const KXRef<KXManagedObject> &object : did.deleted) {
        if (const auto preset = KXFilterSetPreset::cast(object)) {
            ++m_shape;
            remove(*preset);
            mayChangeFolders = true;
        } else if (KXFilterSet::cast(object))
            edited.insert(object->objectID().URIRepresentation());
    }
    for (const auto *list : { &did.inserted, &did.updated, &did.refreshed }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            if (const auto preset = KXFilterSetPreset::cast(object)) {
                ++m_shape;
                const QSet<QString> changed = did.changedKeys.value(object.get());
                mayChangeFolders |= list == &did.inserted || changed.contains(u"isFolder"_s)
                    || changed.contains(u"children"_s) || changed.contains(u"parent"_s);
                if (preset->isFolder()) {
                    if (!m_folders.contains(preset->objectID().key()))
                        remove(*preset); // it may have been a plain one
                    addFolder(preset);
                } else if (list == &did.inserted || changed.contains(u"isFolder"_s))
                    add(preset);
                else if (changed.contains(u"filterSetURI"_s))
                    edited.insert(preset->filterSetURI());
            } else if (const KXRef<KXFilterSet> set = KXFilterSet::filterSetOfObject(object)) {
                edited.insert(set->objectID().URIRepresentation());
            }
        }
    }
    const auto coordinator = m_presetsContext->persistentStoreCoordinator();
    const KXEntityDescription *const presets = coordinator->model()->entity(KXFilterSetPreset::entityName);
    for (const KXEntityChange &others : did.merged ? did.merged->entities() : std::vector<KXEntityChange>()) {
        for (const qint64 key : others.entity->isKindOf(presets) ? others.inserted : QList<qint64>()) {
            const auto id = KXManagedObjectID(coordinator->store()->identity(), others.entity, key);
            const auto preset = KXFilterSetPreset::cast(m_presetsContext->objectWithID(id));
            add(preset);
            addFolder(preset);
            mayChangeFolders = true;
        }
    }
    if (edited.isEmpty()) {
        if (mayChangeFolders && !m_folders.empty()) {
            foldersDidChange();
            m_counts->update(); // the sum would be right at once, too
        }
        return;
    }
    for (auto &[key, entry] : m_entries) {
        if (!edited.contains(entry.preset->filterSetURI()))
            continue;
        entry.isMapped = false;
        m_counts->ruleDidChange(identifierOf(*entry.preset));
    }
    foldersDidChange();
}

void KXLivePresetCounts::deliver(const QList<KXTaggedCount> &counts)
{
    const QPointer<KXLivePresetCounts> alive(this); // an observer may end it
    const quint64 delivery = ++m_deliveries;
    const QString place = m_place.countsContextIdentifier;
    QList<KXRef<KXFilterSetPreset>> folders; // whose sums these are in
    for (const auto &[key, told] : counts) {
        const auto found = m_entries.find(key);
        const auto counted = found == m_entries.end() ? m_folders.find(key) : m_folders.end();
        if (found == m_entries.end() && counted == m_folders.end())
            continue;
        const bool isFolder = found == m_entries.end();
        // An observer may remove it.
        const KXRef<KXFilterSetPreset> preset = isFolder ? counted->second : found->second.preset;
        const KXRef<KXFilterSetPreset> folder = isFolder ? preset->parent() : folderOf(found->second);
        if (folder && (folders.isEmpty() || folders.constLast() != folder) && !folders.contains(folder))
            folders.append(folder);
        // What was told meanwhile is newer.
        const std::optional<qint64> count = delivery == m_deliveries ? told : this->count(*preset);
        preset->setOwnCount(count, isFolder ? KXFolderCountIdentifier(place) : place);
        if (!alive)
            return;
    }
    for (qsizetype i = 0; i < folders.size(); ++i) { // and those further up
        const KXRef<KXFilterSetPreset> folder = folders[i];
        if (const KXRef<KXFilterSetPreset> above = folder->parent(); above && !folders.contains(above))
            folders.append(above);
        folder->countsInItDidChange();
    }
}

const KXRef<KXFilterSetPreset> &KXLivePresetCounts::folderOf(Entry &entry) const
{
    if (std::exchange(entry.shape, m_shape) != m_shape)
        entry.folder = entry.preset->parent();
    return entry.folder;
}

std::shared_ptr<KXFilterSetPresetCountsProvider> KXLivePresetCounts::countsProviderForFilterSetPreset(
    const KXRef<KXFilterSetPreset> &preset)
{
    if (!preset)
        return nullptr;
    auto operation = std::make_shared<LiveCountsProvider>(preset, m_place.countsContextIdentifier, this);
    operation->setBasePredicates(m_place.basePredicates);
    operation->setFilterSetMapper(m_place.mapper);
    if (!count(*preset))
        m_counts->updateSoon(); // where that takes longer, the count is delivered when it is there
    return operation;
}
