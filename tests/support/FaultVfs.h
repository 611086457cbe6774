#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include <QByteArray>
#include <QString>

#include <sqlite3.h>

/// A SQLite VFS over the default one that fails when it is told to, keeps apart what was not synced, and can be
/// looked at before each operation. Registered under a name of its own while it lives, and to be outlived by no
/// connection. Nothing is really synced, so tests on it do not wait for the disk. Any thread.
class FaultVfs
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
        All = 63,
    };

    FaultVfs();
    ~FaultVfs();
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

    /// Called before every operation with its number, on the thread that does it; may block.
    void setHook(std::function<void(qint64 operation)> hook);

    /// Writes the files that a power cut at this moment could leave into the folder, which exists: what was synced
    /// and, by chance, later writes, whole or torn into sectors of 512 bytes. Indexes of logs do not survive.
    void cut(const QString &folder, quint64 seed) const;

private:
    struct Change
    {
        qint64 offset;
        QByteArray bytes; ///< null: the file is truncated to the offset
    };
    /// A file as the disk may hold it.
    struct File
    {
        QByteArray synced;
        std::vector<Change> changes;
        bool entrySynced = false; ///< whether its name is in its folder for certain
    };
    struct Handle;
    struct Methods;
    friend struct Methods;

    static void apply(QByteArray &content, const Change &change);
    /// Counts, calls the hook and answers the code of a failure that is due.
    int begin(Kind kind, int codeForInputOutput);
    void noteOpened(const QByteArray &path, bool existed);
    void noteChange(const QByteArray &path, Change change);
    void noteSynced(const QByteArray &path, bool syncsFolder);
    void noteDeleted(const QByteArray &path, bool syncsFolder);

    QByteArray m_name;
    sqlite3_vfs *const m_base;
    sqlite3_vfs m_vfs;
    mutable std::mutex m_mutex;
    std::map<QByteArray, File> m_files; // by path
    std::map<QByteArray, File> m_deleted; // those that the disk may still hold
    std::function<void(qint64)> m_hook;
    qint64 m_operations = 0;
    qint64 m_untilFailure = 0; // 0: none is due
    unsigned m_failingKinds = 0;
    int m_failingCode = SQLITE_OK;
    bool m_failsOnwards = false;
    bool m_hasFailed = false;
};
