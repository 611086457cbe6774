#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <QString>
#include <QUrl>

/// A music file as the scan found it. Size and time tell later whether it changed.
struct ScannedFile
{
    std::string path; ///< in the bytes of the file system, which need not be text
    qint64 size = 0;
    qint64 modified = 0; ///< microseconds since 1970 UTC
};

struct SkippedFile
{
    QString file; ///< relative to the scanned folder, for people
    QString reason;
};

struct Scan
{
    std::string root; ///< canonical
    std::vector<ScannedFile> files; ///< folder by folder, sorted by name
    std::vector<SkippedFile> skipped;
    /// Folders that cannot be looked into: nothing is known about what they hold.
    std::vector<std::string> unreadableFolders;
    bool complete = true; ///< false when it was stopped
    /// Which folder stood there when it was looked through: see markOfFolder(). Absent where it could not be.
    std::optional<std::pair<quint64, quint64>> rootMark;
};

/// How files' names end that hold music: "flac".
std::span<const std::string_view> musicExtensions();
/// Whether a file's name ends as those of music do.
bool isMusicName(std::string_view name);

/// Looks for music below a folder, by the files' extensions. Hidden files are left alone; links are followed,
/// and each folder is visited once, so that links may lead in circles. Any thread; stop is asked now and then.
Scan scanFolder(const std::string &root, const std::function<bool()> &stop = {});

/// Looks at these files alone, whatever they are called; the root is the folder that they share. Any thread.
Scan scanFiles(const std::vector<std::string> &files);

/// Device and number of a folder: another one when a drive goes away, or its place stays behind empty.
std::optional<std::pair<quint64, quint64>> markOfFolder(const std::string &folder);

/// Whether there is no such file. One that cannot be looked at is not gone.
bool isGone(const std::string &path);

/// Whether a path is that of a folder or leads through it.
bool isBelow(const std::string &path, const std::string &folder);
/// How a path is shown to people: relative to the folder where it is below it.
QString shownPath(const std::string &path, const std::string &folder);

/// File URL of a path, byte for byte, and back.
QUrl urlOfPath(const std::string &path);
std::string pathOfUrl(const QUrl &url);
