#pragma once

#include <functional>

#include <QHash>
#include <QWidget>

#include <kestrixkit/foundation/KXGlobal.h>

/// Makes views of interface files (Qt Designer's .ui). One a process; main thread.
///
/// It knows Qt's widgets, the themed controls and those registered here, and loads no designer plug-in: that would load
/// the web engine with them. Texts are looked up in the translation context of KXLocalizedString, and again when the
/// language changes. What is wrong with a file is logged with its path and the name concerned, and the rest of it is
/// made all the same.
class KX_UI_EXPORT KXInterfaceLoader
{
public:
    using Factory = std::function<QWidget *(QWidget *parent)>;

    [[nodiscard]] static KXInterfaceLoader &shared();
    Q_DISABLE_COPY_MOVE(KXInterfaceLoader)

    /// Makes a class known to interface files, by its name; a host may put its own in place of one of the framework's.
    template <typename Widget> void registerWidget()
    {
        registerWidget(QString::fromLatin1(Widget::staticMetaObject.className()),
            [](QWidget *parent) -> QWidget * { return new Widget(parent); });
    }
    void registerWidget(const QString &className, Factory factory);
    /// The same, unless the name is known: for a controller whose file names the class, since a host may have put its
    /// own in place.
    template <typename Widget> void registerWidgetOnce()
    {
        if (!isRegistered(QString::fromLatin1(Widget::staticMetaObject.className())))
            registerWidget<Widget>();
    }
    [[nodiscard]] bool isRegistered(const QString &className) const;

    /// Of "<name>.ui" in the folder "interfaces" of the host's resources or, where that has none, the framework's. Null
    /// where neither has it.
    [[nodiscard]] static QString pathForInterface(const QString &name);

    /// nullptr, with a log line, for a file that is not there or cannot be read. A widget of an unknown class becomes
    /// one of the class that the file says it extends, or a plain one. The caller owns it, unless it has a parent.
    [[nodiscard]] QWidget *load(const QString &path, QWidget *parent = nullptr);

    /// The object of that name in a view, or the view itself; nullptr with a log line where there is none of that type.
    template <typename Type> [[nodiscard]] static Type *outlet(QWidget *view, const QString &name)
    {
        return static_cast<Type *>(findOutlet(view, name, Type::staticMetaObject));
    }

private:
    class Builder;
    KXInterfaceLoader();
    ~KXInterfaceLoader() = default;
    void registerControls();
    [[nodiscard]] static QObject *findOutlet(QWidget *view, const QString &name, const QMetaObject &type);

    QHash<QString, Factory> m_factories;
    Builder *m_builder; // lives as long as the process
};
