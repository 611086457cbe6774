#pragma once

#include <QColor>

#include "TagValues.h"

class QApplication;

/// The window's colours and sizes in one place: those of the current theme, and what is the browser's own.
namespace BrowserStyle {

QColor row();
QColor alternateRow();
QColor selection();
QColor text();
QColor selectedText();
QColor secondaryText();
QColor missingText();
QColor accent();
QColor emptyStar();

inline constexpr int rowHeight = 30;
inline constexpr int margin = 10;

/// Once round the colour circle along the wheel of keys; minor keys are a little deeper than their relatives.
QColor keyColour(const MusicalKey &key);

/// A length or a time of music: "6:31", "1:02:05". Whole seconds that have passed, so that what is played comes to the
/// length that the table shows.
QString timeText(double seconds);

/// Style, font and the theme that the user chose for the whole application.
void apply(QApplication &application);

/// The framework's theme, and a palette and a style sheet to go with it.
void setDark(bool dark);
bool isDark();

} // namespace BrowserStyle
