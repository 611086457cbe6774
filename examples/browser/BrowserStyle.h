#pragma once

#include <QColor>

#include "TagValues.h"

class QApplication;

/// The window's colours and sizes in one place: a dark room, one bright accent.
namespace BrowserStyle {

inline const QColor window { 0x14, 0x16, 0x1b };
inline const QColor panel { 0x1b, 0x1e, 0x25 };
inline const QColor row { 0x17, 0x19, 0x1f };
inline const QColor alternateRow { 0x1c, 0x1f, 0x26 };
inline const QColor selection { 0x2b, 0x4a, 0x6b };
inline const QColor text { 0xe6, 0xe8, 0xec };
inline const QColor secondaryText { 0x9a, 0xa1, 0xad };
inline const QColor missingText { 0x5c, 0x62, 0x6d };
inline const QColor line { 0x2a, 0x2e, 0x37 };
inline const QColor accent { 0xff, 0xb4, 0x3c };
inline const QColor emptyStar { 0x3a, 0x3f, 0x4a };

inline constexpr int rowHeight = 30;
inline constexpr int margin = 10;

/// Once round the colour circle along the wheel of keys; minor keys are a little deeper than their relatives.
QColor keyColour(const MusicalKey &key);

/// Style, palette, font and style sheet of the whole application.
void apply(QApplication &application);

} // namespace BrowserStyle
