#pragma once

#include <map>
#include <memory>
#include <set>
#include <vector>

#include <QByteArray>
#include <QString>

/// What a disk holds for certain and what it may hold, told every change and every sync of files and folders: builds
/// the files that a power cut would leave. Not synchronised.
class FaultDisk
{
public:
    /// Everything in the folder is on the disk. Paths below it are what cut() writes.
    void adopt(const QString &folder);

    /// A file was opened; where it did not exist it is made.
    void opened(const QByteArray &path, bool existed);
    /// Bytes at an offset; null ones truncate the file to the offset.
    void changed(const QByteArray &path, qint64 offset, const QByteArray &bytes);
    void synced(const QByteArray &path);
    void removed(const QByteArray &path);
    void renamed(const QByteArray &from, const QByteArray &to);
    void linked(const QByteArray &from, const QByteArray &to);
    void folderMade(const QByteArray &path) { m_pending.push_back({ MakeFolder, path, {}, {} }); }
    void folderRemoved(const QByteArray &path) { m_pending.push_back({ RemoveFolder, path, {}, {} }); }
    void folderSynced(const QByteArray &path);

    /// Writes what was synced and, by chance, later changes into the folder: of names each whole or not at all, of
    /// contents whole or torn into sectors of 512 bytes.
    void cut(const QString &folder, quint64 seed) const;

private:
    struct Change
    {
        qint64 offset;
        QByteArray bytes;
    };
    struct Content
    {
        QByteArray synced;
        std::vector<Change> changes;
    };
    using Names = std::map<QByteArray, std::shared_ptr<Content>>;
    enum Kind { Add, Remove, Rename, MakeFolder, RemoveFolder };
    /// A change of a folder that is not synced.
    struct Entry
    {
        Kind kind;
        QByteArray path;
        QByteArray to;
        std::shared_ptr<Content> content;
    };
    static void apply(QByteArray &content, const Change &change);
    static void apply(Names &names, std::set<QByteArray> &folders, const Entry &entry);

    QByteArray m_root;
    Names m_live;
    Names m_durable;
    std::set<QByteArray> m_folders;
    std::vector<Entry> m_pending;
};
