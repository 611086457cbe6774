#pragma once

#include <functional>
#include <mutex>

#include <QByteArray>
#include <QString>

#include <sqlite3.h>

#include <kestrixkit/store/KXStoreFiles_p.h>

#include "support/FaultDisk.h"

/// A SQLite VFS over the default one that fails when it is told to, keeps apart what was not synced, and can be
/// looked at before each operation. Registered under a name of its own while it lives, and to be outlived by no
/// connection. Nothing is really synced, so tests on it do not wait for the disk. Any thread.
///
/// A machine-wide one is the default VFS while it lives, and does the same to what the store does with files beside
/// SQLite, in one count.
class FaultVfs : private KXStoreFiles::Probe
{
public:
    /// What counts as an operation.
    enum Kind : unsigned {
        OpenForWriting = 1, ///< of a database, journal or log
        Write = 2,
        Sync = 4,
        Truncate = 8,
        Delete = 16,
        SharedMemory = 32, ///< mapping or locking the log's index; unlocking cannot fail
        FileWrite = 64, ///< files and folders made, written or linked by the store itself
        FileOther = 128, ///< renamed, removed, synced
        All = 255,
    };
    enum Reach { Named, MachineWide };

    explicit FaultVfs(Reach reach = Named);
    ~FaultVfs() override;
    FaultVfs(const FaultVfs &) = delete;
    FaultVfs &operator=(const FaultVfs &) = delete;

    [[nodiscard]] const QByteArray &name() const { return m_name; }
    /// Operations so far.
    [[nodiscard]] qint64 operations() const;

    /// The nth operation of those kinds from now, counted from 1, fails with the code; with `onwards` all later ones
    /// do, too, until heal(). SQLITE_IOERR becomes the code that belongs to the operation. A write that fails has
    /// written its first half.
    void failAt(qint64 nth, int code, bool onwards = false, unsigned kinds = All);
    void heal();
    /// Whether an operation failed since failAt().
    [[nodiscard]] bool hasFailed() const;

    /// See FaultDisk::adopt().
    void adopt(const QString &folder);

    /// Called before every operation with its number, on the thread that does it; may block.
    void setHook(std::function<void(qint64 operation)> hook);

    /// Writes the files that a power cut at this moment could leave into the folder, which exists: what was synced
    /// and, by chance, later writes, whole or torn into sectors of 512 bytes. Indexes of logs do not survive.
    void cut(const QString &folder, quint64 seed) const;

private:
    struct Handle;
    struct Methods;
    friend struct Methods;

    /// Counts, calls the hook and answers the code of a failure that is due.
    int begin(Kind kind, int codeForInputOutput);
    int begin(const KXStoreFiles::Step &step) override;
    void done(const KXStoreFiles::Step &step) override;
    /// Runs with the disk, under the lock.
    template <typename Note> void note(Note &&what)
    {
        const std::lock_guard lock(m_mutex);
        what(m_disk);
    }

    QByteArray m_name;
    sqlite3_vfs *const m_base;
    sqlite3_vfs m_vfs;
    mutable std::mutex m_mutex;
    FaultDisk m_disk;
    const Reach m_reach;
    std::function<void(qint64)> m_hook;
    qint64 m_operations = 0;
    qint64 m_untilFailure = 0; // 0: none is due
    unsigned m_failingKinds = 0;
    int m_failingCode = SQLITE_OK;
    bool m_failsOnwards = false;
    bool m_hasFailed = false;
};
