#pragma once

#include <functional>

#include <QStringList>

class QObject;

/// The browser's usage statistics: off until the user agrees, and readable. The tracking page that comes with it (a
/// host puts its own there) collects them and sends them nowhere. Without the web engine there are none.
namespace Analytics {

/// Whether this browser was built with the web engine.
bool isAvailable();
/// Starts the tracker, if the user has agreed, and follows the choice.
void start();
void setConsent(bool consent);
void windowWasOpened();
void importFinished(qint64 added);

/// What was sent, or would have been, newest last: a line each.
QStringList lines();
/// Calls the function whenever there is another line, as long as the receiver lives.
void onLine(QObject *receiver, std::function<void()> function);

} // namespace Analytics
