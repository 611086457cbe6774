#pragma once

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXSourceListItem.h>

/// Base of stored objects that form trees by the properties "position", "parent" and "children" of one class, and are
/// rows of source lists. All that is left to say is a title:
///
///     class Crate : public KXTreeObjectOf<Crate>
///     {
///     public:
///         static constexpr QLatin1StringView entityName { "Crate" };
///         KX_ATTRIBUTE(QString, title, setTitle)
///     };
///     … Crate::treeDescription().add(KXPropertyDescription::attribute(Crate::titleKey, KXAttributeType::String)) …
///
/// Objects of a list without levels derive from KXManagedObjectOf and KXSourceListItem instead.
///
/// An object never becomes its own ancestor: a parent that would make a circle is refused with a log line. Files hold
/// what they hold, so whatever follows the tree comes to an end all the same. Belongs to the thread of its context.
template <class Class> class KXTreeObjectOf : public KXManagedObjectOf<Class>, public KXSourceListItem
{
public:
    using Self = Class;

    KX_ATTRIBUTE(qint64, position, setPosition)
    KX_TO_MANY(Class, children, Children)

    /// The class's entity with the three properties of the tree, for a model in C++; add() what is the class's own.
    /// What is deleted leaves its children at the top.
    [[nodiscard]] static KXEntityDescription treeDescription()
    {
        const QString name(Class::entityName);
        return KXEntityDescription(name)
            .add(KXPropertyDescription::attribute(positionKey, KXAttributeType::Integer64).withDefault(0))
            .add(KXPropertyDescription::toOne(parentKey, name, childrenKey).acyclic())
            .add(KXPropertyDescription::toMany(childrenKey, name, parentKey));
    }

    KX_NOTE_ACCESSOR(parent, KXManagedObject::Kind::ToOne, "to-one relationship")
    /// Empty at the top.
    [[nodiscard]] KXRef<Class> parent() const
    {
        static_cast<void>(&parentAccessor);
        return Class::cast(this->readToOne(parentPlace()));
    }
    void setParent(const KXRef<Class> &parent)
    {
        if (mayHaveParent(parent.get()))
            this->writeToOne(parentPlace(), parent.get());
    }

    /// Whatever the class, unless overridden.
    [[nodiscard]] bool canBeParentForItem(const KXSourceListItem *item) const override
    {
        return dynamic_cast<const Class *>(item);
    }
    [[nodiscard]] KXSourceListItem *parentItem() const override { return parent().get(); }
    bool setParentItem(KXSourceListItem *item) override
    {
        auto *parent = dynamic_cast<Class *>(item);
        if ((item && !parent) || !mayHaveParent(parent))
            return false;
        this->writeToOne(parentPlace(), parent);
        return true;
    }
    [[nodiscard]] QList<KXSourceListItem *> childItems() const override
    {
        QList<KXSourceListItem *> items;
        for (const KXRef<Class> &child : children())
            items.append(child.get());
        return items;
    }
    bool setValueForKey(const QString &key, const QVariant &value) override
    {
        if (key == parentKey && !mayHaveParent(dynamic_cast<Class *>(KXObservableFromVariant(value))))
            return false;
        return KXManagedObjectOf<Class>::setValueForKey(key, value);
    }

private:
    [[nodiscard]] KXPropertyPlace parentPlace() const
    {
        return this->template placeOf<Class, KXPropertyName(u"parent"), KXManagedObject::Kind::ToOne>();
    }
    [[nodiscard]] bool mayHaveParent(const Class *parent) const
    {
        if (!isCircleWithParent(parent))
            return true;
        KXLogWarning(store, "\"%@\" cannot be moved into itself", title());
        return false;
    }
};
