#include <kestrixkit/store/KXStoreDisk_p.h>

#include <algorithm>

#include <QDir>
#include <QFile>
#include <QStorageInfo>

using namespace Qt::StringLiterals;

namespace {

/// File systems of local disks. Those of user space and of the net answer for somebody else.
bool storeDiskIsOfKernel(const QByteArray &fileSystem)
{
    static constexpr const char *local[] = { "btrfs", "ext2", "ext3", "ext4", "f2fs", "jfs", "xfs" };
    return std::any_of(std::begin(local), std::end(local), [&](const char *name) { return fileSystem == name; });
}

}

bool KXStoreDisk::isFixed(const QString &path)
{
    const QStorageInfo volume(path);
    if (!volume.isValid() || !storeDiskIsOfKernel(volume.fileSystemType()))
        return false;
    // A link as "/dev/mapper/home" or "/dev/disk/by-uuid/…" leads to the device.
    const QFileInfo device(QFile::decodeName(volume.device()));
    return isFixedDevice(QFileInfo(device.canonicalFilePath()).fileName());
}

bool KXStoreDisk::isFixedDevice(const QString &name, const QString &system)
{
    const QFileInfo entry(system + "/class/block/"_L1 + name);
    const QString place = entry.canonicalFilePath();
    if (name.isEmpty() || place.isEmpty() || place.contains("/usb"_L1) || place.contains("/mmc"_L1))
        return false;
    // What is encrypted or put together of others is as fixed as each of these.
    const QStringList parts = QDir(place + "/slaves"_L1).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    if (!std::all_of(parts.begin(), parts.end(), [&](const QString &part) { return isFixedDevice(part, system); }))
        return false;
    // Marks stand at a partition's disk, and at the port that an outside disk hangs on.
    const qsizetype top = QFileInfo(system).canonicalFilePath().size();
    for (QString folder = place; folder.size() > top; folder.truncate(folder.lastIndexOf(u'/'))) {
        QFile mark(folder + "/removable"_L1);
        if (!mark.open(QIODevice::ReadOnly))
            continue;
        if (const QByteArray text = mark.readAll().trimmed(); text == "1" || text == "removable")
            return false;
    }
    return true;
}
