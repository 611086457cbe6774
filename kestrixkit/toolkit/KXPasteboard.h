#pragma once

#include <QVariantList>

#include <kestrixkit/foundation/KXGlobal.h>

QT_BEGIN_NAMESPACE
class QMimeData;
QT_END_NAMESPACE

/// Items of the framework's own types on the clipboard and in drags. A type such as
/// "com.kestrix.kxkit.internal.KXFilterSetPreset" names a format of the data, which holds any number of items: what
/// CBOR can hold, URLs among it. Main thread.
namespace KXPasteboard {

/// For a drag, or to be given to the clipboard together with more; the caller owns it.
[[nodiscard]] KX_UI_EXPORT QMimeData *mimeDataWithItems(const QString &type, const QVariantList &items);
/// Empty where the data does not carry the type, or not as it should (which is logged).
[[nodiscard]] KX_UI_EXPORT QVariantList itemsOfMimeData(const QMimeData *data, const QString &type);

// The clipboard.

/// Replaces what is on it. Without items it is declared for the type, and nothing can be pasted.
KX_UI_EXPORT void setItems(const QString &type, const QVariantList &items);
[[nodiscard]] KX_UI_EXPORT QVariantList items(const QString &type);
[[nodiscard]] KX_UI_EXPORT bool canReadItems(const QString &type);

}
