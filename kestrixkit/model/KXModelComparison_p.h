#pragma once

#include <QStringList>

#include <kestrixkit/model/KXManagedObjectModel.h>

/// How two models differ in what decides whether a store of the one opens with the other.
namespace KXModelComparison {

/// A text for people each: entities and properties that only one has, and properties that are stored differently. In
/// the order of names; empty where a store of `former` opens with `current`.
[[nodiscard]] KX_CORE_EXPORT QStringList differences(
    const KXManagedObjectModel &former, const KXManagedObjectModel &current);

}
