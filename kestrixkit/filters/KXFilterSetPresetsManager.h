#pragma once

#include <map>
#include <memory>

#include <QSet>

#include <kestrixkit/filters/KXFilterSetMapper.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

/// The presets of one context and the mappers by which the areas of the application use them.
///
/// The host makes one and installs it as the shared manager before it makes controllers, which go on observing the
/// manager that they found. Main thread.
class KX_CORE_EXPORT KXFilterSetPresetsManager
{
public:
    using Ref = std::shared_ptr<KXFilterSetPresetsManager>;
    using Mapper = std::shared_ptr<const KXFilterSetMapper>;
    /// By the context itself. A context that is gone leaves its entry behind; a later one never finds it.
    using Mappers = std::map<std::weak_ptr<KXManagedObjectContext>, Mapper, std::owner_less<>>;

    /// Null until the host installs one.
    [[nodiscard]] static Ref sharedManager();
    static void setSharedManager(Ref manager);

    /// Reads all presets of the context and follows its announcements.
    explicit KXFilterSetPresetsManager(KXManagedObjectContext::Ref context);
    Q_DISABLE_COPY_MOVE(KXFilterSetPresetsManager)

    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    /// All presets, folders included, that the context had at first or was told to insert; for the host. A preset stays
    /// when the notification that brought its deletion finds it deleted no more, and one that comes by a merge is not
    /// added.
    [[nodiscard]] const QSet<KXRef<KXFilterSetPreset>> &presetsCache() const { return m_presetsCache; }
    /// Fills the cache anew.
    void setupPresetCache();
    /// Adds a preset that is inserted, removes one that is deleted, whatever the notification called it.
    void updatePresetCache(const KXRef<KXFilterSetPreset> &preset);
    void managedObjectContextObjectsDidChange(const KXNotification &notification);

    [[nodiscard]] const Mappers &mappers() const { return m_mappers; }
    void setMappers(Mappers mappers) { m_mappers = std::move(mappers); }
    /// Replaces an earlier mapper of the context.
    void registerFilterSetMapper(Mapper mapper, const KXManagedObjectContext::Ref &forApplicationContext);
    /// Null where none is registered.
    [[nodiscard]] Mapper filterSetMapperForApplicationContext(const KXManagedObjectContext::Ref &context) const;

    // Both ask the shared manager's mappers, on whichever manager they are called. A mapper that throws is logged and
    // counts as one that cannot.

    /// Whether the context's mapper can map the preset's filter set; false without mapper or shared manager.
    [[nodiscard]] bool isPresetAvailable(
        const KXRef<KXFilterSetPreset> &preset, const KXManagedObjectContext::Ref &inContext) const;
    /// A set in the application context that stands for the preset's; the caller saves it. Empty without set, mapper or
    /// shared manager. Whether the set can be mapped is not asked first.
    [[nodiscard]] KXRef<KXFilterSet> createFilterSetFromFilterSet(
        const KXRef<KXFilterSet> &set, const KXManagedObjectContext::Ref &inContext) const;

private:
    const KXManagedObjectContext::Ref m_context;
    QSet<KXRef<KXFilterSetPreset>> m_presetsCache;
    Mappers m_mappers;
    KXNotificationToken m_changes;
};
