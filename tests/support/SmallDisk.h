#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <QFile>
#include <QTemporaryDir>

/// A disk of a few megabytes that only this process sees. For processes that run one test: the thread that makes it,
/// and those it starts, see the machine's disks through another table from then on.
class SmallDisk
{
public:
    SmallDisk()
    {
        m_isThere = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
            && mount("tmpfs", name(), "tmpfs", 0, "size=4m") == 0;
    }
    ~SmallDisk()
    {
        if (m_isThere)
            umount2(name(), MNT_DETACH);
    }
    Q_DISABLE_COPY_MOVE(SmallDisk)

    /// False where the machine does not let this process have one.
    explicit operator bool() const { return m_isThere; }
    [[nodiscard]] QString filePath(const QString &file) const { return m_folder.filePath(file); }
    void fill() const
    {
        QFile file(filler());
        if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
            while (file.write(QByteArray(4096, 'x')) > 0) { }
        }
    }
    [[nodiscard]] bool makeRoom() const { return QFile::remove(filler()); }

private:
    [[nodiscard]] QByteArray name() const { return QFile::encodeName(m_folder.path()); }
    [[nodiscard]] QString filler() const { return filePath(QStringLiteral("filler")); }

    const QTemporaryDir m_folder;
    bool m_isThere;
};
