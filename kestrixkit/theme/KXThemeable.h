#pragma once

#include <QString>
#include <QVariant>

#include <kestrixkit/foundation/KXAlive.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>

/// What makes a control take its looks from a style of the theme: a mix-in for widgets, or for what paints them.
///
///     class KXThemeableButton : public QPushButton, public KXThemeable
///     {
///         bool setThemeValue(const QString &keyPath, const QVariant &value) override; // knows "textColor", …
///         void setNeedsDisplay() override { update(); }
///     };
///
/// A style is a map in the theme from key paths of the control to values. Naming one applies it at once; a new theme
/// applies it again. Values stick: they are only ever set, so a style or theme that lacks a key leaves what the one
/// before has set. Without style name, theme or such a style nothing happens. Main thread.
class KX_CORE_EXPORT KXThemeable
{
public:
    virtual ~KXThemeable();
    Q_DISABLE_COPY_MOVE(KXThemeable)

    /// Null at first.
    [[nodiscard]] const QString &themeStyleName() const { return m_themeStyleName; }
    void setThemeStyleName(const QString &name);

    /// Sets every entry of the style on the control, in the order of the map. The control may be destroyed by what a
    /// value sets off; then the rest is left out.
    virtual void applyTheme();

    /// A style was found and applied at some time. Until then a control has its toolkit's own looks.
    [[nodiscard]] bool isThemed() const { return m_isThemed; }

protected:
    KXThemeable();

    /// Sets one value; false for a key path that the control does not know, which is no mistake.
    virtual bool setThemeValue(const QString &keyPath, const QVariant &value) = 0;
    /// The looks may have changed: have the control painted again.
    virtual void setNeedsDisplay() = 0;
    /// Another theme was set: applies the style and asks to be painted.
    virtual void themeDidChange(const KXNotification &notification);

private:
    QString m_themeStyleName;
    bool m_isThemed = false;
    KXAlive m_alive;
    KXNotificationToken m_themeChanges;
};
