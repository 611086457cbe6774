#include <kestrixkit/entity/KXPropertyDescription.h>

KXPropertyDescription KXPropertyDescription::attribute(const QString &name, KXAttributeType type)
{
    KXPropertyDescription property;
    property.m_name = name;
    property.m_type = type;
    return property;
}

KXPropertyDescription KXPropertyDescription::toOne(
    const QString &name, const QString &destination, const QString &inverse)
{
    KXPropertyDescription property;
    property.m_name = name;
    property.m_destinationName = destination;
    property.m_inverseName = inverse;
    return property;
}

KXPropertyDescription KXPropertyDescription::toMany(
    const QString &name, const QString &destination, const QString &inverse)
{
    KXPropertyDescription property = toOne(name, destination, inverse);
    property.m_toMany = true;
    return property;
}
