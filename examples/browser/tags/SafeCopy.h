#pragma once

#include <string>

#include <sys/stat.h>

#include <QString>

/// A copy of a file beside it, to be changed and then put in its place at once: whoever looks, and whatever ends this
/// program or the machine, finds the old file or the new one. Any thread.
class SafeCopy
{
public:
    /// Links are followed: what they lead to is replaced, not they. Paths are in the bytes of the file system.
    explicit SafeCopy(const std::string &path);
    /// Removes what was not put in place.
    ~SafeCopy();
    Q_DISABLE_COPY_MOVE(SafeCopy)

    /// False with a problem.
    bool make();
    /// Brings the copy to the disk and gives it the file's name, unless the file has changed since. False with a
    /// problem.
    bool replaceOriginal();

    /// Removes the copies from a folder that a program left behind when it was ended, an hour ago or longer.
    static void removeLeftOvers(const std::string &folder);

    [[nodiscard]] const std::string &original() const { return m_original; }
    [[nodiscard]] const std::string &path() const { return m_path; }
    [[nodiscard]] const std::string &folder() const { return m_folder; }
    [[nodiscard]] const QString &problem() const { return m_problem; } ///< for people

private:
    bool fail(const QString &what);
    bool fail(int error);
    bool copyBytes(int from);

    std::string m_original, m_folder, m_path;
    QString m_problem;
    struct stat m_status = {};
    int m_file = -1;
};
