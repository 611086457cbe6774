#include "tags/SafeCopy.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Hidden, so that nobody takes it for music; short, whatever the file is called.
const std::string safeCopyName = ".browser-tags-";
constexpr time_t safeCopyOld = 3600; // seconds
constexpr size_t safeCopyBlock = 1 << 20; // bytes

bool isSameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size
        && a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

} // namespace

SafeCopy::SafeCopy(const std::string &path)
{
    std::error_code error;
    m_original = std::filesystem::canonical(path, error).native();
    if (error)
        m_original = path;
    m_folder = std::filesystem::path(m_original).parent_path().native();
}

SafeCopy::~SafeCopy()
{
    if (m_file >= 0)
        close(m_file);
    if (!m_path.empty())
        unlink(m_path.c_str());
}

bool SafeCopy::fail(const QString &what)
{
    m_problem = what;
    return false;
}

bool SafeCopy::fail(int error)
{
    return fail(u"cannot be written: %1"_s.arg(QString::fromLocal8Bit(std::strerror(error))));
}

bool SafeCopy::make()
{
    const int from = open(m_original.c_str(), O_RDONLY | O_CLOEXEC);
    if (from < 0)
        return fail(errno);
    bool made = false;
    if (fstat(from, &m_status) != 0) {
        fail(errno);
    } else if (!S_ISREG(m_status.st_mode)) {
        fail(u"not a regular file"_s);
    } else if (access(m_original.c_str(), W_OK) != 0) { // in a folder that is, it could be replaced all the same
        fail(errno);
    } else {
        std::string name = m_folder + '/' + safeCopyName + "XXXXXX";
        m_file = mkostemp(name.data(), O_CLOEXEC);
        if (m_file < 0) {
            fail(errno);
        } else {
            m_path = name;
            made = copyBytes(from);
        }
    }
    close(from);
    return made;
}

bool SafeCopy::copyBytes(int from)
{
    std::vector<char> block(safeCopyBlock);
    for (ssize_t got; (got = read(from, block.data(), block.size())) != 0;) {
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return fail(errno);
        for (ssize_t at = 0; at < got;) {
            const ssize_t put = write(m_file, block.data() + at, size_t(got - at));
            if (put < 0 && errno != EINTR)
                return fail(errno);
            at += std::max<ssize_t>(put, 0);
        }
    }
    // Whoever may not give a file away keeps it.
    if (fchown(m_file, m_status.st_uid, m_status.st_gid) != 0 && errno != EPERM)
        return fail(errno);
    return fchmod(m_file, m_status.st_mode & 07777) == 0 || fail(errno);
}

bool SafeCopy::replaceOriginal()
{
    struct stat now = {};
    if (fsync(m_file) != 0)
        return fail(errno);
    if (stat(m_original.c_str(), &now) != 0 || !isSameFile(now, m_status))
        return fail(u"was changed by somebody else meanwhile"_s);
    if (rename(m_path.c_str(), m_original.c_str()) != 0)
        return fail(errno);
    m_path.clear();
    if (const int folder = open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); folder >= 0) {
        fsync(folder); // it is there in any case: this says when
        close(folder);
    }
    return true;
}

void SafeCopy::removeLeftOvers(const std::string &folder)
{
    DIR *const directory = opendir(folder.c_str());
    if (!directory)
        return;
    while (const dirent *entry = readdir(directory)) {
        const std::string name = entry->d_name, path = folder + '/' + name;
        struct stat status = {};
        if (name.starts_with(safeCopyName) && lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)
            && status.st_mtim.tv_sec + safeCopyOld < time(nullptr))
            unlink(path.c_str());
    }
    closedir(directory);
}
