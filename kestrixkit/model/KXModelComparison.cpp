#include <kestrixkit/model/KXModelComparison_p.h>

#include <QMap>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/model/KXModelFile_p.h>

using namespace Qt::StringLiterals;

namespace {

/// The entity's own stored properties: inherited ones are its parent's business.
QMap<QString, const KXPropertyDescription *> comparedProperties(const KXEntityDescription &entity)
{
    QMap<QString, const KXPropertyDescription *> properties;
    const qsizetype inherited = entity.parent() ? entity.parent()->properties().size() : 0;
    for (qsizetype i = inherited; i < entity.properties().size(); ++i) {
        const KXPropertyDescription &property = entity.properties()[i];
        if (property.isRelationship() || !property.isTransient())
            properties.insert(property.name(), &property);
    }
    return properties;
}

void comparePropertiesOf(
    const KXEntityDescription &former, const KXEntityDescription &current, QStringList &differences)
{
    const auto before = comparedProperties(former), now = comparedProperties(current);
    QMap<QString, const KXPropertyDescription *> all = before;
    all.insert(now);
    for (auto it = all.begin(); it != all.end(); ++it) {
        const KXPropertyDescription *const was = before.value(it.key()), *const is = now.value(it.key());
        const auto differ = [&](const QString &how) {
            differences.append(KXStringWithFormat("\"%@\" of \"%@\" %@", it.key(), current.name(), how));
        };
        if (!was)
            differ(u"is new"_s);
        else if (!is)
            differ(u"is gone"_s);
        else if (was->isRelationship() != is->isRelationship())
            differ(is->isRelationship() ? u"is a relationship now"_s : u"is an attribute now"_s);
        else if (is->isAttribute() && was->type() != is->type())
            differ(u"is of another type"_s);
        else if (is->isRelationship() && KXModelFile::hashedLine(*was) != KXModelFile::hashedLine(*is))
            differ(u"leads elsewhere"_s);
        else if (was->isOptional() != is->isOptional())
            differ(is->isOptional() ? u"is not required any more"_s : u"is required now"_s);
    }
}

}

QStringList KXModelComparison::differences(const KXManagedObjectModel &former, const KXManagedObjectModel &current)
{
    QMap<QString, std::pair<const KXEntityDescription *, const KXEntityDescription *>> entities;
    for (const KXEntityDescription *entity : former.entities())
        entities[entity->name()].first = entity;
    for (const KXEntityDescription *entity : current.entities())
        entities[entity->name()].second = entity;
    QStringList differences;
    for (auto it = entities.begin(); it != entities.end(); ++it) {
        const auto [was, is] = *it;
        if (!was || !is)
            differences.append(KXStringWithFormat("entity \"%@\" is %s", it.key(), is ? "new" : "gone"));
        else if (was->versionHash() == is->versionHash())
            continue;
        else if (was->parentName() != is->parentName())
            differences.append(KXStringWithFormat("entity \"%@\" has another parent", it.key()));
        else
            comparePropertiesOf(*was, *is, differences);
    }
    return differences;
}
