#pragma once

#include <optional>

#include <QIcon>
#include <QList>
#include <QString>
#include <QStringList>

#include <kestrixkit/foundation/KXGlobal.h>

class KXSourceListItemController;

/// What an object offers to be shown as a row of an outline: filters, filter sets, presets and view states are such.
///
/// A title is enough. Items that the user may move have a position, which a stored class gets by
/// KX_ATTRIBUTE(qint64, position, setPosition); items of a tree have parent and children (see KXTreeObjectOf).
/// Pointers to other items are borrowed. Used on the main thread.
class KX_CORE_EXPORT KXSourceListItem
{
public:
    virtual ~KXSourceListItem();

    [[nodiscard]] virtual QString title() const = 0;
    /// Among its siblings, from 0.
    [[nodiscard]] virtual qint64 position() const { return 0; }
    virtual void setPosition(const qint64 &) { }
    /// Null at the top.
    [[nodiscard]] virtual KXSourceListItem *parentItem() const { return nullptr; }
    /// False, and nothing changes, for an item of another kind and where it would make a circle.
    virtual bool setParentItem(KXSourceListItem *parent) { return !parent; }
    /// In no particular order.
    [[nodiscard]] virtual QList<KXSourceListItem *> childItems() const { return {}; }

    /// Whether its row is a heading.
    [[nodiscard]] virtual bool isGroup() const { return false; }
    /// Whether its row has a disclosure triangle.
    [[nodiscard]] virtual bool isExpandable() const { return true; }
    /// Whether its title can be edited in place.
    [[nodiscard]] virtual bool isEditable() const { return false; }
    [[nodiscard]] virtual bool canBeSelected() const { return true; }
    /// Whether it may be dragged.
    [[nodiscard]] virtual bool canBeRepositioned() const { return true; }
    [[nodiscard]] virtual bool canBeParentForItem(const KXSourceListItem *) const { return false; }
    /// Null stands for the top level.
    [[nodiscard]] virtual bool canBeChildForItem(const KXSourceListItem *) const { return true; }
    /// Whether the item stands above this one. Kinds of items differ in what they say of themselves.
    [[nodiscard]] virtual bool isDescendantOfItem(const KXSourceListItem *item) const { return hasAncestor(item); }
    /// Remembers that its row was opened or closed.
    virtual void setExpanded(const bool &) { }
    /// Whether dragging can copy it.
    [[nodiscard]] virtual bool canBeDuplicated() const { return false; }
    /// The copy, owned by whoever owns the item; nullptr where there is none. It has neither place nor parent yet.
    virtual KXSourceListItem *duplicateItem() { return nullptr; }

    [[nodiscard]] virtual QIcon image() const { return {}; }
    /// The number in its badge, of the place that counts it; none below 1. Absent: the sum of its children's.
    [[nodiscard]] virtual std::optional<qint64> countForContextIdentifier(const QString &) const { return 0; }
    /// What is to be said of that number, such as how old it is: "counted 5 minutes ago". Empty: it is right.
    [[nodiscard]] virtual QString countNoteForContextIdentifier(const QString &) const { return {}; }
    /// Whether its row says that work goes on.
    [[nodiscard]] virtual bool inProgress() const { return false; }
    /// Observable keys of the item, where it has any, on which these three depend.
    [[nodiscard]] virtual QStringList badgeKeys() const { return {}; }
    /// Of the item's controller, and the controller itself; both null for items without one.
    [[nodiscard]] virtual const QMetaObject *controllerClass() const { return nullptr; }
    [[nodiscard]] virtual KXSourceListItemController *controller() const { return nullptr; }
    virtual void setController(KXSourceListItemController *) { }
    [[nodiscard]] virtual bool isControllerLoaded() const { return false; }

    /// Whether the item stands above this one, itself not counted. Comes to an end in a tree that is damaged, too.
    [[nodiscard]] bool hasAncestor(const KXSourceListItem *item) const;
    /// Whether the tree would have a circle if that were the parent.
    [[nodiscard]] bool isCircleWithParent(const KXSourceListItem *parent) const
    {
        return parent && (parent == this || parent->hasAncestor(this));
    }

protected:
    /// Parent, grandparent and so on, each once.
    [[nodiscard]] QList<KXSourceListItem *> ancestorItems() const;
};
