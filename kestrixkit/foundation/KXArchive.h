#pragma once

#include <optional>

#include <QCborValue>
#include <QStringView>

#include <kestrixkit/foundation/KXGlobal.h>

/// The form in which values travel over the pasteboard and are kept in files: a CBOR map of "format" (a name), "number"
/// (of the format's version) and "values". Any thread.
namespace KXArchive {

/// More than this is neither written nor read.
inline constexpr qsizetype mostBytes = 16 << 20;

/// Empty where the values take too much room.
[[nodiscard]] KX_CORE_EXPORT QByteArray archive(QStringView format, int number, const QCborValue &values);

/// The values; absent for anything but an archive of just that format and number.
[[nodiscard]] KX_CORE_EXPORT std::optional<QCborValue> unarchive(
    const QByteArray &bytes, QStringView format, int number);

}
