#include <kestrixkit/context/KXManagedObject.h>

#include <kestrixkit/context/KXObjectKeeper_p.h>
#include <kestrixkit/context/KXStoredClasses_p.h>
#include <kestrixkit/entity/KXRowValues_p.h>
#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

KXManagedObject::KXManagedObject() = default;

KXManagedObject::~KXManagedObject()
{
    if (m_values)
        KXRowValues::destroy(values(), *m_entity);
    if (m_state & Detached)
        delete m_store;
}

void KXManagedObject::registerClass(
    const QString &className, Factory factory, const QList<const std::type_info *> &classes, bool awakesFromInsert)
{
    KXStoredClasses::add(className, factory, classes, awakesFromInsert);
}

KXManagedObject::Factory KXManagedObject::registeredClass(const QString &className)
{
    return KXStoredClasses::factory(className);
}

void KXManagedObject::destroyUnreferenced() const noexcept
{
    auto *self = const_cast<KXManagedObject *>(this);
    if (m_residency & Owned) {
        if (!(m_state & Detached))
            m_keeper->unreferenced(self); // which may end this object, too
        return;
    }
    endWeakHandles();
    if (!(m_state & Detached) && m_keeper)
        m_keeper->unreferenced(self);
    delete self;
}

KXManagedObjectContext *KXManagedObject::managedObjectContext() const
{
    return m_state & Detached || !m_keeper ? nullptr : m_keeper->q;
}

KXManagedObjectID KXManagedObject::objectID() const
{
    if (m_key == 0)
        return {};
    if (m_state & Detached)
        return KXManagedObjectID(*m_store, m_entity, m_key);
    return KXManagedObjectID(m_keeper->identity(), m_entity, m_key);
}

void KXManagedObject::fireFault() const
{
    if (!(m_state & (Detached | Missing)) && m_keeper)
        m_keeper->fillFault(const_cast<KXManagedObject *>(this));
}

bool KXManagedObject::isMissing() const
{
    if (isFault())
        fireFault();
    return m_state & Missing;
}

void KXManagedObject::observationDidBegin() const
{
    if (!(m_state & Detached) && m_keeper)
        m_keeper->setObserved(const_cast<KXManagedObject *>(this), true);
}

void KXManagedObject::observationDidEnd() const
{
    if (!(m_state & Detached) && m_keeper)
        m_keeper->setObserved(const_cast<KXManagedObject *>(this), false);
}

KXPropertyPlace KXManagedObject::resolve(QStringView key, Kind kind) const
{
    const KXPropertyDescription *property = m_entity->property(key);
    if (!property)
        throw KXException(QString(KXUnknownKeyException),
            KXStringWithFormat("The entity \"%@\" has no property \"%@\"", m_entity->name(), key.toString()));
    if (!KXAccessorNote::fits(kind, *property)) {
        throw KXException(QString(KXInvalidClassException),
            KXStringWithFormat("\"%@\" of \"%@\" is %@ in the class and %@ in the model", key.toString(),
                m_entity->name(), KXAccessorNote::nameOfKind(kind), KXAccessorNote::typeOfProperty(*property)));
    }
    return { property->index(), property->offset() };
}

// Reading

QString KXManagedObject::textAt(int offset) const { return values()->slot<KXTextSlot>(offset).toString(); }

QVariant KXManagedObject::attributeAt(int index) const
{
    return loadedValues() ? values()->attribute(m_entity->properties()[index]) : QVariant();
}

KXRef<KXManagedObject> KXManagedObject::readToOne(KXPropertyPlace place) const
{
    if (!loadedValues() || m_state & Detached)
        return {};
    return m_keeper->toOne(this, m_entity->properties()[place.index]);
}

QList<KXRef<KXManagedObject>> KXManagedObject::readToMany(KXPropertyPlace place) const
{
    if (!loadedValues() || m_state & Detached)
        return {};
    return m_keeper->toMany(const_cast<KXManagedObject *>(this), m_entity->properties()[place.index]);
}

QVariant KXManagedObject::valueForKey(const QString &key) const
{
    const KXPropertyDescription *property = m_entity->property(key);
    if (!property) {
        // What only a sibling or sub-entity has is absent here: a key path may lead to objects of either kind.
        for (const KXEntityDescription *relative : m_entity->root()->family()) {
            if (relative->property(key))
                return {};
        }
        throw KXException(QString(KXUnknownKeyException),
            KXStringWithFormat("The entity \"%@\" has no property \"%@\"", m_entity->name(), key));
    }
    const KXPropertyPlace place { property->index(), property->offset() };
    if (property->isAttribute())
        return attributeAt(place.index);
    if (property->isToOne()) {
        const KXRef<KXManagedObject> object = readToOne(place);
        return KXVariantFromRef(object);
    }
    QVariantList list;
    for (const KXRef<KXManagedObject> &object : readToMany(place))
        list.append(KXVariantFromRef(object));
    return list;
}

QList<KXRef<KXManagedObject>> KXManagedObject::objectsForKey(const QString &key) const
{
    const KXPropertyPlace place = resolve(key, Kind::ToMany);
    return readToMany(place);
}

QSet<QString> KXManagedObject::changedKeys() const
{
    QSet<QString> keys;
    if (m_state & Detached)
        return keys;
    const KXRowValues *stored = m_keeper->storedValues(this);
    if (!stored && !isInserted())
        return keys;
    for (const KXPropertyDescription &property : m_entity->properties()) {
        const KXToManyKeys *members = property.isToMany() ? values()->existingToMany(property) : nullptr;
        const bool changed = property.isToMany() ? members && members->isChanged()
            : stored                             ? !KXRowValues::isEqual(*values(), *stored, property)
                                                 : values()->isPresent(property.index());
        if (changed)
            keys.insert(property.name());
    }
    return keys;
}

QVariant KXManagedObject::committedValueForKey(const QString &key) const
{
    const KXPropertyDescription *property = m_entity->property(key);
    const KXRowValues *stored = property && !(m_state & Detached) ? m_keeper->storedValues(this) : nullptr;
    if (!stored)
        return valueForKey(key);
    if (property->isAttribute())
        return stored->attribute(*property);
    QVariantList members;
    for (const qint64 member : m_keeper->storedKeysOf(const_cast<KXManagedObject *>(this), *property)) {
        if (const KXRef<KXManagedObject> object = m_keeper->object(*property->destinationEntity(), member))
            members.append(KXVariantFromRef(object));
    }
    return property->isToMany() ? QVariant(members) : members.value(0);
}
