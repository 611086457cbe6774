#include "AccessibleSession.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTest>

#include <support/KXTestProcess.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int sessionPatience = 15'000; // in milliseconds
const QString sessionBusName = u"kestrix-session"_s, accessibilityBusName = u"kestrix-accessibility"_s;

QString accessibilityLauncher()
{
    for (const QString &path :
        { u"/usr/libexec/at-spi-bus-launcher"_s, u"/usr/lib/at-spi2-core/at-spi-bus-launcher"_s }) {
        if (QFileInfo(path).isExecutable())
            return path;
    }
    return {};
}

/// The line that a program begins with.
QByteArray firstLineOf(QProcess &process)
{
    QByteArray line;
    while (!line.endsWith('\n') && process.waitForReadyRead(sessionPatience))
        line += process.readAllStandardOutput();
    return line.trimmed();
}

void endProcess(QProcess &process)
{
    process.terminate();
    if (process.state() != QProcess::NotRunning && !process.waitForFinished(sessionPatience))
        process.kill();
    process.waitForFinished(sessionPatience);
}

} // namespace

AccessibleSession::AccessibleSession()
    : m_environment(QProcessEnvironment::systemEnvironment())
{
    for (QProcess *const process : { &m_display, &m_sessionBus, &m_launcher, &m_sound, &m_browser })
        startWithFork(*process);
}

AccessibleSession::~AccessibleSession()
{
    endProcess(m_browser);
    QDBusConnection::disconnectFromBus(accessibilityBusName);
    QDBusConnection::disconnectFromBus(sessionBusName);
    for (QProcess *const process : { &m_sound, &m_launcher, &m_sessionBus, &m_display })
        endProcess(*process);
}

QString AccessibleSession::start()
{
    for (const QString &program : { u"Xvfb"_s, u"xdotool"_s, u"dbus-daemon"_s }) {
        if (QStandardPaths::findExecutable(program).isEmpty())
            return program + u" is not installed"_s;
    }
    if (accessibilityLauncher().isEmpty())
        return u"at-spi2-core is not installed"_s;
    const QString problem = startDisplay();
    if (problem.isEmpty())
        startSound();
    return problem.isEmpty() ? startBus() : problem;
}

QString AccessibleSession::startDisplay()
{
    m_display.start(
        u"Xvfb"_s, { u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, u"1600x1000x24"_s, u"-nolisten"_s, u"tcp"_s });
    const QByteArray number = firstLineOf(m_display);
    if (number.isEmpty())
        return u"Xvfb does not start: "_s + QString::fromLocal8Bit(m_display.readAllStandardError());
    m_environment.insert(u"DISPLAY"_s, u':' + QString::fromLatin1(number));
    m_environment.insert(u"XDG_RUNTIME_DIR"_s, m_folder.path());
    m_environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    m_environment.insert(u"QT_LINUX_ACCESSIBILITY_ALWAYS_ON"_s, u"1"_s);
    m_environment.insert(u"QTWEBENGINE_DISABLE_SANDBOX"_s, u"1"_s);
    m_environment.remove(u"AT_SPI_BUS_ADDRESS"_s);
    m_environment.remove(u"XDG_CURRENT_DESKTOP"_s); // whose file dialogs are not ours
    return {};
}

QString AccessibleSession::startBus()
{
    m_sessionBus.setProcessEnvironment(m_environment);
    m_sessionBus.start(u"dbus-daemon"_s, { u"--session"_s, u"--nofork"_s, u"--print-address=1"_s });
    const QString address = QString::fromLatin1(firstLineOf(m_sessionBus));
    if (address.isEmpty())
        return u"dbus-daemon does not start: "_s + QString::fromLocal8Bit(m_sessionBus.readAllStandardError());
    m_environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, address);
    m_launcher.setProcessEnvironment(m_environment);
    m_launcher.start(accessibilityLauncher(), { u"--launch-immediately"_s });
    QDBusConnection session = QDBusConnection::connectToBus(address, sessionBusName);
    QString accessibility;
    const QDBusMessage question
        = QDBusMessage::createMethodCall(u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.a11y.Bus"_s, u"GetAddress"_s);
    (void)QTest::qWaitFor(
        [&] {
            accessibility = session.call(question).arguments().value(0).toString();
            return !accessibility.isEmpty();
        },
        sessionPatience);
    if (accessibility.isEmpty())
        return u"there is no bus of assistive technology: "_s + session.lastError().message();
    m_bus = QDBusConnection::connectToBus(accessibility, accessibilityBusName);
    // Programs say nothing that nobody listens to.
    QDBusMessage listen = QDBusMessage::createMethodCall(
        u"org.a11y.atspi.Registry"_s, u"/org/a11y/atspi/registry"_s, u"org.a11y.atspi.Registry"_s, u"RegisterEvent"_s);
    listen.setArguments({ u"object:"_s, QStringList(), QString() });
    // The registry may be started twice at once, and one of the two goes again.
    QDBusMessage answer;
    const auto isHeard = [&] { return (answer = m_bus.call(listen)).type() == QDBusMessage::ReplyMessage; };
    if (!QTest::qWaitFor(isHeard, sessionPatience))
        return u"the bus of assistive technology does not answer: "_s + answer.errorMessage();
    m_bus.connect(QString(), QString(), u"org.a11y.atspi.Event.Object"_s, QString(), this, SLOT(receive(QDBusMessage)));
    return {};
}

void AccessibleSession::startSound()
{
    const QString server = QStandardPaths::findExecutable(u"jackd"_s);
    if (server.isEmpty())
        return;
    // Always the same: a server that is killed leaves its name in the list of servers, which holds eight.
    const QString name = u"kestrixkit-browser-test"_s;
    m_environment.insert(u"JACK_NO_AUDIO_RESERVATION"_s, u"1"_s);
    m_environment.insert(u"JACK_DEFAULT_SERVER"_s, name);
    m_sound.setProcessEnvironment(m_environment);
    m_sound.setProcessChannelMode(QProcess::MergedChannels);
    m_sound.start(server, { u"-n"_s, name, u"-r"_s, u"-d"_s, u"dummy"_s, u"-r"_s, u"44100"_s, u"-p"_s, u"512"_s });
    // Where it cannot run it ends at once.
    (void)m_sound.waitForFinished(1000);
}

bool AccessibleSession::startBrowser(const QStringList &arguments)
{
    m_browser.setProcessEnvironment(m_environment);
    m_browser.setProcessChannelMode(QProcess::MergedChannels);
    m_browser.start(QStringLiteral(KX_BROWSER), arguments);
    if (find(u"frame"_s).isNull())
        return false;
    focusWindow();
    return QTest::qWaitFor([this] { return !focus().isNull(); }, sessionPatience);
}

void AccessibleSession::focusWindow()
{
    runHand({ u"search"_s, u"--onlyvisible"_s, u"--name"_s, u"Music Browser"_s, u"windowfocus"_s });
}

int AccessibleSession::endBrowser()
{
    press({ u"ctrl+q"_s });
    const bool hasEnded
        = QTest::qWaitFor([this] { return m_browser.state() == QProcess::NotRunning; }, sessionPatience);
    return hasEnded && m_browser.exitStatus() == QProcess::NormalExit ? m_browser.exitCode() : -1;
}

// Keys

void AccessibleSession::runHand(const QStringList &arguments)
{
    QProcess hand;
    startWithFork(hand);
    hand.setProcessEnvironment(m_environment);
    hand.start(u"xdotool"_s, arguments);
    (void)QTest::qWaitFor([&] { return hand.state() == QProcess::NotRunning; }, sessionPatience);
}

void AccessibleSession::press(const QStringList &keys)
{
    runHand(QStringList { u"key"_s, u"--delay"_s, u"60"_s } + keys);
}

void AccessibleSession::type(const QString &text) { runHand({ u"type"_s, u"--delay"_s, u"15"_s, text }); }

// Objects

AccessibleObject AccessibleSession::application() const
{
    const AccessibleObject registry = AccessibleObject::registry(m_bus);
    for (int i = 0; i < registry.childCount(); ++i) {
        if (const AccessibleObject each = registry.child(i); each.name() == "browser"_L1)
            return each;
    }
    return {};
}

AccessibleObject AccessibleSession::find(const QString &role, const QString &name)
{
    AccessibleObject found;
    (void)QTest::qWaitFor(
        [&] {
            application().visit([&](const AccessibleObject &each, const QString &) {
                if (found.isNull() && each.role() == role && each.name().startsWith(name))
                    found = each;
            });
            return !found.isNull();
        },
        sessionPatience);
    return found;
}

QStringList AccessibleSession::namesOf(const QString &role) const
{
    QStringList names;
    application().visit([&](const AccessibleObject &each, const QString &) {
        if (each.role() == role)
            names.append(each.name());
    });
    return names;
}

AccessibleObject AccessibleSession::focus() const
{
    AccessibleObject found;
    QString view; // that does not have the keyboard, whatever its current cell says
    application().visit([&](const AccessibleObject &each, const QString &trail) {
        if (!view.isEmpty() && trail.startsWith(view + u" / "_s))
            return;
        view.clear();
        const QString role = each.role();
        const bool isFocused = each.has(AccessibleObject::Focused);
        if (isFocused && each.has(AccessibleObject::Focusable))
            found = each;
        if (!isFocused && (role == "table"_L1 || role == "tree"_L1 || role == "list"_L1))
            view = trail;
    });
    return found;
}

bool AccessibleSession::waitForFocus(const QString &role, const QString &name)
{
    return QTest::qWaitFor(
        [&] {
            const AccessibleObject now = focus();
            return now.role() == role && now.name().startsWith(name);
        },
        sessionPatience);
}

// Events

void AccessibleSession::receive(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    const QVariant any = arguments.value(3).value<QDBusVariant>().variant();
    m_events.append({ message.member(), arguments.value(0).toString(), arguments.value(1).toInt(),
        any.typeId() == QMetaType::QString ? any.toString() : QString(), message.path() });
}

QList<AccessibleEvent> AccessibleSession::takeEvents() { return std::exchange(m_events, {}); }
