#include "support/FaultVfs.h"

#include <atomic>
#include <cerrno>
#include <new>

#include <QFile>
#include <QFileInfo>

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
            self->note([&](FaultDisk &disk) { disk.opened(handle->path, existed); });
        return code;
    }

    static int remove(sqlite3_vfs *vfs, const char *path, int syncsFolder)
    {
        FaultVfs *self = of(vfs);
        if (const int code = self->begin(Delete, SQLITE_IOERR_DELETE))
            return code;
        const int code = self->m_base->xDelete(self->m_base, path, syncsFolder);
        if (code == SQLITE_OK)
            self->note([&](FaultDisk &disk) {
                disk.removed(path);
                if (syncsFolder)
                    disk.folderSynced(QFile::encodeName(QFileInfo(QFile::decodeName(path)).path()));
            });
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
            handle->vfs->note([&](FaultDisk &disk) {
                disk.changed(handle->path, offset, QByteArray(static_cast<const char *>(data), written));
            });
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
            handle->vfs->note([&](FaultDisk &disk) { disk.changed(handle->path, size, {}); });
        return code;
    }

    static int sync(sqlite3_file *file, int)
    {
        Handle *handle = Handle::of(file);
        if (const int code = handle->vfs->begin(Sync, SQLITE_IOERR_FSYNC))
            return code;
        handle->vfs->note([&](FaultDisk &disk) {
            disk.synced(handle->path);
            if (std::exchange(handle->syncsFolder, false))
                disk.folderSynced(QFile::encodeName(QFileInfo(QFile::decodeName(handle->path)).path()));
        });
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

FaultVfs::FaultVfs(Reach reach)
    : m_base(sqlite3_vfs_find("unix"))
    , m_vfs(*m_base)
    , m_reach(reach)
{
    static std::atomic<int> last { 0 };
    m_name = "fault" + QByteArray::number(++last);
    m_vfs.szOsFile += int(sizeof(Handle));
    m_vfs.pNext = nullptr;
    m_vfs.zName = m_name.constData();
    m_vfs.pAppData = this;
    m_vfs.xOpen = Methods::open;
    m_vfs.xDelete = Methods::remove;
    sqlite3_vfs_register(&m_vfs, m_reach == MachineWide);
    if (m_reach == MachineWide)
        KXStoreFiles::setProbe(this);
}

FaultVfs::~FaultVfs()
{
    if (m_reach == MachineWide) {
        KXStoreFiles::setProbe(nullptr);
        sqlite3_vfs_register(m_base, true);
    }
    sqlite3_vfs_unregister(&m_vfs);
}

void FaultVfs::adopt(const QString &folder)
{
    note([&](FaultDisk &disk) { disk.adopt(folder); });
}

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

int FaultVfs::begin(const KXStoreFiles::Step &step)
{
    using S = KXStoreFiles::Step;
    const bool takesRoom
        = step.kind == S::Create || step.kind == S::Write || step.kind == S::Link || step.kind == S::MakeFolder;
    switch (begin(takesRoom ? FileWrite : FileOther, SQLITE_IOERR)) {
    case SQLITE_OK:
        return step.kind == S::Sync || step.kind == S::SyncFolder ? Skip : 0;
    case SQLITE_FULL:
        return ENOSPC;
    case SQLITE_READONLY:
        return EACCES;
    default:
        return EIO;
    }
}

void FaultVfs::done(const KXStoreFiles::Step &step)
{
    using S = KXStoreFiles::Step;
    note([&step](FaultDisk &disk) {
        switch (step.kind) {
        case S::Create:
            return disk.opened(step.path, false);
        case S::Write:
            return disk.changed(step.path, step.offset, QByteArray(step.bytes.constData(), step.bytes.size()));
        case S::Sync:
            return disk.synced(step.path);
        case S::Rename:
            return disk.renamed(step.path, step.other);
        case S::Link:
            return disk.linked(step.path, step.other);
        case S::Remove:
            return disk.removed(step.path);
        case S::MakeFolder:
            return disk.folderMade(step.path);
        case S::RemoveFolder:
            return disk.folderRemoved(step.path);
        case S::SyncFolder:
            return disk.folderSynced(step.path);
        }
    });
}

void FaultVfs::cut(const QString &folder, quint64 seed) const
{
    const std::lock_guard lock(m_mutex);
    m_disk.cut(folder, seed);
}
