#pragma once

#include <kestrixkit/entity/KXManagedObjectID.h>
#include <kestrixkit/foundation/KXObservable.h>

/// An observable object that an identifier names. Predicates compare such objects by it, and keep it in place of them.
class KX_CORE_EXPORT KXIdentifiedObject : public KXObservable
{
public:
    ~KXIdentifiedObject() override;
    /// Null for one that no store knows.
    [[nodiscard]] virtual KXManagedObjectID objectID() const = 0;
};
