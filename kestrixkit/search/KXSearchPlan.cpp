#include <kestrixkit/search/KXSearchPlan_p.h>

#include <QCryptographicHash>

#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/predicate/KXTextWords_p.h>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void planRefuse(const char *reason, const QString &path, const QString &entity)
{
    throw KXException(QString(KXInvalidArgumentException), KXStringWithFormat(reason, path, entity));
}

KXSearchPath planPath(const QString &keyPath, const KXEntityDescription &from)
{
    KXSearchPath path;
    path.start = &from;
    const KXEntityDescription *entity = &from;
    const QStringList keys = keyPath.split(u'.');
    for (qsizetype i = 0; i < keys.size(); ++i) {
        const KXPropertyDescription *property = entity ? entity->property(keys[i]) : nullptr;
        if (!property || property->isTransient())
            planRefuse("\"%@\" of \"%@\" is not stored", keyPath, from.name());
        if (i + 1 < keys.size()) {
            if (!property->isRelationship())
                planRefuse("\"%@\" of \"%@\" goes through something else than relationships", keyPath, from.name());
            path.steps.push_back(property);
            entity = property->destinationEntity();
        } else {
            if (!property->isAttribute())
                planRefuse("\"%@\" of \"%@\" leads to no attribute", keyPath, from.name());
            path.attribute = property;
        }
    }
    return path;
}

bool planIsText(KXAttributeType type)
{
    switch (type) {
    case KXAttributeType::Boolean:
    case KXAttributeType::Date:
    case KXAttributeType::UUID:
    case KXAttributeType::Binary:
    case KXAttributeType::Variant:
        return false;
    default:
        return true;
    }
}

}

KXSearchPlan::KXSearchPlan(const KXManagedObjectModel &model, const QList<KXSearchGroup> &searchGroups)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    const auto note = [&hash](const QString &text) {
        hash.addData(text.toUtf8());
        hash.addData(QByteArrayView("\0", 1));
    };
    note(QString::number(KXTextWords::Version));
    const QMap<QString, QByteArray> versions = model.versionHashes();
    for (auto version = versions.cbegin(); version != versions.cend(); ++version) {
        note(version.key());
        hash.addData(version.value());
    }
    for (const KXSearchGroup &wanted : searchGroups) {
        const KXEntityDescription *entity = model.entity(wanted.entityName);
        if (!entity)
            planRefuse("There is no entity \"%@\"%@", wanted.entityName, QString());
        Group group { wanted.name, entity, {}, {} };
        note(u"group"_s);
        note(entity->name());
        for (const QString &text : wanted.texts) {
            group.texts.push_back(planPath(text, *entity));
            if (!planIsText(group.texts.back().attribute->type()))
                planRefuse("\"%@\" of \"%@\" is no text", text, entity->name());
            note(text);
        }
        note(u"rank"_s);
        for (const KXSortDescriptor &descriptor : wanted.rank) {
            Rank rank { planPath(descriptor.key, *entity), descriptor.ascending, descriptor.options };
            for (const KXPropertyDescription *step : rank.path.steps) {
                if (step->isToMany())
                    planRefuse("\"%@\" of \"%@\" has no single value to sort by", descriptor.key, entity->name());
            }
            const KXAttributeType type = rank.path.attribute->type();
            if (type == KXAttributeType::Binary || type == KXAttributeType::Variant)
                planRefuse("\"%@\" of \"%@\" has no order", descriptor.key, entity->name());
            group.ranks.push_back(std::move(rank));
            note(descriptor.key);
            note(QString::number(descriptor.ascending ? 1 : 0) + QString::number(descriptor.options));
        }
        groups.push_back(std::move(group));
    }
    fingerprint = hash.result();
}
