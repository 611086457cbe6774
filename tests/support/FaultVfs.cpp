#include "support/FaultVfs.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <random>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

constexpr qint64 sectorSize = 512;

QByteArray contentOf(const QByteArray &path)
{
    QFile file(QFile::decodeName(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/// An open file: ours in front, the default VFS's own behind it.
struct FaultVfs::Handle
{
    sqlite3_file file;
    FaultVfs *vfs;
    QByteArray path; // empty for temporary files, which no power cut leaves
    bool syncsFolder; // with the first sync: journals and logs, as the default VFS does it

    static Handle *of(sqlite3_file *file) { return reinterpret_cast<Handle *>(file); }
    static sqlite3_file *base(sqlite3_file *file) { return reinterpret_cast<sqlite3_file *>(of(file) + 1); }
};

struct FaultVfs::Methods
{
    static FaultVfs *of(sqlite3_vfs *vfs) { return static_cast<FaultVfs *>(vfs->pAppData); }

    static int open(sqlite3_vfs *vfs, const char *path, sqlite3_file *file, int flags, int *outFlags)
    {
        FaultVfs *self = of(vfs);
        file->pMethods = nullptr;
        const bool tracked = path && flags & (SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_WAL);
        const bool existed = tracked && QFileInfo::exists(QFile::decodeName(path));
        if (tracked && flags & SQLITE_OPEN_READWRITE) {
            if (const int code = self->begin(OpenForWriting, SQLITE_CANTOPEN))
                return code == SQLITE_FULL ? SQLITE_CANTOPEN : code;
        }
        auto *handle = new (file) Handle { .file = {},
            .vfs = self,
            .path = tracked ? QByteArray(path) : QByteArray(),
            .syncsFolder = flags & SQLITE_OPEN_CREATE && !(flags & SQLITE_OPEN_MAIN_DB) };
        const int code = self->m_base->xOpen(self->m_base, path, Handle::base(file), flags, outFlags);
        if (code != SQLITE_OK || !Handle::base(file)->pMethods) {
            handle->~Handle();
            file->pMethods = nullptr;
            return code;
        }
        file->pMethods = methods();
        if (tracked)
            self->noteOpened(handle->path, existed);
        return code;
    }

    static int remove(sqlite3_vfs *vfs, const char *path, int syncsFolder)
    {
        FaultVfs *self = of(vfs);
        if (const int code = self->begin(Delete, SQLITE_IOERR_DELETE))
            return code;
        const int code = self->m_base->xDelete(self->m_base, path, syncsFolder);
        if (code == SQLITE_OK)
            self->noteDeleted(path, syncsFolder);
        return code;
    }

    static int close(sqlite3_file *file)
    {
        sqlite3_file *base = Handle::base(file);
        const int code = base->pMethods->xClose(base);
        Handle::of(file)->~Handle();
        return code;
    }

    static int write(sqlite3_file *file, const void *data, int size, sqlite3_int64 offset)
    {
        Handle *handle = Handle::of(file);
        sqlite3_file *base = Handle::base(file);
        const int failure = handle->vfs->begin(Write, SQLITE_IOERR_WRITE);
        const int written = failure ? size / 2 : size;
        const int code = base->pMethods->xWrite(base, data, written, offset);
        if (code == SQLITE_OK)
            handle->vfs->noteChange(handle->path, { offset, QByteArray(static_cast<const char *>(data), written) });
        return failure ? failure : code;
    }

    static int truncate(sqlite3_file *file, sqlite3_int64 size)
    {
        Handle *handle = Handle::of(file);
        sqlite3_file *base = Handle::base(file);
        if (const int code = handle->vfs->begin(Truncate, SQLITE_IOERR_TRUNCATE))
            return code;
        const int code = base->pMethods->xTruncate(base, size);
        if (code == SQLITE_OK)
            handle->vfs->noteChange(handle->path, { size, {} });
        return code;
    }

    static int sync(sqlite3_file *file, int)
    {
        Handle *handle = Handle::of(file);
        if (const int code = handle->vfs->begin(Sync, SQLITE_IOERR_FSYNC))
            return code;
        handle->vfs->noteSynced(handle->path, std::exchange(handle->syncsFolder, false));
        return SQLITE_OK;
    }

    static int shmMap(sqlite3_file *file, int region, int size, int extend, void volatile **memory)
    {
        sqlite3_file *base = Handle::base(file);
        if (const int code = Handle::of(file)->vfs->begin(SharedMemory, SQLITE_IOERR_SHMMAP))
            return code;
        return base->pMethods->xShmMap(base, region, size, extend, memory);
    }

    static int shmLock(sqlite3_file *file, int offset, int count, int flags)
    {
        sqlite3_file *base = Handle::base(file);
        if (flags & SQLITE_SHM_LOCK) {
            if (const int code = Handle::of(file)->vfs->begin(SharedMemory, SQLITE_IOERR_SHMLOCK))
                return code;
        }
        return base->pMethods->xShmLock(base, offset, count, flags);
    }

    /// A method that is the default VFS's own.
    template <auto method, typename... Arguments> static int forward(sqlite3_file *file, Arguments... arguments)
    {
        sqlite3_file *base = Handle::base(file);
        return (base->pMethods->*method)(base, arguments...);
    }

    static const sqlite3_io_methods *methods()
    {
        using M = sqlite3_io_methods;
        // Version 2: without memory-mapped reading, which would go past us.
        static const M methods { 2, close, forward<&M::xRead, void *, int, sqlite3_int64>, write, truncate, sync,
            forward<&M::xFileSize, sqlite3_int64 *>, forward<&M::xLock, int>, forward<&M::xUnlock, int>,
            forward<&M::xCheckReservedLock, int *>, forward<&M::xFileControl, int, void *>, forward<&M::xSectorSize>,
            forward<&M::xDeviceCharacteristics>, shmMap, shmLock,
            [](sqlite3_file *file) { Handle::base(file)->pMethods->xShmBarrier(Handle::base(file)); },
            forward<&M::xShmUnmap, int>, nullptr, nullptr };
        return &methods;
    }
};

FaultVfs::FaultVfs()
    : m_base(sqlite3_vfs_find(nullptr))
    , m_vfs(*m_base)
{
    static std::atomic<int> last { 0 };
    m_name = "fault" + QByteArray::number(++last);
    m_vfs.szOsFile += int(sizeof(Handle));
    m_vfs.pNext = nullptr;
    m_vfs.zName = m_name.constData();
    m_vfs.pAppData = this;
    m_vfs.xOpen = Methods::open;
    m_vfs.xDelete = Methods::remove;
    sqlite3_vfs_register(&m_vfs, false);
}

FaultVfs::~FaultVfs() { sqlite3_vfs_unregister(&m_vfs); }

qint64 FaultVfs::operations() const
{
    const std::lock_guard lock(m_mutex);
    return m_operations;
}

void FaultVfs::failAt(qint64 nth, int code, bool onwards, unsigned kinds)
{
    const std::lock_guard lock(m_mutex);
    m_untilFailure = nth;
    m_failingCode = code;
    m_failsOnwards = onwards;
    m_failingKinds = kinds;
    m_hasFailed = false;
}

void FaultVfs::heal()
{
    const std::lock_guard lock(m_mutex);
    m_untilFailure = 0;
}

bool FaultVfs::hasFailed() const
{
    const std::lock_guard lock(m_mutex);
    return m_hasFailed;
}

void FaultVfs::setHook(std::function<void(qint64)> hook)
{
    const std::lock_guard lock(m_mutex);
    m_hook = std::move(hook);
}

int FaultVfs::begin(Kind kind, int codeForInputOutput)
{
    std::unique_lock lock(m_mutex);
    const qint64 operation = ++m_operations;
    const auto hook = m_hook;
    if (hook) {
        lock.unlock();
        hook(operation);
        lock.lock();
    }
    if (m_untilFailure == 0 || !(m_failingKinds & kind))
        return SQLITE_OK;
    if (m_untilFailure > 1) {
        --m_untilFailure;
        return SQLITE_OK;
    }
    m_untilFailure = m_failsOnwards ? 1 : 0;
    m_hasFailed = true;
    return m_failingCode == SQLITE_IOERR ? codeForInputOutput : m_failingCode;
}

// What the disk holds

void FaultVfs::apply(QByteArray &content, const Change &change)
{
    if (change.bytes.isNull()) {
        content.resize(change.offset, '\0');
        return;
    }
    if (content.size() < change.offset + change.bytes.size())
        content.resize(change.offset + change.bytes.size(), '\0');
    std::copy(change.bytes.begin(), change.bytes.end(), content.begin() + change.offset);
}

void FaultVfs::noteOpened(const QByteArray &path, bool existed)
{
    const std::lock_guard lock(m_mutex);
    // A file may have been removed behind our back, as a creation that failed is.
    if (!existed || !m_files.contains(path))
        m_files[path] = { existed ? contentOf(path) : QByteArray(), {}, existed };
}

void FaultVfs::noteChange(const QByteArray &path, Change change)
{
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_files.find(path); found != m_files.end())
        found->second.changes.push_back(std::move(change));
}

void FaultVfs::noteSynced(const QByteArray &path, bool syncsFolder)
{
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_files.find(path); found != m_files.end()) {
        for (const Change &change : std::exchange(found->second.changes, {}))
            apply(found->second.synced, change);
    }
    if (syncsFolder) {
        m_deleted.clear();
        for (auto &[name, file] : m_files)
            file.entrySynced = true;
    }
}

void FaultVfs::noteDeleted(const QByteArray &path, bool syncsFolder)
{
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_files.extract(path)) {
        if (!syncsFolder && found.mapped().entrySynced)
            m_deleted[path] = found.mapped();
    }
}

void FaultVfs::cut(const QString &folder, quint64 seed) const
{
    const std::lock_guard lock(m_mutex);
    std::mt19937_64 random(seed);
    const auto chance = [&random](double probability) { return std::bernoulli_distribution(probability)(random); };
    const double kept = std::uniform_int_distribution(0, 4)(random) / 4.0; // none and all are likely, too
    const auto leave = [&](const QByteArray &path, const File &file) {
        QByteArray content = file.synced;
        for (const Change &change : file.changes) {
            if (!chance(kept))
                continue;
            if (change.bytes.isNull() || chance(0.75)) {
                apply(content, change);
                continue;
            }
            for (qint64 at = 0; at < change.bytes.size();) {
                const qint64 offset = change.offset + at;
                const qint64 size = std::min<qint64>(change.bytes.size() - at, sectorSize - offset % sectorSize);
                if (chance(0.5))
                    apply(content, { offset, change.bytes.mid(at, size) });
                at += size;
            }
        }
        QFile left(folder + QLatin1Char('/') + QFileInfo(QFile::decodeName(path)).fileName());
        if (!left.open(QIODevice::WriteOnly) || left.write(content) != content.size())
            qFatal("Cannot write %s", qPrintable(left.fileName()));
    };
    for (const auto &[path, file] : m_files) {
        if (file.entrySynced || chance(0.75))
            leave(path, file);
    }
    for (const auto &[path, file] : m_deleted) {
        if (!m_files.contains(path) && chance(0.5))
            leave(path, file);
    }
}
