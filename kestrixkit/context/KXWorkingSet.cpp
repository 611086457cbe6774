#include <kestrixkit/context/KXWorkingSet_p.h>

#include <kestrixkit/context/KXStoredClasses_p.h>

using Access = KXObjectAccess;
using Object = KXManagedObject;

namespace {

/// Objects of released entities that nobody holds are kept until so many others were read.
constexpr size_t recentObjects = 20'000;

}

KXWorkingSet::KXWorkingSet(KXObjectKeeper &keeper, bool isOfChild, qsizetype entityCount)
    : m_keeper(keeper)
    , m_isOfChild(isOfChild)
    , m_factories(size_t(entityCount))
{
}

KXWorkingSet::~KXWorkingSet() = default;

KXRef<Object> KXWorkingSet::instance(const KXEntityDescription &entity)
{
    if (const quint32 serial = KXStoredClasses::serial(); serial != m_factoriesSerial) {
        std::fill(m_factories.begin(), m_factories.end(), nullptr);
        m_factoriesSerial = serial;
    }
    Object::Factory &factory = m_factories[size_t(entity.number() - 1)];
    if (!factory)
        factory = KXStoredClasses::factoryFor(entity);
    if (!factory)
        factory = []() -> Object * { return new Object; };
    KXRef<Object> object(factory());
    Access::setEntity(object.get(), entity);
    return object;
}

KXRef<Object> KXWorkingSet::make(const KXEntityDescription &entity, qint64 key)
{
    KXRef<Object> object = instance(entity);
    Access::attach(object.get(), m_keeper, key);
    enter(object.get());
    if (m_isOfChild) {
        Access::residency(object.get()) |= Access::Owned;
        m_owned.push_back(object.get());
    }
    return object;
}

void KXWorkingSet::enter(Object *object)
{
    m_objects.insert(Access::key(object), object);
    if (!m_isOfChild && object->entity()->residence() == KXResidence::Resident) {
        Access::residency(object) |= Access::HeldAsResident;
        object->ref();
    }
}

void KXWorkingSet::leave(Object *object)
{
    quint16 &residency = Access::residency(object);
    const bool isResident = residency & Access::HeldAsResident;
    residency &= Access::Owned;
    forget(object);
    m_observed.erase(object);
    if (isResident)
        object->deref();
}

void KXWorkingSet::endOwned()
{
    for (Object *object : std::exchange(m_owned, {})) {
        Access::residency(object) &= quint16(~Access::Owned);
        if (Access::references(object) == 0)
            Access::destroyUnreferenced(object);
    }
}

void KXWorkingSet::keep(Object *object)
{
    if (object->entity()->residence() == KXResidence::Resident || m_isOfChild)
        return;
    use(object);
    if (m_recent.size() < recentObjects) {
        m_recent.emplace_back(object);
        return;
    }
    // The next of the ring gives way, unless it was asked for since the last round: then the one after it. It was last
    // used long ago, so it is fetched into the cache a few steps before its turn.
    const auto advance = [this] {
        m_recentNext = m_recentNext + 1 == recentObjects ? 0 : m_recentNext + 1;
        __builtin_prefetch(m_recent[(m_recentNext + 12) % recentObjects].get(), 1);
    };
    while (Access::residency(m_recent[m_recentNext].get()) & Access::Touched) {
        Access::residency(m_recent[m_recentNext].get()) &= quint16(~Access::Touched);
        advance();
    }
    m_recent[m_recentNext] = KXRef<Object>(object);
    advance();
}

void KXWorkingSet::setObserved(Object *object, bool observed)
{
    if (m_isOfChild)
        return; // its objects stay anyway
    if (observed)
        m_observed.try_emplace(object, KXRef<Object>(object));
    else
        m_observed.erase(object);
}

bool KXWorkingSet::isAnyHeld()
{
    const auto holds = [this](size_t place) {
        return Access::references(m_owned[place]) > 0 && !Access::isDetached(m_owned[place]);
    };
    if (m_holder < m_owned.size() && holds(m_holder))
        return true;
    for (m_holder = 0; m_holder < m_owned.size(); ++m_holder) {
        if (holds(m_holder))
            return true;
    }
    return false;
}
