#pragma once

#include <functional>

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QList>
#include <QString>
#include <QVariant>

/// Where an object of another program is on the bus of assistive technology.
struct AccessibleAddress
{
    QString service;
    QDBusObjectPath path;
};
Q_DECLARE_METATYPE(AccessibleAddress)

/// An object of another program as assistive technology sees it. What is gone answers nothing. A value; main thread.
class AccessibleObject
{
public:
    enum State { Editable = 7, Focusable = 11, Focused = 12, Sensitive = 24, Showing = 25 };

    AccessibleObject() = default;
    AccessibleObject(QDBusConnection bus, AccessibleAddress address);
    /// What all programs hang below.
    static AccessibleObject registry(const QDBusConnection &bus);

    [[nodiscard]] QString path() const { return m_address.path.path(); }
    [[nodiscard]] bool isNull() const { return m_address.service.isEmpty(); }
    [[nodiscard]] QString name() const { return property("Accessible", "Name").toString(); }
    [[nodiscard]] QString description() const { return property("Accessible", "Description").toString(); }
    [[nodiscard]] QString role() const;
    [[nodiscard]] bool has(State state) const;

    [[nodiscard]] int childCount() const { return property("Accessible", "ChildCount").toInt(); }
    [[nodiscard]] AccessibleObject child(int index) const;
    /// Of those below that are showing, itself included, in their order. Of a table or a tree the first of its cells
    /// alone.
    void visit(const std::function<void(const AccessibleObject &, const QString &trail)> &visitor) const;

    // Tables and trees
    [[nodiscard]] int rowCount() const { return property("Table", "NRows").toInt(); }
    [[nodiscard]] int columnCount() const { return property("Table", "NColumns").toInt(); }
    [[nodiscard]] AccessibleObject cell(int row, int column) const;
    [[nodiscard]] QString columnTitle(int column) const;

private:
    [[nodiscard]] QVariant property(const char *interface, const char *name) const;
    [[nodiscard]] QVariantList call(
        const char *interface, const char *method, const QVariantList &arguments = {}) const;
    [[nodiscard]] AccessibleObject objectOf(const QVariantList &answer) const;
    void visit(
        const std::function<void(const AccessibleObject &, const QString &)> &visitor, const QString &trail) const;

    QDBusConnection m_bus = QDBusConnection(QString());
    AccessibleAddress m_address;
};
