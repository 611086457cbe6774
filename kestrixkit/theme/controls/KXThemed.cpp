#include <kestrixkit/theme/controls/KXThemed.h>

#include <QBrush>
#include <QIcon>
#include <QImageReader>
#include <QLinearGradient>
#include <QMetaProperty>

#include <kestrixkit/foundation/KXLog.h>

using namespace Qt::StringLiterals;

namespace {

QVariant themedBrush(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<QLinearGradient>())
        return QBrush(value.value<QLinearGradient>());
    if (value.metaType() == QMetaType::fromType<QImage>())
        return QBrush(value.value<QImage>());
    return value.metaType() == QMetaType::fromType<QColor>() ? QBrush(value.value<QColor>()) : QVariant();
}

QVariant themedIcon(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<QImage>())
        return QIcon(QPixmap::fromImage(value.value<QImage>()));
    if (value.metaType() == QMetaType::fromType<QPixmap>())
        return QIcon(value.value<QPixmap>());
    const QString path = value.metaType() == QMetaType::fromType<QString>() ? value.toString() : QString();
    return !path.isEmpty() && QImageReader(path).canRead() ? QIcon(path) : QVariant();
}

QVariant themedValue(QVariant value, QMetaType type)
{
    if (value.metaType() == type)
        return value;
    if (type == QMetaType::fromType<QBrush>())
        return themedBrush(value);
    if (type == QMetaType::fromType<QIcon>())
        return themedIcon(value);
    if (!value.convert(type) || (type == QMetaType::fromType<QColor>() && !value.value<QColor>().isValid()))
        return {};
    return value;
}

}

bool KXSetThemeValue(QObject *object, const QString &keyPath, const QVariant &value, const QString &styleName)
{
    const qsizetype dot = keyPath.indexOf(u'.');
    const int index = object->metaObject()->indexOfProperty(keyPath.left(dot).toUtf8().constData());
    if (index < 0)
        return false;
    const QMetaProperty property = object->metaObject()->property(index);
    if (dot >= 0) {
        auto *const next = property.read(object).value<QObject *>();
        return next && KXSetThemeValue(next, keyPath.mid(dot + 1), value, styleName);
    }
    // A style that named another would apply itself without end.
    if (!property.isWritable() || keyPath == "themeStyleName"_L1)
        return false;
    const QVariant fitting = themedValue(value, property.metaType());
    if (!fitting.isValid()) {
        KXLogWarning(theme, "Style %@: not a value for %@: %@ %@", styleName, keyPath,
            QString::fromLatin1(value.typeName()), value.toString());
        return false;
    }
    return property.write(object, fitting);
}
