#pragma once

#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// What there is to know about the web engine before it is started: it ends the process where it cannot run. Any
/// thread.
namespace KXWebEngine {

/// Whether the engine may be started in this process; `reason` says why not. As root it runs only without its sandbox.
[[nodiscard]] KX_WEB_EXPORT bool canStart(QString *reason = nullptr);

/// The engine's version, "102.0.5005.177" or so; does not start it.
[[nodiscard]] KX_WEB_EXPORT QString version();

}
