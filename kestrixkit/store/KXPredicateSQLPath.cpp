#include <kestrixkit/store/KXPredicateSQLPath_p.h>

#include <algorithm>

#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

const KXPropertyDescription &sqlPathProperty(const KXEntityDescription &entity, const QString &key)
{
    const KXModelPath::Step step = KXModelPath::stepAt(entity, key);
    if (!step.property)
        throw KXPredicateSQLRefusal { KXPredicateSQL::UnknownKey,
            KXStringWithFormat("%@ has no property \"%@\"", entity.name(), key) };
    if (step.isAmbiguous)
        throw KXPredicateSQLRefusal { KXPredicateSQL::NotInSQL,
            KXStringWithFormat("several sub-entities of %@ have a property \"%@\"", entity.name(), key) };
    const KXPropertyDescription *const found = step.property;
    if (found->isTransient())
        throw KXPredicateSQLRefusal { KXPredicateSQL::NotInSQL, KXStringWithFormat("\"%@\" is not stored", key) };
    return *found;
}

}

KXPredicateSQLPath::KXPredicateSQLPath(const QStringList &keys, const KXEntityDescription &entity)
    : m_entity(&entity)
{
    constexpr qsizetype mostKeys = 50; // SQLite joins 64 tables at most
    if (keys.size() > mostKeys)
        throw KXPredicateSQLRefusal { KXPredicateSQL::NotInSQL, u"a key path has too many keys"_s };
    const KXEntityDescription *here = &entity;
    for (const QString &key : keys) {
        if (key.isEmpty() || (!m_steps.empty() && m_steps.back().kind == Step::Absent)) {
            m_steps.push_back({ Step::Absent });
        } else if (key == "@count"_L1 && !m_steps.empty() && m_steps.back().kind == Step::ToMany) {
            m_steps.back().kind = Step::Count;
            here = nullptr;
        } else if (!here) {
            throw KXPredicateSQLRefusal { KXPredicateSQL::UnknownKey,
                KXStringWithFormat("values have no key \"%@\"", key) };
        } else {
            const KXPropertyDescription &property = sqlPathProperty(*here, key);
            m_steps.push_back({ property.isToMany() ? Step::ToMany
                    : property.isToOne()            ? Step::ToOne
                                                    : Step::Attribute,
                &property });
            here = property.destinationEntity();
        }
    }
}

qsizetype KXPredicateSQLPath::toMany(qsizetype from) const
{
    while (from < size() && (*this)[from].kind != Step::ToMany)
        ++from;
    return from;
}

void KXPredicateSQLPath::collectEntities(std::vector<const KXEntityDescription *> &entities) const
{
    for (const Step &step : m_steps) {
        const KXEntityDescription *destination = step.property ? step.property->destinationEntity() : nullptr;
        if (destination && std::find(entities.begin(), entities.end(), destination) == entities.end())
            entities.push_back(destination);
    }
}

KXPredicateValue::Kind KXPredicateSQLPath::kind() const
{
    if (m_steps.empty())
        return KXPredicateValue::Object;
    const Step &last = m_steps.back();
    if (last.kind == Step::Absent)
        return KXPredicateValue::Null;
    if (last.kind == Step::Count)
        return KXPredicateValue::Integer;
    if (last.kind != Step::Attribute)
        return KXPredicateValue::Object;
    switch (last.property->type()) {
    case KXAttributeType::Integer16:
    case KXAttributeType::Integer32:
    case KXAttributeType::Integer64:
    case KXAttributeType::Boolean:
        return KXPredicateValue::Integer;
    case KXAttributeType::Double:
        return KXPredicateValue::Real;
    case KXAttributeType::Decimal:
        return KXPredicateValue::Decimal;
    case KXAttributeType::String:
    case KXAttributeType::URI:
    case KXAttributeType::UUID:
        return KXPredicateValue::Text;
    case KXAttributeType::Date:
        return KXPredicateValue::Date;
    case KXAttributeType::Binary:
        return KXPredicateValue::Binary;
    case KXAttributeType::Variant:
        break;
    }
    return KXPredicateValue::Other;
}

const KXEntityDescription *KXPredicateSQLPath::destination() const
{
    return m_steps.empty() ? m_entity : m_steps.back().property->destinationEntity();
}

QByteArray KXPredicateSQLPath::scalar(const KXPredicateSQLRow &row, qsizetype from, qsizetype to, int &aliases) const
{
    const auto newAlias = [&aliases] { return 't' + QByteArray::number(++aliases); };
    // Where the path goes through other rows, they are joined inside one query, which has no row, so no value,
    // when one of them is missing.
    QByteArray key = row.key;
    QByteArray alias = row.alias;
    const KXEntityDescription *entity = row.entity;
    QByteArray tables;
    QByteArray where;
    for (qsizetype i = from; i < to; ++i) {
        const Step &step = (*this)[i];
        if (step.kind == Step::Absent)
            return "NULL";
        if (step.kind == Step::Count) {
            const QByteArray member = newAlias();
            const bool joined = !step.property->joinTable().isEmpty();
            const QByteArray &table = joined ? step.property->joinTable() : step.property->destinationEntity()->table();
            const QByteArray &column = joined ? step.property->joinSource() : step.property->inverse()->column();
            const QByteArray count
                = "(SELECT count(*) FROM " + table + ' ' + member + " WHERE " + member + '.' + column + '=' + key + ')';
            key = i == from
                ? count
                : "CASE WHEN " + key + " IS NOT NULL THEN " + count + " END"; // no object has no number of members
            continue;
        }
        if (alias.isEmpty()) {
            alias = newAlias();
            const QByteArray table = entity->table() + ' ' + alias;
            const QByteArray condition = alias + ".kx_id=" + key;
            if (tables.isEmpty()) {
                tables = " FROM " + table;
                where = " WHERE " + condition;
            } else {
                tables += " JOIN " + table + " ON " + condition;
            }
        }
        key = alias + '.' + step.property->column();
        alias.clear();
        entity = step.property->destinationEntity();
    }
    return tables.isEmpty() ? key : "(SELECT " + key + tables + where + ')';
}
