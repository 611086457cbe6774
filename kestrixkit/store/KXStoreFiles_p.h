#pragma once

#include <memory>

#include <QByteArray>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <kestrixkit/foundation/KXError.h>

/// What stores do with files beside SQLite's reading and writing, one system call a step.
///
/// What renames, links and removes is on the disk when it returns: the folder is synced with it, so that a power cut
/// leaves the steps of a longer work in their order. Any thread.
///
/// Nothing here opens a file that a connection of the process may have open: closing it would drop the locks that
/// SQLite holds on it. KXPinnedFile reads such files.
class KX_CORE_EXPORT KXStoreFiles
{
public:
    struct Step
    {
        enum Kind { Create, Write, Sync, Rename, Link, Remove, MakeFolder, RemoveFolder, SyncFolder };
        Kind kind;
        QByteArray path; ///< of SyncFolder: of the folder
        QByteArray other; ///< where Rename and Link lead
        QByteArray bytes; ///< of Write
        qint64 offset = 0;
    };
    /// Looks at every step, and may fail it: how tests make disks fail and cut their power.
    class KX_CORE_EXPORT Probe
    {
    public:
        static constexpr int Skip = -1;
        virtual ~Probe();
        /// 0 to go on, an errno to fail, Skip to have the step taken for done.
        virtual int begin(const Step &step) = 0;
        virtual void done(const Step &step) = 0;
    };
    /// nullptr for none; the probe outlives all steps.
    static void setProbe(Probe *probe);

    /// Whether there is anything at the path.
    [[nodiscard]] static bool exists(const QString &path);
    /// Whether it is a file, and no link to one.
    [[nodiscard]] static bool isPlainFile(const QString &path);
    /// Where a symbolic link leads to in the end; any other path as it is. What is made beside a store goes there.
    [[nodiscard]] static QString realPath(const QString &path);
    /// The one file may be read and written by whoever may the other one; by its owner alone where there is none.
    static void shareModeOf(const QString &path, const QString &with);
    /// Fails where there is something at `to`.
    [[nodiscard]] static KXError move(const QString &from, const QString &to);
    /// Takes the place of what is at `to`, in one step.
    [[nodiscard]] static KXError replace(const QString &from, const QString &to);
    [[nodiscard]] static KXError link(const QString &from, const QString &to);
    /// No error where there is nothing.
    [[nodiscard]] static KXError remove(const QString &path);
    /// The content of a file that nobody has open.
    [[nodiscard]] static KXError sync(const QString &path);
    /// The names in the folder of the file.
    [[nodiscard]] static KXError syncFolderOf(const QString &path);

    /// The file with what SQLite keeps beside it: log, log's index, journal.
    [[nodiscard]] static QStringList companions(const QString &path);

    KXStoreFiles() = delete;
};

/// Tells one file from another that has taken its name.
struct KXFileIdentity
{
    [[nodiscard]] static KXFileIdentity ofPath(const QString &path);
    bool operator==(const KXFileIdentity &) const = default;

    quint64 device = 0;
    quint64 number = 0; ///< 0 where there is no file
};

/// A folder for files that are worked on beside a store: its owner's alone, locked while the object lives, removed with
/// it. Never a link's target: all that is made and removed in it goes by the folder that was opened, whatever its
/// path leads to meanwhile.
class KX_CORE_EXPORT KXWorkFolder
{
public:
    KXWorkFolder() = default;
    ~KXWorkFolder();
    Q_DISABLE_COPY_MOVE(KXWorkFolder)

    /// Makes the folder. One of that name which a process left when it was killed is taken over and emptied; fails
    /// where that is not so: it is another user's, somebody is at work in it, or it holds more than files of those
    /// names (any where none are given).
    [[nodiscard]] KXError open(const QString &path, const QStringList &names = {});
    /// A hard link in the folder.
    [[nodiscard]] KXError link(const QString &file, const QString &name) const;
    [[nodiscard]] const QString &path() const { return m_path; }
    /// The folder stays.
    void leave();
    /// Removes folders and files of such names that processes left when they were killed.
    static void removeAbandoned(const QString &folder, const QRegularExpression &names);

private:
    [[nodiscard]] KXError empty(const QStringList &names = {}) const;

    QString m_path;
    int m_descriptor = -1;
};

/// A file that is being written. Closed without further ado when it goes.
class KXNewFile
{
public:
    KXNewFile() = default;
    ~KXNewFile();
    Q_DISABLE_COPY_MOVE(KXNewFile)

    /// Makes the file, its owner's alone; fails where there is anything of that name, a link included.
    [[nodiscard]] KXError create(const QString &path);
    /// Makes the file or opens it where it is there, to be written behind what is in it. Fails for a link.
    [[nodiscard]] KXError open(const QString &path);
    /// So that nobody else does, of any process; released with the file. False where somebody else holds it.
    [[nodiscard]] bool lock();
    [[nodiscard]] KXError write(QByteArrayView bytes);
    /// On the disk when it returns, the name as well.
    [[nodiscard]] KXError sync();
    [[nodiscard]] QByteArray content() const;
    [[nodiscard]] const QString &path() const { return m_path; }
    /// Whether the file is still the one that its path leads to.
    [[nodiscard]] bool isInPlace() const;
    void close();

private:
    [[nodiscard]] KXError open(const QString &path, int flags);

    QString m_path;
    int m_descriptor = -1;
    qint64 m_size = 0;
};

/// Reads a file that connections of this process may have open. The descriptor stays open for as long as the file has
/// a name: SQLite's locks belong to the process and would go with the first descriptor that closes.
class KXPinnedFile
{
public:
    [[nodiscard]] KXError open(const QString &path);
    [[nodiscard]] qint64 size() const { return m_size; }
    [[nodiscard]] qint64 modified() const { return m_modified; } ///< seconds since 1970
    /// Fewer bytes than asked for at the end, -1 with errno set on failure.
    [[nodiscard]] qint64 read(qint64 offset, char *buffer, qint64 size) const;

private:
    std::shared_ptr<const int> m_descriptor;
    qint64 m_size = 0;
    qint64 m_modified = 0;
};
