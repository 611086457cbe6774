#pragma once

#include <type_traits>

#include <QWidget>

#include <kestrixkit/theme/KXThemeable.h>

/// Sets a declared property of an object: "textColor", or step by step through properties that are objects,
/// "cell.titleFont". Where a QBrush is wanted, a colour, gradient or image will do; where a QIcon is wanted, an image
/// or the path of one.
///
/// False for a name that the object does not have: it gets no dynamic property. A value of the wrong type, or an image
/// that cannot be read, leaves what was there and is logged with the name of the style and the key path.
KX_UI_EXPORT bool KXSetThemeValue(
    QObject *object, const QString &keyPath, const QVariant &value, const QString &styleName);

/// A widget of Qt's that takes its looks from a style of the theme: every property of it is a key of its styles, Qt's
/// own ("font", "palette", "toolTip") included.
///
///     class KXThemeableSplitView : public KXThemed<QSplitter>
///
/// Main thread.
template <typename Base> class KXThemed : public Base, public KXThemeable
{
public:
    using Base::Base;

protected:
    bool setThemeValue(const QString &keyPath, const QVariant &value) override
    {
        return KXSetThemeValue(this, keyPath, value, themeStyleName());
    }
    void setNeedsDisplay() override
    {
        if constexpr (std::is_base_of_v<QWidget, Base>) {
            this->updateGeometry();
            this->update();
        }
    }
};
