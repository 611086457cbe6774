#pragma once

#include <QWidget>

/// Whether the keyboard is in the view or in what lies inside of it.
[[nodiscard]] bool KXHasFocusInside(const QWidget *view);
/// Gives it the keyboard: the view itself, or the first inside that takes it by Tab.
void KXFocusInside(QWidget *view);
