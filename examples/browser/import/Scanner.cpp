#include "import/Scanner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <unordered_set>

#include <dirent.h>
#include <sys/stat.h>

#include "tags/TrackTags.h"

using namespace Qt::StringLiterals;

std::span<const std::string_view> musicExtensions()
{
    static constexpr std::array<std::string_view, 26> extensions { "wav", "wave", "w64", "aif", "aiff", "aifc", "flac",
        "mp2", "mp3", "mp4", "m4a", "m4b", "aac", "ogg", "oga", "opus", "spx", "wv", "ape", "tta", "mpc", "wma", "caf",
        "au", "mka", "weba" };
    return extensions;
}

bool isMusicName(std::string_view name)
{
    const std::span<const std::string_view> extensions = musicExtensions();
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return false;
    std::string extension(name.substr(dot + 1));
    std::transform(extension.begin(), extension.end(), extension.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

namespace {

QString cannotBeRead(int error) { return u"cannot be read: %1"_s.arg(QString::fromLocal8Bit(std::strerror(error))); }

ScannedFile scannedFile(const std::string &path, const struct stat &status)
{
    return { path, status.st_size, status.st_mtim.tv_sec * 1'000'000LL + status.st_mtim.tv_nsec / 1000 };
}

class FolderScanner
{
public:
    FolderScanner(Scan &scan, const std::function<bool()> &stop)
        : m_scan(scan)
        , m_stop(stop)
    {
    }

    void run()
    {
        m_folders.push_back(m_scan.root);
        while (m_scan.complete && (!m_folders.empty() || !m_links.empty())) {
            // Links come last: what they lead to is usually found under its own name before.
            std::vector<std::string> &from = m_folders.empty() ? m_links : m_folders;
            const std::string path = std::move(from.back());
            from.pop_back();
            visit(path, &from == &m_links);
        }
    }

private:
    void visit(const std::string &path, bool isLink)
    {
        struct stat status = {};
        if (::stat(path.c_str(), &status) != 0) {
            skip(path, errno);
        } else if (S_ISDIR(status.st_mode)) {
            if (m_seen.insert(identity(status)).second)
                list(path);
        } else if (isMusicName(path)) {
            if (!S_ISREG(status.st_mode))
                m_scan.skipped.push_back({ shownPath(path, m_scan.root), u"not a regular file"_s });
            else if (m_seen.insert(identity(status)).second || !isLink) // hard links are files of their own
                m_scan.files.push_back(scannedFile(path, status));
        }
    }

    void list(const std::string &folder)
    {
        DIR *directory = opendir(folder.c_str());
        if (!directory) {
            m_scan.unreadableFolders.push_back(folder);
            skip(folder, errno);
            return;
        }
        std::vector<std::pair<std::string, unsigned char>> entries;
        errno = 0;
        while (const dirent *entry = readdir(directory)) {
            if (entry->d_name[0] != '.')
                entries.emplace_back(entry->d_name, entry->d_type);
            errno = 0;
        }
        const int error = errno; // a drive that goes away ends its folders early
        closedir(directory);
        if (error != 0) {
            m_scan.unreadableFolders.push_back(folder);
            skip(folder, error);
        }
        if (m_stop && m_stop()) {
            m_scan.complete = false;
            return;
        }
        std::sort(entries.begin(), entries.end());

        const std::string prefix = folder.back() == '/' ? folder : folder + '/';
        std::vector<std::string> folders, links;
        for (const auto &[name, type] : entries) {
            const std::string path = prefix + name;
            const unsigned char kind = type == DT_UNKNOWN ? kindOf(path) : type;
            if (kind == DT_LNK)
                links.push_back(path);
            else if (kind == DT_DIR)
                folders.push_back(path);
            else if (isMusicName(name))
                visit(path, false);
        }
        // Both lists are worked off from their ends.
        m_folders.insert(m_folders.end(), folders.rbegin(), folders.rend());
        m_links.insert(m_links.begin(), links.rbegin(), links.rend());
    }

    // Some file systems do not tell the kind along with the name.
    static unsigned char kindOf(const std::string &path)
    {
        struct stat status = {};
        if (::lstat(path.c_str(), &status) != 0)
            return DT_UNKNOWN;
        return S_ISLNK(status.st_mode) ? DT_LNK : S_ISDIR(status.st_mode) ? DT_DIR : DT_REG;
    }

    static std::string identity(const struct stat &status)
    {
        std::string key(sizeof status.st_dev + sizeof status.st_ino, '\0');
        std::memcpy(key.data(), &status.st_dev, sizeof status.st_dev);
        std::memcpy(key.data() + sizeof status.st_dev, &status.st_ino, sizeof status.st_ino);
        return key;
    }

    void skip(const std::string &path, int error)
    {
        const bool folder = !m_scan.unreadableFolders.empty() && m_scan.unreadableFolders.back() == path;
        if (folder || isMusicName(path))
            m_scan.skipped.push_back({ shownPath(path, m_scan.root), cannotBeRead(error) });
    }

    Scan &m_scan;
    const std::function<bool()> &m_stop;
    std::vector<std::string> m_folders;
    std::vector<std::string> m_links;
    std::unordered_set<std::string> m_seen; // device and inode
};

} // namespace

bool isGone(const std::string &path)
{
    struct stat status = {};
    return ::lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

bool isBelow(const std::string &path, const std::string &folder)
{
    return path.compare(0, folder.size(), folder) == 0
        && (path.size() == folder.size() || folder.back() == '/' || path[folder.size()] == '/');
}

QString shownPath(const std::string &path, const std::string &folder)
{
    if (folder.empty() || path.size() <= folder.size() || !isBelow(path, folder))
        return displayPath(path);
    return displayPath(path.substr(folder.size() + (folder.back() != '/')));
}

Scan scanFolder(const std::string &root, const std::function<bool()> &stop)
{
    Scan scan;
    std::error_code error;
    scan.root = std::filesystem::canonical(root, error).native();
    if (error) {
        scan.root = root;
        scan.unreadableFolders.push_back(root);
        return scan;
    }
    scan.rootMark = markOfFolder(scan.root);
    FolderScanner(scan, stop).run();
    return scan;
}

std::optional<std::pair<quint64, quint64>> markOfFolder(const std::string &folder)
{
    struct stat status = {};
    if (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return std::nullopt;
    return std::pair { quint64(status.st_dev), quint64(status.st_ino) };
}

Scan scanFiles(const std::vector<std::string> &files)
{
    Scan scan;
    for (const std::string &file : files) {
        // Called as a look through its folder would call it.
        std::error_code error;
        const std::filesystem::path named(file);
        const std::filesystem::path folder = std::filesystem::canonical(named.parent_path(), error);
        const std::string path = error ? file : (folder / named.filename()).native();
        struct stat status = {};
        if (::stat(path.c_str(), &status) != 0)
            scan.skipped.push_back({ displayPath(path), cannotBeRead(errno) });
        else if (!S_ISREG(status.st_mode))
            scan.skipped.push_back({ displayPath(path), u"not a regular file"_s });
        else if (std::none_of(scan.files.begin(), scan.files.end(), [&](const auto &one) { return one.path == path; }))
            scan.files.push_back(scannedFile(path, status));
    }
    scan.root = scan.files.empty() ? "/" : std::filesystem::path(scan.files[0].path).parent_path().native();
    for (const ScannedFile &file : scan.files) {
        while (!isBelow(file.path, scan.root))
            scan.root = std::filesystem::path(scan.root).parent_path().native();
    }
    return scan;
}

QUrl urlOfPath(const std::string &path)
{
    return QUrl::fromEncoded("file://" + QByteArray::fromStdString(path).toPercentEncoding("/"), QUrl::StrictMode);
}

std::string pathOfUrl(const QUrl &url)
{
    return QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1()).toStdString();
}
