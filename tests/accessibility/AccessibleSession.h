#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QProcess>
#include <QTemporaryDir>

#include "AccessibleObject.h"

/// What a program says of itself on its own.
struct AccessibleEvent
{
    QString kind; // "StateChanged", "PropertyChange", …
    QString detail; // "focused", "accessible-name", …
    int first = 0;
    QString text; // what comes with it, where that is a text
    QString path; // of the object
};

/// A display, the bus of assistive technology and the browser in it, with keys that are pressed on the display. All of
/// them end with this. Main thread.
class AccessibleSession : public QObject
{
    Q_OBJECT

public:
    AccessibleSession();
    ~AccessibleSession() override;

    /// Why display or bus cannot be had here; empty when they are there.
    QString start();
    /// Until the browser is on the bus and its window has the keyboard.
    bool startBrowser(const QStringList &arguments);
    /// As the user ends it; its exit status, or -1.
    int endBrowser();
    [[nodiscard]] QProcess &browser() { return m_browser; }
    /// Gives the keyboard to the browser's window, where there is no window manager that would.
    void focusWindow();
    /// Whether a sound server runs, which the browser may play through.
    [[nodiscard]] bool hasSound() const { return m_sound.state() == QProcess::Running; }

    /// Keys as xdotool names them: "ctrl+s", one after the other.
    void press(const QStringList &keys);
    void type(const QString &text);

    [[nodiscard]] AccessibleObject application() const;
    /// The first that is showing with this role and, where one is given, with a name that begins so; waits for it.
    AccessibleObject find(const QString &role, const QString &name = {});
    /// Of all that are showing with this role.
    [[nodiscard]] QStringList namesOf(const QString &role) const;
    /// What the keyboard goes to: the innermost object that says so below a view that says so too.
    [[nodiscard]] AccessibleObject focus() const;
    /// Waits until it is one with this role and a name that begins so.
    bool waitForFocus(const QString &role, const QString &name);

    /// Since the last call.
    [[nodiscard]] QList<AccessibleEvent> takeEvents();

private Q_SLOTS:
    void receive(const QDBusMessage &message);

private:
    QString startDisplay();
    QString startBus();
    void startSound();
    void runHand(const QStringList &arguments);

    QTemporaryDir m_folder;
    QProcessEnvironment m_environment;
    QProcess m_display, m_sessionBus, m_launcher, m_sound, m_browser;
    QDBusConnection m_bus = QDBusConnection(QString());
    QList<AccessibleEvent> m_events;
};
