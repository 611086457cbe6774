#pragma once

#include <QColor>

#include "tags/TagValues.h"

class QApplication;
struct KXThemeColours;

/// The window's colours and sizes in one place: those of the current theme, and what is the browser's own.
namespace BrowserStyle {

/// Of the current theme; the dark one's where there is none.
const KXThemeColours &colours();
QColor row();
QColor alternateRow();
QColor selection();
QColor text();
QColor selectedText();
QColor secondaryText();
QColor missingText();
QColor accent();
QColor emptyStar();

/// The nearest colour that stands out from the background by the ratio, from 1 (none) to 21: darker or lighter, of the
/// same hue. Texts are read from 4.5 on, signs are seen from 3 on.
QColor legible(const QColor &colour, const QColor &background, double ratio);
/// By which two colours stand out from each other, as the web's guidelines for accessibility measure it.
double contrast(const QColor &a, const QColor &b);

inline constexpr int rowHeight = 30;
inline constexpr int margin = 10;

/// Once round the colour circle along the wheel of keys; minor keys are a little deeper than their relatives.
QColor keyColour(const MusicalKey &key);

/// A length or a time of music: "6:31", "1:02:05". Whole seconds that have passed, so that what is played comes to the
/// length that the table shows.
QString timeText(double seconds);

/// Style, font and the theme that the user chose for the whole application.
void apply(QApplication &application);

/// The framework's theme, and palettes to go with it.
void setDark(bool dark);
bool isDark();

} // namespace BrowserStyle
