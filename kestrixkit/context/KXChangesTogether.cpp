#include <kestrixkit/context/KXChangesTogether_p.h>

#include <exception>

using Object = KXManagedObject;

void KXChangesTogether::willSet(Object *object, const KXPropertyDescription &property)
{
    if (!object->isObserved())
        return;
    m_announced.push_back({ KXRef<Object>(object), &property, KXChangeKind::Setting, {}, {} });
    object->willChangeValueForKey(property.name());
}

void KXChangesTogether::willLink(
    Object *object, const KXPropertyDescription &property, const KXRef<Object> &member, bool add)
{
    const QVariantList members { KXVariantFromRef(member) };
    m_announced.push_back({ KXRef<Object>(object), &property, add ? KXChangeKind::Insertion : KXChangeKind::Removal,
        add ? QVariantList() : members, add ? members : QVariantList() });
    const Announced &one = m_announced.back();
    object->willChangeValueForKey(property.name(), one.kind, one.gone);
}

void KXChangesTogether::tell()
{
    std::exception_ptr thrown;
    for (const Announced &one : std::exchange(m_announced, {})) {
        try {
            if (one.kind == KXChangeKind::Setting)
                one.object->didChangeValueForKey(one.property->name());
            else
                one.object->didChangeValueForKey(one.property->name(), one.kind, one.gone, one.come);
        } catch (...) {
            if (!thrown)
                thrown = std::current_exception();
        }
    }
    if (thrown)
        std::rethrow_exception(thrown);
}
