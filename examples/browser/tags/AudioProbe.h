#pragma once

#include <optional>
#include <string>

#include <QByteArray>
#include <QMap>

/// What the decoder library knows of a file: the second opinion where the tag library has none.
struct AudioProbe
{
    std::optional<double> duration; ///< seconds
    int sampleRate = 0; ///< hertz
    int channels = 0;
    std::optional<int> bitrate; ///< kilobits a second
    /// Tags by upper-case name, in whatever encoding the file has them.
    QMap<QByteArray, QByteArray> tags;
};

/// std::nullopt when there is no audio in the file. path is in the bytes of the file system. Any thread.
std::optional<AudioProbe> probeAudio(const std::string &path);
