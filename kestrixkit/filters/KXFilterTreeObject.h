#pragma once

#include <kestrixkit/context/KXManagedObjectOf.h>
#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXSourceListItem.h>

/// Base of stored objects that form trees by the properties "position", "parent" and "children" of one class.
///
/// An object never becomes its own ancestor: a parent that would make a circle is refused with a log line. Files hold
/// what they hold, so whatever follows the tree comes to an end all the same. Belongs to the thread of its context.
template <class Class> class KXFilterTreeObject : public KXManagedObjectOf<Class>, public KXSourceListItem
{
public:
    using Self = Class;

    KX_ATTRIBUTE(qint64, position, setPosition)
    KX_TO_MANY(Class, children, Children)

    static constexpr QStringView parentKey { u"parent" };
    /// Empty at the top.
    [[nodiscard]] KXRef<Class> parent() const { return Class::cast(this->readToOne(parentPlace())); }
    void setParent(const KXRef<Class> &parent)
    {
        if (mayHaveParent(parent.get()))
            this->writeToOne(parentPlace(), parent.get());
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
        KXLogWarning(filters, "\"%@\" cannot be moved into itself", title());
        return false;
    }
};
