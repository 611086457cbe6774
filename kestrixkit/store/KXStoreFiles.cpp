#include <kestrixkit/store/KXStoreFiles_p.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXSQLite_p.h>

using namespace Qt::StringLiterals;
using KXFileStep = KXStoreFiles::Step;

namespace {

std::atomic<KXStoreFiles::Probe *> filesProbe { nullptr };

QByteArray filesNative(const QString &path) { return QFile::encodeName(path); }

KXError filesError(int number, const QByteArray &path)
{
    int code = KXStoreErrorCode::InputOutput;
    if (number == ENOSPC || number == EDQUOT)
        code = KXStoreErrorCode::DiskFull;
    else if (number == EACCES || number == EPERM || number == EROFS)
        code = KXStoreErrorCode::ReadOnly;
    else if (number == ENOENT)
        code = KXStoreErrorCode::CannotOpen;
    return KXError(
        KXKestrixKitErrorDomain, code, KXStringWithFormat("%@: %s", QFile::decodeName(path), std::strerror(number)));
}

/// `call` answers -1 and sets errno on failure, as system calls do.
template <typename Call> KXError filesStep(const KXFileStep &step, Call &&call)
{
    KXStoreFiles::Probe *const probe = filesProbe.load(std::memory_order_acquire);
    int number = probe ? probe->begin(step) : 0;
    if (number == 0 && call() == -1)
        number = errno;
    if (number > 0)
        return filesError(number, step.path);
    if (probe)
        probe->done(step);
    return {};
}

KXError filesSyncFolder(const QByteArray &path)
{
    return filesStep({ KXFileStep::SyncFolder, path }, [&] {
        const int folder = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const int result = folder < 0 ? -1 : ::fsync(folder);
        const int number = errno;
        if (folder >= 0)
            ::close(folder);
        errno = number;
        return result;
    });
}

}

KXStoreFiles::Probe::~Probe() = default;

void KXStoreFiles::setProbe(Probe *probe) { filesProbe.store(probe, std::memory_order_release); }

bool KXStoreFiles::exists(const QString &path)
{
    struct stat status;
    return ::lstat(filesNative(path).constData(), &status) == 0;
}

KXError KXStoreFiles::syncFolderOf(const QString &path)
{
    return filesSyncFolder(filesNative(QFileInfo(path).absolutePath()));
}

bool KXStoreFiles::isPlainFile(const QString &path)
{
    struct stat status;
    return ::lstat(filesNative(path).constData(), &status) == 0 && S_ISREG(status.st_mode);
}

QString KXStoreFiles::realPath(const QString &path)
{
    const QFileInfo info(path);
    const QString real = info.isSymLink() ? info.canonicalFilePath() : QString();
    return real.isEmpty() ? path : real; // a link that leads nowhere is refused by whoever looks at it
}

void KXStoreFiles::shareModeOf(const QString &path, const QString &with)
{
    struct stat status;
    if (::stat(filesNative(path).constData(), &status) != 0)
        return;
    const QByteArray native = filesNative(with);
    // The owner first, for that takes rights away; only the superuser has anything to give.
    if (::geteuid() == 0 && ::lchown(native.constData(), status.st_uid, status.st_gid) != 0)
        return;
    (void)::chmod(native.constData(), status.st_mode & 0666);
}

KXError KXStoreFiles::move(const QString &from, const QString &to)
{
    const KXFileStep step { KXFileStep::Rename, filesNative(from), filesNative(to) };
    if (KXError error = filesStep(step, [&] {
            if (::renameat2(AT_FDCWD, step.path.constData(), AT_FDCWD, step.other.constData(), RENAME_NOREPLACE) == 0)
                return 0;
            if (errno != EINVAL && errno != ENOSYS)
                return -1;
            // A file system that cannot do it in one step.
            if (exists(to)) {
                errno = EEXIST;
                return -1;
            }
            return ::rename(step.path.constData(), step.other.constData());
        }))
        return error;
    return syncFolderOf(to);
}

KXError KXStoreFiles::replace(const QString &from, const QString &to)
{
    const KXFileStep step { KXFileStep::Rename, filesNative(from), filesNative(to) };
    if (KXError error = filesStep(step, [&] { return ::rename(step.path.constData(), step.other.constData()); }))
        return error;
    return syncFolderOf(to);
}

KXError KXStoreFiles::link(const QString &from, const QString &to)
{
    const KXFileStep step { KXFileStep::Link, filesNative(from), filesNative(to) };
    return filesStep(step, [&] { return ::link(step.path.constData(), step.other.constData()); });
}

KXError KXStoreFiles::remove(const QString &path)
{
    if (!exists(path))
        return {};
    const KXFileStep step { KXFileStep::Remove, filesNative(path) };
    if (KXError error = filesStep(step, [&] { return ::unlink(step.path.constData()); }))
        return error;
    return syncFolderOf(path);
}

KXError KXStoreFiles::sync(const QString &path)
{
    const KXFileStep step { KXFileStep::Sync, filesNative(path) };
    return filesStep(step, [&] {
        const int file = ::open(step.path.constData(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        const int result = file < 0 ? -1 : ::fsync(file);
        const int number = errno;
        if (file >= 0)
            ::close(file);
        errno = number;
        return result;
    });
}

QStringList KXStoreFiles::companions(const QString &path)
{
    return { path, path + "-wal"_L1, path + "-shm"_L1, path + "-journal"_L1 };
}

KXFileIdentity KXFileIdentity::ofPath(const QString &path)
{
    struct stat status;
    return ::stat(filesNative(path).constData(), &status) == 0 ? KXFileIdentity { status.st_dev, status.st_ino }
                                                               : KXFileIdentity();
}

KXWorkFolder::~KXWorkFolder()
{
    if (m_descriptor < 0)
        return;
    const KXFileStep step { KXFileStep::RemoveFolder, filesNative(m_path) };
    KXError left = empty();
    if (!left)
        left = filesStep(step, [&] { return ::rmdir(step.path.constData()); });
    if (left)
        KXLogWarning(store, "Cannot remove %@", left);
    leave();
}

void KXWorkFolder::leave()
{
    if (m_descriptor >= 0)
        ::close(std::exchange(m_descriptor, -1));
}

KXError KXWorkFolder::open(const QString &path, const QStringList &names)
{
    const KXFileStep step { KXFileStep::MakeFolder, filesNative(path) };
    bool isMine = true;
    if (KXError error = filesStep(step, [&] {
            isMine = ::mkdir(step.path.constData(), 0700) == 0;
            return isMine || errno == EEXIST ? 0 : -1;
        }))
        return error;
    const int folder = ::open(step.path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status;
    // Whoever works in a folder holds its lock; nobody else's is ours to empty.
    if (folder < 0 || ::fstat(folder, &status) != 0 || status.st_uid != ::geteuid()
        || ::flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if (folder >= 0)
            ::close(folder);
        return filesError(EEXIST, step.path);
    }
    m_path = path;
    m_descriptor = folder;
    KXError error = isMine ? KXError() : empty(names);
    if (error)
        leave();
    return error;
}

KXError KXWorkFolder::link(const QString &file, const QString &name) const
{
    const KXFileStep step { KXFileStep::Link, filesNative(file), filesNative(m_path + u'/' + name) };
    return filesStep(step,
        [&] { return ::linkat(AT_FDCWD, step.path.constData(), m_descriptor, filesNative(name).constData(), 0); });
}

KXError KXWorkFolder::empty(const QStringList &names) const
{
    const int copy = ::fcntl(m_descriptor, F_DUPFD_CLOEXEC, 0);
    DIR *const folder = copy < 0 ? nullptr : ::fdopendir(copy);
    if (!folder)
        return filesError(errno, filesNative(m_path));
    ::rewinddir(folder);
    KXError error;
    while (const dirent *entry = error ? nullptr : ::readdir(folder)) {
        const QByteArray name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        const KXFileStep step { KXFileStep::Remove, filesNative(m_path) + '/' + name };
        if (!names.isEmpty() && !names.contains(QFile::decodeName(name))) {
            error = filesError(ENOTEMPTY, step.path);
            break;
        }
        error = filesStep(step, [&] { return ::unlinkat(m_descriptor, name.constData(), 0); });
    }
    ::closedir(folder);
    return error;
}

void KXWorkFolder::removeAbandoned(const QString &folder, const QRegularExpression &names)
{
    for (const QString &name : QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System)) {
        const QString path = folder + u'/' + name;
        if (!names.match(name).hasMatch())
            continue;
        if (KXStoreFiles::isPlainFile(path)) {
            KXNewFile file;
            if (!file.open(path) && file.lock() && file.isInPlace() && KXStoreFiles::remove(path))
                KXLogWarning(store, "Cannot remove %@", path);
        } else {
            KXWorkFolder abandoned;
            (void)abandoned.open(path); // and what is open is removed
        }
    }
}

KXNewFile::~KXNewFile() { close(); }

void KXNewFile::close()
{
    if (m_descriptor >= 0)
        ::close(std::exchange(m_descriptor, -1));
}

KXError KXNewFile::create(const QString &path) { return open(path, O_CREAT | O_EXCL); }

KXError KXNewFile::open(const QString &path)
{
    KXError error = open(path, 0);
    if (error.code() == KXStoreErrorCode::CannotOpen) // there is none
        error = open(path, O_CREAT);
    if (error)
        return error;
    m_size = ::lseek(m_descriptor, 0, SEEK_END);
    return {};
}

KXError KXNewFile::open(const QString &path, int flags)
{
    m_path = path;
    const KXFileStep step { KXFileStep::Create, filesNative(path) };
    const auto call = [&] {
        m_descriptor = ::open(step.path.constData(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | flags, 0600);
        struct stat status;
        if (m_descriptor >= 0 && (::fstat(m_descriptor, &status) != 0 || !S_ISREG(status.st_mode))) {
            close();
            errno = EINVAL;
        }
        return m_descriptor;
    };
    // Where nothing is made there is nothing to fail or to lose.
    if (flags)
        return filesStep(step, call);
    return call() < 0 ? filesError(errno, step.path) : KXError();
}

bool KXNewFile::lock() { return ::flock(m_descriptor, LOCK_EX | LOCK_NB) == 0; }

KXError KXNewFile::write(QByteArrayView bytes)
{
    const KXFileStep step { KXFileStep::Write, filesNative(m_path), {},
        QByteArray::fromRawData(bytes.data(), bytes.size()), m_size };
    KXError error = filesStep(step, [&] {
        for (qint64 written = 0; written < bytes.size();) {
            const ssize_t part
                = ::pwrite(m_descriptor, bytes.data() + written, size_t(bytes.size() - written), m_size + written);
            if (part < 0 && errno != EINTR)
                return -1;
            written += std::max<ssize_t>(part, 0);
        }
        return 0;
    });
    if (!error)
        m_size += bytes.size();
    return error;
}

KXError KXNewFile::sync()
{
    if (KXError error = filesStep({ KXFileStep::Sync, filesNative(m_path) }, [this] { return ::fsync(m_descriptor); }))
        return error;
    return KXStoreFiles::syncFolderOf(m_path);
}

QByteArray KXNewFile::content() const
{
    QByteArray bytes(m_size, Qt::Uninitialized);
    const ssize_t size = ::pread(m_descriptor, bytes.data(), size_t(m_size), 0);
    return bytes.left(std::max<ssize_t>(size, 0));
}

bool KXNewFile::isInPlace() const
{
    struct stat mine;
    struct stat named;
    return ::fstat(m_descriptor, &mine) == 0 && ::lstat(filesNative(m_path).constData(), &named) == 0
        && mine.st_ino == named.st_ino && mine.st_dev == named.st_dev;
}

KXError KXPinnedFile::open(const QString &path)
{
    static std::mutex mutex;
    static std::map<std::pair<dev_t, ino_t>, std::shared_ptr<const int>> pinned;
    const QByteArray native = filesNative(path);
    const std::lock_guard lock(mutex);
    struct stat status;
    // What has lost its last name is nobody's database any more.
    std::erase_if(
        pinned, [&status](const auto &entry) { return ::fstat(*entry.second, &status) == 0 && status.st_nlink == 0; });
    if (::lstat(native.constData(), &status) != 0)
        return filesError(errno, native);
    if (!S_ISREG(status.st_mode))
        return filesError(EINVAL, native);
    auto &descriptor = pinned[{ status.st_dev, status.st_ino }];
    if (!descriptor) {
        const int opened = ::open(native.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (opened < 0) {
            const int number = errno;
            pinned.erase({ status.st_dev, status.st_ino });
            return filesError(number, native);
        }
        descriptor = std::shared_ptr<const int>(new int(opened), [](const int *number) {
            ::close(*number);
            delete number;
        });
    }
    m_descriptor = descriptor;
    m_size = status.st_size;
    m_modified = status.st_mtime;
    return {};
}

qint64 KXPinnedFile::read(qint64 offset, char *buffer, qint64 size) const
{
    return ::pread(*m_descriptor, buffer, size_t(size), offset);
}
