#pragma once

#include <QIcon>
#include <QString>

/// An image of the framework's own bundle, by name.
[[nodiscard]] QIcon KXFilterImage(const QString &name);
/// An image that the current theme has at a key path: an icon, pixmap, image or the path of a file. Null without.
[[nodiscard]] QIcon KXThemeImage(const QString &keyPath);
