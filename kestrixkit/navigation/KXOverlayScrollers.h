#pragma once

#include <kestrixkit/foundation/KXGlobal.h>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

// Scrollers that lie over their content and show up whenever that moves or is resized, as some styles have them. Those
// in a view that slides or is covered had better not. Main thread.

/// Scrollers inside of the view stay beside what they scroll.
KX_UI_EXPORT void KXDisableOverlayScrollers(QWidget *view);
/// They are what the style makes of them again.
KX_UI_EXPORT void KXEnabledOverlayScrollers(QWidget *view);
