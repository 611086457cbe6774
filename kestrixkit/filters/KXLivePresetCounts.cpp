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
    connect(m_counts.get(), &KXLiveCounts::countsDidChange, this, &KXLivePresetCounts::deliver);
    for (const KXRef<KXFilterSetPreset> &preset : KXFilterSetPreset::findAllInContext(*m_presetsContext))
        add(preset);
}

KXLivePresetCounts::~KXLivePresetCounts() = default;

QString KXLivePresetCounts::identifierOf(const KXFilterSetPreset &preset)
{
    return QString::number(preset.objectID().key());
}

KXPredicate KXLivePresetCounts::predicate(const QString &identifier)
{
    const auto known = m_entries.find(identifier);
    const Entry entry = known == m_entries.end() ? Entry() : known->second;
    if (entry.isMapped || !entry.preset)
        return predicateOf(entry.mapped);
    const KXRef<KXFilterSet> mapped = map(entry.preset);
    if (const auto found = m_entries.find(identifier); found != m_entries.end()) { // the mapper is the host's
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
    const QString identifier = identifierOf(*preset);
    m_folders.erase(identifier); // it may have been one
    m_entries[identifier] = { preset };
    m_counts->setRule(identifier, [this, identifier] { return predicate(identifier); });
}

void KXLivePresetCounts::remove(const KXFilterSetPreset &preset)
{
    const QString identifier = identifierOf(preset);
    m_counts->removeRule(identifier);
    m_entries.erase(identifier);
    m_folders.erase(identifier);
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
    const QString identifier = identifierOf(*folder);
    if (m_folders.contains(identifier))
        return;
    m_folders.emplace(identifier, folder);
    m_counts->setRule(identifier, [this, identifier] {
        QList<KXPredicate> parts;
        if (const auto counted = m_folders.find(identifier); counted != m_folders.end())
            parts = partsOf(KXRef<KXFilterSetPreset>(counted->second));
        return parts.isEmpty()  ? KXPredicate::falsePredicate()
            : parts.size() == 1 ? parts.first()
                                : KXPredicate::orPredicate(parts);
    });
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
            const KXPredicate part = predicate(identifierOf(*child));
            parts.append(part ? part : KXPredicate::truePredicate());
        }
    }
    return parts;
}

void KXLivePresetCounts::foldersDidChange()
{
    for (const auto &[identifier, folder] : m_folders)
        m_counts->ruleDidChange(identifier);
}

void KXLivePresetCounts::follow(const KXObjectsDidChange &did)
{
    QSet<QUrl> edited; // filter sets
    bool mayChangeFolders = false; // a preset came, went or was moved
    for (const KXRef<KXManagedObject> &object : did.deleted) {
        if (const auto preset = KXFilterSetPreset::cast(object)) {
            remove(*preset);
            mayChangeFolders = true;
        } else if (KXFilterSet::cast(object))
            edited.insert(object->objectID().URIRepresentation());
    }
    for (const auto *list : { &did.inserted, &did.updated, &did.refreshed }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            if (const auto preset = KXFilterSetPreset::cast(object)) {
                const QSet<QString> changed = did.changedKeys.value(object.get());
                mayChangeFolders |= list == &did.inserted || changed.contains(u"isFolder"_s)
                    || changed.contains(u"children"_s) || changed.contains(u"parent"_s);
                if (preset->isFolder()) {
                    if (!m_folders.contains(identifierOf(*preset)))
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
    for (auto &[identifier, entry] : m_entries) {
        if (!edited.contains(entry.preset->filterSetURI()))
            continue;
        entry.isMapped = false;
        m_counts->ruleDidChange(identifier);
    }
    foldersDidChange();
}

void KXLivePresetCounts::deliver(const QStringList &identifiers)
{
    const QPointer<KXLivePresetCounts> alive(this); // an observer may end it
    const QString place = m_place.countsContextIdentifier;
    QSet<KXRef<KXFilterSetPreset>> around; // folders further up; a preset tells its own
    for (const QString &identifier : identifiers) {
        const std::optional<qint64> count = m_counts->count(identifier);
        const auto set = [&count](KXFilterSetPreset &preset, const QString &under) {
            if (count)
                preset.setCount(*count, under);
            else
                preset.removeCount(under);
        };
        if (const auto found = m_folders.find(identifier); found != m_folders.end()) {
            const KXRef<KXFilterSetPreset> folder = found->second; // an observer may remove it
            set(*folder, KXFolderCountIdentifier(place));
            if (!alive)
                return;
        }
        const auto found = m_entries.find(identifier);
        if (found == m_entries.end())
            continue;
        const KXRef<KXFilterSetPreset> preset = found->second.preset; // likewise
        set(*preset, place);
        if (!alive)
            return;
        const KXRef<KXFilterSetPreset> own = preset->parent();
        for (auto folder = own ? own->parent() : own; folder && !around.contains(folder); folder = folder->parent())
            around.insert(folder);
    }
    for (const KXRef<KXFilterSetPreset> &folder : std::as_const(around)) {
        folder->willChangeValueForKey(u"counts");
        folder->didChangeValueForKey(u"counts");
    }
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
