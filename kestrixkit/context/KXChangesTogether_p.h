#pragma once

#include <vector>

#include <QVariantList>

#include <kestrixkit/context/KXManagedObject.h>

/// Values that change together: whoever observes them is told when all are in place, and finds, and may change, a
/// context that is settled.
class KXChangesTogether
{
public:
    /// To be called before the change, which the caller makes.
    void willSet(KXManagedObject *object, const KXPropertyDescription &property);
    /// The object must be observed.
    void willLink(
        KXManagedObject *object, const KXPropertyDescription &property, const KXRef<KXManagedObject> &member, bool add);
    /// All of them; then what the first of them threw is thrown.
    void tell();

private:
    struct Announced
    {
        KXRef<KXManagedObject> object;
        const KXPropertyDescription *property;
        KXChangeKind kind;
        QVariantList gone;
        QVariantList come;
    };
    std::vector<Announced> m_announced;
};
