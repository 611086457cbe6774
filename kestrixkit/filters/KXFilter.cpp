#include <kestrixkit/filters/KXFilter.h>

#include <QSet>

#include <kestrixkit/filters/KXFilterImages_p.h>
#include <kestrixkit/filters/KXFilterSet.h>

using namespace Qt::StringLiterals;

std::optional<QString> KXFilter::storedLabel() const
{
    return readAttribute<std::optional<QString>>(placeOf<KXFilter, KXPropertyName(u"label"), Kind::Text>());
}

void KXFilter::setLabel(const std::optional<QString> &label)
{
    writeAttribute(placeOf<KXFilter, KXPropertyName(u"label"), Kind::Text>(), label);
}

KXPredicate KXFilter::representedPredicateWithKeyPath(const QString &, KXPredicateModifier) const { return {}; }

QString KXFilter::prefixed(const std::optional<QString> &prefix, const std::optional<QString> &keyPath)
{
    const QString own = keyPath.value_or(QString());
    return prefix ? *prefix + own + u'.' : own;
}

KXPredicate KXFilter::representedRemotePredicateWithKeyPath(const std::optional<QString> &prefix) const
{
    return representedPredicateWithKeyPath(
        prefixed(prefix, remoteValuePredicateKeyPath()), remoteValuePredicateModifier());
}

KXPredicate KXFilter::representedLocalPredicateWithKeyPath(const std::optional<QString> &prefix) const
{
    return representedPredicateWithKeyPath(
        prefixed(prefix, localValuePredicateKeyPath()), localValuePredicateModifier());
}

KXRef<KXFilter> KXFilter::duplicateInContext(KXManagedObjectContext &context) const
{
    return duplicateInContext(context, entity()->name());
}

KXRef<KXFilter> KXFilter::duplicateInContext(KXManagedObjectContext &context, const QString &usingEntityName) const
{
    const KXRef<KXManagedObject> object = context.managedObjectForEntity(usingEntityName);
    const KXRef<KXFilter> copy = cast(object);
    if (copy) {
        copyTo(*copy);
    } else if (object) {
        KXLogError(filters, "A filter cannot be copied as \"%@\"", usingEntityName);
        context.removeManagedObject(object);
    }
    return copy;
}

void KXFilter::copyTo(KXFilter &copy) const
{
    copyAttributes(
        { u"name"_s, u"label"_s, u"enabled"_s, u"position"_s, u"localValuePredicateKeyPath"_s,
            u"localValuePredicateModifier"_s, u"remoteValuePredicateKeyPath"_s, u"remoteValuePredicateModifier"_s,
            u"remoteValueIdentifierPredicateKeyPath"_s, u"remoteValueIdentifierPredicateModifier"_s },
        copy);
}

void KXFilter::copyAttributes(const QStringList &keys, KXFilter &copy) const
{
    for (const QString &key : keys) {
        if (copy.entity()->property(key))
            copy.setValueForKey(key, KXManagedObject::valueForKey(key));
        else
            KXLogWarning(
                filters, "\"%@\" of a copied filter is lost: \"%@\" has no such attribute", key, copy.entity()->name());
    }
}

QList<KXRef<KXFilter>> KXFilter::furthestDescendants() const
{
    QList<KXRef<KXFilter>> leaves;
    QSet<const KXFilter *> visited; // a damaged tree may lead back
    QList<KXRef<KXFilter>> ahead { KXRef<KXFilter>(
        const_cast<KXFilter *>(this)) }; // the next one last; never recursion
    while (!ahead.isEmpty()) {
        const KXRef<KXFilter> filter = ahead.takeLast();
        if (visited.contains(filter.get()))
            continue;
        visited.insert(filter.get());
        const auto children = filter->children();
        if (children.isEmpty())
            leaves.append(filter);
        std::copy(children.rbegin(), children.rend(), std::back_inserter(ahead));
    }
    return leaves;
}

QIcon KXFilter::image() const { return KXFilterImage(u"filter_set"_s); }

QVariant KXFilter::valueForKey(const QString &key) const
{
    return key == labelKey || key == "title"_L1 ? label() : KXTreeObjectOf::valueForKey(key);
}

QStringList KXFilter::keyPathsForValuesAffectingKey(const QString &key) const
{
    if (key == labelKey)
        return keysAffectingLabel();
    return key == "title"_L1 ? keysAffectingLabel() << QString(labelKey.toString())
                             : KXTreeObjectOf::keyPathsForValuesAffectingKey(key);
}
