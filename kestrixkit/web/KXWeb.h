#pragma once

#include <kestrixkit/foundation/KXGlobal.h>

/// The web engine for the framework's views.
namespace KXWeb {

/// From now on every KXHTMLView shows its pages with the web engine, off the record, without script or network. Nothing
/// is started before the first page is shown; where the engine cannot be started (KXWebEngine::canStart()), views show
/// their text browser and the log says why. Calling it again changes nothing. Main thread.
KX_WEB_EXPORT void registerViews();

}
