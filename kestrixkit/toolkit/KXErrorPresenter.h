#pragma once

#include <QPointer>
#include <QWidget>

#include <kestrixkit/foundation/KXApplication.h>
#include <kestrixkit/foundation/KXGlobal.h>

/// Shows the errors that the framework presents in an alert, for as long as it lives. Errors presented on other
/// threads are shown by the main thread; whoever presented one there does not wait for the user.
///
/// A host with windows makes one beside its QApplication. Main thread.
class KX_UI_EXPORT KXErrorPresenter
{
public:
    /// Alerts belong to the window, where one is given and lives.
    explicit KXErrorPresenter(QWidget *window = nullptr);

private:
    KXScopeToken m_handler;
};
