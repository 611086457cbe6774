#pragma once

#include <kestrixkit/model/KXManagedObjectModel.h>

/// The most comparisons that one query sent directly should hold. The local store runs larger predicates all the same;
/// a host's remote queries have to split them.
inline constexpr qint64 KXMaxAllowDirectQueryExpressions = 1000;

/// What a host does to have filters in its store. Any thread.
class KX_CORE_EXPORT KXFilters
{
public:
    /// Registers the classes of filters, sets and presets. Call it before a store is opened; any number of times. A
    /// host's own subclasses are registered afterwards.
    static void registerEntities();

    /// The framework's own object model. A host merges it with its own by KXManagedObjectModel::modelByMergingModels(),
    /// or names KXBundle::frameworkBundle() where it merges the models of bundles.
    [[nodiscard]] static KXManagedObjectModel::Ref managedObjectModel();

    KXFilters() = delete;
};
