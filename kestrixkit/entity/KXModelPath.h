#pragma once

#include <utility>
#include <vector>

#include <QStringList>

#include <kestrixkit/foundation/KXGlobal.h>

class KXEntityDescription;
class KXPropertyDescription;

/// What the keys of a path name in a model, from the objects of an entity on. "artist.albums.@count" goes from a
/// track's artist to the number of that artist's albums.
///
/// At each step the objects are of an entity or one of its sub-entities. A key names the entity's own property or,
/// where it has none of that name, the first sub-entity's that has one: objects of the others have no value there.
/// Where sub-entities have properties of that name that are stored differently, the step is ambiguous: each object
/// answers by its own, which only evaluation in memory can do.
///
/// A value. Any thread; borrows from the model, which must outlive it.
class KX_CORE_EXPORT KXModelPath
{
public:
    /// One key of the path.
    struct Step
    {
        const KXEntityDescription *entity; ///< whose objects the key is asked of
        const KXPropertyDescription *property; ///< null where there is none, never in a path
        bool isAmbiguous = false;
    };

    /// A path of one key.
    [[nodiscard]] static Step stepAt(const KXEntityDescription &entity, const QString &key);

    KXModelPath(const KXEntityDescription &entity, const QStringList &keys);
    KXModelPath(const KXEntityDescription &entity, const QString &keyPath);

    /// As far as the model knows the keys: up to an unknown one, to an attribute, or to a final "@count".
    [[nodiscard]] const std::vector<Step> &steps() const & { return m_steps; }
    [[nodiscard]] std::vector<Step> steps() && { return std::move(m_steps); } // of a path that goes at once
    /// Whether the steps are all of the path, but for a final "@count" of members.
    [[nodiscard]] bool isKnown() const { return m_isKnown; }
    /// Whether it ends in the number of an object's members.
    [[nodiscard]] bool isCount() const { return m_isCount; }
    /// Whether it leads to a list: it passes a relationship to many whose members are not what is counted.
    [[nodiscard]] bool isToMany() const;
    [[nodiscard]] bool isAmbiguous() const;
    /// The entity whose objects it leads to; null for values and paths that are not known.
    [[nodiscard]] const KXEntityDescription *destination() const;

private:
    std::vector<Step> m_steps;
    bool m_isKnown = false;
    bool m_isCount = false;
};
