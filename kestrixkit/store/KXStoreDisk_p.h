#pragma once

#include <QString>

#include <kestrixkit/foundation/KXGlobal.h>

/// What kind of disk a file lies on. Any thread.
class KX_CORE_EXPORT KXStoreDisk
{
public:
    /// Whether the file lies on a disk that stays in the machine, with a file system of the kernel's own: neither on
    /// the net, nor on a stick or a card. Where that cannot be told, it does not.
    [[nodiscard]] static bool isFixed(const QString &path);
    /// The same for a block device, "sda1", by what the kernel tells of it below the folder.
    [[nodiscard]] static bool isFixedDevice(const QString &name, const QString &system = QStringLiteral("/sys"));

    KXStoreDisk() = delete;
};
