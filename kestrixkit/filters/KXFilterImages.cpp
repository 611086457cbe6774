#include <kestrixkit/filters/KXFilterImages_p.h>

#include <QPixmap>

#include <kestrixkit/foundation/KXBundle.h>
#include <kestrixkit/theme/KXThemeManager.h>

using namespace Qt::StringLiterals;

QIcon KXFilterImage(const QString &name)
{
    return QIcon(KXBundle::frameworkBundle().pathForResource(name, u"svg"_s, u"icons"_s));
}

QIcon KXThemeImage(const QString &keyPath)
{
    const QVariant value = KXThemeManager::sharedManager().valueForKeyPath(keyPath);
    switch (value.typeId()) {
    case QMetaType::QIcon:
        return value.value<QIcon>();
    case QMetaType::QPixmap:
        return QIcon(value.value<QPixmap>());
    case QMetaType::QImage:
        return QIcon(QPixmap::fromImage(value.value<QImage>()));
    case QMetaType::QString:
        return QIcon(value.toString());
    default:
        return {};
    }
}
