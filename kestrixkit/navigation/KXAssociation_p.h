#pragma once

#include <QObject>
#include <QPointer>
#include <QVariant>

// What a view controller carries for the navigation around it, as dynamic properties of the exported names. Weak.

inline void KXAssociate(QObject *object, QLatin1StringView key, QObject *value)
{
    object->setProperty(key.data(), value ? QVariant::fromValue(QPointer<QObject>(value)) : QVariant());
}

template <typename Type> [[nodiscard]] Type *KXAssociated(const QObject *object, QLatin1StringView key)
{
    return object ? qobject_cast<Type *>(object->property(key.data()).value<QPointer<QObject>>().data()) : nullptr;
}
