#pragma once

#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

class KXEntityDescription;

/// Entities that are found by name: what an identifier needs to know of the model of its store. Never changed once it
/// is shared; any thread.
class KX_CORE_EXPORT KXEntities
{
public:
    virtual ~KXEntities();
    /// nullptr where there is none of that name.
    [[nodiscard]] virtual const KXEntityDescription *entity(const QString &name) const = 0;
};
