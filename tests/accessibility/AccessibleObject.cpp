#include "AccessibleObject.h"

#include <utility>

#include <QDBusArgument>
#include <QDBusMessage>

using namespace Qt::StringLiterals;

AccessibleObject::AccessibleObject(QDBusConnection bus, AccessibleAddress address)
    : m_bus(std::move(bus))
    , m_address(std::move(address))
{
}

AccessibleObject AccessibleObject::registry(const QDBusConnection &bus)
{
    return { bus, { u"org.a11y.atspi.Registry"_s, QDBusObjectPath(u"/org/a11y/atspi/accessible/root"_s) } };
}

QVariantList AccessibleObject::call(const char *interface, const char *method, const QVariantList &arguments) const
{
    if (isNull())
        return {};
    constexpr int patience = 20'000; // in milliseconds
    QDBusMessage message = QDBusMessage::createMethodCall(m_address.service, m_address.path.path(),
        QLatin1StringView(interface).contains(u'.') ? QString::fromLatin1(interface)
                                                    : "org.a11y.atspi."_L1 + QLatin1StringView(interface),
        QString::fromLatin1(method));
    message.setArguments(arguments);
    const QDBusMessage answer = m_bus.call(message, QDBus::Block, patience);
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments() : QVariantList();
}

QVariant AccessibleObject::property(const char *interface, const char *name) const
{
    const QVariantList answer = call("org.freedesktop.DBus.Properties", "Get",
        { "org.a11y.atspi."_L1 + QLatin1StringView(interface), QString::fromLatin1(name) });
    return answer.isEmpty() ? QVariant() : answer.first().value<QDBusVariant>().variant();
}

AccessibleObject AccessibleObject::objectOf(const QVariantList &answer) const
{
    if (answer.isEmpty())
        return {};
    const auto argument = answer.first().value<QDBusArgument>();
    if (argument.currentType() != QDBusArgument::StructureType)
        return {};
    AccessibleAddress address;
    argument.beginStructure();
    argument >> address.service >> address.path;
    argument.endStructure();
    return address.path.path().endsWith("/null"_L1) ? AccessibleObject() : AccessibleObject(m_bus, address);
}

QString AccessibleObject::role() const { return call("Accessible", "GetRoleName").value(0).toString(); }

bool AccessibleObject::has(State state) const
{
    const QVariantList answer = call("Accessible", "GetState");
    if (answer.isEmpty())
        return false;
    QList<quint32> words;
    answer.first().value<QDBusArgument>() >> words;
    return words.value(state / 32) >> (state % 32) & 1;
}

AccessibleObject AccessibleObject::child(int index) const
{
    return objectOf(call("Accessible", "GetChildAtIndex", { index }));
}

AccessibleObject AccessibleObject::cell(int row, int column) const
{
    return objectOf(call("Table", "GetAccessibleAt", { row, column }));
}

QString AccessibleObject::columnTitle(int column) const
{
    return call("Table", "GetColumnDescription", { column }).value(0).toString();
}

void AccessibleObject::visit(const std::function<void(const AccessibleObject &, const QString &)> &visitor) const
{
    visit(visitor, {});
}

void AccessibleObject::visit(
    const std::function<void(const AccessibleObject &, const QString &)> &visitor, const QString &trail) const
{
    constexpr int mostCells = 40;
    const QString own = role();
    const QString here = trail + u" / "_s + own + u" “"_s + name() + u'”';
    visitor(*this, here);
    const bool hasCells = own.contains("table"_L1) || own.contains("tree"_L1) || own.contains("list"_L1);
    const int children = hasCells ? std::min(childCount(), mostCells) : childCount();
    for (int i = 0; i < children; ++i) {
        const AccessibleObject below = child(i);
        if (!below.isNull() && below.has(Showing))
            below.visit(visitor, here);
    }
}
