// How the properties of an object are set: what is refused, what is news, and who is told.

#include <kestrixkit/context/KXManagedObject.h>

#include <kestrixkit/context/KXObjectKeeper_p.h>
#include <kestrixkit/entity/KXRowValues_p.h>
#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

/// Whether the variant is of a type that is read as an object, an empty handle included.
bool isObservableHandle(const QVariant &value)
{
    return value.metaType().id() >= QMetaType::User
        && QMetaType::canConvert(value.metaType(), QMetaType::fromType<KXObservable *>());
}

}

template <typename Write> void KXManagedObject::change(const KXPropertyDescription &property, Write &&write)
{
    if (((m_state & (Deleted | Detached)) && refusesChange(property)) || !loadedValues())
        return; // where the row is gone there is nothing to keep the value
    willChangeValueForKey(property.name());
    if (!(m_state & Detached))
        m_keeper->willChange(this, property.index());
    write(*values());
    didChangeValueForKey(property.name());
}

bool KXManagedObject::refusesChange(const KXPropertyDescription &property) const
{
    if (m_state & Deleted)
        KXLogWarning(store, "\"%@\" of a deleted \"%@\" stays as it is", property.name(), m_entity->name());
    else if (isAbandoned())
        KXLogWarning(store,
            "\"%@\" of a \"%@\" stays as it is: the object's context is gone, or its deletion was saved",
            property.name(), m_entity->name());
    else
        return false;
    return true;
}

void KXManagedObject::logMisfit(const KXPropertyDescription &property, const QVariant &value) const
{
    KXLogError(store, "\"%@\" (%s) does not fit \"%@\" of \"%@\", which is %@", KXDescription(value), value.typeName(),
        property.name(), m_entity->name(), KXAccessorNote::typeOfProperty(property));
}

void KXManagedObject::setDate(KXPropertyPlace place, const std::optional<QDateTime> &value)
{
    if (!value || KXValueConversion::isDateInRange(*value))
        setInteger(
            place, value ? std::optional(KXValueConversion::microsecondsFromDate(*value)) : std::optional<qint64>());
    else
        KXLogError(store, "A date of the year %d does not fit \"%@\" of \"%@\"", value->date().year(),
            m_entity->properties().at(place.index).name(), m_entity->name());
}

void KXManagedObject::setInteger(KXPropertyPlace place, std::optional<qint64> value)
{
    const KXPropertyDescription &property = m_entity->properties().at(place.index);
    if (value) {
        const qint64 limit = property.type() == KXAttributeType::Integer16 ? 0x7fff
            : property.type() == KXAttributeType::Integer32                ? 0x7fff'ffff
                                                                           : 0;
        if (limit && (*value > limit || *value < -limit - 1)) {
            KXLogError(store, "%lld does not fit \"%@\" of \"%@\"", *value, property.name(), m_entity->name());
            return;
        }
    }
    const qint64 *current = slotIfPresent<qint64>(place);
    if (current ? value && *value == *current : !value && m_values) {
        announceUnchanged(property);
        return;
    }
    change(property, [&](KXRowValues &block) {
        block.setPresent(place.index, value.has_value());
        block.slot<qint64>(place.offset) = value.value_or(0);
    });
}

void KXManagedObject::setDouble(KXPropertyPlace place, std::optional<double> value)
{
    const KXPropertyDescription &property = m_entity->properties().at(place.index);
    const double *current = slotIfPresent<double>(place);
    if (current ? value && *value == *current : !value && m_values) {
        announceUnchanged(property);
        return;
    }
    change(property, [&](KXRowValues &block) {
        block.setPresent(place.index, value.has_value());
        block.slot<double>(place.offset) = value.value_or(0);
    });
}

void KXManagedObject::setText(KXPropertyPlace place, const std::optional<QString> &value)
{
    const KXPropertyDescription &property = m_entity->properties().at(place.index);
    if (value && !KXValueConversion::isWholeText(*value)) {
        KXLogError(store, "\"%@\" of \"%@\" is given half of a surrogate pair", property.name(), m_entity->name());
        return;
    }
    const KXTextSlot *current = slotIfPresent<KXTextSlot>(place);
    if (current ? value && *value == current->view() : !value && m_values) {
        announceUnchanged(property);
        return;
    }
    change(property, [&](KXRowValues &block) {
        block.setPresent(place.index, value.has_value());
        block.slot<KXTextSlot>(place.offset).assign(value.value_or(QString()));
    });
}

void KXManagedObject::setAttributeAt(int index, const QVariant &value)
{
    const KXPropertyDescription &property = m_entity->properties().at(index);
    const QVariant converted = KXValueConversion::convert(value, property.type());
    if (!converted.isValid() && value.isValid() && !value.isNull()) {
        logMisfit(property, value);
        return;
    }
    change(property, [&](KXRowValues &block) { block.setAttribute(property, converted); });
}

void KXManagedObject::announceUnchanged(const KXPropertyDescription &property)
{
    // Observers are told of every setting; the store is only told of changes.
    willChangeValueForKey(property.name());
    didChangeValueForKey(property.name());
}

bool KXManagedObject::setValueForKey(const QString &key, const QVariant &value)
{
    const KXPropertyDescription *property = m_entity->property(key);
    if (!property)
        throw KXException(QString(KXUnknownKeyException),
            KXStringWithFormat("The entity \"%@\" has no property \"%@\"", m_entity->name(), key));
    const KXPropertyPlace place { property->index(), property->offset() };
    if (refusesChange(*property))
        return false;
    if (property->isRelationship()) {
        QList<KXRef<KXManagedObject>> objects;
        for (const QVariant &element : property->isToMany() ? value.toList() : QVariantList { value }) {
            if (property->isToOne() && (!element.isValid() || element.isNull()))
                continue;
            KXRef<KXManagedObject> object(dynamic_cast<KXManagedObject *>(KXObservableFromVariant(element)));
            if (!object && property->isToOne() && isObservableHandle(element))
                continue; // an empty one
            if (!object) {
                KXLogError(store, "\"%@\" of \"%@\" takes objects, not \"%@\" (%s)", key, m_entity->name(),
                    KXDescription(element), element.typeName());
                return false;
            }
            if (!(m_state & Detached) && !m_keeper->mayConnect(this, *property, object.get()))
                return false; // which was logged
            objects.append(std::move(object));
        }
        if (property->isToMany())
            writeToMany(place, objects);
        else
            writeToOne(place, objects.value(0).get());
        return !(m_state & Detached);
    }
    const QVariant converted = KXValueConversion::convert(value, property->type());
    if (!converted.isValid() && value.isValid() && !value.isNull()) {
        logMisfit(*property, value);
        return false;
    }
    if (loadedValues() && values()->attribute(*property) == converted
        && values()->isPresent(place.index) == converted.isValid())
        announceUnchanged(*property);
    else
        setAttributeAt(place.index, converted);
    return true;
}

void KXManagedObject::writeToOne(KXPropertyPlace place, KXManagedObject *object)
{
    const KXPropertyDescription &property = m_entity->properties().at(place.index);
    if (refusesChange(property) || !loadedValues())
        return;
    if (m_state & Detached)
        KXLogWarning(store, "\"%@\" of an object without context cannot be connected", property.name());
    else
        m_keeper->setToOne(this, property, object);
}

void KXManagedObject::addToMany(KXPropertyPlace place, KXManagedObject *object)
{
    const KXPropertyDescription &property = m_entity->properties().at(place.index);
    if (!object || refusesChange(property) || !loadedValues())
        return;
    if (m_state & Detached)
        KXLogWarning(store, "\"%@\" of an object without context cannot be connected", property.name());
    else
        m_keeper->addToMany(this, property, object);
}

void KXManagedObject::removeFromMany(KXPropertyPlace place, KXManagedObject *object)
{
    const KXPropertyDescription &property = m_entity->properties().at(place.index);
    if (object && !refusesChange(property) && loadedValues() && !(m_state & Detached))
        m_keeper->removeFromMany(this, property, object);
}

void KXManagedObject::writeToMany(KXPropertyPlace place, const QList<KXRef<KXManagedObject>> &objects)
{
    const QList<KXRef<KXManagedObject>> before = readToMany(place);
    for (const KXRef<KXManagedObject> &object : before) {
        if (!objects.contains(object))
            removeFromMany(place, object.get());
    }
    for (const KXRef<KXManagedObject> &object : objects)
        addToMany(place, object.get());
}
