#include <kestrixkit/foundation/KXObject.h>

#include <QMetaProperty>

KXObject::KXObject(QObject *parent)
    : QObject(parent)
{
}

KXObject::~KXObject() = default;

QVariant KXObject::valueForKey(const QString &key) const { return property(key.toUtf8().constData()); }

bool KXObject::setValueForKey(const QString &key, const QVariant &value)
{
    const int index = metaObject()->indexOfProperty(key.toUtf8().constData());
    return index >= 0 && metaObject()->property(index).write(this, value);
}
