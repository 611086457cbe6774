#include <kestrixkit/entity/KXEntityDescription.h>

KXEntityDescription::KXEntityDescription(const QString &name, const QString &parentName)
    : m_name(name)
    , m_parentName(parentName)
{
}

KXEntityDescription &KXEntityDescription::add(const KXPropertyDescription &property)
{
    m_properties.append(property);
    return *this;
}

const KXPropertyDescription *KXEntityDescription::property(QStringView name) const
{
    // A handful of properties: looking at each is as fast as a hash, and needs no string to look up with.
    for (const KXPropertyDescription &property : m_properties) {
        if (property.name() == name)
            return &property;
    }
    return nullptr;
}

bool KXEntityDescription::isKindOf(const KXEntityDescription *entity) const
{
    for (const KXEntityDescription *ancestor = this; ancestor; ancestor = ancestor->m_parent) {
        if (ancestor == entity)
            return true;
    }
    return false;
}
