#pragma once

#include <kestrixkit/foundation/KXGlobal.h>

QT_BEGIN_NAMESPACE
class QGuiApplication;
class QPalette;
QT_END_NAMESPACE

/// What KXTheme::apply() does besides to an application of widgets; this library knows none. The library of views sets
/// it when it is loaded.
using KXThemeDressing = void (*)(QGuiApplication &application, const QPalette &palette);
KX_CORE_EXPORT void KXSetThemeDressing(KXThemeDressing dressing);
