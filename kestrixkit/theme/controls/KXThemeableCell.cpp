#include <kestrixkit/theme/controls/KXThemeableCell.h>

KXThemeableCell::KXThemeableCell(QObject *control) { setParent(control); }

bool KXThemeableCell::setThemeValue(const QString &keyPath, const QVariant &value)
{
    return metaObject()->indexOfProperty(keyPath.left(keyPath.indexOf(u'.')).toUtf8().constData()) >= 0 || !parent()
        ? KXSetThemeValue(this, keyPath, value, themeStyleName())
        : KXSetThemeValue(parent(), keyPath, value, themeStyleName());
}

void KXThemeableCell::setNeedsDisplay()
{
    if (auto *const control = qobject_cast<QWidget *>(parent())) {
        control->updateGeometry();
        control->update();
    }
}
