#include <kestrixkit/entity/KXModelPath.h>

#include <algorithm>

#include <kestrixkit/entity/KXEntityDescription.h>

using namespace Qt::StringLiterals;

namespace {

bool modelPathIsStoredAlike(const KXPropertyDescription &a, const KXPropertyDescription &b)
{
    if (a.isToMany() != b.isToMany() || a.isToOne() != b.isToOne() || a.isTransient() != b.isTransient())
        return false;
    if (a.isToMany())
        return a.joinTable() == b.joinTable() && a.joinSource() == b.joinSource() && a.inverse() == b.inverse();
    return a.column() == b.column()
        && (a.isToOne() ? a.destinationEntity() == b.destinationEntity() : a.type() == b.type());
}

}

KXModelPath::Step KXModelPath::stepAt(const KXEntityDescription &entity, const QString &key)
{
    Step step { &entity, entity.property(key) };
    if (step.property)
        return step;
    for (const KXEntityDescription *member : entity.family()) {
        const KXPropertyDescription *property = member->property(key);
        step.isAmbiguous
            = step.isAmbiguous || (step.property && property && !modelPathIsStoredAlike(*step.property, *property));
        step.property = step.property ? step.property : property;
    }
    return step;
}

KXModelPath::KXModelPath(const KXEntityDescription &entity, const QString &keyPath)
    : KXModelPath(entity, keyPath.split(u'.'))
{
}

KXModelPath::KXModelPath(const KXEntityDescription &entity, const QStringList &keys)
{
    const KXEntityDescription *here = &entity;
    for (const QString &key : keys) {
        if (!here)
            return;
        const bool isLast = m_steps.size() + 1 == size_t(keys.size());
        if (isLast && key == "@count"_L1 && !m_steps.empty() && m_steps.back().property->isToMany()) {
            m_isCount = m_isKnown = true;
            return;
        }
        const Step step = stepAt(*here, key);
        if (!step.property)
            return;
        m_steps.push_back(step);
        here = step.property->isRelationship() ? step.property->destinationEntity() : nullptr;
    }
    m_isKnown = !m_steps.empty();
}

bool KXModelPath::isToMany() const
{
    const auto end = m_isCount ? m_steps.end() - 1 : m_steps.end();
    return std::any_of(m_steps.begin(), end, [](const Step &step) { return step.property->isToMany(); });
}

bool KXModelPath::isAmbiguous() const
{
    return std::any_of(m_steps.begin(), m_steps.end(), [](const Step &step) { return step.isAmbiguous; });
}

const KXEntityDescription *KXModelPath::destination() const
{
    return m_isKnown && !m_isCount ? m_steps.back().property->destinationEntity() : nullptr;
}
