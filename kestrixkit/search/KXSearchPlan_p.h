#pragma once

#include <vector>

#include <kestrixkit/model/KXManagedObjectModel.h>
#include <kestrixkit/search/KXSearchIndex.h>

/// A key path as the model has it.
struct KXSearchPath
{
    const KXEntityDescription *start = nullptr;
    std::vector<const KXPropertyDescription *> steps; ///< relationships
    const KXPropertyDescription *attribute = nullptr;

    [[nodiscard]] bool isDirect() const { return steps.empty(); }
    /// The entity whose row holds the attribute.
    [[nodiscard]] const KXEntityDescription *target() const { return steps.back()->destinationEntity(); }
};

/// What an index holds, with names resolved. Immutable; any thread, as long as the model lives.
struct KXSearchPlan
{
    struct Rank
    {
        KXSearchPath path;
        bool ascending;
        int options;
    };
    struct Group
    {
        QString name;
        const KXEntityDescription *entity;
        std::vector<KXSearchPath> texts;
        std::vector<Rank> ranks;
    };

    KXSearchPlan() = default;
    /// Throws KXException for what the model does not have or what cannot be searched or sorted.
    KXSearchPlan(const KXManagedObjectModel &model, const QList<KXSearchGroup> &searchGroups);

    std::vector<Group> groups;
    /// Equal for indexes that hold the same of one model; 32 bytes.
    QByteArray fingerprint;
};
