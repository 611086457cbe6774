/// What a store should hold, as plain rows: the rules of relationships and deletions without any of the store's means.
#pragma once

#include <map>
#include <optional>

#include <QMap>
#include <QSet>
#include <QVariant>

#include <kestrixkit/entity/KXEntityDescription.h>

namespace PlainModel {

using Key = qint64;

/// An object as the model sees it.
struct Row
{
    const KXEntityDescription *entity = nullptr;
    QMap<QString, QVariant> values; // without those that are absent
    QMap<QString, QSet<Key>> links; // without those that are empty

    bool operator==(const Row &) const = default;
};

using Rows = std::map<Key, Row>;

/// What a context has not saved yet of one object.
struct Pending
{
    std::optional<Row> base; ///< when it was first changed; none for a new object
    std::optional<Row> now; ///< none once deleted
    std::optional<Row> last; ///< what a deleted one was
    bool linked = false; ///< its relationships changed, or it is new or deleted: the other context keeps away
};

/// Changes that an operation would make, kept apart until it is known whether it may be made.
class Edit
{
public:
    explicit Edit(const Rows &view)
        : m_view(view)
    {
    }

    /// nullptr for what is not there.
    Row *row(Key key)
    {
        if (const auto found = changed.find(key); found != changed.end())
            return found->second ? &*found->second : nullptr;
        const auto found = m_view.find(key);
        return found == m_view.end() ? nullptr : &*(changed[key] = found->second);
    }

    void link(Key from, const KXPropertyDescription &property, Key to)
    {
        if (row(from)->links[property.name()].contains(to))
            return;
        const KXPropertyDescription *inverse = property.inverse();
        if (property.isToOne())
            unlinkAll(from, property);
        if (inverse && inverse->isToOne())
            unlinkAll(to, *inverse);
        row(from)->links[property.name()].insert(to);
        if (inverse)
            row(to)->links[inverse->name()].insert(from);
    }

    void unlink(Key from, const KXPropertyDescription &property, Key to)
    {
        drop(from, property.name(), to);
        if (property.inverse())
            drop(to, property.inverse()->name(), from);
    }

    void remove(Key key)
    {
        if (!row(key))
            return;
        const Row before = *row(key);
        changed[key] = std::nullopt;
        for (const KXPropertyDescription &property : before.entity->properties()) {
            if (!property.isRelationship() || property.deleteRule() == KXDeleteRule::Deny)
                continue;
            for (const Key other : before.links.value(property.name())) {
                if (property.deleteRule() == KXDeleteRule::Cascade)
                    remove(other);
                if (property.inverse())
                    drop(other, property.inverse()->name(), key);
            }
        }
    }

    std::map<Key, std::optional<Row>> changed;

private:
    void drop(Key from, const QString &name, Key to)
    {
        Row *const holder = row(from);
        if (holder && holder->links.contains(name) && holder->links[name].remove(to) && holder->links[name].isEmpty())
            holder->links.remove(name);
    }

    void unlinkAll(Key from, const KXPropertyDescription &property)
    {
        for (const Key other : QSet<Key>(row(from)->links.value(property.name())))
            unlink(from, property, other);
    }

    const Rows &m_view;
};

} // namespace PlainModel
