#pragma once

#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// What there is to know about the web engine before it is started: it ends the process where it cannot run. Any
/// thread.
namespace KXWebEngine {

/// Whether the engine may be started in this process; `reason` says why not. As root it runs only without its sandbox,
/// and where this library is loaded when there is an application object already, only with its attribute
/// Qt::AA_ShareOpenGLContexts, which the library sets otherwise.
[[nodiscard]] KX_WEB_EXPORT bool canStart(QString *reason = nullptr);

/// The engine's version, "102.0.5005.177" or so; loads it, but does not start it. Empty where it is not installed.
[[nodiscard]] KX_WEB_EXPORT QString version();

}
